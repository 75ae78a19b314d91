// Conversion between charsets, beside the C library's and ICU's bare calls.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <iconv.h>
#include <qvcore6/encoding.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <string>
#include <vector>

namespace
{

struct Text
{
    const char* charset;
    const char16_t* name;
    std::string pattern;
};
const Text kTexts[] = {{"WINDOWS-1252", u"windows-1252", "caf\xE9 \x96 plain words. "},
                       {"SHIFT_JIS", u"shift_jis",
                        "\x93\xFA\x96{\x8C\xEA\x82\xCC plain \x83t\x83@\x83"
                        "C\x83\x8B "}};

std::string Repeated(const std::string& pattern, std::size_t size)
{
    std::string text;
    while (text.size() + pattern.size() <= size) {
        text += pattern;
    }
    return text;
}

constexpr std::size_t kLarge = 1 << 20;

void Ours(benchmark::State& state)
{
    const Text& text = kTexts[state.range(0)];
    const std::string source = Repeated(text.pattern, static_cast<std::size_t>(state.range(1)));
    std::vector<char> target(4 * source.size());
    for (auto _ : state) {
        auto read = static_cast<uint32_t>(source.size());
        auto written = static_cast<uint32_t>(target.size());
        if (QVEncConvert(source.data(), &read, text.name, target.data(), &written, u"UTF-8", '?') !=
            S_OK) {
            state.SkipWithError("not converted");
        }
        benchmark::DoNotOptimize(target.data());
    }
}

void Library(benchmark::State& state)
{
    const Text& text = kTexts[state.range(0)];
    const std::string source = Repeated(text.pattern, static_cast<std::size_t>(state.range(1)));
    std::vector<char> target(4 * source.size());
    for (auto _ : state) {
        const iconv_t library = iconv_open("UTF-8", text.charset);
        char* from = const_cast<char*>(source.data());
        char* to = target.data();
        std::size_t left = source.size();
        std::size_t room = target.size();
        if (iconv(library, &from, &left, &to, &room) != 0) {
            state.SkipWithError("not converted");
        }
        iconv_close(library);
        benchmark::DoNotOptimize(target.data());
    }
}

void BareIcu(benchmark::State& state)
{
    const Text& text = kTexts[state.range(0)];
    const std::string source = Repeated(text.pattern, static_cast<std::size_t>(state.range(1)));
    std::vector<char> target(4 * source.size());
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        UConverter* const from = ucnv_open(text.charset, &status);
        UConverter* const to = ucnv_open("UTF-8", &status);
        UChar pivot[1024];
        const char* bytes = source.data();
        char* out = target.data();
        do {
            UChar* end = pivot;
            status = U_ZERO_ERROR;
            ucnv_toUnicode(from, &end, pivot + 1024, &bytes, source.data() + source.size(), nullptr,
                           0, &status);
            const UChar* start = pivot;
            status = U_ZERO_ERROR;
            ucnv_fromUnicode(to, &out, target.data() + target.size(), &start, end, nullptr, 0,
                             &status);
        } while (bytes != source.data() + source.size());
        ucnv_close(from);
        ucnv_close(to);
        benchmark::DoNotOptimize(target.data());
    }
}

void OpenAndClose(benchmark::State& state)
{
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        UConverter* const from = ucnv_open("windows-1252", &status);
        UConverter* const to = ucnv_open("UTF-8", &status);
        ucnv_close(from);
        ucnv_close(to);
    }
}

// ASCII, Latin, and CJK; the second argument is the number of bytes.
std::string Utf8(const benchmark::State& state)
{
    const std::string patterns[] = {"plain words ", "d\xC3\xA9j\xC3\xA0 vu \xC3\xBC",
                                    "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"};
    return Repeated(patterns[state.range(0)], static_cast<std::size_t>(state.range(1)));
}

template <class Convert> void ToUtf16(benchmark::State& state, Convert convert)
{
    const std::string source = Utf8(state);
    std::vector<char16_t> target(source.size() + 1);
    const auto room = static_cast<int32_t>(target.size());
    const auto size = static_cast<int32_t>(source.size());
    for (auto _ : state) {
        int32_t length = 0;
        convert(target.data(), room, &length, source.data(), size);
        benchmark::DoNotOptimize(target.data());
    }
}

