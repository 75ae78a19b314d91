#include "platform/wide_text_multibyte.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cwchar>

namespace qv::platform
{

namespace
{

constexpr std::uint32_t kFirstSupplementary = 0x10000;

constexpr bool IsLead(WCHAR unit)
{
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool IsTrail(WCHAR unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

constexpr bool IsCodePoint(std::uint32_t value)
{
    return value <= 0x10FFFF && (value & 0xFFFFF800) != 0xD800;
}

// Ends behind the terminator, or in front of the first character that does not fit whole.
template <class To, class From, class Next>
std::size_t ConvertText(To* dest, const From* src, std::size_t size, Next next)
{
    const int before = errno;
    std::size_t written = 0;
    while (dest == nullptr || written < size) {
        const auto character = next(src);
        if (character.taken == kConversionFailed || character.made == kConversionFailed) {
            errno = EILSEQ;
            return kConversionFailed;
        }
        if (dest != nullptr) {
            if (character.made > size - written) {
                break;
            }
            std::memcpy(dest + written, character.text, character.made * sizeof(To));
        }
        if (*src == 0) {
            break;
        }
        src += character.taken;
        written += character.made;
    }
    errno = before;
    return written;
}

} // namespace

DecodedCharacter DecodeCharacter(const char* src, std::size_t count)
{
    constexpr DecodedCharacter failed{kConversionFailed, 0, {}};
    // Not past the terminator, whatever the charset's table thinks of a cut character.
    const std::size_t length = strnlen(src, count < MB_LEN_MAX ? count : MB_LEN_MAX);
    if (length == 0) {
        return {1, 1, {0, 0}};
    }
    std::mbstate_t state{};
    wchar_t wide = 0;
    const std::size_t bytes = std::mbrtowc(&wide, src, length, &state);
    const auto value = static_cast<std::uint32_t>(wide);
    if (bytes == 0 || bytes > length || !IsCodePoint(value)) {
        return failed;
    }
    if (value < kFirstSupplementary) {
        return {bytes, 1, {static_cast<WCHAR>(value), 0}};
    }
    return {
        bytes,
        2,
        {static_cast<WCHAR>(0xD7C0 + (value >> 10)), static_cast<WCHAR>(0xDC00 | (value & 0x3FF))}};
}

EncodedCharacter EncodeCharacter(const WCHAR* src, std::size_t count)
{
    EncodedCharacter result{1, kConversionFailed, {}};
    std::uint32_t value = src[0];
    if (IsLead(src[0]) && count > 1 && IsTrail(src[1])) {
        value = kFirstSupplementary + ((value & 0x3FF) << 10) + (src[1] & 0x3FFu);
        result.taken = 2;
    }
    if (IsCodePoint(value)) {
        std::mbstate_t state{};
        result.made = std::wcrtomb(result.text, static_cast<wchar_t>(value), &state);
    }
    return result;
}

std::size_t mbstowcs(WCHAR* dest, const char* src, std::size_t size)
{
    return ConvertText(dest, src, size,
                       [](const char* at) { return DecodeCharacter(at, MB_LEN_MAX); });
}

std::size_t wcstombs(char* dest, const WCHAR* src, std::size_t size)
{
    return ConvertText(dest, src, size,
                       [](const WCHAR* at) { return EncodeCharacter(at, *at == 0 ? 1 : 2); });
}

} // namespace qv::platform
