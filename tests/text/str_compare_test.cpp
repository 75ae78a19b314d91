#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <string>

namespace
{

int Sign(int32_t value)
{
    return (value > 0) - (value < 0);
}

std::u16string Wide(const std::string& ascii)
{
    return {ascii.begin(), ascii.end()};
}

// Signs for ASCII text; the longer rows reach past a block.
struct AsciiRow
{
    const char* first;
    const char* second;
    int compare;
    int icompareA;
    int icompareLower; // W, UCS2 and UTF16 fold to lower case
};

constexpr AsciiRow kAsciiRows[] = {
    {"", "", 0, 0, 0},
    {"a", "", 1, 1, 1},
    {"", "a", -1, -1, -1},
    {"abc", "abd", -1, -1, -1},
    {"abc", "ABC", 1, 0, 0},
    {"abcd", "ABC", 1, 1, 1},
    {"a", "_", 1, -1, 1}, // between the cases
    {"Z", "_", -1, -1, 1},
    {"@", "`", -1, -1, -1}, // one bit apart, but no letters
    {"[", "{", -1, -1, -1},
    {"the same beginning, 0", "THE SAME BEGINNING, 1", 1, -1, -1},
    {"the same and longer than a block", "The Same AND Longer Than A Block", 1, 0, 0},
};

TEST(StrCompare, Ascii)
{
    for (const AsciiRow& row : kAsciiRows) {
        SCOPED_TRACE(testing::Message() << row.first << " | " << row.second);
        const std::u16string first = Wide(row.first);
        const std::u16string second = Wide(row.second);
        const QVWChar* const a = first.c_str();
        const QVWChar* const b = second.c_str();
        EXPECT_EQ(row.compare, QVStrCmpA(row.first, row.second));
        EXPECT_EQ(row.compare, QVStrCmpW(a, b));
        EXPECT_EQ(row.compare, Sign(QVStrCmpUCS2(a, b)));
        EXPECT_EQ(row.compare, Sign(QVStrCmpUTF16(a, b)));
        EXPECT_EQ(row.compare, Sign(QVStrNCmpA(row.first, row.second, UINT32_MAX)));
        EXPECT_EQ(row.compare, Sign(QVStrNCmpW(a, b, UINT32_MAX)));
        EXPECT_EQ(row.compare, Sign(QVStrNCmpUTF16(a, b, UINT32_MAX)));
        EXPECT_EQ(row.icompareA, Sign(QVStrICmpA(row.first, row.second)));
        EXPECT_EQ(row.icompareA, Sign(QVStrNICmpA(row.first, row.second, UINT32_MAX)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrICmpW(a, b)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrNICmpW(a, b, UINT32_MAX)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrICmpUCS2(a, b)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrICmpUTF16(a, b)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrNICmpUTF16(a, b, UINT32_MAX)));
    }
    EXPECT_EQ('B' - 'A', QVStrICmpA("xa", "XB") * -1);
    EXPECT_EQ('b' - 'z', QVStrICmpUCS2(u"xB", u"Xz"));
    EXPECT_EQ(-1, QVStrCmpA("\x01", "\xFF")) << "bytes are unsigned";
    EXPECT_EQ(0x3B1 - 0x41, QVStrCmpUCS2(u"\x3B1", u"A"));
}

TEST(StrCompare, CountsBound)
{
    for (const uint32_t n : {0u, 3u, 4u}) {
        EXPECT_EQ(0, QVStrNCmpA("abcdX", "abcdY", n));
        EXPECT_EQ(0, QVStrNCmpW(u"abcdX", u"abcdY", n));
        EXPECT_EQ(0, QVStrNCmpUTF16(u"abcdX", u"abcdY", n));
        EXPECT_EQ(0, QVStrNICmpA("abcdX", "ABCDY", n));
        EXPECT_EQ(0, QVStrNICmpW(u"abcdX", u"ABCDY", n));
        EXPECT_EQ(0, QVStrNICmpUTF16(u"abcdX", u"ABCDY", n));
        EXPECT_EQ(0, QVStrNICmpA("abcd\x80", "ABCD\x81", n)) << "no further than n";
    }
    EXPECT_EQ(-1, QVStrNCmpW(u"abcdX", u"abcdY", 5));
    EXPECT_GT(0, QVStrNICmpA("abcdX", "ABCDY", 5));
    EXPECT_GT(0, QVStrNICmpW(u"abcdX", u"ABCDY", 5));
    EXPECT_GT(0, QVStrNICmpUTF16(u"abcdX", u"ABCDY", 5));
    EXPECT_GT(0, QVStrNICmpA("abcd\x80", "ABCD\x81", 5));
}

// U+FFFF sorts behind U+1F600 by unit, and before it by code point.
TEST(StrCompare, OrderOfSupplementaryCharacters)
{
    const QVWChar* const last = u"\xFFFD";
    const QVWChar* const emoji = u"\xD83D\xDE00";
    EXPECT_EQ(1, QVStrCmpW(last, emoji));
    EXPECT_LT(0, QVStrCmpUCS2(last, emoji));
    EXPECT_GT(0, QVStrCmpUTF16(last, emoji));
    EXPECT_GT(0, QVStrNCmpUTF16(last, emoji, 2));
    EXPECT_GT(0, QVStrICmpUTF16(last, emoji));
    EXPECT_GT(0, QVStrNICmpUTF16(last, emoji, 2));
    EXPECT_EQ(0, QVStrICmpUTF16(u"STRASSE \xD801\xDC00", u"stra\xDF"
                                                         "e \xD801\xDC28"));
    EXPECT_NE(0, QVStrICmpW(u"\xD801\xDC00", u"\xD801\xDC28")) << "W knows no pairs";
}

constexpr std::ptrdiff_t kNone = -1;

template <class Unit> std::ptrdiff_t Offset(const Unit* text, const Unit* found)
{
    return found == nullptr ? kNone : found - text;
}

TEST(StrCompare, FindsCharacters)
{
    const char* const narrow = "abcabc\xE4";
    EXPECT_EQ(1, Offset(narrow, QVStrChrA(narrow, 'b')));
    EXPECT_EQ(4, Offset(narrow, QVStrRChrA(narrow, 'b')));
    EXPECT_EQ(6, Offset(narrow, QVStrChrA(narrow, '\xE4')));
    EXPECT_EQ(7, Offset(narrow, QVStrChrA(narrow, 0)));
    EXPECT_EQ(kNone, Offset(narrow, QVStrRChrA(narrow, 'x')));

    // An unpaired trail, a pair, an unpaired lead.
    const QVWChar* const wide = u"b\xDE00 \xD83D\xDE00 b\xD83D";
    const struct
    {
        uint32_t character;
        std::ptrdiff_t firstW, lastW, firstUCS2, lastUCS2;
    } rows[] = {
        {'b', 0, 6, 0, 6},    {0xDE00, 1, 4, 1, 1},
        {0xD83D, 3, 7, 7, 7}, {'x', kNone, kNone, kNone, kNone},
        {0, 8, 8, 8, 8},
    };
    for (const auto& row : rows) {
        const auto unit = static_cast<QVWChar>(row.character);
        EXPECT_EQ(row.firstW, Offset(wide, QVStrChrW(wide, unit))) << row.character;
        EXPECT_EQ(row.lastW, Offset(wide, QVStrRChrW(wide, unit))) << row.character;
        EXPECT_EQ(row.firstUCS2, Offset(wide, QVStrChrUCS2(wide, unit))) << row.character;
        EXPECT_EQ(row.lastUCS2, Offset(wide, QVStrRChrUCS2(wide, unit))) << row.character;
        EXPECT_EQ(row.firstUCS2, Offset(wide, QVStrChrUTF16(wide, unit))) << row.character;
        EXPECT_EQ(row.lastUCS2, Offset(wide, QVStrRChrUTF16(wide, unit))) << row.character;
    }
    EXPECT_EQ(3, Offset(wide, QVStrChrUTF16(wide, 0x1F600)));
    EXPECT_EQ(3, Offset(wide, QVStrRChrUTF16(wide, 0x1F600)));
    EXPECT_EQ(kNone, Offset(wide, QVStrChrUTF16(wide, 0x110000)));
    EXPECT_EQ(kNone, Offset(wide, QVStrRChrUTF16(wide, 0xFFFFFFFF)));
}

TEST(StrCompare, FindsTexts)
{
    const struct
    {
        const char* text;
        const char* sub;
        std::ptrdiff_t at;
    } rows[] = {
        {"aabaac", "aac", 3}, {"aab", "aabc", kNone}, {"aab", "", 0},      {"", "", 0},
        {"", "a", kNone},     {"aab", "b", 2},        {"aab", "c", kNone},
    };
    for (const auto& row : rows) {
        const std::u16string text = Wide(row.text);
        const std::u16string sub = Wide(row.sub);
        EXPECT_EQ(row.at, Offset(row.text, QVStrStrA(row.text, row.sub))) << row.sub;
        EXPECT_EQ(row.at, Offset(text.c_str(), QVStrStrW(text.c_str(), sub.c_str()))) << row.sub;
        EXPECT_EQ(row.at, Offset(text.c_str(), QVStrStrUTF16(text.c_str(), sub.c_str())))
            << row.sub;
    }
    const QVWChar* const pair = u"\xD83D\xDE00";
    EXPECT_EQ(1, Offset(pair, QVStrStrW(pair, u"\xDE00")));
    EXPECT_EQ(kNone, Offset(pair, QVStrStrUTF16(pair, u"\xDE00")));
}

} // namespace
