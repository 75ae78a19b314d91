#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <algorithm>
#include <string>
#include <vector>

namespace
{

// One row of the bounded copies, in units; '\0' in 'after' shows as '.'.
struct BoundedRow
{
    const char* name;
    const char* before; // the buffer; '.' is a zero unit
    uint32_t destSize;
    const char* src;
    uint32_t maxCount;
    const char* afterFilled;  // A and W
    const char* afterStopped; // UTF16
    std::ptrdiff_t result;
};

constexpr BoundedRow kCopyRows[] = {
    {"fits exactly", "xxxxxx", 4, "abc", 9, "abc.xx", "abc.xx", 0},
    {"one too long", "xxxxxx", 3, "abc", 9, "ab.xxx", "ab.xxx", 0},
    {"short source", "xxxxxx", 6, "a", 9, "a.....", "a.xxx.", 0},
    {"maxCount bounds", "xxxxxx", 6, "abc", 2, "ab.xxx", "ab.xxx", 0},
    {"no limit", "xxxxxx", 4, "abcdef", UINT32_MAX, "abc.xx", "abc.xx", 0},
    {"no buffer", "xxxxxx", 0, "abc", 9, "xxxxxx", "xxxxxx", 0},
};

constexpr BoundedRow kCatRows[] = {
    {"fits", "a.xxxx", 6, "bc", 9, "abc...", "abc.x.", 1},
    {"fits exactly", "a.xxxx", 4, "bc", 9, "abc.xx", "abc.xx", 1},
    {"cut", "a.xxxx", 3, "bc", 9, "ab.xxx", "ab.xxx", 1},
    {"full", "ab.xxx", 3, "c", 9, "ab.xxx", "ab.xxx", 2},
    {"unterminated", "abcdef", 4, "z", 9, "abc.ef", "abc.ef", 3},
    {"no buffer", "abcdef", 0, "z", 9, "abcdef", "abcdef", 0},
};

template <class Unit> std::basic_string<Unit> Units(const char* text)
{
    return {text, text + std::char_traits<char>::length(text)};
}

template <class Unit>
using Bounded = Unit* (*)(Unit* dest, uint32_t destSize, const Unit* src, uint32_t maxCount);

template <class Unit>
void CheckBounded(Bounded<Unit> copy, const BoundedRow& row, const char* after)
{
    std::basic_string<Unit> buffer = Units<Unit>(row.before);
    std::replace(buffer.begin(), buffer.end(), Unit{'.'}, Unit{0});
    const Unit* const result =
        copy(buffer.data(), row.destSize, Units<Unit>(row.src).c_str(), row.maxCount);
    EXPECT_EQ(row.result, result - buffer.data()) << row.name;
    std::replace(buffer.begin(), buffer.end(), Unit{0}, Unit{'.'});
    EXPECT_EQ(Units<Unit>(after), buffer) << row.name;
}

TEST(StrCopy, BoundedCopyTerminatesInside)
{
    for (const BoundedRow& row : kCopyRows) {
        CheckBounded<char>(QVStrNZCpyA, row, row.afterFilled);
        CheckBounded<QVWChar>(QVStrNZCpyW, row, row.afterFilled);
        CheckBounded<QVWChar>(QVStrNZCpyUTF16, row, row.afterStopped);
    }
    for (const BoundedRow& row : kCatRows) {
        CheckBounded<char>(QVStrNZCatA, row, row.afterFilled);
        CheckBounded<QVWChar>(QVStrNZCatW, row, row.afterFilled);
        CheckBounded<QVWChar>(QVStrNZCatUTF16, row, row.afterStopped);
    }
}

TEST(StrCopy, PlainCopies)
{
    const char* const none = nullptr;
    char narrow[] = "xxxxxxxxx";
    QVStrCatA(QVStrCpyA(narrow, "ab"), "cd");
    QVStrNCpyA(QVStrNCatA(narrow, "efgh", 2), "z", 3);
    EXPECT_EQ(std::string("z\0\0def\0xx", 9), std::string(narrow, 9));
    EXPECT_EQ(5u, QVStrCpyCatA(narrow, 5, "ab", none, "", "c", "de"));
    EXPECT_STREQ("abcde", narrow);

    QVWChar wide[] = u"xxxxxxxxx";
    QVStrCatW(QVStrCpyW(wide, u"ab"), u"cd");
    QVStrNCpyW(QVStrNCatW(wide, u"efgh", 2), u"z", 3);
    EXPECT_EQ(std::u16string(u"z\0\0def\0xx", 9), std::u16string(wide, 9));

    EXPECT_EQ(3, QVCountCharUTF16(u"\xD83D\xDE00 \xDC00"));
    EXPECT_EQ(2u, QVStrNLenA("abc", 2));
    EXPECT_EQ(3u, QVStrNLenUTF16(u"abc", UINT32_MAX));
    // With no units to look at there may be no text.
    EXPECT_EQ(0u, QVStrNLenA(nullptr, 0));
    EXPECT_EQ(0u, QVStrNLenW(nullptr, 0));
}

// Both kinds of copy go back through either function; the sanitizers see a mismatch.
TEST(StrCopy, DuplicatesBelongToEitherFree)
{
    QVStrFreeW(reinterpret_cast<QVWChar*>(QVStrDupA("abc")));
    EXPECT_EQ(nullptr, QVStrDupA(nullptr));

    // Not terminated within the bound, and nothing readable behind it.
    const std::vector<QVWChar> units(3, u'x');
    QVWChar* const copy = QVStrNDupW(units.data(), 3);
    EXPECT_EQ(std::u16string(u"xxx"), copy);
    QVStrFreeA(reinterpret_cast<char*>(copy));
}

TEST(StrCopy, Tokens)
{
    const struct
    {
        const char* text;
        const char* delimiters;
        std::string tokens; // with a '|' behind each
    } rows[] = {
        {"a,b;;c", ",;", "a|b|c|"}, {",,a,", ",", "a|"}, {",;,", ",;", ""}, {"", ",", ""},
        {"a b", "", "a b|"},
    };
    for (const auto& row : rows) {
        const auto check = [&row](auto next, auto buffer) {
            const auto set = Units<typename decltype(buffer)::value_type>(row.delimiters);
            auto* state = buffer.data();
            std::string tokens;
            while (auto* token = next(&state, set.c_str())) {
                for (; *token != 0; ++token) {
                    tokens += static_cast<char>(*token);
                }
                tokens += '|';
            }
            EXPECT_EQ(row.tokens, tokens) << row.text;
            EXPECT_EQ(nullptr, state) << row.text;
            EXPECT_EQ(nullptr, next(&state, set.c_str())) << row.text;
        };
        check(QVStrTokA, Units<char>(row.text));
        check(QVStrTokW, Units<QVWChar>(row.text));
    }
}

} // namespace
