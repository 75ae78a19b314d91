#include "platform/path_text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using namespace qv::platform;

namespace
{

TEST(PathText, KeepsWhatUtf8CannotCarry)
{
    const struct
    {
        std::u16string text;
        std::string bytes;
    } rows[] = {
        {u"", ""},
        {u"plain \\ text", "plain \\ text"},
        {u"\u007F\u0080\u07FF\u0800\uFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {u"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {{0xDC80, 0xDCFF, u'x'}, "\x80\xFFx"},
        {{0xDFFF}, "\xED\xBF\xBF"},
        {{0xDC7F}, "\xED\xB1\xBF"}, // a byte below 0x80 would be another character
        {{0xD800, u'x'}, "\xED\xA0\x80x"},
        {{u'x', 0xDBFF}, "x\xED\xAF\xBF"},
        {{0xD800, 0xD800, 0xDC00}, "\xED\xA0\x80\xF0\x90\x80\x80"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(PathToBytes(row.text), row.bytes) << testing::PrintToString(row.bytes);
    }
}

TEST(PathText, ReadsEveryIllFormedByteByItself)
{
    const struct
    {
        std::string bytes;
        std::u16string text;
    } rows[] = {
        {"\xC0\x80", {0xDCC0, 0xDC80}},                         // longer than needed
        {"\xE0\x9F\xBF", {0xDCE0, 0xDC9F, 0xDCBF}},             // the same
        {"\xF0\x8F\xBF\xBF", {0xDCF0, 0xDC8F, 0xDCBF, 0xDCBF}}, // the same
        {"\xED\xA0\x80", {0xDCED, 0xDCA0, 0xDC80}},             // a surrogate
        {"\xF4\x90\x80\x80", {0xDCF4, 0xDC90, 0xDC80, 0xDC80}}, // beyond the last
        {"\xF5\xFF", {0xDCF5, 0xDCFF}},                         // no lead byte
        {"\xE2\x82", {0xDCE2, 0xDC82}},                         // cut off
        {"\xE2x\xAC", {0xDCE2, u'x', 0xDCAC}},                  // interrupted
        {"\xE2\xC3\xA9", {0xDCE2, 0x00E9}},                     // the next one is whole
    };
    for (const auto& row : rows) {
        EXPECT_EQ(PathFromBytes(row.bytes), row.text) << testing::PrintToString(row.bytes);
    }
}

TEST(PathText, AnyBytesComeBack)
{
    std::mt19937 random(7);
    const std::string hard = "\xED\xA0\x80\xF0\x9F\x99\x82\xC3\xA9\x80\xFFz/";
    for (int round = 0; round < 20000; ++round) {
        std::string bytes;
        for (auto length = random() % 12; length > 0; --length) {
            bytes.push_back(random() % 2 == 0 ? hard[random() % hard.size()]
                                              : static_cast<char>(random() % 255 + 1));
        }
        ASSERT_EQ(PathToBytes(PathFromBytes(bytes)), bytes) << testing::PrintToString(bytes);
    }
}

} // namespace
