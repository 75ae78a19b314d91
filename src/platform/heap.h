// The runtime library's heap, with block sizes that can be asked for exactly.
#pragma once

#include <cstddef>

namespace qv::platform
{

inline constexpr std::size_t kNoSize = static_cast<std::size_t>(-1);

extern "C"
{
    // Null when memory is exhausted. A block of size 0 is a valid block.
    void* RuntimeMalloc(std::size_t size);
    void* RuntimeCalloc(std::size_t count, std::size_t size);
    // Null block: allocates. Size 0: frees, and gives null. On failure the block stays as it was.
    void* RuntimeRealloc(void* block, std::size_t size);
    // Null is allowed; what is no live block is left alone.
    void RuntimeFree(void* block);
    // The size that was asked for, or kNoSize for what is no live block of this heap.
    std::size_t RuntimeMsize(const void* block);
}

} // namespace qv::platform
