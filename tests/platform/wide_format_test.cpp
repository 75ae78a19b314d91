// The wide format language: rows checked by hand, and numbers against the C library's.
#include "platform/wide_format.h"

#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

using namespace qv::platform;

namespace
{

constexpr std::size_t kRoom = 4096;

struct Made
{
    std::u16string text;
    int result;
};

// Into a buffer of just that size, with a canary behind it.
template <class... Argument> Made Cut(std::size_t size, const WCHAR* format, Argument... arguments)
{
    constexpr WCHAR kCanary = 0xBEEF;
    std::vector<WCHAR> buffer(size + 1, kCanary);
    const int result = _snwprintf(buffer.data(), size, format, arguments...);
    EXPECT_EQ(buffer[size], kCanary);
    const std::size_t length = result >= 0 ? static_cast<std::size_t>(result)
                                           : std::char_traits<WCHAR>::length(buffer.data());
    EXPECT_LT(length, size);
    EXPECT_EQ(buffer[length], 0);
    return {std::u16string(buffer.data(), length), result};
}

template <class... Argument> std::u16string F(const WCHAR* format, Argument... arguments)
{
    return Cut(kRoom, format, arguments...).text;
}

TEST(WideFormat, ShowsWhatIsAskedFor)
{
    const WCHAR* const noText = nullptr;
    const char* const noNarrow = nullptr;
    const WCHAR wide[] = {u'a', u'b', u'c'}; // neither has a terminator
    const char narrow[] = {'x', 'y', 'z'};
    std::uint64_t unstored = 7;
    const std::u16string beef = std::u16string(2 * sizeof(void*) - 4, u'0') + u"BEEF";
    auto* const pointer = reinterpret_cast<void*>(std::uintptr_t{0xBEEF});
    const struct
    {
        std::u16string made;
        std::u16string expected;
    } rows[] = {
        {F(nullptr), u"(null)"},
        {F(u"%s|%ls|%ws|%lS", u"a", u"b\u00DF", u"\u20AC", u"w"), u"a|b\u00DF|\u20AC|w"},
        {F(u"%hs|%S|%hS|%hhs", "a", "b\xC3\x9F", "\xF0\x9F\x98\x80", "d"),
         u"a|b\u00DF|\U0001F600|d"},
        {F(u"%hs", "a\xFFz\xC3"), u"a\uFFFDz\uFFFD"},
        {F(u"%s|%hs|%8S|%.3s", noText, noNarrow, noNarrow, noText), u"(null)|(null)|  (null)|(nu"},
        {F(u"%5s|%-5s|%05s|%-05s|%2s", u"abc", u"abc", u"abc", u"abc", u"abc"),
         u"  abc|abc  |00abc|abc  |abc"},
        {F(u"%4hs|%-4hs|%04hs", "a\xC3\x9F", "a\xC3\x9F", "a\xC3\x9F"),
         u"  a\u00DF|a\u00DF  |00a\u00DF"},
        {F(u"%.3s|%.*s|%.0s|%.s|%.2s", wide, 3, wide, noText, u"no", u"a"), u"abc|abc|||a"},
        {F(u"%.3hs|%.2S|%5.1hs|%.2147483647s", narrow, narrow, "pq", u"r"), u"xyz|xy|    p|r"},
        {F(u"%*s|%*s|%-*s|%.*s", 4, u"r", -4, u"l", -4, u"k", -1, u"all"), u"   r|l   |k   |all"},
        {F(u"%c%lc%wc%hc%C%hhc|%3c|%hc", u'\u20AC', u'b', u'c', 'd', 'e', 'f', u'x', '\xFF'),
         u"\u20ACbcdef|  x|\uFFFD"},
        {F(u"a%cb", 0), std::u16string(u"a\0b", 3)},
        {F(u"%I64d|%I64u|%I32d|%I32u", INT64_MIN, UINT64_MAX, -5, UINT32_MAX),
         u"-9223372036854775808|18446744073709551615|-5|4294967295"},
        {F(u"%Id|%Ix|%zd|%jd|%td", std::intptr_t{-6}, std::uintptr_t{0xF}, std::size_t(-1),
           std::intmax_t{-2}, std::ptrdiff_t{-3}),
         u"-6|f|-1|-2|-3"},
        {F(u"%p|%-18p|%#p", pointer, pointer, pointer),
         beef + u"|" + beef + std::u16string(18 - beef.size(), u' ') + u"|0X" + beef},
        {F(u"%d%n%d%%%5%", 1, &unstored, 2), u"12%%"},
        {F(u"%*d|%-*d|%0*d|%*.*d", 3, 1, 3, 2, 3, 3, 4, -1, 5), u"  1|2  |003|   5"},
        {F(u"%lf|%Lf|%Lg|%d", 1.0, 2.0L, 1e400L, 3), u"1.000000|2.000000|inf|3"},
        // No conversions. From there on nobody knows where the arguments lie: none may be read.
        {F(u"%d %y %s", 1), u"1 %y %s"},
        {F(u"%1$s %s"), u"%1$s %s"},
        {F(u"%I6d %'d"), u"%I6d %'d"},
        {F(u"a%-08.3ll"), u"a%-08.3ll"},
        {F(u"%*"), u"%*"},
        {F(u"a%"), u"a%"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.made, row.expected) << "row " << &row - rows;
    }
    EXPECT_EQ(unstored, 7u);
    errno = 77;
    F(u"%.1100f %hs", DBL_MIN, "\xFF");
    EXPECT_EQ(errno, 77);
}

// Among them amounts that would take minutes, gigabytes or a jump over the buffer's end if they
// were done as written.
TEST(WideFormat, EndsWithTheBuffer)
{
    const std::u16string blanks(511, u' ');
    const std::u16string zeros(511, u'0');
    const struct
    {
        Made made;
        std::u16string expected;
        int result = -1;
    } rows[] = {
        {Cut(6, u"%s", u"abcde"), u"abcde", 5},
        {Cut(5, u"%s", u"abcde"), u"abcd"},
        {Cut(1, u"x"), u""},
        {Cut(1, u""), u"", 0},
        {Cut(4, u"%5d", 7), u"   "},
        {Cut(4, u"%-5d", 7), u"7  "},
        {Cut(6, u"%8hs", "abc"), u"     "},
        {Cut(7, u"%8hs|", "a\xC3\x9F\x63"), u"     a"},
        {Cut(4, u"ab\U0001F600"), u"ab"},
        {Cut(4, u"%s%s", u"ab", u"\U0001F600"), u"ab"},
        {Cut(4, u"ab%hs", "\xF0\x9F\x98\x80"), u"ab"},
        {Cut(4, u"ab%s", u"\xD83Dz"), u"ab\xD83D"},
        {Cut(5, u"ab\U0001F600"), u"ab\U0001F600", 4},
        {Cut(4, u"%y%s"), u"%y%"},
        {Cut(512, u"%99999999999999999999d", 1), blanks},
        {Cut(512, u"%*d", INT_MAX, 1), blanks},
        {Cut(512, u"%-2147483647s|", u"a"), u'a' + blanks.substr(1)},
        {Cut(512, u"%*d|", INT_MIN, 1), u'1' + blanks.substr(1)},
        {Cut(512, u"%2147483647hs", "\xC3\x9F"), blanks},
        {Cut(512, u"%2147483647.2147483646x", 1), u' ' + zeros.substr(1)},
        {Cut(512, u"%.2147483647f", 1.5), u"1.5" + zeros.substr(3)},
        {Cut(512, u"%2147483647.2147483647e", 1.5), u"1.5" + zeros.substr(3)},
        {Cut(512, u"%.*a", INT_MAX, 1.0), u"0x1." + zeros.substr(4)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.made.text, row.expected) << &row - rows;
        EXPECT_EQ(row.made.result, row.result) << &row - rows;
    }
    EXPECT_EQ(_snwprintf(nullptr, 0, u"x"), -1);
}

class Random
{
public:
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_engine() % limit); }
    std::uint64_t Bits() { return m_engine() >> Below(64); }
    double Double()
    {
        const double unbounded[] = {HUGE_VAL, -HUGE_VAL, -0.0};
        return Below(20) == 0  ? unbounded[Below(3)]
               : Below(2) == 0 ? std::bit_cast<double>(m_engine())
                               : (static_cast<double>(Bits()) - 1e9) / 1024;
    }
    // Flags, width and precision.
    std::string Head()
    {
        std::string head = "%";
        for (const char flag : {'-', '+', ' ', '#', '0'}) {
            head.append(Below(3) == 0 ? 1 : 0, flag);
        }
        head += Below(2) == 0 ? std::to_string(1 + Below(40)) : "";
        head += Below(2) == 0 ? '.' + std::to_string(Below(Below(20) == 0 ? 1500 : 30)) : "";
        return head;
    }

