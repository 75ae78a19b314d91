#include "platform/utf8_text.h"

#include <cstdint>
#include <cstring>

namespace qv::platform
{

namespace
{

constexpr std::uint32_t kReplacement = 0xFFFD;

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
        const Utf8Point encoded = Utf8Of(point);
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
