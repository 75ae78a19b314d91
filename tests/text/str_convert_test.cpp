#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <string>
#include <vector>

namespace
{

TEST(StrConvert, Utf8LengthsAndCapacities)
{
    const std::u16string wide = u"a\xE4\x20AC\xD83D\xDE00";
    const std::string narrow = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    for (const int32_t capacity : {0, 1, 4, 5, 11}) {
        // Exact buffers: the sanitizers see one unit more.
        std::vector<char> bytes(static_cast<std::size_t>(capacity));
        std::vector<QVWChar> units(static_cast<std::size_t>(capacity));
        EXPECT_EQ(10, QVUTF16ToUTF8(bytes.data(), wide.c_str(), capacity)) << "the needed length";
        EXPECT_EQ(5, QVUTF8ToUTF16(units.data(), narrow.c_str(), capacity));
        if (capacity == 11) {
            EXPECT_EQ(narrow, bytes.data());
            EXPECT_EQ(wide, units.data());
        }
    }
}

TEST(StrConvert, IllFormedTextGivesNoLength)
{
    char bytes[16];
    QVWChar units[16];
    int32_t length = -7;
    EXPECT_EQ(nullptr, QVUTF16ToUTF8N(bytes, 16, &length, u"a\xD83D", -1));
    EXPECT_EQ(0, length);
    EXPECT_EQ(0, QVUTF16ToUTF8(bytes, u"a\xDE00", 16));
    for (const char* narrow : {"a\x80", "a\xC0\xAF", "a\xED\xA0\x80", "a\xE2\x82"}) {
        length = -7;
        EXPECT_EQ(nullptr, QVUTF8ToUTF16N(units, 16, &length, narrow, -1));
        EXPECT_EQ(0, length);
    }
    EXPECT_EQ(0, QVUTF8ToUTF16(units, "a\x80", 16));
}

TEST(StrConvert, StepsThroughUtf16)
{
    const struct
    {
        std::u16string text;
        int32_t limit;
        uint32_t character;
        std::ptrdiff_t step;
    } rows[] = {
        {u"\xD83D\xDE00", -1, 0x1F600, 2},
        {u"\xDBFF\xDFFF", 2, 0x10FFFF, 2},
        {u"\xD83D\xDE00", 1, 0xD83D, 1},
        {u"\xD83D", -1, 0xD83D, 1},
        {u"\xDE00\xD83D", -1, 0xDE00, 1},
        {u"ab", 0, 0, 0},
        {u"", -1, 0, 1},
    };
    for (const auto& row : rows) {
        const QVWChar* cursor = row.text.c_str();
        EXPECT_EQ(row.character, QVNextCharUTF16(&cursor, row.limit));
        EXPECT_EQ(row.step, cursor - row.text.c_str()) << row.character << ", limit " << row.limit;
    }
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
