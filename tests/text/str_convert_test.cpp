#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <string>

namespace
{

TEST(StrConvert, Utf8TellsTheNeededLength)
{
    const std::u16string wide = u"a\xE4\x20AC\xD83D\xDE00";
    const std::string narrow = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    char bytes[11];
    QVWChar units[6];
    for (const bool fits : {false, true}) {
        EXPECT_EQ(10, QVUTF16ToUTF8(bytes, wide.c_str(), fits ? 11 : 4));
        EXPECT_EQ(5, QVUTF8ToUTF16(units, narrow.c_str(), fits ? 6 : 4));
    }
    EXPECT_EQ(narrow, bytes);
    EXPECT_EQ(wide, units);
}

TEST(StrConvert, IllFormedTextGivesNoLength)
{
    char bytes[16];
    QVWChar units[16];
    for (const QVWChar* wide : {u"a\xD83D", u"a\xDE00"}) {
        int32_t length = -7;
        EXPECT_EQ(nullptr, QVUTF16ToUTF8N(bytes, 16, &length, wide, -1));
        EXPECT_EQ(0, length);
    }
    for (const char* narrow : {"a\x80", "a\xC0\xAF", "a\xED\xA0\x80", "a\xE2\x82"}) {
        int32_t length = -7;
        EXPECT_EQ(nullptr, QVUTF8ToUTF16N(units, 16, &length, narrow, -1));
        EXPECT_EQ(0, length);
    }
}

TEST(StrConvert, StepsThroughUtf16)
{
    const std::u16string text = u"\xDBFF\xDFFF\xDE00\xD83D";
    const QVWChar* cursor = text.c_str();
    EXPECT_EQ(0u, QVNextCharUTF16(&cursor, 0));
    for (const uint32_t character : {0x10FFFFu, 0xDE00u, 0xD83Du, 0u}) {
        EXPECT_EQ(character, QVNextCharUTF16(&cursor, -1));
    }
    EXPECT_EQ(text.c_str() + 5, cursor) << "each step takes what it gives, and a terminator";
    cursor = text.c_str();
    EXPECT_EQ(0xDBFFu, QVNextCharUTF16(&cursor, 1)) << "a limit may cut a pair";
    EXPECT_EQ(text.c_str() + 1, cursor);
}

// Longer than what ICU maps on its stack.
TEST(StrConvert, CaseOfCodePointsKeepsTheLength)
{
    const std::u16string tail(700, u'x');
    std::u16string text = u"\xC4\x3A9\xDF\xD801\xDC00" + tail;
    const std::u16string lower = u"\xE4\x3C9\xDF\xD801\xDC28" + tail;
    EXPECT_EQ(lower, QVStrToLowerUTF16(text.data()));
    EXPECT_EQ(lower, QVStrToUpperUTF16(text.data())) << "a sharp s would need two";
}

} // namespace
