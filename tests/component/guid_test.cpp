#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <cstring>
#include <string>

namespace
{

constexpr GUID kGuid = {
    0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x1A}};
const std::u16string kPlain = u"01234567-89ab-CDEF-fedc-BA987654321A";
const std::u16string kBraced = u"{01234567-89AB-CDEF-FEDC-BA987654321A}";

TEST(GuidText, ReadsWhatIsAGuidAndLeavesTheOutputForWhatIsNone)
{
    const struct
    {
        std::u16string text;
        bool good;
    } rows[] = {
        {kBraced, true},
        {kPlain + u"} etc", true}, // text behind it
        {kBraced + u" etc", true},
        {kPlain.substr(0, 35), false},  // 35 units
        {u"{" + kPlain, false},         // 37 units with an opening brace
        {u"{" + kPlain + u" }", false}, // the closing one too late
        {kBraced.substr(0, 36), false}, // 36 units with the opening one
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        GUID guid = QV_IID_UNKNOWN;
        EXPECT_EQ(QVComGUIDFromString(row.text.c_str(), &guid), row.good ? S_OK : E_INVALIDARG);
        const GUID expected = row.good ? kGuid : QV_IID_UNKNOWN;
        EXPECT_EQ(QVComIsEqualGUID(&guid, &expected), 1);
    }
}

// Each of the 36 places by itself: the neighbours of the digits' ranges, and the end of the text.
TEST(GuidText, EveryPlaceIsChecked)
{
    for (std::size_t at = 0; at < kPlain.size(); ++at) {
        const bool isDash = kPlain[at] == u'-';
        for (const char16_t unit : std::u16string(u"\0/:@G`g-0aF{}\u0130\uFF10", 15)) {
            std::u16string text = kPlain;
            text[at] = unit;
            const bool isDigit = unit == u'0' || unit == u'a' || unit == u'F';
            GUID guid;
            EXPECT_EQ(QVComGUIDFromString(text.c_str(), &guid),
                      (isDash ? unit == u'-' : isDigit) ? S_OK : E_INVALIDARG)
                << at;
        }
    }
}

TEST(GuidText, WritesUpperCaseWithBracesUpToTheLimit)
{
    for (const uint32_t units : {0u, 1u, 10u, 38u, 39u, 60u}) {
        SCOPED_TRACE(units);
        std::u16string text(64, u'#');
        EXPECT_EQ(QVComStringFromGUID(&kGuid, text.data(), units), S_OK);
        std::u16string expected = (kBraced + std::u16string(1, 0)).substr(0, units);
        expected.resize(text.size(), u'#');
        EXPECT_EQ(text, expected);
    }
}

TEST(GuidOrder, EarlierPlacesOfTheOrderDecide)
{
    constexpr std::size_t order[] = {10, 11, 12, 13, 14, 15, 8, 9, 6, 7, 4, 5, 0, 1, 2, 3};
    for (std::size_t i = 0; i < std::size(order); ++i) {
        SCOPED_TRACE(order[i]);
        uint8_t bytes[2][sizeof(GUID)] = {};
        bytes[0][order[i]] = 1;
        bytes[1][order[i]] = 0x80; // as a signed byte it would be smaller
        for (std::size_t later = i + 1; later < std::size(order); ++later) {
            bytes[0][order[later]] = 0xFF;
        }
        GUID guids[2];
        std::memcpy(guids, bytes, sizeof guids);
        EXPECT_EQ(QVComCompareGUID(&guids[0], &guids[0]), 0);
        EXPECT_EQ(QVComCompareGUID(&guids[0], &guids[1]), -1);
        EXPECT_EQ(QVComCompareGUID(&guids[1], &guids[0]), 1);
    }
}

} // namespace
