// Charsets: streams and whole texts beside ICU's own calls and the C library's.
#include <qvcore6/encoding.h>

#include <gtest/gtest.h>
#include <iconv.h>
#include <qvcore6/utf16file.h>
#include <unicode/ucnv.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/alloc_faults.h"
#include "support/child_process.h"
#include "support/encoding_stream.h"
#include "support/icu_memory.h"

using namespace qv::test;

namespace
{

std::string ByLibrary(const char* charset, const std::string& utf8)
{
    const iconv_t library = iconv_open(charset, "UTF-8");
    std::string result(4 * utf8.size() + 16, 0);
    char* from = const_cast<char*>(utf8.data());
    char* to = result.data();
    std::size_t left = utf8.size();
    std::size_t room = result.size();
    iconv(library, &from, &left, &to, &room);
    iconv(library, nullptr, nullptr, &to, &room);
    iconv_close(library);
    result.resize(result.size() - room);
    return result;
}

std::string Utf8(const std::u16string& text)
{
    std::string bytes(3 * text.size() + 1, 0);
    int32_t length = 0;
    EXPECT_EQ(S_OK, QVWToUTF8(bytes.data(), static_cast<int32_t>(bytes.size()), &length,
                              text.data(), static_cast<int32_t>(text.size()), -1));
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

QVRESULT Convert(const std::string& bytes, const char16_t* from, std::string* result,
                 const char16_t* to, int32_t substitute = '?', std::size_t room = 100'000)
{
    result->assign(room, 0);
    auto read = static_cast<uint32_t>(bytes.size());
    auto written = static_cast<uint32_t>(room);
    const QVRESULT code =
        QVEncConvert(bytes.data(), &read, from, result->data(), &written, to, substitute);
    result->resize(written);
    EXPECT_TRUE(code < 0 || read == bytes.size());
    return code;
}

TEST(Encoding, IsTheSameInPiecesAndWhole)
{
    const struct
    {
        const char16_t* name;
        const char* libraryName;
        std::u16string text;
    } rows[] = {
        {u"UTF-8", "UTF-8", u"a\xE4\x20AC\xD83D\xDE00z"},
        {u"UTF-16LE", "UTF-16LE", u"a\xE4\x20AC\xD83D\xDE00z"},
        {u"UTF-16BE", "UTF-16BE", u"a\xE4\x20AC\xD83D\xDE00z"},
        {u"windows-1252", "WINDOWS-1252", u"a\xE4\x20AC\x201Ez"},
        {u"ISO-8859-15", "ISO-8859-15", u"a\xE4\x20ACz"},
        {u"shift_jis", "SHIFT_JIS", u"a\x65E5\x672C\x8A9E\xFF71z"},
        {u"GB18030", "GB18030", u"a\x4E2D\x6587\xE4\x20AC\xD83D\xDE00z"},
        {u"ISO-2022-JP", "ISO-2022-JP", u"a\x65E5\x672Cz\x8A9E"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.libraryName);
        const std::string expected = ByLibrary(row.libraryName, Utf8(row.text));
        for (std::size_t piece = 1; piece <= expected.size(); ++piece) {
            for (const std::size_t room : {1u, 2u, 3u, 1000u}) {
                EncodingStream stream(row.name);
                std::u16string wide;
                std::string bytes;
                EXPECT_EQ(S_OK, stream.ToW(expected, &wide, piece, room));
                EXPECT_EQ(row.text, wide) << piece << ' ' << room;
                EXPECT_EQ(S_OK, stream.FromW(row.text, &bytes, piece, room));
                EXPECT_EQ(expected, bytes) << piece << ' ' << room;
                // After a flush a new stream begins.
                wide.clear();
                EXPECT_EQ(S_OK, stream.ToW(expected, &wide, piece, room));
                EXPECT_EQ(row.text, wide);
            }
        }
        // Whole texts, at all places of the pivot of 1,024 units.
        std::u16string large(1010, u'x');
        for (int i = 0; i < 20; ++i, large += u'x') {
            const std::u16string text = large + row.text + large + row.text;
            const std::string bytes = ByLibrary(row.libraryName, Utf8(text));
            std::string result;
            EXPECT_EQ(S_OK, Convert(bytes, row.name, &result, u"UTF-8"));
            EXPECT_EQ(Utf8(text), result);
            EXPECT_EQ(S_OK, Convert(Utf8(text), u"UTF-8", &result, row.name));
            EXPECT_EQ(bytes, result);
            UErrorCode status = U_ZERO_ERROR;
            std::string byIcu(100'000, 0);
            byIcu.resize(static_cast<std::size_t>(
                ucnv_convert(row.libraryName, "UTF-8", byIcu.data(), 100'000, Utf8(text).data(),
                             static_cast<int32_t>(Utf8(text).size()), &status)));
            EXPECT_EQ(byIcu, result);
        }
    }
}

TEST(Encoding, FindsACharsetForEveryName)
{
    EncodingStream early(nullptr);
    std::u16string wide;
    EXPECT_EQ(QV_E_CONVERTER_NOT_OPEN, early.ToW("a", &wide));
    EXPECT_GT(QVEncUtilInit(nullptr), 200);
    const std::u16string tooLong = u"UTF-8" + std::u16string(123, u',');
    const struct
    {
        const char16_t* name;
        std::u16string wide; // of 82 A0
    } rows[] = {
        {u"shift_jis", u"\x3042"},
        {u"SJIS", u"\x3042"},
        {u"CP932", u"\x3042"},
        {u"CP1252", u"\x201A\xA0"},
        {u"windows-1252", u"\x201A\xA0"},
        {u"none", u"\x82\xA0"},
        {u"", u"\x82\xA0"},
        {u"\x174Fone", u"\x82\xA0"}, // by its low bytes
        {tooLong.c_str(), u"\x82\xA0"},
    };
    testing::internal::CaptureStdout();
    for (const auto& row : rows) {
        EncodingStream opened(row.name);
        wide.clear();
        EXPECT_EQ(S_OK, opened.ToW("\x82\xA0", &wide));
        EXPECT_EQ(row.wide, wide) << testing::PrintToString(std::u16string(row.name));
    }
    EncodingStream standard(nullptr);
    wide.clear();
    EXPECT_EQ(S_OK, standard.ToW("a", &wide));
    EXPECT_EQ(u"a", wide);
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    QVEncToW_Close(nullptr);
    EXPECT_EQ(QV_E_CONVERTER_NOT_OPEN,
              QVEncToW_Convert(nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(QV_E_CONVERTER_NOT_OPEN, QVEncFromW_Flush(nullptr, nullptr, nullptr));
    EXPECT_EQ(E_FAIL, QVEncToW_SetSubstitutionChar(nullptr, '?'));
    EXPECT_EQ(QV_E_CONVERTER_NOT_OPEN, QVEncFromW_SetSubstitutionChar(nullptr, -1));
}

TEST(Encoding, SubstitutesOrStops)
{
    const struct
    {
        const char16_t* name;
        int32_t character;
        QVRESULT set;
        std::string bytes; // of U+4E2D
    } rows[] = {
        {u"windows-1252", '?', S_OK, "?"},
        {u"windows-1252", 0x20AC, S_OK, "\x80"},
        {u"windows-1252", 0, QV_E_INVALID_CHAR, "\x1A"},
        {u"windows-1252", 0x3042, QV_E_INVALID_CHAR, "\x1A"},
        {u"windows-1252", 0x10FFFE, QV_E_INVALID_CHAR, "\x1A"},
        {u"windows-1252", 0xD800, QV_E_INVALID_CHAR, "\x1A"},
        {u"windows-1252", 0x10FFFF, QV_E_INVALID_CHAR, "\x1A"},
        {u"windows-1252", INT32_MAX, QV_E_INVALID_CHAR, "\x1A"},
        {u"UTF-8", 0, S_OK, "\xE4\xB8\xAD"},
        {u"UTF-8", 0x10FFFE, S_OK, "\xE4\xB8\xAD"},
        {u"shift_jis", 0x3042, S_OK, "\x92\x86"},
    };
    for (const auto& row : rows) {
        EncodingStream opened(row.name);
        std::string bytes;
        EXPECT_EQ(row.set, QVEncToW_SetSubstitutionChar(opened.Get(), row.character));
        EXPECT_EQ(S_OK, opened.FromW(u"\x4E2D", &bytes));
        EXPECT_EQ(row.bytes, bytes) << row.character;
    }
    EncodingStream stops(u"shift_jis");
    EXPECT_EQ(S_OK, QVEncFromW_SetSubstitutionChar(stops.Get(), -1));
    EXPECT_EQ(S_OK, QVEncFromW_SetSubstitutionChar(stops.Get(), '?')); // does not lift it
    std::string bytes;
    std::u16string wide;
    EXPECT_EQ(QV_E_INVALID_CHAR, stops.FromW(u"ab\xE9z", &bytes));
    EXPECT_EQ("ab", bytes);
    EXPECT_EQ(QV_E_INVALID_CHAR, stops.ToW("ab\xFFz", &wide));
    EXPECT_EQ(u"ab", wide);
    wide.clear();
    EXPECT_EQ(QV_E_INVALID_CHAR, stops.ToW("ab\x82", &wide)); // at the end
    EXPECT_EQ(u"ab", wide);
    EncodingStream goesOn(u"shift_jis");
    EXPECT_EQ(S_OK, goesOn.ToW("\x82", &wide));
    EXPECT_EQ(u"ab\x1A", wide); // the charset's own, for a single byte
    // A pointer behind its limit, or none with a limit.
    const char* source = bytes.data() + 1;
    char16_t* target = nullptr;
    EXPECT_EQ(E_FAIL, QVEncToW_Convert(goesOn.Get(), &source, bytes.data(), &target, target));
    EXPECT_EQ(E_FAIL, QVEncToW_Convert(goesOn.Get(), &source, source + 1, &target, wide.data()));
}

TEST(Encoding, TellsWhatAWholeConversionDid)
{
    const struct
    {
        std::string bytes;
        const char16_t* from;
        const char16_t* to;
        int32_t substitute;
        uint32_t room;
        QVRESULT result;
        uint32_t read;
        std::string written;
    } rows[] = {
        {"", u"UTF-8", u"shift_jis", '?', 10, S_OK, 0, ""},
        {"a\xE2\x82\xAC", u"UTF-8", u"windows-1252", '?', 2, S_OK, 4, "a\x80"},
        {"a\xE2\x82\xAC", u"UTF-8", u"windows-1252", 0, 2, QV_E_INVALID_CHAR, 4, "--"},
        {"a\xE2\x82\xAC", u"UTF-8", u"ISO-8859-1", '?', 2, S_OK, 4, "a?"},
        {"a\xE2\x82\xAC", u"UTF-8", u"ISO-8859-1", -1, 2, QV_E_INVALID_CHAR, 4, "a"},
        {"ab\xFF", u"UTF-8", u"ISO-8859-1", -1, 5, QV_E_INVALID_CHAR, 3, "ab"},
        {"ab\xE2\x82", u"UTF-8", u"ISO-8859-1", -1, 5, QV_E_INVALID_CHAR, 4, "ab"},
        {"ab\xE2\x82", u"UTF-8", u"UTF-8", 0, 5, S_OK, 4, "ab\xEF\xBF\xBD"},
        {"abc", u"UTF-8", u"UTF-16LE", '?', 5, QV_E_BUFFER_TOO_SMALL, 3, std::string("a\0b\0c", 5)},
        {"abc", u"UTF-8", u"UTF-8", '?', 0, QV_E_BUFFER_TOO_SMALL, 3, ""},
        {"\x1B$BF|", u"ISO-2022-JP", u"UTF-8", '?', 10, S_OK, 5, "\xE6\x97\xA5"},
        {"\xE6\x97\xA5", u"UTF-8", u"ISO-2022-JP", '?', 10, S_OK, 3, "\x1B$BF|\x1B(B"},
        {"\xE6\x97\xA5", u"UTF-8", u"ISO-2022-JP", '?', 6, QV_E_BUFFER_TOO_SMALL, 3,
         "\x1B$BF|\x1B"},
    };
    for (const auto& row : rows) {
        std::string target(10, '-');
        auto read = static_cast<uint32_t>(row.bytes.size());
        uint32_t written = row.room;
        EXPECT_EQ(row.result, QVEncConvert(row.bytes.data(), &read, row.from, target.data(),
                                           &written, row.to, row.substitute))
            << row.bytes;
        EXPECT_EQ(row.read, read) << row.bytes;
        EXPECT_EQ(row.written, target.substr(0, written)) << row.bytes;
        EXPECT_EQ(std::string(10 - written, '-'), target.substr(written));
    }
    uint32_t read = 0;
    uint32_t written = 0;
    EXPECT_EQ(S_OK, QVEncConvert(nullptr, &read, u"UTF-8", nullptr, &written, u"UTF-8", -1));
    read = written = 1;
    EXPECT_EQ(E_FAIL, QVEncConvert(nullptr, &read, u"UTF-8", nullptr, &written, u"UTF-8", -1));
    EXPECT_EQ(0u, read + written);
}

TEST(Encoding, ConvertsAmongTheUtfFamily)
{
    struct Row
    {
        std::string utf8;
        std::u16string utf16;
        std::u32string utf32;
        int32_t substitute;
        QVRESULT result;
    };
    const std::string large(5000, 'x');
    const Row rows[] = {
        {"", u"", U"", -1, S_OK},
        {"a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", u"a\xE4\x20AC\xD83D\xDE00", U"a\xE4\x20AC\x1F600",
         -1, S_OK},
        {"a\xFFz", u"a?z", U"a?z", '?', S_OK},
        {"a\xFFz", u"a\xD83D\xDE00z", U"a\x1F600z", 0x1F600, S_OK},
        {"a\xFFz", std::u16string(u"a\0z", 3), std::u32string(U"a\0z", 3), 0, S_OK},
        {"a\xFFz", u"", U"", -1, QV_E_INVALID_CHAR},
        {"a\xED\xA0\x80", u"", U"", -1, QV_E_INVALID_CHAR},
        {"a", u"", U"", 0xD800, E_FAIL},
        {"a", u"", U"", 0x110000, E_FAIL},
        {large, std::u16string(5000, u'x'), std::u32string(5000, U'x'), -1, S_OK},
    };
    for (const Row& row : rows) {
        for (const bool isTerminated : {false, true}) {
            const int32_t size = isTerminated ? -1 : static_cast<int32_t>(row.utf8.size());
            std::u16string wide(5001, u'-');
            std::u32string points(5001, U'-');
            auto* const units = reinterpret_cast<uint32_t*>(points.data());
            int32_t length = 77;
            EXPECT_EQ(row.result, QVEncUTF8ToUTF16(wide.data(), 5001, &length, row.utf8.data(),
                                                   size, row.substitute));
            EXPECT_EQ(row.utf16, wide.substr(0, static_cast<std::size_t>(length)));
            EXPECT_EQ(row.result, QVEncUTF8ToUTF32(units, 5001, &length, row.utf8.data(), size,
                                                   row.substitute));
            EXPECT_EQ(row.utf32, points.substr(0, static_cast<std::size_t>(length)));
            if (row.result < 0 || row.substitute >= 0) {
                continue;
            }
            std::string bytes(5001, '-');
            EXPECT_EQ(S_OK, QVEncUTF16ToUTF8(
                                bytes.data(), 5001, &length, row.utf16.data(),
                                isTerminated ? -1 : static_cast<int32_t>(row.utf16.size()), -1));
            EXPECT_EQ(row.utf8, bytes.substr(0, static_cast<std::size_t>(length)));
            EXPECT_EQ(S_OK, QVEncUTF32ToUTF8(
                                bytes.data(), 5001, &length,
                                reinterpret_cast<const uint32_t*>(row.utf32.data()),
                                isTerminated ? -9 : static_cast<int32_t>(row.utf32.size()), -1));
            EXPECT_EQ(row.utf8, bytes.substr(0, static_cast<std::size_t>(length)));
        }
    }
    char16_t wide[4] = u"---";
    uint32_t points[4] = {7, 7, 7, 7};
    char bytes[4] = "---";
    int32_t length = 77;
    const uint32_t lone[] = {0xD800, 0};
    EXPECT_EQ(S_OK, QVUTF8ToW(wide, 2, nullptr, "ab", -1, -1)); // no room for a terminator
    EXPECT_EQ(std::u16string(u"ab-"), wide);
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, QVEncUTF8ToUTF16(wide, 1, &length, "ab", -1, -1));
    EXPECT_EQ(2, length);
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, QVEncUTF8ToUTF32(nullptr, 0, &length, "abc", -2, -1));
    EXPECT_EQ(3, length);
    EXPECT_EQ(E_FAIL, QVEncUTF8ToUTF16(wide, 3, &length, "ab", -2, -1));
    EXPECT_EQ(0, length);
    EXPECT_EQ(E_FAIL, QVEncUTF8ToUTF16(wide, -1, &length, "ab", 2, -1));
    EXPECT_EQ(E_FAIL, QVEncUTF8ToUTF16(nullptr, 1, &length, "ab", 2, -1));
    EXPECT_EQ(E_FAIL, QVEncUTF8ToUTF16(wide, 3, &length, nullptr, 2, -1));
    EXPECT_EQ(E_FAIL, QVEncUTF8ToUTF32(points, 3, &length, nullptr, -1, -1));
    EXPECT_EQ(QV_E_INVALID_CHAR, QVEncUTF32ToUTF8(bytes, 4, &length, lone, 1, -1));
    EXPECT_EQ(0, length);
    EXPECT_EQ(S_OK, QVEncUTF32ToUTF8(bytes, 4, &length, lone, -1, '?'));
    EXPECT_EQ(std::string("?"), bytes);
    // More than half of 2 GiB cannot be had; nothing is read.
    length = 77;
    EXPECT_EQ(E_FAIL, QVEncUTF32ToUTF8(bytes, 4, &length, lone, INT32_MAX, '?'));
    EXPECT_EQ(77, length);
    // Substitutes that a pivot of the source's size does not hold.
    const std::string broken(600, '\xFF');
    std::vector<uint32_t> many(1000);
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL,
              QVEncUTF8ToUTF32(many.data(), 1000, &length, broken.data(), 600, 0x1F600));
    EXPECT_EQ(0, length);
}

TEST(Encoding, WholeTextsLeaveNothingToTheNext)
{
    const std::string text = "a\u3042\u3044b"; // with two changes of the mode
    std::string whole;
    ASSERT_EQ(S_OK, Convert(text, u"UTF-8", &whole, u"ISO-2022-JP"));
    for (std::size_t i = 0; i < whole.size(); ++i) {
        std::string part;
        EXPECT_EQ(QV_E_BUFFER_TOO_SMALL,
                  Convert(text, u"UTF-8", &part, u"ISO-2022-JP", '?', static_cast<uint32_t>(i)));
        Convert(whole.substr(0, i), u"ISO-2022-JP", &part, u"UTF-8", -1);
        std::string again;
        EXPECT_EQ(S_OK, Convert(text, u"UTF-8", &again, u"ISO-2022-JP")) << i;
        EXPECT_EQ(whole, again) << i;
        EXPECT_EQ(S_OK, Convert(whole, u"ISO-2022-JP", &again, u"UTF-8", -1)) << i;
        EXPECT_EQ(text, again) << i;
    }
    // The character counts with the name.
    std::string other;
    EXPECT_EQ(S_OK, Convert("\u3042", u"UTF-8", &other, u"windows-1252", '?'));
    EXPECT_EQ("?", other);
    EXPECT_EQ(S_OK, Convert("\u3042", u"UTF-8", &other, u"windows-1252", '!'));
    EXPECT_EQ("!", other);
    EXPECT_EQ(QV_E_INVALID_CHAR, Convert("\u3042", u"UTF-8", &other, u"windows-1252", -1));
}

TEST(Encoding, BearsThreadsAndForks)
{
    std::atomic<bool> isDone = false;
    std::atomic<long> failures = 0;
    const auto use = [&] {
        std::string result;
        const QVRESULT code = Convert("\x82\xA0", u"shift_jis", &result, u"GB18030", '?', 100);
        UFILE* const file = QVFileOpenUTF16("/dev/null", "r"); // opens a converter too
        const bool isFine = code == S_OK && result == "\xA4\xA2" && file != nullptr;
        QVFileCloseUTF16(file);
        failures += isFine ? 0 : 1;
        return isFine;
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!isDone) {
                use();
            }
        });
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The sanitizers' allocators hang in a child by themselves.
    for (int i = 0; i < 100; ++i) {
        Child child([&] {
            alarm(10);
            return use();
        });
        EXPECT_TRUE(child.Succeeded());
    }
#endif
    for (int i = 0; i < 1000; ++i) {
        use();
    }
    isDone = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures);
}

