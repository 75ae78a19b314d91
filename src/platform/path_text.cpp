#include "platform/path_text.h"

#include <algorithm>
#include <cstddef>

#include "platform/utf8_text.h"

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

// Takes the bytes of the first unit or pair off the text.
Utf8Point TakeBytes(std::u16string_view& text)
{
    const WCHAR unit = text[0];
    if (IsHigh(unit) && text.size() > 1 && IsLow(text[1])) {
        const std::uint32_t point = 0x10000u + ((unit & 0x3FFu) << 10) + (text[1] & 0x3FFu);
        text.remove_prefix(2);
        return Utf8Of(point);
    }
    text.remove_prefix(1);
    if (unit >= kByteUnits + 0x80 && unit <= kByteUnits + 0xFF) {
        return {1, {static_cast<char>(unit - kByteUnits)}};
    }
    return Utf8Of(unit);
}

Utf8Point TakeFilePathBytes(std::u16string_view& text)
{
    const WCHAR unit = text[0];
    if (unit != u'\\' && unit != kEscapedBackslash) {
        return TakeBytes(text);
    }
    text.remove_prefix(1);
    return {1, {unit == u'\\' ? '/' : '\\'}};
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

struct Units
{
    std::size_t length;
    WCHAR units[2];
};

// Takes the units of the first sequence, or stray byte, off the bytes.
Units TakeUnits(std::string_view& bytes)
{
    const Sequence sequence = FirstSequence(bytes);
    if (sequence.length == 0) {
        const auto stray = static_cast<std::uint8_t>(bytes[0]);
        bytes.remove_prefix(1);
        return {1, {static_cast<WCHAR>(kByteUnits + stray)}};
    }
    bytes.remove_prefix(sequence.length);
    if (sequence.point < 0x10000) {
        return {1, {static_cast<WCHAR>(sequence.point)}};
    }
    const std::uint32_t rest = sequence.point - 0x10000;
    return {
        2,
        {static_cast<WCHAR>(0xD800 + (rest >> 10)), static_cast<WCHAR>(0xDC00 + (rest & 0x3FF))}};
}

WCHAR Escaped(WCHAR unit)
{
    return unit == u'\\' ? kEscapedBackslash : unit;
}

Units TakeFilePathUnits(std::string_view& bytes)
{
    Units units = TakeUnits(bytes);
    units.units[0] = Escaped(units.units[0]);
    return units;
}

} // namespace

std::string PathToBytes(std::u16string_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    while (!text.empty()) {
        const Utf8Point next = TakeBytes(text);
        bytes.append(next.bytes, next.size);
    }
    return bytes;
}

std::u16string PathFromBytes(std::string_view bytes)
{
    std::u16string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Units next = TakeUnits(bytes);
        text.append(next.units, next.length);
    }
    return text;
}

std::size_t FilePathToBytes(std::u16string_view text, char* bytes, std::size_t size)
{
    std::size_t length = 0;
    while (!text.empty()) {
        const Utf8Point next = TakeFilePathBytes(text);
        if (next.size > size - length) {
            return size + 1;
        }
        length =
            static_cast<std::size_t>(std::copy_n(next.bytes, next.size, bytes + length) - bytes);
    }
    return length;
}

std::size_t FilePathFromBytes(std::string_view bytes, WCHAR* text, std::size_t size)
{
    std::size_t length = 0;
    // Most names have nothing else.
    while (length < std::min(bytes.size(), size) && static_cast<signed char>(bytes[length]) >= 0) {
        text[length] = Escaped(static_cast<WCHAR>(bytes[length]));
        ++length;
    }
    bytes.remove_prefix(length);
    while (!bytes.empty()) {
        const Units next = TakeFilePathUnits(bytes);
        if (next.length > size - length) {
            return size + 1;
        }
        length =
            static_cast<std::size_t>(std::copy_n(next.units, next.length, text + length) - text);
    }
    return length;
}

bool IsFilePathOf(std::u16string_view text, std::string_view bytes)
{
    while (!bytes.empty()) {
        const Units next = TakeFilePathUnits(bytes);
        const bool isSeparator = next.units[0] == u'/' && text.starts_with(u'\\');
        if (!isSeparator && !text.starts_with(std::u16string_view(next.units, next.length))) {
            return false;
        }
        text.remove_prefix(next.length);
    }
    return text.empty();
}

} // namespace qv::platform
