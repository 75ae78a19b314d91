#include "component/guid_text.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qv::core
{

namespace
{

// Two words at once. As one 16-byte store it also spares a 16-byte load right behind it a stall.
using Pair [[gnu::vector_size(16)]] = std::uint64_t;

// Every byte of a word has this value.
constexpr std::uint64_t Each(std::uint64_t byte)
{
    return byte * 0x0101010101010101u;
}

// The two digits of each of four bytes, the first byte and its first digit lowest. All at once:
// each step does its work in all bytes.
Pair Digits(std::uint32_t first, std::uint32_t second)
{
    Pair v = {first, second};
    v = (v | v << 16) & 0x0000FFFF0000FFFFu;
    v = (v | v << 8) & 0x00FF00FF00FF00FFu;
    v = (v >> 4 | v << 8) & Each(0x0F);
    const Pair isLetter = (v + Each(6)) >> 4 & Each(1);
    static_assert('A' - '0' - 10 == 8 - 1);
    return v + Each('0') + (isLetter << 3) - isLetter;
}

void Put(char* text, std::uint64_t first, std::uint64_t second)
{
    if constexpr (std::endian::native == std::endian::big) {
        first = __builtin_bswap64(first);
        second = __builtin_bswap64(second);
    }
    const Pair block = {first, second};
    std::memcpy(text, &block, sizeof block);
}

constexpr std::uint64_t Character(char character, unsigned place)
{
    return static_cast<std::uint64_t>(character) << 8 * place;
}

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

void FormatGuid(const GUID& guid, GuidText& text)
{
    const auto tail = [&guid](std::size_t at) {
        const std::uint8_t* const byte = guid.Data4 + at;
        return std::uint32_t{byte[0]} | std::uint32_t{byte[1]} << 8 | std::uint32_t{byte[2]} << 16 |
               std::uint32_t{byte[3]} << 24;
    };
    const std::uint32_t middle = std::uint32_t{guid.Data2} << 16 | guid.Data3;
    const Pair ab = Digits(__builtin_bswap32(guid.Data1), __builtin_bswap32(middle));
    const Pair cd = Digits(tail(0), tail(4));
    const std::uint64_t a = ab[0];
    const std::uint64_t b = ab[1];
    const std::uint64_t c = cd[0];
    const std::uint64_t d = cd[1];
    // Eight characters a word: {aaaaaaa a-bbbb-b bbb-cccc -ccccddd ddddd}
    Put(text.data(), Character('{', 0) | a << 8,
        a >> 56 | Character('-', 1) | (b & 0xFFFFFFFFu) << 16 | Character('-', 6) | b >> 32 << 56);
    Put(text.data() + 16, b >> 40 | Character('-', 3) | c << 32,
        Character('-', 0) | c >> 32 << 8 | d << 40);
    Put(text.data() + 32, d >> 24 | Character('}', 5), 0);
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
