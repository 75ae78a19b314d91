// String members beside the routine that a user would call instead, or that stands behind them.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/str.h>
#include <strings.h>
#include <unicode/ustring.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

// Letters of both cases and some others, all ASCII.
std::string Text(std::size_t length)
{
    const std::string pattern = "The Quick-Brown fox_JUMPED over 12 lazy Dogs. ";
    std::string text;
    while (text.size() < length) {
        text += pattern;
    }
    return text.substr(0, length);
}

std::u16string WideText(std::size_t length)
{
    const std::string text = Text(length);
    return {text.begin(), text.end()};
}

std::size_t Length(const benchmark::State& state)
{
    return static_cast<std::size_t>(state.range(0));
}

// The pointers are hidden in each round, so that no call is moved out of the loop.
template <class Unit, class Call>
void Read(benchmark::State& state, const std::basic_string<Unit>& text, Call call)
{
    const Unit* pointer = text.c_str();
    for (auto _ : state) {
        benchmark::DoNotOptimize(pointer);
        benchmark::DoNotOptimize(call(pointer));
    }
}

template <class Unit, class Call>
void Write(benchmark::State& state, const std::basic_string<Unit>& text, Call call)
{
    std::vector<Unit> dest(text.size() + 1);
    const Unit* pointer = text.c_str();
    Unit* to = dest.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(pointer);
        benchmark::DoNotOptimize(to);
        benchmark::DoNotOptimize(call(to, pointer));
        benchmark::ClobberMemory();
    }
}

// Two texts that are equal but for their case and their alignment.
template <class Call> void CompareFolded(benchmark::State& state, Call call)
{
    std::string other = Text(Length(state) + 1);
    for (char& c : other) {
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    }
    const char* second = other.c_str() + 1;
    Read(state, Text(Length(state) + 1).substr(1), [&](const char* first) {
        benchmark::DoNotOptimize(second);
        return call(first, second);
    });
}

template <class Unit, class Call>
void Compare(benchmark::State& state, const std::basic_string<Unit>& text, Call call)
{
    const std::basic_string<Unit> other = text;
    const Unit* second = other.c_str();
    Read(state, text, [&](const Unit* first) {
        benchmark::DoNotOptimize(second);
        return call(first, second);
    });
}

template <class Call> void Widen(benchmark::State& state, Call call)
{
    const auto size = static_cast<uint32_t>(Length(state) + 1);
    std::vector<wchar_t> buffer(size); // as large as the C library's own wide text needs
    wchar_t* dest = buffer.data();
    Read(state, Text(Length(state)), [&](const char* src) {
        benchmark::DoNotOptimize(dest);
        const auto result = call(dest, src, size);
        benchmark::ClobberMemory();
        return result;
    });
}

// Each round starts from the text as it was; the copy is a part of both sides.
template <class Unit, class Call>
void MapCase(benchmark::State& state, const std::basic_string<Unit>& text, Call call)
{
    std::vector<Unit> buffer(text.size() + 1);
    Unit* pointer = buffer.data();
    for (auto _ : state) {
        std::memcpy(pointer, text.c_str(), buffer.size() * sizeof(Unit));
        benchmark::DoNotOptimize(pointer);
        benchmark::DoNotOptimize(call(pointer));
        benchmark::ClobberMemory();
    }
}

QVWChar* IcuToLower(QVWChar* text)
{
    const int32_t length = u_strlen(text);
    UErrorCode status = U_ZERO_ERROR;
    u_strToLower(text, length, text, length, nullptr, &status);
    return text;
}

[[gnu::noinline]] char* LoopToLower(char* text)
{
    for (char* at = text; *at != 0; ++at) {
        if (*at >= 'A' && *at <= 'Z') {
            *at = static_cast<char>(*at + 32);
        }
    }
    return text;
}

[[gnu::noinline]] const QVWChar* LoopChr(const QVWChar* text, QVWChar unit)
{
    for (; *text != unit; ++text) {
        if (*text == 0) {
            return nullptr;
        }
    }
    return text;
}

using benchmark::State;

void Add(const char* name, std::initializer_list<int> lengths, void (*run)(State&))
{
    benchmark::internal::Benchmark* const added = benchmark::RegisterBenchmark(name, run);
    for (const int length : lengths) {
        added->Arg(length);
    }
}

struct Pair
{
    const char* ours;
    const char* peer;
    std::vector<int> lengths;
    std::vector<double> atMost;
};

