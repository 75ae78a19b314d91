// Names of files, arguments and objects between the 16-bit text of the callers and the bytes of the
// kernel. Never the locale's charset.
//
// Bytes to text and back gives the same bytes, whatever they are: well-formed UTF-8 becomes UTF-16,
// every other byte b becomes the unit 0xDC00 + b. Text to bytes keeps unpaired surrogates: 0xDC80
// to 0xDCFF become that single byte, the others the three bytes that UTF-8's rule would give.
#pragma once

#include <string>
#include <string_view>

#include "platform/types.h"

namespace qv::platform
{

// Both throw std::bad_alloc.
std::string PathToBytes(std::u16string_view text);
std::u16string PathFromBytes(std::string_view bytes);

} // namespace qv::platform