// The last, as it changes ICU's memory functions for good.
TEST(Encoding, WorksOnWithoutMemory)
{
    {
        const FailAllocation first(1);
        EncodingStream none(u"UTF-8");
        std::u16string wide;
        EXPECT_EQ(QV_E_CONVERTER_NOT_OPEN, none.ToW("a", &wide));
        EXPECT_EQ(QV_E_CONVERTER_NOT_OPEN, QVEncToW_SetSubstitutionChar(none.Get(), -1));
    }
    const std::string large(512, 'x');
    std::vector<uint32_t> points(512);
    for (const long failing : {1, 2}) {
        int32_t length = 77;
        const FailAllocation now(failing);
        EXPECT_EQ(failing == 1 ? E_FAIL : S_OK,
                  QVEncUTF8ToUTF32(points.data(), 512, &length, large.data(), 512, -1));
        EXPECT_EQ(failing == 1 ? 77 : 512, length);
    }
    TakeOverIcuMemory();
    testing::internal::CaptureStdout();
    g_icuFailing = -1;
    {
        EncodingStream none(u"windows-1251");
        EncodingStream standard(nullptr);
        g_icuFailing = 0;
        std::u16string wide;
        EXPECT_EQ(QV_E_CONVERTER_NOT_OPEN, none.ToW("a", &wide));
        EXPECT_EQ(E_FAIL, QVEncToW_SetSubstitutionChar(none.Get(), '?'));
    }
    EXPECT_EQ("No converter for ISO-8859-1\nISO-8859-1: Could not open converter\n"
              "default: Could not open converter\n",
              testing::internal::GetCapturedStdout());
    QVRESULT code = E_FAIL;
    for (int n = 1; code != S_OK && n < 100; ++n) {
        std::string result;
        g_icuFailing = n;
        code = Convert("a", u"windows-1250", &result, u"UTF-8");
        EXPECT_TRUE(code == S_OK || code == E_FAIL) << n;
        if (g_icuFailing == 0) {
            code = E_FAIL; // one has failed
        }
    }
    g_icuFailing = 0;
    EXPECT_EQ(S_OK, code);
    std::string result;
    EXPECT_EQ(S_OK, Convert("\xA5", u"windows-1250", &result, u"UTF-8"));
    EXPECT_EQ("\u0104", result) << "what stood in for it was kept";
}

} // namespace
