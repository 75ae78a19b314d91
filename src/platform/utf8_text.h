// Wide text as UTF-8 for who reads it: terminals, logs. File names have a rule of their own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/types.h"

namespace qv::platform
{

// What the rule of UTF-8 gives for a code point, or for half a pair.
struct Utf8Point
{
    std::size_t size;
    char bytes[4];
};
inline Utf8Point Utf8Of(std::uint32_t point)
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

struct Utf8Piece
{
    std::size_t taken; // units
    std::size_t made;  // bytes
};

// Converts up to the terminator, or at most count units; stops in front of the first character that
// does not fit whole. Half a pair becomes U+FFFD. No terminator is written.
Utf8Piece ToUtf8(const WCHAR* text, std::size_t count, char* dest, std::size_t size);

inline constexpr std::size_t kUntilTerminator = static_cast<std::size_t>(-1);

} // namespace qv::platform
