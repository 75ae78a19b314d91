#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <algorithm>
#include <string>
#include <vector>

namespace
{

// A '.' stands for a zero unit.
template <class Unit> std::basic_string<Unit> Units(const std::string& text)
{
    std::basic_string<Unit> units(text.begin(), text.end());
    std::replace(units.begin(), units.end(), Unit{'.'}, Unit{0});
    return units;
}

constexpr struct BoundedRow
{
    bool isCat;
    const char* before;
    uint32_t destSize;
    const char* src;
    uint32_t maxCount;
    const char* afterFilled;  // A and W
    const char* afterStopped; // UTF16
    std::ptrdiff_t result;
} kBoundedRows[] = {
    {false, "xxxxxx", 4, "abc", 9, "abc.xx", "abc.xx", 0},
    {false, "xxxxxx", 3, "abc", 9, "ab.xxx", "ab.xxx", 0},
    {false, "xxxxxx", 6, "a", 9, "a.....", "a.xxx.", 0},
    {false, "xxxxxx", 6, "abc", 2, "ab.xxx", "ab.xxx", 0},
    {false, "xxxxxx", 4, "abcdef", UINT32_MAX, "abc.xx", "abc.xx", 0},
    {false, "xxxxxx", 0, "abc", 9, "xxxxxx", "xxxxxx", 0},
    {true, "a.xxxx", 6, "bc", 9, "abc...", "abc.x.", 1},
    {true, "a.xxxx", 3, "bc", 9, "ab.xxx", "ab.xxx", 1},
    {true, "ab.xxx", 3, "c", 9, "ab.xxx", "ab.xxx", 2},
    {true, "abcdef", 4, "z", 9, "abc.ef", "abc.ef", 3}, // no terminator inside
    {true, "abcdef", 0, "z", 9, "abcdef", "abcdef", 0},
};

template <class Unit> using Bounded = Unit* (*)(Unit*, uint32_t, const Unit*, uint32_t);

template <class Unit>
void CheckBounded(Bounded<Unit> copy, Bounded<Unit> cat, const char* BoundedRow::*after)
{
    for (const BoundedRow& row : kBoundedRows) {
        SCOPED_TRACE(testing::Message() << row.before << " of " << row.destSize << ", " << row.src);
        std::basic_string<Unit> dest = Units<Unit>(row.before);
        const std::basic_string<Unit> src = Units<Unit>(row.src);
        const Unit* const result =
            (row.isCat ? cat : copy)(dest.data(), row.destSize, src.c_str(), row.maxCount);
        EXPECT_EQ(row.result, result - dest.data());
        EXPECT_EQ(Units<Unit>(row.*after), dest);
    }
}

TEST(StrCopy, BoundedOnesTerminateInside)
{
    CheckBounded<char>(QVStrNZCpyA, QVStrNZCatA, &BoundedRow::afterFilled);
    CheckBounded<QVWChar>(QVStrNZCpyW, QVStrNZCatW, &BoundedRow::afterFilled);
    CheckBounded<QVWChar>(QVStrNZCpyUTF16, QVStrNZCatUTF16, &BoundedRow::afterStopped);
}

TEST(StrCopy, PlainOnes)
{
    char narrow[] = "xxxxxxxxx";
    const char* const none = nullptr;
    EXPECT_EQ(5u, QVStrCpyCatA(narrow, 5, "ab", none, "", "c", "de"));
    EXPECT_STREQ("abcde", narrow);

    QVWChar wide[] = u"xxxxxxxxx";
    QVStrCatW(QVStrCpyW(wide, u"ab"), u"cd");
    QVStrNCpyW(QVStrNCatW(wide, u"efgh", 2), u"z", 3);
    EXPECT_EQ(Units<QVWChar>("z..def.xx"), std::u16string(wide, 9));

    EXPECT_EQ(2u, QVStrNLenA("abc", 2));
    EXPECT_EQ(3u, QVStrNLenW(u"abc", UINT32_MAX));
    EXPECT_EQ(0u, QVStrNLenA(nullptr, 0)) << "there need be no text";
    EXPECT_EQ(0u, QVStrNLenW(nullptr, 0));
}

// Both kinds of copy go back through either function; the sanitizers see a mismatch.
TEST(StrCopy, DuplicatesBelongToEitherFree)
{
    QVStrFreeW(reinterpret_cast<QVWChar*>(QVStrDupA("abc")));
    EXPECT_EQ(nullptr, QVStrDupA(nullptr));
    const std::vector<QVWChar> unterminated(3, u'x');
    QVWChar* const copy = QVStrNDupW(unterminated.data(), 3);
    EXPECT_EQ(std::u16string(u"xxx"), copy);
    QVStrFreeA(reinterpret_cast<char*>(copy));
}

TEST(StrCopy, Tokens)
{
    const std::u16string rows[][3] = {
        // the tokens have a '|' behind each
        {u"a,b;;c", u",;", u"a|b|c|"}, {u",,a,", u",", u"a|"},
        {u",;,", u",;", u""},          {u"", u",", u""},
        {u"a b", u"", u"a b|"},
    };
    for (const auto& [text, delimiters, expected] : rows) {
        std::u16string buffer = text, tokens;
        QVWChar* state = buffer.data();
        while (const QVWChar* token = QVStrTokW(&state, delimiters.c_str())) {
            tokens.append(token) += u'|';
        }
        EXPECT_EQ(expected, tokens);
        EXPECT_EQ(nullptr, state);
    }
    char narrow[] = ",a,";
    char* state = narrow;
    EXPECT_STREQ("a", QVStrTokA(&state, ","));
    EXPECT_EQ(nullptr, QVStrTokA(&state, ","));
}

} // namespace
