#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <cstring>
#include <string>
#include <utility>

namespace
{

constexpr GUID kGuid = {
    0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x1A}};
const std::u16string kPlain = u"01234567-89ab-CDEF-fedc-BA987654321A";
const std::u16string kBraced = u"{01234567-89AB-CDEF-FEDC-BA987654321A}";

TEST(GuidText, ReadsWhatIsAGuidAndLeavesTheOutputForWhatIsNone)
{
    const std::pair<std::u16string, bool> rows[] = {
        {kBraced, true},
        {kPlain + u"} etc", true}, // text behind it
        {kPlain.substr(0, 35), false},
        {u"{" + kPlain, false},
        {u"{" + kPlain + u" }", false}, // the closing one too late
    };
    for (const auto& [text, isGood] : rows) {
        SCOPED_TRACE(text.size());
        GUID guid = QV_IID_UNKNOWN;
        EXPECT_EQ(QVComGUIDFromString(text.c_str(), &guid), isGood ? S_OK : E_INVALIDARG);
        EXPECT_EQ(QVComIsEqualGUID(&guid, isGood ? &kGuid : &QV_IID_UNKNOWN), 1);
    }
    // Each place by itself: the neighbours of the digits' ranges, and the end of the text.
    for (std::size_t at = 0; at < kPlain.size(); ++at) {
        for (const char16_t unit : std::u16string(u"\0/:@G`g-0aF{}\u0130\uFF10", 15)) {
            std::u16string text = kPlain;
            text[at] = unit;
            const char* const good = kPlain[at] == u'-' ? "-" : "0aF";
            const bool isGood = unit != 0 && unit < 0x80 && std::strchr(good, unit) != nullptr;
            GUID guid;
            EXPECT_EQ(QVComGUIDFromString(text.c_str(), &guid), isGood ? S_OK : E_INVALIDARG) << at;
        }
    }
}

TEST(GuidText, WritesUpperCaseWithBracesUpToTheLimit)
{
    for (const uint32_t units : {0u, 1u, 10u, 38u, 39u, 60u}) {
        std::u16string text(64, u'#');
        EXPECT_EQ(QVComStringFromGUID(&kGuid, text.data(), units), S_OK);
        std::u16string expected = (kBraced + std::u16string(1, 0)).substr(0, units);
        expected.resize(text.size(), u'#');
        EXPECT_EQ(text, expected) << units;
    }
}

TEST(GuidOrder, EarlierPlacesOfTheOrderDecide)
{
    GUID guids[2] = {};
    for (const int place : {3, 2, 1, 0, 5, 4, 7, 6, 9, 8, 15, 14, 13, 12, 11, 10}) {
        // As a signed byte the second would be smaller; the places that matter less say otherwise.
        reinterpret_cast<uint8_t*>(&guids[0])[place] = 1;
        reinterpret_cast<uint8_t*>(&guids[1])[place] = 0x80;
        EXPECT_EQ(QVComCompareGUID(&guids[0], &guids[0]), 0);
        EXPECT_EQ(QVComCompareGUID(&guids[0], &guids[1]), -1) << place;
        EXPECT_EQ(QVComCompareGUID(&guids[1], &guids[0]), 1) << place;
        reinterpret_cast<uint8_t*>(&guids[0])[place] = 0xFF;
        reinterpret_cast<uint8_t*>(&guids[1])[place] = 0;
    }
}

} // namespace
