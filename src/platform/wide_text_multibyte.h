// One character between the charset of the calling thread's current locale and UTF-16.
#pragma once

#include <climits>
#include <cstddef>

#include "platform/types.h"
#include "platform/wide_text.h"

namespace qv::platform
{

struct DecodedCharacter
{
    std::size_t taken; // bytes, or kConversionFailed; a zero byte is a character too
    std::size_t made;  // units: 1, or 2 for a pair
    WCHAR text[2];
};

struct EncodedCharacter
{
    std::size_t taken; // units: 1, or 2 for a pair
    std::size_t made;  // bytes, or kConversionFailed
    char text[MB_LEN_MAX];
};

// count is above 0; nothing behind the zero byte is read. These may change errno.
DecodedCharacter DecodeCharacter(const char* src, std::size_t count);
EncodedCharacter EncodeCharacter(const WCHAR* src, std::size_t count);

} // namespace qv::platform
