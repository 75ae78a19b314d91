// The wide format language: rows checked by hand, and numbers against the C library's.
#include "platform/wide_format.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace qv::platform;

namespace
{

constexpr std::size_t kRoom = 4096;
constexpr WCHAR kCanary = 0xBEEF;

struct Made
{
    std::u16string text;
    int result;
};

// Into a buffer of just that size, with a canary behind it.
Made FormatInto(std::size_t size, const WCHAR* format, va_list arguments)
{
    std::vector<WCHAR> buffer(size + 1, kCanary);
    const int result = _vsnwprintf(buffer.data(), size, format, arguments);
    EXPECT_EQ(buffer[size], kCanary);
    std::size_t length =
        result >= 0 ? static_cast<std::size_t>(result) : std::u16string(buffer.data()).size();
    EXPECT_LT(length, size);
    EXPECT_EQ(buffer[length], 0);
    return {std::u16string(buffer.data(), length), result};
}

Made Cut(std::size_t size, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Made made = FormatInto(size, format, arguments);
    va_end(arguments);
    return made;
}

std::u16string F(const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const Made made = FormatInto(kRoom, format, arguments);
    va_end(arguments);
    return made.text;
}

struct Row
{
    std::u16string made;
    std::u16string expected;
};

void Check(std::initializer_list<Row> rows)
{
    for (const Row& row : rows) {
        EXPECT_EQ(row.made, row.expected) << "row " << &row - rows.begin();
    }
}

TEST(WideFormat, Text)
{
    const WCHAR* const noText = nullptr;
    const char* const noNarrow = nullptr;
    const WCHAR unterminated[] = {u'a', u'b', u'c'};
    const char narrowUnterminated[] = {'x', 'y', 'z'};
    Check({
        {F(u""), u""},
        {F(nullptr), u"(null)"},
        {F(u"%s|%ls|%ws|%lS", u"a", u"b\u00DF", u"\u20AC", u"w"), u"a|b\u00DF|\u20AC|w"},
        {F(u"%hs|%S|%hS|%hhs", "a", "b\xC3\x9F", "\xF0\x9F\x98\x80", "d"),
         u"a|b\u00DF|\U0001F600|d"},
        {F(u"%hs", "a\xFFz\xC3"), u"a\uFFFDz\uFFFD"},
        {F(u"%s|%hs|%8S|%.3s", noText, noNarrow, noNarrow, noText), u"(null)|(null)|  (null)|(nu"},
        {F(u"%5s|%-5s|%05s|%-05s|%2s", u"abc", u"abc", u"abc", u"abc", u"abc"),
         u"  abc|abc  |00abc|abc  |abc"},
        {F(u"%6hs|%-6hs|%06hs", "a\xC3\x9F", "a\xC3\x9F", "a\xC3\x9F"),
         u"    a\u00DF|a\u00DF    |0000a\u00DF"},
        {F(u"%.3s|%.*s|%.0s|%.s|%.2s", unterminated, 3, unterminated, noText, u"no", u"a"),
         u"abc|abc|||a"},
        {F(u"%.3hs|%.2S|%5.1hs", narrowUnterminated, narrowUnterminated, "pq"), u"xyz|xy|    p"},
        {F(u"%*s|%*s|%-*s|%.*s", 4, u"r", -4, u"l", -4, u"k", -1, u"all"), u"   r|l   |k   |all"},
        {F(u"%c%lc%wc%hc%C%hhc", u'\u20AC', u'b', u'c', 'd', 'e', 'f'), u"\u20ACbcdef"},
        {F(u"%3c|%-3c|%hc", u'x', u'y', '\xFF'), u"  x|y  |\uFFFD"},
        {F(u"a%cb", 0), std::u16string(u"a\0b", 3)},
    });
}

TEST(WideFormat, IntegersAndPointers)
{
    std::uint64_t unstored = 7;
    auto* const pointer = reinterpret_cast<void*>(std::uintptr_t{0xBEEF});
    Check({
        {F(u"%d|%i|%u|%x|%X|%o", -1, 2, 3u, 0xABCu, 0xABCu, 8u), u"-1|2|3|abc|ABC|10"},
        {F(u"%hhd|%hd|%hhu|%hu", 0x1FF, 0x1FFFE, 0x1FF, 0x1FFFF), u"-1|-2|255|65535"},
        {F(u"%I64d|%I64u|%I64x", INT64_MIN, UINT64_MAX, UINT64_MAX),
         u"-9223372036854775808|18446744073709551615|ffffffffffffffff"},
        {F(u"%I32d|%I32u|%Id|%Ix", -5, UINT32_MAX, std::intptr_t{-6}, std::uintptr_t{0xF}),
         u"-5|4294967295|-6|f"},
        {F(u"%zd|%jd|%td|%ld|%lld|%zu", std::size_t(-1), std::intmax_t{-2}, std::ptrdiff_t{-3}, -4L,
           -5LL, std::size_t{6}),
         u"-1|-2|-3|-4|-5|6"},
        {F(u"%p|%20p|%-18p|%#p|%p", pointer, pointer, pointer, pointer, nullptr),
         sizeof(void*) == 8 ? u"000000000000BEEF|    000000000000BEEF|000000000000BEEF  |"
                              u"0X000000000000BEEF|0000000000000000"
                            : u"0000BEEF|            0000BEEF|0000BEEF          |0X0000BEEF|"
                              u"00000000"},
        {F(u"%d%n%d", 1, &unstored, 2), u"12"},
        {F(u"%d%%%d%5%", 1, 2), u"1%2%"},
        {F(u"%*d|%-*d|%0*d|%*.*d", 3, 1, 3, 2, 3, 3, 4, -1, 5), u"  1|2  |003|   5"},
    });
    EXPECT_EQ(unstored, 7u);
}

// From there on nobody knows where the arguments lie: none may be read as a pointer.
TEST(WideFormat, NoConversion)
{
    Check({
        {F(u"%d %y %s", 1), u"1 %y %s"},
        {F(u"%1$s %s"), u"%1$s %s"},
        {F(u"a%"), u"a%"},
        {F(u"a%-08.3ll"), u"a%-08.3ll"},
        {F(u"%*"), u"%*"},
        {F(u"%I6d"), u"%I6d"},
        {F(u"%'d %Z"), u"%'d %Z"},
    });
}

TEST(WideFormat, Cut)
{
    const struct
    {
        Made made;
        std::u16string expected;
        int result;
    } rows[] = {
        {Cut(6, u"%s", u"abcde"), u"abcde", 5},
        {Cut(5, u"%s", u"abcde"), u"abcd", -1},
        {Cut(1, u"x"), u"", -1},
        {Cut(1, u""), u"", 0},
        {Cut(4, u"%5d", 7), u"   ", -1},
        {Cut(4, u"%-5d", 7), u"7  ", -1},
        {Cut(6, u"%8hs", "abc"), u"     ", -1},
        {Cut(7, u"%8hs|", "a\xC3\x9F\x63"), u"     a", -1},
        {Cut(4, u"ab\U0001F600"), u"ab", -1},
        {Cut(4, u"%s%s", u"ab", u"\U0001F600"), u"ab", -1},
        {Cut(4, u"ab%hs", "\xF0\x9F\x98\x80"), u"ab", -1},
        {Cut(4, u"ab%s", u"\xD83Dz"), u"ab\xD83D", -1},
        {Cut(5, u"ab\U0001F600"), u"ab\U0001F600", 4},
        {Cut(4, u"%y%s"), u"%y%", -1},
        {Cut(4, u"%.9f", 0.99999), u"0.9", -1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.made.text, row.expected) << &row - rows;
        EXPECT_EQ(row.made.result, row.result) << &row - rows;
    }
    EXPECT_EQ(_snwprintf(nullptr, 0, u"x"), -1);
}

// What would take minutes, gigabytes or a jump over the buffer's end if it were done as written.
TEST(WideFormat, HugeAmounts)
{
    const std::u16string blanks(511, u' ');
    const struct
    {
        Made made;
        std::u16string start;
    } rows[] = {
        {Cut(512, u"%1000000000d", 1), blanks},
        {Cut(512, u"%99999999999999999999d", 1), blanks},
        {Cut(512, u"%*d", INT_MAX, 1), blanks},
        {Cut(512, u"%-2147483647s|", u"a"), u'a' + blanks.substr(1)},
        {Cut(512, u"%*d|", INT_MIN, 1), u'1' + blanks.substr(1)},
        {Cut(512, u"%2147483647hs", "\xC3\x9F"), blanks},
        {Cut(512, u"%.2147483647d", 1), std::u16string(511, u'0')},
        {Cut(512, u"%2147483647.2147483646x", 1), u' ' + std::u16string(510, u'0')},
        {Cut(512, u"%.2147483647f", 1.5), u"1.5" + std::u16string(508, u'0')},
        {Cut(512, u"%2147483647.2147483647e", 1.5), u"1.5" + std::u16string(508, u'0')},
        {Cut(512, u"%.*a", INT_MAX, 1.0), u"0x1." + std::u16string(507, u'0')},
        {Cut(512, u"%f%.2147483647s", DBL_MAX, u""), F(u"%.6f", DBL_MAX)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.made.text, row.start) << &row - rows;
    }
    EXPECT_EQ(F(u"%.2147483647s|%.*hs|", u"ab", INT_MAX, "cd"), u"ab|cd|");
}

class Random
{
public:
    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_engine() % limit); }
    std::uint64_t Bits() { return m_engine() >> Below(64); }
    double Double()
    {
        const std::uint64_t bits = m_engine();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        return Below(2) == 0 ? value : (static_cast<double>(Bits()) - 1e9) / 1024;
    }
    // Flags, width and precision.
    std::string Head()
    {
        std::string head = "%";
        for (const char flag : {'-', '+', ' ', '#', '0'}) {
            head.append(Below(3) == 0 ? 1 : 0, flag);
        }
        if (Below(2) == 0) {
            head += std::to_string(1 + Below(40));
        }
        if (Below(2) == 0) {
            head += '.' + std::to_string(Below(Below(20) == 0 ? 1500 : 30));
        }
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
        switch (random.Below(7)) {
        case 0:
            Compare(random, head + integer, static_cast<int>(bits));
            break;
        case 1:
            Compare(random, head + "hh" + integer, static_cast<int>(bits));
            break;
        case 2:
            Compare(random, head + "h" + integer, static_cast<int>(bits));
            break;
        case 3:
            Compare(random, head + "l" + integer, static_cast<long>(bits));
            break;
        case 4:
            Compare(random, head + "ll" + integer, static_cast<long long>(bits));
            break;
        default:
            Compare(random, head + "eEfFgGaA"[random.Below(8)], random.Double());
        }
    }
}

TEST(WideFormat, FloatingPointAsWritten)
{
    Check({
        {F(u"%f|%e|%g|%a|%G", 1.5, 1.5, 1e10, 1.0, 1e-10),
         u"1.500000|1.500000e+00|1e+10|0x1p+0|1E-10"},
        {F(u"%08.2f|%+.1f|%-8.1f|%08f|%8F", -1.5, 2.0, 3.0, HUGE_VAL, -HUGE_VAL),
         u"-0001.50|+2.0|3.0     |     inf|    -INF"},
        {F(u"%lf|%Lf|%Lg|%d", 1.0, 2.0L, 1e400L, 3), u"1.000000|2.000000|inf|3"},
    });
    errno = 77;
    F(u"%.1100f %hs", DBL_MIN, "\xFF");
    EXPECT_EQ(errno, 77);
}

} // namespace
