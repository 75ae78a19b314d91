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

struct BoundedRow
{
    bool isCat;
    const char* before;
    uint32_t destSize;
    const char* src;
    uint32_t maxCount;
    const char* afterFilled;  // A and W
    const char* afterStopped; // UTF16
    std::ptrdiff_t result;
};

constexpr BoundedRow kBoundedRows[] = {
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

template <class Unit>
using Bounded = Unit* (*)(Unit* dest, uint32_t destSize, const Unit* src, uint32_t maxCount);

template <class Unit>
void CheckBounded(Bounded<Unit> copy, const BoundedRow& row, const char* after)
{
    std::basic_string<Unit> dest = Units<Unit>(row.before);
    const std::basic_string<Unit> src = Units<Unit>(row.src);
    EXPECT_EQ(row.result, copy(dest.data(), row.destSize, src.c_str(), row.maxCount) - dest.data());
    EXPECT_EQ(Units<Unit>(after), dest);
}

TEST(StrCopy, BoundedOnesTerminateInside)
{
    for (const BoundedRow& row : kBoundedRows) {
        SCOPED_TRACE(testing::Message() << row.before << " of " << row.destSize << ", " << row.src);
        CheckBounded<char>(row.isCat ? QVStrNZCatA : QVStrNZCpyA, row, row.afterFilled);
        CheckBounded<QVWChar>(row.isCat ? QVStrNZCatW : QVStrNZCpyW, row, row.afterFilled);
        CheckBounded<QVWChar>(row.isCat ? QVStrNZCatUTF16 : QVStrNZCpyUTF16, row, row.afterStopped);
    }
}

TEST(StrCopy, PlainOnes)
{
    char narrow[] = "xxxxxxxxx";
    QVStrCatA(QVStrCpyA(narrow, "ab"), "cd");
    QVStrNCpyA(QVStrNCatA(narrow, "efgh", 2), "z", 3);
    EXPECT_EQ(Units<char>("z..def.xx"), std::string(narrow, 9));
    const char* const none = nullptr;
    EXPECT_EQ(5u, QVStrCpyCatA(narrow, 5, "ab", none, "", "c", "de"));
    EXPECT_STREQ("abcde", narrow);

    QVWChar wide[] = u"xxxxxxxxx";
    QVStrCatW(QVStrCpyW(wide, u"ab"), u"cd");
    QVStrNCpyW(QVStrNCatW(wide, u"efgh", 2), u"z", 3);
    EXPECT_EQ(Units<QVWChar>("z..def.xx"), std::u16string(wide, 9));

    EXPECT_EQ(2u, QVStrNLenA("abc", 2));
    EXPECT_EQ(3u, QVStrNLenUTF16(u"abc", UINT32_MAX));
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

// The tokens come with a '|' behind each.
template <class Unit> void CheckTokens(Unit* (*next)(Unit**, const Unit*), const std::string& text,
                                       const std::string& delimiters, const std::string& expected)
{
    std::basic_string<Unit> buffer = Units<Unit>(text), tokens;
    Unit* state = buffer.data();
    while (const Unit* token = next(&state, Units<Unit>(delimiters).c_str())) {
        tokens.append(token) += '|';
    }
    EXPECT_EQ(Units<Unit>(expected), tokens) << text;
    EXPECT_EQ(nullptr, state) << text;
}

TEST(StrCopy, Tokens)
{
    const char* const rows[][3] = {
        {"a,b;;c", ",;", "a|b|c|"}, {",,a,", ",", "a|"}, {",;,", ",;", ""}, {"", ",", ""},
        {"a b", "", "a b|"},
    };
    for (const auto& [text, delimiters, expected] : rows) {
        CheckTokens(QVStrTokA, text, delimiters, expected);
        CheckTokens(QVStrTokW, text, delimiters, expected);
    }
}

} // namespace
