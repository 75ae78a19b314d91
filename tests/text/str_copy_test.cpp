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
    {"terminator alone", "xxxxxx", 1, "abc", 9, ".xxxxx", ".xxxxx", 0},
    {"fits exactly", "xxxxxx", 4, "abc", 9, "abc.xx", "abc.xx", 0},
    {"one too long", "xxxxxx", 3, "abc", 9, "ab.xxx", "ab.xxx", 0},
    {"short source", "xxxxxx", 6, "a", 9, "a.....", "a.xxx.", 0},
    {"maxCount bounds", "xxxxxx", 6, "abc", 2, "ab.xxx", "ab.xxx", 0},
    {"short in maxCount", "xxxxxx", 6, "a", 3, "a...xx", "a.x.xx", 0},
    {"empty source", "xxxxxx", 3, "", 9, "...xxx", ".x.xxx", 0},
    {"no limit", "xxxxxx", 4, "abcdef", UINT32_MAX, "abc.xx", "abc.xx", 0},
    {"no buffer", "xxxxxx", 0, "abc", 9, "xxxxxx", "xxxxxx", 0},
};

constexpr BoundedRow kCatRows[] = {
    {"fits", "a.xxxx", 6, "bc", 9, "abc...", "abc.x.", 1},
    {"fits exactly", "a.xxxx", 4, "bc", 9, "abc.xx", "abc.xx", 1},
    {"cut", "a.xxxx", 3, "bc", 9, "ab.xxx", "ab.xxx", 1},
    {"full", "ab.xxx", 3, "c", 9, "ab.xxx", "ab.xxx", 2},
    {"maxCount 0", "a.xxxx", 6, "bc", 0, "a.xxxx", "a.xxxx", 1},
    {"unterminated", "abcdef", 4, "z", 9, "abc.ef", "abc.ef", 3},
    {"unterminated, size 1", "abcdef", 1, "z", 9, ".bcdef", ".bcdef", 0},
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
    char narrow[] = "xxxxxxxxx";
    EXPECT_EQ(narrow, QVStrCpyA(narrow, "ab"));
    EXPECT_EQ(narrow, QVStrCatA(narrow, "cd"));
    EXPECT_EQ(narrow, QVStrNCatA(narrow, "efgh", 2));
    EXPECT_EQ(std::string("abcdef\0xx", 9), std::string(narrow, 9));
    EXPECT_EQ(narrow, QVStrNCpyA(narrow, "z", 3));
    EXPECT_EQ(std::string("z\0\0def", 6), std::string(narrow, 6));

    QVWChar wide[] = u"xxxxxxxxx";
    EXPECT_EQ(wide, QVStrCpyW(wide, u"ab"));
    EXPECT_EQ(wide, QVStrCatW(wide, u"cd"));
    EXPECT_EQ(wide, QVStrNCatW(wide, u"efgh", 2));
    EXPECT_EQ(std::u16string(u"abcdef\0xx", 9), std::u16string(wide, 9));
    EXPECT_EQ(wide, QVStrNCpyW(wide, u"z", 3));
    EXPECT_EQ(std::u16string(u"z\0\0def", 6), std::u16string(wide, 6));
    EXPECT_EQ(wide, QVStrNCpyW(wide, u"1234", 2));
    EXPECT_EQ(std::u16string(u"12\0def", 6), std::u16string(wide, 6));
}

TEST(StrCopy, Lengths)
{
    EXPECT_EQ(3u, QVStrLenA("\xFF\x80z"));
    EXPECT_EQ(4u, QVStrLenW(u"\xD83D\xDE00 \xDC00"));
    EXPECT_EQ(4, QVStrLenUTF16(u"\xD83D\xDE00 \xDC00"));
    EXPECT_EQ(3, QVCountCharUTF16(u"\xD83D\xDE00 \xDC00"));
    EXPECT_EQ(2u, QVStrNLenA("abc", 2));
    EXPECT_EQ(3u, QVStrNLenA("abc", UINT32_MAX));
    EXPECT_EQ(3u, QVStrNLenUTF16(u"abc", UINT32_MAX));
    // With no units to look at there may be no text.
    EXPECT_EQ(0u, QVStrNLenA(nullptr, 0));
    EXPECT_EQ(0u, QVStrNLenW(reinterpret_cast<const QVWChar*>(16), 0));
    EXPECT_EQ(0u, QVStrNLenUTF16(nullptr, 0));
}

