// Names of files, arguments and objects between the 16-bit text of the callers and the bytes of the
// kernel. Never the locale's charset.
//
// Bytes to text and back gives the same bytes, whatever they are: well-formed UTF-8 becomes UTF-16,
// every other byte b becomes the unit 0xDC00 + b. Text to bytes keeps unpaired surrogates: 0xDC80
// to 0xDCFF become that single byte, the others the three bytes that UTF-8's rule would give.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace qv::platform
{

// Both throw std::bad_alloc.
std::string PathToBytes(std::u16string_view text);
std::u16string PathFromBytes(std::string_view bytes);

// The same of a path of files. In its text / and \ both separate, so a \ in a file's own name is
// escaped there. Into a place of size bytes or units, without a terminator. They give the length:
// above size, which says no more than that, if it does not fit.
std::size_t FilePathToBytes(std::u16string_view text, char* bytes, std::size_t size);
std::size_t FilePathFromBytes(std::string_view bytes, WCHAR* text, std::size_t size);
inline constexpr WCHAR kEscapedBackslash = 0xDC00 + '\\';

// Whether the bytes, back as text, are that text, whichever its separators are.
bool IsFilePathOf(std::u16string_view text, std::string_view bytes);

} // namespace qv::platform
