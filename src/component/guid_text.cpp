#include "component/guid_text.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qv::core
{

namespace
{

// Two digits for each byte value.
constexpr auto kDigits = [] {
    std::array<char, 512> digits{};
    constexpr char hex[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < 256; ++i) {
        digits[2 * i] = hex[i >> 4];
        digits[2 * i + 1] = hex[i & 15];
    }
    return digits;
}();

// The value of each digit, and kBad for everything else.
constexpr std::uint32_t kBad = 0x80000000u;
constexpr auto kValues = [] {
    std::array<std::uint32_t, 256> values{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        values[i] = i >= '0' && i <= '9'   ? i - '0'
                    : i >= 'A' && i <= 'F' ? i - 'A' + 10
                    : i >= 'a' && i <= 'f' ? i - 'a' + 10
                                           : kBad;
    }
    return values;
}();

std::uint32_t ValueOf(QVWChar unit)
{
    return unit < kValues.size() ? kValues[unit] : kBad;
}

} // namespace

void FormatGuid(const GUID& guid, char (&text)[QV_GUID_TEXT_UNITS])
{
    char* end = text;
    const auto put = [&end](std::uint32_t byte) {
        std::memcpy(end, &kDigits[2 * (byte & 0xFF)], 2);
        end += 2;
    };
    *end++ = '{';
    put(guid.Data1 >> 24);
    put(guid.Data1 >> 16);
    put(guid.Data1 >> 8);
    put(guid.Data1);
    *end++ = '-';
    put(guid.Data2 >> 8u);
    put(guid.Data2);
    *end++ = '-';
    put(guid.Data3 >> 8u);
    put(guid.Data3);
    *end++ = '-';
    put(guid.Data4[0]);
    put(guid.Data4[1]);
    *end++ = '-';
    for (std::size_t i = 2; i < 8; ++i) {
        put(guid.Data4[i]);
    }
    *end++ = '}';
    *end = '\0';
}

bool ParseGuid(const QVWChar* text, GUID* guidOut)
{
    const bool hasBrace = text[0] == u'{';
    const QVWChar* at = text + (hasBrace ? 1 : 0);
    std::array<std::uint32_t, 8> groups;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        if (i >= 2 && i <= 5 && *at++ != u'-') {
            return false;
        }
        // Each unit decides whether the next one may be looked at: the terminator is no digit.
        std::uint32_t value = 0;
        for (int digit = 0; digit < 4; ++digit, ++at) {
            const std::uint32_t one = ValueOf(*at);
            if (one == kBad) {
                return false;
            }
            value = value << 4 | one;
        }
        groups[i] = value;
    }
    if (hasBrace && *at != u'}') {
        return false;
    }
    guidOut->Data1 = groups[0] << 16 | groups[1];
    guidOut->Data2 = static_cast<std::uint16_t>(groups[2]);
    guidOut->Data3 = static_cast<std::uint16_t>(groups[3]);
    for (std::size_t i = 0; i < 4; ++i) {
        guidOut->Data4[2 * i] = static_cast<std::uint8_t>(groups[4 + i] >> 8);
        guidOut->Data4[2 * i + 1] = static_cast<std::uint8_t>(groups[4 + i]);
    }
    return true;
}

} // namespace qv::core