TEST(StrCopy, CpyCatSkipsNullAndEmptyTexts)
{
    const char* const none = nullptr;
    char buffer[16] = "left over";
    EXPECT_EQ(5u, QVStrCpyCatA(buffer, 5, "ab", none, "", "c", "de"));
    EXPECT_STREQ("abcde", buffer);
    EXPECT_EQ(0u, QVStrCpyCatA(buffer, 2, none, ""));
    EXPECT_STREQ("", buffer);
    buffer[0] = 'x';
    EXPECT_EQ(0u, QVStrCpyCatA(buffer, -1, "ab"));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(0u, QVStrCpyCatA(nullptr, 1, "ab"));
}

// Both kinds of copy go back through either function; the sanitizers see a mismatch.
TEST(StrCopy, DuplicatesBelongToEitherFree)
{
    char* const narrow = QVStrDupA("abc");
    EXPECT_STREQ("abc", narrow);
    QVStrFreeW(reinterpret_cast<QVWChar*>(narrow));
    QVWChar* const wide = QVStrNDupW(u"abc", 2);
    EXPECT_EQ(std::u16string(u"ab"), wide);
    QVStrFreeA(reinterpret_cast<char*>(wide));

    char* const empty = QVStrNDupA("abc", 0);
    EXPECT_STREQ("", empty);
    QVStrFreeA(empty);
    EXPECT_EQ(nullptr, QVStrDupA(nullptr));
    EXPECT_EQ(nullptr, QVStrDupW(nullptr));
    EXPECT_EQ(nullptr, QVStrNDupA(nullptr, 1));
    EXPECT_EQ(nullptr, QVStrNDupW(nullptr, 1));
    QVStrFreeA(nullptr);

    // Not terminated within the bound, and nothing readable behind it.
    const std::vector<QVWChar> units(3, u'x');
    QVWChar* const copy = QVStrNDupW(units.data(), 3);
    EXPECT_EQ(std::u16string(u"xxx"), copy);
    QVStrFreeW(copy);
}

template <class Unit> std::vector<std::basic_string<Unit>>
Tokens(Unit* (*next)(Unit**, const Unit*), const char* text, const char* delimiters)
{
    std::basic_string<Unit> buffer = Units<Unit>(text);
    const std::basic_string<Unit> set = Units<Unit>(delimiters);
    std::vector<std::basic_string<Unit>> tokens;
    Unit* state = buffer.data();
    while (const Unit* token = next(&state, set.c_str())) {
        tokens.emplace_back(token);
    }
    EXPECT_EQ(nullptr, state) << text;
    EXPECT_EQ(nullptr, next(&state, set.c_str())) << text;
    return tokens;
}

TEST(StrCopy, Tokens)
{
    const struct
    {
        const char* text;
        const char* delimiters;
        std::vector<std::string> tokens;
    } rows[] = {
        {"a,b;;c", ",;", {"a", "b", "c"}},
        {",,a,", ",", {"a"}},
        {",;,", ",;", {}},
        {"", ",", {}},
        {"a b", "", {"a b"}},
        {"a", "a", {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.tokens, Tokens(QVStrTokA, row.text, row.delimiters)) << row.text;
        std::vector<std::u16string> wide;
        for (const std::string& token : row.tokens) {
            wide.push_back(Units<char16_t>(token.c_str()));
        }
        EXPECT_EQ(wide, Tokens(QVStrTokW, row.text, row.delimiters)) << row.text;
    }
}

} // namespace
