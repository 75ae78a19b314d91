// References to the environment in a value that has been read.
#pragma once

#include <qvcore6/result.h>

#include <cstdint>

namespace qv::core
{

// The caller's buffer for a value, with the size of the text that stands in it.
struct ValueBuffer
{
    void* data;
    std::uint32_t capacity; // bytes
    std::uint32_t size;     // bytes; need not be whole units or end with a terminator
};

// Replaces the text by its expansion, which is always terminated; size becomes that of the
// expansion. Where that does not fit: E_FAIL, an empty text, and the size that is needed.
// E_OUTOFMEMORY.
QVRESULT ExpandInPlace(ValueBuffer* buffer);

} // namespace qv::core
