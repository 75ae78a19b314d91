#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <random>
#include <string>
#include <utility>

namespace
{

TEST(StrCompare, SignsOfOrders)
{
    const char* const narrow = "the same and longer than a block";
    const char* const narrowUpper = "The Same AND Longer Than A Block";
    const std::u16string wide(narrow, narrow + 32), upper(narrowUpper, narrowUpper + 32);
    const std::pair<int, int32_t> rows[] = {
        {1, QVStrCmpA(narrow, narrowUpper)},
        {-1, QVStrCmpA("\x01", "\xFF")}, // bytes are unsigned
        {0, QVStrICmpA(narrow, narrowUpper)},
        {0, QVStrNICmpA(narrow, narrowUpper, UINT32_MAX)},
        {-1, QVStrICmpA("the same beginning, 0", "THE SAME BEGINNING, 1")},
        {-1, QVStrICmpA("a", "_")}, // A folds to upper case, the others to lower case
        {1, QVStrICmpW(u"a", u"_")},
        {1, QVStrICmpUCS2(u"a", u"_")},
        {1, QVStrICmpUTF16(u"a", u"_")},
        {-1, QVStrICmpA("@", "`")}, // one bit apart, but no letters
        {-1, QVStrICmpW(u"@", u"`")},
        {-1, QVStrICmpUCS2(u"@", u"`")},
        {0, QVStrICmpW(wide.c_str(), upper.c_str())},
        {0, QVStrICmpUCS2(wide.c_str(), upper.c_str())},
        {0, QVStrICmpUTF16(wide.c_str(), upper.c_str())},
        {0, QVStrNCmpW(u"aX", u"aY", 1)},
        {-1, QVStrNCmpW(u"aX", u"aY", 2)},
        {0, QVStrNICmpW(u"aX", u"AY", 1)},
        {-1, QVStrNICmpW(u"aX", u"AY", 2)},
        {0, QVStrNICmpA("a\x80", "A\x81", 1)},
        {-1, QVStrNICmpA("a\x80", "A\x81", 2)},
        {-1, QVStrNICmpUTF16(u"aX", u"AY", UINT32_MAX)},
        {1, QVStrCmpW(u"\xFFFD", u"\xD83D\xDE00")}, // by unit, and by code point
        {1, QVStrCmpUCS2(u"\xFFFD", u"\xD83D\xDE00")},
        {-1, QVStrCmpUTF16(u"\xFFFD", u"\xD83D\xDE00")},
        {0, QVStrICmpUTF16(u"\xD801\xDC00", u"\xD801\xDC28")},
        {-1, QVStrICmpW(u"\xD801\xDC00", u"\xD801\xDC28")}, // W knows no pairs
    };
    int row = 0;
    for (const auto& [sign, order] : rows) {
        EXPECT_EQ(sign, (order > 0) - (order < 0)) << row;
        ++row;
    }
}

std::ptrdiff_t Offset(const QVWChar* text, const QVWChar* found)
{
    return found == nullptr ? -1 : found - text;
}

TEST(StrCompare, FindsTheLastOfAUnitAndNoHalfOfAPair)
{
    const QVWChar* const text = u"b\xDE00 \xD83D\xDE00 b";
    for (const auto& [unit, last] : {std::pair{u'b', 6}, {u'\xDE00', 4}, {u'x', -1}, {u'\0', 7}}) {
        EXPECT_EQ(last, Offset(text, QVStrRChrW(text, unit)));
    }
    EXPECT_EQ(1, Offset(text, QVStrRChrUTF16(text, 0xDE00)));
    EXPECT_EQ(3, Offset(text, QVStrRChrUTF16(text, 0x1F600)));
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
