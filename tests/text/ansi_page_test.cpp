// The ANSI code page in the charset of this run's environment.
#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/locale.h"
#include "support/child_process.h"
#include "text/ansi_string.h"

using namespace qv::platform;
using qv::test::Child;

namespace
{

// A text in the locale's charset, what the page makes of it, and what comes back. An empty locale
// stands for "C" and for what is left of one that is not installed.
const struct
{
    std::string locale, narrow;
    std::u16string wide;
    std::string back;
} kRows[] = {
    {"C.UTF-8", "a\xC3\xA4\xF0\x9F\x98\x80", u"a\xE4\xD83D\xDE00", "a\xC3\xA4\xF0\x9F\x98\x80"},
    {"C.UTF-8", "a\xFFz", u"a\xFFFDz", "a\xEF\xBF\xBDz"},
    {"C.UTF-8", "a\xE2\x82", u"a\xFFFD", "a\xEF\xBF\xBD"},
    {"de_DE.ISO-8859-1", "a\xE4\xFF\x80", u"a\xE4\xFF\x80", "a\xE4\xFF\x80"},
    {"hy_AM.ARMSCII-8", "a\xB2\xB3", u"a\x531\x561", "a\xB2\xB3"}, // none of ICU's
    {"hy_AM.ARMSCII-8", "\xFFz", u"\xFFFDz", "?z"},
    {"", "a\xE4z", u"a\xFFFDz", "a?z"},
};

// The first test, so that some forks meet the first use.
TEST(AnsiPage, WorksInAForkedChild)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators hang there by themselves";
#endif
    const auto convert = [] {
        char16_t wide[2];
        return MultiByteToWideChar(CP_ACP, 0, "ab", 2, wide, 2) == 2 && wide[1] == u'b';
    };
    std::atomic<bool> done{false};
    const std::jthread other([&] {
        while (!done) {
            convert();
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_TRUE(Child([&] {
                        alarm(10);
                        return convert();
                    }).Succeeded());
    }
    done = true;
}

TEST(AnsiPage, ConvertsBothWaysInManyThreads)
{
    const std::string named = std::getenv("LC_ALL");
    const std::string locale = named == "C" || named == "xx_XX" ? "" : named;
    const auto convert = [&] {
        for (const auto& row : kRows) {
            if (row.locale == locale) {
                EXPECT_EQ(row.wide, QVAnsiToWString(row.narrow.c_str())) << row.narrow;
                EXPECT_EQ(row.back, QVWStringToAnsi(row.wide.c_str())) << row.narrow;
            }
        }
        EXPECT_EQ(locale == "C.UTF-8" ? "\xE2\x98\x83\xEF\xBF\xBDz" : "??z",
                  QVWStringToAnsi(u"\x2603\xD83Dz"));
    };
    {
        std::vector<std::jthread> threads; // they meet at the first use
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back(convert);
        }
    }
    std::setlocale(LC_ALL, "C"); // the host may change its own locale; the page stays
    convert();
}

TEST(AnsiPage, SizesAndErrors)
{
    char16_t wide[3];
    char narrow[3];
    EXPECT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0));
    EXPECT_EQ(3, MultiByteToWideChar(CP_ACP, 0, "a\0c", 3, wide, 3));
    EXPECT_EQ(3, WideCharToMultiByte(CP_ACP, 0, wide, 3, narrow, 3, nullptr, nullptr));
    EXPECT_EQ(std::string("a\0c", 3), std::string(narrow, 3));
    for (const int size : {0, 3}) {
        EXPECT_EQ(0, MultiByteToWideChar(CP_ACP, 0, "abc", size, wide, 2));
        EXPECT_EQ(size == 0 ? 87u : 122u, GetLastError());
        EXPECT_EQ(0, WideCharToMultiByte(CP_ACP, 0, u"abc", size, narrow, 2, nullptr, nullptr));
        EXPECT_EQ(size == 0 ? 87u : 122u, GetLastError());
    }
}

} // namespace
