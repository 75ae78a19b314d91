#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <string>

namespace
{

TEST(StrConvert, IllFormedTextGivesNoLength)
{
    char bytes[16];
    QVWChar units[16];
    EXPECT_EQ(3, QVUTF16ToUTF8(bytes, u"a\xE4", 2)) << "the needed length, if it does not fit";
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
