// The ANSI code page in the charset of this run's environment.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/locale.h"
#include "text/ansi_string.h"

using namespace qv::platform;

namespace
{

// A text, what the page makes of it, and what comes back.
struct Row
{
    std::string narrow;
    std::u16string wide;
    std::string back;
};

std::vector<Row> ExpectedPage()
{
    const std::string locale = std::getenv("LC_ALL");
    if (locale == "C.UTF-8") {
        return {{"a\xC3\xA4\xF0\x9F\x98\x80", u"a\xE4\xD83D\xDE00", "a\xC3\xA4\xF0\x9F\x98\x80"},
                {"a\xFFz", u"a\xFFFDz", "a\xEF\xBF\xBDz"},
                {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
                {"a\xE2\x82", u"a\xFFFD", "a\xEF\xBF\xBD"}};
    }
    if (locale == "de_DE.ISO-8859-1") {
        return {{"a\xE4\xFF\x80", u"a\xE4\xFF\x80", "a\xE4\xFF\x80"}};
    }
    if (locale == "hy_AM.ARMSCII-8") { // none of ICU's
        return {{"a\xB2\xB3", u"a\x531\x561", "a\xB2\xB3"}, {"\xFFz", u"\xFFFDz", "?z"}};
    }
    // "C", and what is left of a locale that is not installed.
    return {{"a\xE4z", u"a\xFFFDz", "a?z"}};
}

TEST(AnsiPage, ConvertsBothWaysInManyThreads)
{
    const std::vector<Row> rows = ExpectedPage();
    std::vector<std::thread> threads; // they meet at the first use
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (const Row& row : rows) {
                EXPECT_EQ(row.wide, QVAnsiToWString(row.narrow.c_str())) << row.narrow;
                EXPECT_EQ(row.back, QVWStringToAnsi(row.wide.c_str())) << row.narrow;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const bool isUtf8 = rows.size() == 4;
    EXPECT_EQ(isUtf8 ? "a\xEF\xBF\xBDz" : "a?z", QVWStringToAnsi(u"a\xD83Dz"));
    EXPECT_EQ(isUtf8 ? "\xE2\x98\x83" : "?", QVWStringToAnsi(u"\x2603"));

    // The host may change its own locale; the page stays.
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(rows[0].wide, QVAnsiToWString(rows[0].narrow.c_str()));
}

TEST(AnsiPage, SizesAndErrors)
{
    char16_t wide[3];
    char narrow[3];
    EXPECT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0));
    EXPECT_EQ(3, MultiByteToWideChar(CP_ACP, 0, "a\0c", 3, wide, 3));
    EXPECT_EQ(3, WideCharToMultiByte(CP_ACP, 0, wide, 3, narrow, 3, nullptr, nullptr));
    EXPECT_EQ(std::string("a\0c", 3), std::string(narrow, 3));
    EXPECT_EQ(0, MultiByteToWideChar(CP_ACP, 0, "abc", 0, wide, 3));
    EXPECT_EQ(87u, GetLastError());
    EXPECT_EQ(0, MultiByteToWideChar(CP_ACP, 0, "abc", 3, wide, 2));
    EXPECT_EQ(122u, GetLastError());
    SetLastError(0);
    EXPECT_EQ(0, WideCharToMultiByte(CP_ACP, 0, u"abc", 3, narrow, 2, nullptr, nullptr));
    EXPECT_EQ(122u, GetLastError());
}

} // namespace
