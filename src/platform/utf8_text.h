// Wide text as UTF-8 for who reads it: terminals, logs. File names have a rule of their own.
#pragma once

#include <cstddef>

#include "platform/types.h"

namespace qv::platform
{

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