template <class Convert> void ToUtf8(benchmark::State& state, Convert convert)
{
    const std::string bytes = Utf8(state);
    std::vector<char16_t> source(bytes.size() + 1);
    int32_t length = 0;
    QVUTF8ToW(source.data(), static_cast<int32_t>(source.size()), &length, bytes.data(),
              static_cast<int32_t>(bytes.size()), -1);
    std::vector<char> target(bytes.size() + 1);
    const auto room = static_cast<int32_t>(target.size());
    for (auto _ : state) {
        int32_t needed = 0;
        convert(target.data(), room, &needed, source.data(), length);
        benchmark::DoNotOptimize(target.data());
    }
}

bool AddAll()
{
    for (auto* const one : {benchmark::RegisterBenchmark("encoding/convert/QVEncConvert", Ours),
                            benchmark::RegisterBenchmark("encoding/convert/iconv", Library),
                            benchmark::RegisterBenchmark("encoding/convert/icu", BareIcu)}) {
        one->Args({0, kLarge})->Args({1, kLarge});
    }
    benchmark::RegisterBenchmark("encoding/short/QVEncConvert", Ours)->Args({0, 20});
    benchmark::RegisterBenchmark("encoding/short/open", OpenAndClose);
    const auto add = [](const char* name, auto run) {
        auto* const one = benchmark::RegisterBenchmark(name, run);
        for (const int kind : {0, 1, 2}) {
            one->Args({kind, 64})->Args({kind, 65536});
        }
    };
    add("encoding/to16/QVEncUTF8ToUTF16", [](benchmark::State& state) {
        ToUtf16(state, [](auto... arguments) { QVEncUTF8ToUTF16(arguments..., 0xFFFD); });
    });
    add("encoding/to16/u_strFromUTF8", [](benchmark::State& state) {
        ToUtf16(state, [](auto... arguments) {
            UErrorCode status = U_ZERO_ERROR;
            u_strFromUTF8(arguments..., &status);
        });
    });
    add("encoding/to8/QVEncUTF16ToUTF8", [](benchmark::State& state) {
        ToUtf8(state, [](auto... arguments) { QVEncUTF16ToUTF8(arguments..., 0xFFFD); });
    });
    add("encoding/to8/u_strToUTF8", [](benchmark::State& state) {
        ToUtf8(state, [](auto... arguments) {
            UErrorCode status = U_ZERO_ERROR;
            u_strToUTF8(arguments..., &status);
        });
    });
    for (const std::string direction : {"16", "8"}) {
        const std::string ours = direction == "16" ? "QVEncUTF8ToUTF16" : "QVEncUTF16ToUTF8";
        const std::string peer = direction == "16" ? "u_strFromUTF8" : "u_strToUTF8";
        for (const std::string arguments :
             {"/0/64", "/1/64", "/2/64", "/0/65536", "/1/65536", "/2/65536"}) {
            bench::AddGoals(
                {{"UTF family" + arguments, "encoding/to" + direction + "/" + ours + arguments,
                  "encoding/to" + direction + "/" + peer + arguments, 1.05}});
        }
    }
    return true;
}

const bool g_registered = AddAll();
const bool g_added = bench::AddGoals({
    {"1 MiB windows-1252", "encoding/convert/QVEncConvert/0/1048576",
     "encoding/convert/iconv/0/1048576", 0.7},
    {"1 MiB windows-1252", "encoding/convert/QVEncConvert/0/1048576",
     "encoding/convert/icu/0/1048576", 1.05},
    {"1 MiB shift_jis", "encoding/convert/QVEncConvert/1/1048576",
     "encoding/convert/iconv/1/1048576", 0.7},
    {"1 MiB shift_jis", "encoding/convert/QVEncConvert/1/1048576", "encoding/convert/icu/1/1048576",
     1.05},
    {"20 bytes", "encoding/short/QVEncConvert/0/20", "encoding/short/open", 1.3},
});

} // namespace