private:
    std::mt19937_64 m_engine{20240229};
};

// The same by the C library, and what a smaller buffer shows of it.
template <class T> void Compare(Random& random, const std::string& format, T value)
{
    char expected[kRoom];
    const int length = std::snprintf(expected, sizeof expected, format.c_str(), value);
    const std::u16string wideFormat(format.begin(), format.end());
    const std::u16string wide(expected, expected + length);
    ASSERT_EQ(F(wideFormat.c_str(), value), wide) << format;
    const std::size_t size = 1 + random.Below(static_cast<unsigned>(length) + 2);
    ASSERT_EQ(Cut(size, wideFormat.c_str(), value).text, wide.substr(0, size - 1)) << format;
}

TEST(WideFormat, NumbersAreThoseOfTheCLibrary)
{
    Random random;
    for (int round = 0; round < 10'000 && !HasFatalFailure(); ++round) {
        const std::string head = random.Head();
        const char integer = "diuoxX"[random.Below(6)];
        const std::uint64_t bits = random.Bits();
        const unsigned kind = random.Below(7);
        if (kind < 3) {
            const std::string sizes[] = {"", "h", "hh"};
            Compare(random, head + sizes[kind] + integer, static_cast<int>(bits));
        } else if (kind == 3) {
            Compare(random, head + "l" + integer, static_cast<long>(bits));
        } else if (kind == 4) {
            Compare(random, head + "ll" + integer, static_cast<long long>(bits));
        } else {
            Compare(random, head + "eEfFgGaA"[random.Below(8)], random.Double());
        }
    }
}

} // namespace
