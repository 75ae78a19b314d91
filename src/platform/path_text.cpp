#include "platform/path_text.h"

#include <cstddef>

namespace qv::platform
{

namespace
{

constexpr WCHAR kByteUnits = 0xDC00; // plus a byte from 0x80 on

bool IsHigh(WCHAR unit)
{
    return (unit & 0xFC00) == 0xD800;
}

bool IsLow(WCHAR unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

void AppendUtf8(std::string& bytes, std::uint32_t point)
{
    const auto tail = [&](unsigned shift) {
        bytes.push_back(static_cast<char>(0x80 | ((point >> shift) & 0x3F)));
    };
    if (point < 0x80) {
        bytes.push_back(static_cast<char>(point));
    } else if (point < 0x800) {
        bytes.push_back(static_cast<char>(0xC0 | (point >> 6)));
        tail(0);
    } else if (point < 0x10000) {
        bytes.push_back(static_cast<char>(0xE0 | (point >> 12)));
        tail(6);
        tail(0);
    } else {
        bytes.push_back(static_cast<char>(0xF0 | (point >> 18)));
        tail(12);
        tail(6);
        tail(0);
    }
}

struct Sequence
{
    std::size_t length; // 0: no well-formed sequence starts here
    std::uint32_t point;
};

Sequence FirstSequence(std::string_view bytes)
{
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) {
        return {1, lead};
    }
    const std::size_t length = lead < 0xC2   ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    if (length == 0 || bytes.size() < length) {
        return {0, 0};
    }
    std::uint32_t point = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return {0, 0};
        }
        point = point << 6 | (byte(i) & 0x3Fu);
    }
    // Longer than needed, a surrogate, or beyond the last code point.
    const bool wrong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000) ||
                       (point >= 0xD800 && point <= 0xDFFF) || point > 0x10FFFF;
    return wrong ? Sequence{0, 0} : Sequence{length, point};
}

} // namespace

std::string PathToBytes(std::u16string_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const WCHAR unit = text[i];
        if (IsHigh(unit) && i + 1 < text.size() && IsLow(text[i + 1])) {
            AppendUtf8(bytes, 0x10000u + ((unit & 0x3FFu) << 10) + (text[i + 1] & 0x3FFu));
            ++i;
        } else if (unit >= kByteUnits + 0x80 && unit <= kByteUnits + 0xFF) {
            bytes.push_back(static_cast<char>(unit - kByteUnits));
        } else {
            AppendUtf8(bytes, unit);
        }
    }
    return bytes;
}

std::u16string PathFromBytes(std::string_view bytes)
{
    std::u16string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Sequence sequence = FirstSequence(bytes);
        if (sequence.length == 0) {
            text.push_back(static_cast<WCHAR>(kByteUnits + static_cast<std::uint8_t>(bytes[0])));
            bytes.remove_prefix(1);
            continue;
        }
        if (sequence.point < 0x10000) {
            text.push_back(static_cast<WCHAR>(sequence.point));
        } else {
            const std::uint32_t rest = sequence.point - 0x10000;
            text.push_back(static_cast<WCHAR>(0xD800 + (rest >> 10)));
            text.push_back(static_cast<WCHAR>(0xDC00 + (rest & 0x3FF)));
        }
        bytes.remove_prefix(sequence.length);
    }
    return text;
}

} // namespace qv::platform
