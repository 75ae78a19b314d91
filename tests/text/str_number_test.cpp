#include <gtest/gtest.h>
#include <qvcore6/str.h>

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

template <class Number, class Unit>
void CheckInteger(Number (*convert)(const Unit*, Unit**, int32_t),
                  const std::basic_string<Unit>& text, int base, Number value, std::ptrdiff_t used,
                  int code)
{
    Unit* end = nullptr;
    errno = kNoCode;
    EXPECT_EQ(value, convert(text.c_str(), &end, base));
    EXPECT_EQ(code, errno);
    EXPECT_EQ(used, end - text.c_str());
    EXPECT_EQ(value, convert(text.c_str(), nullptr, base));
}

struct IntegerRow
{
    const char* text;
    int base;
    std::ptrdiff_t used;
    int32_t l;
    int lCode;
    uint32_t ul;
    int ulCode;
    int64_t ll;
    int llCode;
};

constexpr int32_t kMax = INT32_MAX;
constexpr int32_t kMin = INT32_MIN;
constexpr uint32_t kUMax = UINT32_MAX;

constexpr IntegerRow kIntegerRows[] = {
    {"12z", 10, 2, 12, kNoCode, 12, kNoCode, 12, kNoCode},
    {" \t\n\v\f\r+7", 10, 8, 7, kNoCode, 7, kNoCode, 7, kNoCode},
    {"-1", 10, 2, -1, kNoCode, kUMax, kNoCode, -1, kNoCode},
    {"2147483647", 10, 10, kMax, kNoCode, 0x7FFFFFFF, kNoCode, 2147483647, kNoCode},
    {"2147483648", 10, 10, kMax, ERANGE, 0x80000000, kNoCode, 2147483648, kNoCode},
    {"-2147483648", 10, 11, kMin, kNoCode, 0x80000000, kNoCode, -2147483648, kNoCode},
    {"-2147483649", 10, 11, kMin, ERANGE, 0x7FFFFFFF, kNoCode, -2147483649, kNoCode},
    {"4294967295", 10, 10, kMax, ERANGE, kUMax, kNoCode, 4294967295, kNoCode},
    {"4294967296", 10, 10, kMax, ERANGE, kUMax, ERANGE, 4294967296, kNoCode},
    {"-4294967295", 10, 11, kMin, ERANGE, 1, kNoCode, -4294967295, kNoCode},
    {"-4294967296", 10, 11, kMin, ERANGE, kUMax, ERANGE, -4294967296, kNoCode},
    {"9223372036854775807", 10, 19, kMax, ERANGE, kUMax, ERANGE, INT64_MAX, kNoCode},
    {"9223372036854775808", 10, 19, kMax, ERANGE, kUMax, ERANGE, INT64_MAX, ERANGE},
    {"-9223372036854775808", 10, 20, kMin, ERANGE, kUMax, ERANGE, INT64_MIN, kNoCode},
    {"-9223372036854775809", 10, 20, kMin, ERANGE, kUMax, ERANGE, INT64_MIN, ERANGE},
    {"99999999999999999999999", 10, 23, kMax, ERANGE, kUMax, ERANGE, INT64_MAX, ERANGE},
    {"0x1Fg", 0, 4, 31, kNoCode, 31, kNoCode, 31, kNoCode},
    {"0X1f", 16, 4, 31, kNoCode, 31, kNoCode, 31, kNoCode},
    {"0xg", 16, 1, 0, kNoCode, 0, kNoCode, 0, kNoCode},
    {"0xg", 0, 1, 0, kNoCode, 0, kNoCode, 0, kNoCode},
    {"0178", 0, 3, 15, kNoCode, 15, kNoCode, 15, kNoCode},
    {"zZ", 36, 2, 1295, kNoCode, 1295, kNoCode, 1295, kNoCode},
    {"102", 2, 2, 2, kNoCode, 2, kNoCode, 2, kNoCode},
    {" +x", 10, 0, 0, kNoCode, 0, kNoCode, 0, kNoCode},
    {"", 10, 0, 0, kNoCode, 0, kNoCode, 0, kNoCode},
    {"12", 1, 0, 0, EINVAL, 0, EINVAL, 0, EINVAL},
    {"12", 37, 0, 0, EINVAL, 0, EINVAL, 0, EINVAL},
    {"12", -8, 0, 0, EINVAL, 0, EINVAL, 0, EINVAL},
};

