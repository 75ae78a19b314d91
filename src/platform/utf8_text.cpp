#include "platform/utf8_text.h"

#include <cstdint>
#include <cstring>

namespace qv::platform
{

namespace
{

constexpr std::uint32_t kReplacement = 0xFFFD;

struct Encoded
{
    std::size_t size;
    char bytes[4];
};

Encoded Encode(std::uint32_t point)
{
    const auto tail = [point](unsigned shift) {
        return static_cast<char>(0x80 | ((point >> shift) & 0x3F));
    };
    if (point < 0x80) {
        return {1, {static_cast<char>(point)}};
    }
    if (point < 0x800) {
        return {2, {static_cast<char>(0xC0 | (point >> 6)), tail(0)}};
    }
    if (point < 0x10000) {
        return {3, {static_cast<char>(0xE0 | (point >> 12)), tail(6), tail(0)}};
    }
    return {4, {static_cast<char>(0xF0 | (point >> 18)), tail(12), tail(6), tail(0)}};
}

} // namespace

Utf8Piece ToUtf8(const WCHAR* text, std::size_t count, char* dest, std::size_t size)
{
    std::size_t taken = 0;
    std::size_t made = 0;
    while (taken < count && text[taken] != 0) {
        const WCHAR unit = text[taken];
        if (unit < 0x80) {
            if (made == size) {
                break;
            }
            dest[made++] = static_cast<char>(unit);
            ++taken;
            continue;
        }
        std::uint32_t point = unit;
        std::size_t units = 1;
        if ((unit & 0xF800) == 0xD800) {
            const bool isPair =
                (unit & 0x0400) == 0 && taken + 1 < count && (text[taken + 1] & 0xFC00) == 0xDC00;
            point = isPair ? 0x10000u + ((unit & 0x3FFu) << 10) + (text[taken + 1] & 0x3FFu)
                           : kReplacement;
            units = isPair ? 2 : 1;
        }
        const Encoded encoded = Encode(point);
        if (encoded.size > size - made) {
            break;
        }
        std::memcpy(dest + made, encoded.bytes, encoded.size);
        made += encoded.size;
        taken += units;
    }
    return {taken, made};
}

} // namespace qv::platform
