// Texts of the system as UTF-16 and back, and how names compare.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "platform/native_path.h"
#include "platform/path_text.h"
#include "platform/registry_names.h"

using namespace qv::platform;

namespace
{

TEST(PathText, KeepsWhatUtf8CannotCarry)
{
    const struct
    {
        std::u16string text;
        std::string bytes;
        bool back;
    } rows[] = {
        {u"\u007F\u0080\u07FF\u0800\uFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", true},
        {u"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", true},
        {{0xDC80, 0xDCFF, u'x'}, "\x80\xFFx", true},
        {{0xDC7F}, "\xED\xB1\xBF", false}, // a byte below 0x80 would be another character
        {{0xD800, 0xD800, 0xDC00}, "\xED\xA0\x80\xF0\x90\x80\x80", false},
        {{0xDCC0, 0xDC80}, "\xC0\x80", true},                         // longer than needed
        {{0xDCF0, 0xDC8F, 0xDCBF, 0xDCBF}, "\xF0\x8F\xBF\xBF", true}, // the same
        {{0xDCED, 0xDCA0, 0xDC80}, "\xED\xA0\x80", true},             // a surrogate
        {{0xDCF4, 0xDC90, 0xDC80, 0xDC80}, "\xF4\x90\x80\x80", true}, // beyond the last
        {{0xDCE2, 0xDC82}, "\xE2\x82", true},                         // cut off
        {{0xDCE2, 0x00E9}, "\xE2\xC3\xA9", true},                     // the next one is whole
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.bytes));
        EXPECT_EQ(PathToBytes(row.text), row.bytes);
        EXPECT_EQ(PathFromBytes(row.bytes) == row.text, row.back);
    }
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

TEST(NativePath, EachFileNameHasOneText)
{
    const std::u16string longest(4095, u'x');
    const struct
    {
        std::u16string text;
        DWORD error;
        std::string bytes;
    } rows[] = {
        {u"a\\b/c\\", ERROR_SUCCESS, "a/b/c/"},
        {u"\u00E9\\\U0001F642", ERROR_SUCCESS, "\xC3\xA9/\xF0\x9F\x99\x82"},
        {{u'x', 0xDCFF, 0xDC80}, ERROR_SUCCESS, "x\xFF\x80"},
        {{u'x', 0xDCC3, 0xDCA9}, ERROR_INVALID_NAME, ""}, // would be the second row's first letter
        {{0xDCC3, 0xDCA9, 0xDC80}, ERROR_INVALID_NAME, ""},
        {{u'x', 0xD800}, ERROR_INVALID_NAME, ""},
        {{0xDC00, u'x'}, ERROR_INVALID_NAME, ""},
        {{u'x', 0, u'y'}, ERROR_INVALID_NAME, ""},
        {u"", ERROR_PATH_NOT_FOUND, ""},
        {longest, ERROR_SUCCESS, std::string(4095, 'x')},
        {longest + u'x', ERROR_FILENAME_EXCED_RANGE, ""},
        {std::u16string(2048, u'\u00E9'), ERROR_FILENAME_EXCED_RANGE, ""},
    };
    for (const auto& row : rows) {
        NativePath path;
        EXPECT_EQ(path.Set(std::u16string_view(row.text)), row.error) << &row - rows;
        EXPECT_EQ(path.View(), row.bytes) << &row - rows;
        EXPECT_EQ(path.Text()[row.bytes.size()], '\0');
    }
    EXPECT_EQ(NativePath().Set(nullptr), ERROR_PATH_NOT_FOUND);
}

// The fold and the hash are part of the file format: others would lose keys.
TEST(RegistryNames, FoldAndHashStayAsTheyAre)
{
    std::uint64_t sum = 0;
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const WCHAR upper = FoldUnit(static_cast<WCHAR>(unit));
        EXPECT_EQ(FoldUnit(upper), upper) << std::hex << unit;
        sum = sum * 31 + upper;
    }
    EXPECT_EQ(sum, 17166866594206199918u);
    std::u16string hash(kNameHashSize / 2, u'\0');
    const std::u16string name(300, u'\u00E4');
    HashFoldedName(name.data(), name.size(), reinterpret_cast<unsigned char*>(hash.data()));
    EXPECT_EQ(hash, u"\xB84A\xDA37\x45BC\xC5AD\x270C\xE0DE\xE9B3\x0AA1");
}

} // namespace