TEST(StrNumber, Integers)
{
    for (const IntegerRow& row : kIntegerRows) {
        SCOPED_TRACE(testing::Message() << row.text << " base " << row.base);
        const std::string text = row.text;
        const std::u16string wide = Wide(text);
        CheckInteger(QVStrToLA, text, row.base, row.l, row.used, row.lCode);
        CheckInteger(QVStrToLW, wide, row.base, row.l, row.used, row.lCode);
        CheckInteger(QVStrToULA, text, row.base, row.ul, row.used, row.ulCode);
        CheckInteger(QVStrToULW, wide, row.base, row.ul, row.used, row.ulCode);
        CheckInteger(QVStrToLLA, text, row.base, row.ll, row.used, row.llCode);
        CheckInteger(QVStrToLLW, wide, row.base, row.ll, row.used, row.llCode);
        if (row.base == 10) {
            EXPECT_EQ(row.l, QVStrToIA(row.text));
            EXPECT_EQ(row.l, QVStrToIW(wide.c_str()));
            EXPECT_EQ(row.ll, QVStrToI64W(wide.c_str()));
        }
    }
    EXPECT_EQ(UINT64_MAX, QVStrToULLA("-1", nullptr, 10));
    EXPECT_EQ(UINT64_MAX, QVStrToULLA("18446744073709551616", nullptr, 10));
    EXPECT_EQ(0, QVStrToIW(u"\x663")) << "digits are those of ASCII";
}

TEST(StrNumber, Doubles)
{
    const struct
    {
        std::string text;
        double value;
        std::ptrdiff_t used;
    } rows[] = {
        {" -1.5e3x", -1500, 7},
        {"1.5.6", 1.5, 3},
        {"1e+", 1, 1},
        {"0x1.8p1,", 3, 7},
        {"-INFinity_", -HUGE_VAL, 9},
        {".", 0, 0},
        {"  +(", 0, 0},
        {"", 0, 0},
        {"1e999", HUGE_VAL, 5},
        {std::string(400, '9'), HUGE_VAL, 400},
        // Decided by the last digit, behind what a fixed buffer would hold.
        {"9007199254740993." + std::string(400, '0') + "1", 9007199254740994.0, 418},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        char* end = nullptr;
        EXPECT_EQ(row.value, QVStrToDA(row.text.c_str(), &end));
        EXPECT_EQ(row.used, end - row.text.c_str());
        const std::u16string wide = Wide(row.text);
        QVWChar* wideEnd = nullptr;
        EXPECT_EQ(row.value, QVStrToDW(wide.c_str(), &wideEnd));
        EXPECT_EQ(row.used, wideEnd - wide.c_str());
    }
    EXPECT_TRUE(std::isnan(QVStrToDW(u"nan(x)", nullptr)));
}

TEST(StrNumber, ToText)
{
    const struct
    {
        int64_t value;
        int radix;
        const char* as32;
        const char* as64;
    } rows[] = {
        {0, 10, "0", "0"},
        {-1, 10, "-1", "-1"},
        {-1, 16, "ffffffff", "ffffffffffffffff"},
        {INT32_MIN, 10, "-2147483648", "-2147483648"},
        {-1, 2, "11111111111111111111111111111111",
         "1111111111111111111111111111111111111111111111111111111111111111"},
        {1295, 36, "zz", "zz"},
        {5, 1, "", ""},
        {5, 37, "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.value << " radix " << row.radix);
        char narrow[66];
        QVWChar wide[66];
        const auto value = static_cast<int32_t>(row.value);
        errno = kNoCode;
        EXPECT_STREQ(row.as32, QVLToStrA(value, narrow, row.radix));
        EXPECT_EQ(*row.as32 == 0 ? EINVAL : kNoCode, errno);
        EXPECT_STREQ(row.as64, QVInt64ToStrA(row.value, narrow, row.radix));
        EXPECT_EQ(Wide(row.as32), QVLToStrW(value, wide, row.radix));
        EXPECT_EQ(Wide(row.as64), QVInt64ToStrW(row.value, wide, row.radix));
    }
    char narrow[66];
    EXPECT_STREQ("-9223372036854775808", QVInt64ToStrA(INT64_MIN, narrow, 10));
}

} // namespace
