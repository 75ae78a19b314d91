#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <string>

namespace
{

std::u16string Wide(const std::string& ascii)
{
    return {ascii.begin(), ascii.end()};
}

// errno before a call, so that a stored code and none are told apart.
constexpr int kNoCode = 7777;

const struct IntegerRow
{
    std::string text;
    int base;
    std::ptrdiff_t used;
    int64_t value;
    int code;
} kIntegerRows[] = {
    {" \t\n\v\f\r+7z", 10, 8, 7, kNoCode},
    {"2147483647", 10, 10, INT32_MAX, kNoCode},
    {"2147483648", 10, 10, 2147483648, kNoCode},
    {"-2147483648", 10, 11, INT32_MIN, kNoCode},
    {"-2147483649", 10, 11, -2147483649, kNoCode},
    {"9223372036854775808", 10, 19, INT64_MAX, ERANGE},
    {"-9223372036854775808", 10, 20, INT64_MIN, kNoCode},
    {"-9223372036854775809", 10, 20, INT64_MIN, ERANGE},
    {"0x1Fg", 0, 4, 31, kNoCode},
    {"0xg", 16, 1, 0, kNoCode},
    {"0178", 0, 3, 15, kNoCode},
    {"zZ", 36, 2, 1295, kNoCode},
    {" +x", 10, 0, 0, kNoCode},
    {"12", 37, 0, 0, EINVAL},
};

template <class Number, class Unit>
void CheckIntegers(Number (*convert)(const Unit*, Unit**, int32_t))
{
    for (const IntegerRow& row : kIntegerRows) {
        SCOPED_TRACE(row.text);
        const auto value = static_cast<Number>(std::clamp<int64_t>(
            row.value, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max()));
        const std::basic_string<Unit> text(row.text.begin(), row.text.end());
        Unit* end = nullptr;
        errno = kNoCode;
        EXPECT_EQ(value, convert(text.c_str(), &end, row.base));
        EXPECT_EQ(value == row.value ? row.code : ERANGE, errno);
        EXPECT_EQ(row.used, end - text.c_str());
    }
}

TEST(StrNumber, Integers)
{
    CheckIntegers(QVStrToLA);
    CheckIntegers(QVStrToLW);
    CheckIntegers(QVStrToLLA);
    CheckIntegers(QVStrToLLW);
    EXPECT_EQ(1u, QVStrToULA("-4294967295", nullptr, 10));
    EXPECT_EQ(UINT32_MAX, QVStrToULA("4294967296", nullptr, 10));
    EXPECT_EQ(0, QVStrToIW(u"\x663")) << "digits are those of ASCII";
}

TEST(StrNumber, WideDoubles)
{
    const struct
    {
        std::string text;
        double value;
        std::ptrdiff_t used;
    } rows[] = {
        {" -1.5e3x", -1500, 7},
        {"0x1.8p1,", 3, 7},
        {"-INFinity_", -HUGE_VAL, 9},
        {"  +(", 0, 0},
        // Decided by the last digit, behind what a fixed buffer would hold.
        {"9007199254740993." + std::string(400, '0') + "1", 9007199254740994.0, 418},
    };
    for (const auto& [text, value, used] : rows) {
        const std::u16string wide = Wide(text);
        QVWChar* end = nullptr;
        EXPECT_EQ(value, QVStrToDW(wide.c_str(), &end)) << text;
        EXPECT_EQ(used, end - wide.c_str()) << text;
    }
}

TEST(StrNumber, ToText)
{
    char narrow[65];
    QVWChar wide[65];
    EXPECT_EQ(Wide(std::string(32, '1')), QVLToStrW(-1, wide, 2));
    EXPECT_EQ(std::string(64, '1'), QVInt64ToStrA(-1, narrow, 2));
    EXPECT_EQ(Wide("-9223372036854775808"), QVInt64ToStrW(INT64_MIN, wide, 10));
    EXPECT_STREQ("", QVLToStrA(5, narrow, 37));
}

} // namespace