bool AddAll()
{
    // clang-format off
    Add("str/QVStrLenW", {8, 64, 1024}, [](State& s) { Read(s, WideText(Length(s)), QVStrLenW); });
    Add("str/u_strlen", {8, 64, 1024}, [](State& s) { Read(s, WideText(Length(s)), u_strlen); });
    Add("str/QVStrLenA", {64}, [](State& s) { Read(s, Text(Length(s)), QVStrLenA); });
    Add("str/strlen", {64}, [](State& s) { Read(s, Text(Length(s)), [](const char* t) { return std::strlen(t); }); });

    Add("str/QVStrICmpA", {8, 64, 1024}, [](State& s) { CompareFolded(s, QVStrICmpA); });
    Add("str/strcasecmp", {8, 64, 1024}, [](State& s) { CompareFolded(s, strcasecmp); });
    Add("str/QVStrCmpA", {8, 64, 1024}, [](State& s) { Compare(s, Text(Length(s)), QVStrCmpA); });
    Add("str/strcmp", {8, 64, 1024}, [](State& s) { Compare(s, Text(Length(s)), [](const char* a, const char* b) { return std::strcmp(a, b); }); });
    Add("str/QVStrCmpUTF16", {64}, [](State& s) { Compare(s, WideText(Length(s)), QVStrCmpUTF16); });
    Add("str/u_strcmpCodePointOrder", {64}, [](State& s) { Compare(s, WideText(Length(s)), u_strcmpCodePointOrder); });

    Add("str/QVAnsiToUnicode", {8, 64, 1024}, [](State& s) {
        Widen(s, [](wchar_t* to, const char* from, uint32_t size) { return QVAnsiToUnicode(reinterpret_cast<QVWChar*>(to), from, size); });
    });
    Add("str/mbstowcs", {8, 64, 1024}, [](State& s) {
        Widen(s, [](wchar_t* to, const char* from, uint32_t size) { return std::mbstowcs(to, from, size); });
    });
    Add("str/u_strFromUTF8", {8, 64, 1024}, [](State& s) {
        Widen(s, [](wchar_t* to, const char* from, uint32_t size) {
            int32_t length = 0;
            UErrorCode status = U_ZERO_ERROR;
            u_strFromUTF8(reinterpret_cast<QVWChar*>(to), static_cast<int32_t>(size), &length, from, -1, &status);
            return length;
        });
    });

    Add("str/QVStrToLowerW", {64, 1024}, [](State& s) { MapCase(s, WideText(Length(s)), QVStrToLowerW); });
    Add("str/u_strToLower", {64, 1024}, [](State& s) { MapCase(s, WideText(Length(s)), IcuToLower); });
    Add("str/QVStrToLowerA", {64, 1024}, [](State& s) { MapCase(s, Text(Length(s)), QVStrToLowerA); });
    Add("str/byte loop", {64, 1024}, [](State& s) { MapCase(s, Text(Length(s)), LoopToLower); });

    Add("str/QVStrCpyA", {64}, [](State& s) { Write(s, Text(Length(s)), QVStrCpyA); });
    Add("str/strcpy", {64}, [](State& s) { Write(s, Text(Length(s)), [](char* to, const char* from) { return std::strcpy(to, from); }); });
    Add("str/QVStrStrA", {1024}, [](State& s) { Read(s, Text(Length(s)), [](const char* t) { return QVStrStrA(t, "no such"); }); });
    Add("str/strstr", {1024}, [](State& s) { Read(s, Text(Length(s)), [](const char* t) { return std::strstr(t, "no such"); }); });
    Add("str/QVStrChrW", {8, 64}, [](State& s) { Read(s, WideText(Length(s)), [](const QVWChar* t) { return QVStrChrW(t, u'%'); }); });
    Add("str/unit loop", {8, 64}, [](State& s) { Read(s, WideText(Length(s)), [](const QVWChar* t) { return LoopChr(t, u'%'); }); });
    // clang-format on

    const Pair pairs[] = {
        {"QVStrLenW", "u_strlen", {8, 64, 1024}, {0.7, 0.25, 0.25}},
        {"QVStrICmpA", "strcasecmp", {8, 64, 1024}, {1.3, 1.3, 1.3}},
        {"QVAnsiToUnicode", "mbstowcs", {8, 64, 1024}, {0.3, 0.2, 0.1}},
        {"QVAnsiToUnicode", "u_strFromUTF8", {8, 64, 1024}, {0.3, 0.2, 0.1}},
        {"QVStrToLowerW", "u_strToLower", {64, 1024}, {0.15, 0.15}},
        {"QVStrToLowerA", "byte loop", {64, 1024}, {0.5, 0.5}},
        // One call more than the routine: it shows where the routine takes a few nanoseconds.
        {"QVStrLenA", "strlen", {64}, {0}},
        {"QVStrCmpA", "strcmp", {8, 64, 1024}, {0, 0, 1.15}},
        {"QVStrCmpUTF16", "u_strcmpCodePointOrder", {64}, {1.15}},
        {"QVStrCpyA", "strcpy", {64}, {0}},
        {"QVStrStrA", "strstr", {1024}, {1.15}},
        {"QVStrChrW", "unit loop", {8, 64}, {1.15, 1.15}},
    };
    for (const Pair& pair : pairs) {
        for (std::size_t i = 0; i < pair.lengths.size(); ++i) {
            const std::string length = std::to_string(pair.lengths[i]);
            const std::string ours = std::string("str/").append(pair.ours).append("/");
            const std::string peer = std::string("str/").append(pair.peer).append("/");
            bench::AddGoals({{std::string(pair.ours).append(", units: ").append(length),
                              ours + length, peer + length, pair.atMost[i]}});
        }
    }
    return true;
}

const bool g_added = AddAll();

} // namespace
