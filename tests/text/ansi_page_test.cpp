// The ANSI code page in the charset of this run's environment.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
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

// Unconvertible wide text, and the page's own characters.
struct Page
{
    std::vector<Row> rows;
    std::string fromUnpaired; // of u"a\xD83Dz"
    std::string fromSnowman;  // of u"\x2603"
};

Page ExpectedPage()
{
    const std::string locale = std::getenv("LC_ALL");
    if (locale == "C.UTF-8") {
        return {{{"a\xC3\xA4\xF0\x9F\x98\x80", u"a\xE4\xD83D\xDE00", "a\xC3\xA4\xF0\x9F\x98\x80"},
                 {"a\xFFz", u"a\xFFFDz", "a\xEF\xBF\xBDz"},
                 {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
                 {"a\xE2\x82", u"a\xFFFD", "a\xEF\xBF\xBD"}},
                "a\xEF\xBF\xBDz",
                "\xE2\x98\x83"};
    }
    if (locale == "de_DE.ISO-8859-1") {
        return {{{"a\xE4\xFF\x80", u"a\xE4\xFF\x80", "a\xE4\xFF\x80"}}, "a?z", "?"};
    }
    if (locale == "hy_AM.ARMSCII-8") { // none of ICU's
        return {
            {{"a\xB2\xB3", u"a\x531\x561", "a\xB2\xB3"}, {"\xFFz", u"\xFFFDz", "?z"}}, "a?z", "?"};
    }
    // "C", and what is left of a locale that is not installed.
    return {{{"a\xE4z", u"a\xFFFDz", "a?z"}}, "a?z", "?"};
}

TEST(AnsiPage, ConvertsBothWays)
{
    const Page page = ExpectedPage();
    std::vector<Row> rows = page.rows;
    rows.push_back({"plain", u"plain", "plain"});
    for (const Row& row : rows) {
        EXPECT_EQ(row.wide, QVAnsiToWString(row.narrow.c_str())) << row.narrow;
        EXPECT_EQ(row.back, QVWStringToAnsi(row.wide.c_str())) << row.narrow;
    }
    EXPECT_EQ(page.fromUnpaired, QVWStringToAnsi(u"a\xD83Dz"));
    EXPECT_EQ(page.fromSnowman, QVWStringToAnsi(u"\x2603"));

    // The host may change its own locale; the page stays.
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(rows[0].wide, QVAnsiToWString(rows[0].narrow.c_str()));
    EXPECT_STREQ("C", std::setlocale(LC_ALL, nullptr));
}

TEST(AnsiPage, SizesAndErrors)
{
    char16_t wide[8];
    char narrow[8];
    errno = 7777;
    EXPECT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0));
    EXPECT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 8));
    EXPECT_EQ(std::u16string(u"abc"), wide);
    EXPECT_EQ(3, MultiByteToWideChar(CP_ACP, 0, "a\0c", 3, wide, 3));
    EXPECT_EQ(std::u16string(u"a\0c", 3), std::u16string(wide, 3));
    EXPECT_EQ(4, WideCharToMultiByte(CP_ACP, 0, u"abc", -1, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(3, WideCharToMultiByte(CP_ACP, 0, u"a\0c", 3, narrow, 3, nullptr, nullptr));
    EXPECT_EQ(std::string("a\0c", 3), std::string(narrow, 3));

    const auto expectError = [](DWORD error, int result) {
        EXPECT_EQ(0, result);
        EXPECT_EQ(error, GetLastError());
        SetLastError(ERROR_SUCCESS);
    };
    expectError(122, MultiByteToWideChar(CP_ACP, 0, "abc", 3, wide, 2));
    expectError(122, WideCharToMultiByte(CP_ACP, 0, u"abc", 3, narrow, 2, nullptr, nullptr));
    expectError(87, MultiByteToWideChar(CP_ACP, 0, "abc", 0, wide, 8));
    expectError(87, MultiByteToWideChar(CP_ACP, 0, "abc", -2, wide, 8));
    expectError(87, MultiByteToWideChar(CP_ACP, 0, "abc", 3, wide, -1));
    expectError(87, MultiByteToWideChar(CP_ACP, 0, "abc", 3, nullptr, 8));
    expectError(87, MultiByteToWideChar(CP_ACP, 0, nullptr, 3, wide, 8));
    expectError(87, MultiByteToWideChar(932, 0, "abc", 3, wide, 8));
    expectError(87, MultiByteToWideChar(CP_ACP, 8, "abc", 3, wide, 8));
    expectError(87, WideCharToMultiByte(CP_ACP, 0, u"abc", 3, narrow, 8, "!", nullptr));
    EXPECT_EQ(7777, errno) << "the caller's";
}

// Runs first in a process of its own when the suite is filtered; threads that meet at the first
// use.
TEST(AnsiPage, FirstUseByManyThreads)
{
    const Page page = ExpectedPage();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                wrong += QVAnsiToWString(page.rows[0].narrow.c_str()) != page.rows[0].wide;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong.load());
}

} // namespace
