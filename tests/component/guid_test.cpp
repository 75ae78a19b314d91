#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <array>
#include <cstring>
#include <random>
#include <set>
#include <string>

namespace
{

constexpr GUID kGuid = {
    0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x1A}};
const std::u16string kPlain = u"01234567-89ab-CDEF-fedc-BA987654321A";
const std::u16string kBraced = u"{01234567-89AB-CDEF-FEDC-BA987654321A}";

std::u16string WithFirst(char16_t unit)
{
    std::u16string text = kPlain;
    text[0] = unit;
    return text;
}

GUID Filled(uint8_t byte)
{
    GUID guid;
    std::memset(&guid, byte, sizeof guid);
    return guid;
}

GUID WithByte(std::size_t offset, uint8_t value)
{
    uint8_t bytes[sizeof(GUID)] = {};
    bytes[offset] = value;
    GUID guid;
    std::memcpy(&guid, bytes, sizeof guid);
    return guid;
}

TEST(GuidText, ReadsWhatIsAGuidAndLeavesTheOutputForWhatIsNone)
{
    const struct
    {
        const char* what;
        std::u16string text;
        bool good;
    } rows[] = {
        {"plain", kPlain, true},
        {"braced", kBraced, true},
        {"closing brace alone is ignored", kPlain + u"}", true},
        {"text behind a plain one", kPlain + u" etc", true},
        {"text behind a braced one", kBraced + u"xyz", true},
        {"empty", u"", false},
        {"35 units", kPlain.substr(0, 35), false},
        {"opening brace alone", u"{", false},
        {"37 units with an opening brace", u"{" + kPlain, false},
        {"closing brace too late", u"{" + kPlain + u" }", false},
        {"closing brace too early", kBraced.substr(0, 36) + u"}", false},
        {"36 units with an opening brace", kBraced.substr(0, 36), false},
        {"blank in front", std::u16string(1, u' ').append(kPlain), false},
        {"digit U+FF11", WithFirst(0xFF11), false},
        {"unit 0x0130 must not pass for '0'", WithFirst(0x0130), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        GUID guid = Filled(0xA5);
        EXPECT_EQ(QVComGUIDFromString(row.text.c_str(), &guid), row.good ? S_OK : E_INVALIDARG);
        const GUID expected = row.good ? kGuid : Filled(0xA5);
        EXPECT_EQ(QVComIsEqualGUID(&guid, &expected), 1);
    }
}

// Each of the 36 places by itself: the neighbours of the digits' ranges, and the end of the text.
TEST(GuidText, EveryPlaceIsChecked)
{
    for (std::size_t at = 0; at < kPlain.size(); ++at) {
        const bool isDash = kPlain[at] == u'-';
        for (const char16_t unit : std::u16string(u"\0/:@G`g-0aF{}\u2010\uFF10", 15)) {
            std::u16string text = kPlain;
            text[at] = unit;
            const bool isDigit = unit == u'0' || unit == u'a' || unit == u'F';
            GUID guid;
            EXPECT_EQ(QVComGUIDFromString(text.c_str(), &guid),
                      (isDash ? unit == u'-' : isDigit) ? S_OK : E_INVALIDARG)
                << "place " << at << ", unit " << static_cast<unsigned>(unit);
        }
    }
}

TEST(GuidText, WritesUpperCaseWithBracesUpToTheLimit)
{
    for (const uint32_t units : {0u, 1u, 10u, 38u, 39u, 60u}) {
        SCOPED_TRACE(units);
        std::array<QVWChar, 64> text;
        text.fill(u'#');
        EXPECT_EQ(QVComStringFromGUID(&kGuid, text.data(), units), S_OK);
        std::u16string expected = (kBraced + std::u16string(1, 0)).substr(0, units);
        expected.resize(text.size(), u'#');
        EXPECT_EQ(std::u16string(text.data(), text.size()), expected);
    }
}

TEST(GuidText, ComesBackTheSame)
{
    std::mt19937 random(1);
    for (int round = 0; round < 1000; ++round) {
        GUID guid;
        uint8_t bytes[sizeof guid];
        for (uint8_t& byte : bytes) {
            byte = static_cast<uint8_t>(random());
        }
        std::memcpy(&guid, bytes, sizeof guid);
        QVWChar text[QV_GUID_TEXT_UNITS];
        QVComStringFromGUID(&guid, text, QV_GUID_TEXT_UNITS);
        GUID again = Filled(0);
        ASSERT_EQ(QVComGUIDFromString(text, &again), S_OK);
        ASSERT_EQ(QVComIsEqualGUID(&guid, &again), 1);
    }
}

TEST(GuidOrder, EarlierPlacesOfTheOrderDecide)
{
    constexpr std::size_t order[] = {10, 11, 12, 13, 14, 15, 8, 9, 6, 7, 4, 5, 0, 1, 2, 3};
    for (std::size_t i = 0; i < std::size(order); ++i) {
        SCOPED_TRACE(order[i]);
        const GUID none = WithByte(order[i], 0);
        const GUID small = WithByte(order[i], 1);
        const GUID large = WithByte(order[i], 0x80); // as a signed byte it would be smaller
        EXPECT_EQ(QVComCompareGUID(&none, &none), 0);
        EXPECT_EQ(QVComCompareGUID(&small, &large), -1);
        EXPECT_EQ(QVComCompareGUID(&large, &small), 1);
        EXPECT_EQ(QVComIsEqualGUID(&small, &large), 0);
        if (i + 1 < std::size(order)) {
            const GUID later = WithByte(order[i + 1], 0xFF);
            EXPECT_EQ(QVComCompareGUID(&small, &later), 1);
            EXPECT_EQ(QVComCompareGUID(&later, &small), -1);
        }
    }
}

TEST(GuidGeneration, GivesRandomOnesThatSaySo)
{
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        GUID guid = Filled(0);
        ASSERT_EQ(QVComGenerateGUID(&guid), S_OK);
        EXPECT_EQ(guid.Data3 >> 12, 4);
        EXPECT_EQ(guid.Data4[0] >> 6, 2);
        seen.emplace(reinterpret_cast<const char*>(&guid), sizeof guid);
    }
    EXPECT_EQ(seen.size(), 200u);
}

} // namespace
