#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <random>
#include <string>

namespace
{

int Sign(int32_t value)
{
    return (value > 0) - (value < 0);
}

// Signs for ASCII text; the longer rows reach past a block.
TEST(StrCompare, Ascii)
{
    const struct
    {
        std::string first, second;
        int compare;
        int icompareA;
        int icompareLower; // W, UCS2 and UTF16 fold to lower case
    } rows[] = {
        {"", "a", -1, -1, -1},
        {"a", "_", 1, -1, 1},   // between the cases
        {"@", "`", -1, -1, -1}, // one bit apart, but no letters
        {"the same beginning, 0", "THE SAME BEGINNING, 1", 1, -1, -1},
        {"the same and longer than a block", "The Same AND Longer Than A Block", 1, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        const char* const narrowA = row.first.c_str();
        const char* const narrowB = row.second.c_str();
        const std::u16string first(row.first.begin(), row.first.end());
        const std::u16string second(row.second.begin(), row.second.end());
        const QVWChar* const a = first.c_str();
        const QVWChar* const b = second.c_str();
        EXPECT_EQ(row.compare, QVStrCmpA(narrowA, narrowB));
        EXPECT_EQ(row.compare, QVStrCmpW(a, b));
        EXPECT_EQ(row.compare, Sign(QVStrCmpUCS2(a, b)));
        EXPECT_EQ(row.icompareA, Sign(QVStrICmpA(narrowA, narrowB)));
        EXPECT_EQ(row.icompareA, Sign(QVStrNICmpA(narrowA, narrowB, UINT32_MAX)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrICmpW(a, b)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrICmpUCS2(a, b)));
        EXPECT_EQ(row.icompareLower, Sign(QVStrICmpUTF16(a, b)));
    }
    EXPECT_EQ(-1, QVStrCmpA("\x01", "\xFF")) << "bytes are unsigned";
}

TEST(StrCompare, CountsBound)
{
    for (const uint32_t n : {0u, 4u, 5u}) {
        const int sign = n == 5 ? -1 : 0;
        EXPECT_EQ(sign, Sign(QVStrNCmpA("abcdX", "abcdY", n)));
        EXPECT_EQ(sign, Sign(QVStrNCmpW(u"abcdX", u"abcdY", n)));
        EXPECT_EQ(sign, Sign(QVStrNCmpUTF16(u"abcdX", u"abcdY", n)));
        EXPECT_EQ(sign, Sign(QVStrNICmpW(u"abcdX", u"ABCDY", n)));
        EXPECT_EQ(sign, Sign(QVStrNICmpUTF16(u"abcdX", u"ABCDY", n)));
        EXPECT_EQ(sign, Sign(QVStrNICmpA("abcd\x80", "ABCD\x81", n)));
    }
}

// U+FFFD sorts behind U+1F600 by unit, and before it by code point.
TEST(StrCompare, SupplementaryCharacters)
{
    EXPECT_EQ(1, QVStrCmpW(u"\xFFFD", u"\xD83D\xDE00"));
    EXPECT_LT(0, QVStrCmpUCS2(u"\xFFFD", u"\xD83D\xDE00"));
    EXPECT_GT(0, QVStrCmpUTF16(u"\xFFFD", u"\xD83D\xDE00"));
    EXPECT_EQ(0, QVStrICmpUTF16(u"\xD801\xDC00", u"\xD801\xDC28"));
    EXPECT_NE(0, QVStrICmpW(u"\xD801\xDC00", u"\xD801\xDC28")) << "W knows no pairs";
}

std::ptrdiff_t Offset(const QVWChar* text, const QVWChar* found)
{
    return found == nullptr ? -1 : found - text;
}

TEST(StrCompare, FindsCharacters)
{
    // An unpaired trail, a pair, an unpaired lead.
    const QVWChar* const wide = u"b\xDE00 \xD83D\xDE00 b\xD83D";
    const std::ptrdiff_t rows[][5] = {
        // the unit, its first and last place in W and in UTF16
        {'b', 0, 6, 0, 6},     {0xDE00, 1, 4, 1, 1}, {0xD83D, 3, 7, 7, 7},
        {'x', -1, -1, -1, -1}, {0, 8, 8, 8, 8},
    };
    for (const auto& [number, firstW, lastW, firstUTF16, lastUTF16] : rows) {
        const auto unit = static_cast<QVWChar>(number);
        EXPECT_EQ(firstW, Offset(wide, QVStrChrW(wide, unit))) << number;
        EXPECT_EQ(lastW, Offset(wide, QVStrRChrW(wide, unit))) << number;
        EXPECT_EQ(firstUTF16, Offset(wide, QVStrChrUTF16(wide, unit))) << number;
        EXPECT_EQ(lastUTF16, Offset(wide, QVStrRChrUTF16(wide, unit))) << number;
    }
    EXPECT_EQ(3, Offset(wide, QVStrRChrUTF16(wide, 0x1F600)));
}

bool StartsInPair(const std::u16string& text, std::size_t at)
{
    return at != 0 && text[at - 1] == 0xD83D && text[at] == 0xDE00;
}

// Against searches too dull to be wrong. Few different units, and often a period, make places that
// look right for long.
TEST(StrCompare, FindsTextsInTextsLikeThem)
{
    std::minstd_rand random{7};
    for (const std::u16string units : {u"ab", u"abc", u"a\xD83D\xDE00"}) {
        for (int round = 0; round < 20000; ++round) {
            const std::size_t period = 1 + random() % 300;
            std::u16string text(random() % 700, u'\0');
            for (std::size_t at = 0; at < text.size(); ++at) {
                text[at] = at < period || random() % 100 == 0 ? units[random() % units.size()]
                                                              : text[at - period];
            }
            std::u16string wanted = text.substr(random() % (text.size() + 1), random() % 300);
            if (!wanted.empty() && random() % 2 == 0) {
                wanted[random() % wanted.size()] = units[random() % units.size()];
            }
            const QVWChar* const start = text.c_str();
            std::size_t found = text.find(wanted);
            ASSERT_EQ(static_cast<std::ptrdiff_t>(found),
                      Offset(start, QVStrStrW(start, wanted.c_str())));
            while (found != text.npos && !wanted.empty() &&
                   (StartsInPair(text, found) || StartsInPair(text, found + wanted.size()))) {
                found = text.find(wanted, found + 1);
            }
            ASSERT_EQ(static_cast<std::ptrdiff_t>(found),
                      Offset(start, QVStrStrUTF16(start, wanted.c_str())));
        }
    }
    // Unit by unit at each place, either of these would take longer than the test may.
    const std::u16string same(std::size_t{1} << 20, u'a');
    const std::u16string text = same + same + u"b";
    EXPECT_EQ(same.size(), QVStrStrW(text.c_str(), (same + u"b").c_str()) - text.c_str());
    EXPECT_EQ(nullptr, QVStrStrUTF16(text.c_str(), (same + u"c").c_str()));
}

} // namespace
