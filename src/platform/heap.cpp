#include "platform/heap.h"

#include "platform/marked_heap.h"

namespace qv::platform
{

using RuntimeHeap = MarkedHeap<static_cast<std::uintptr_t>(0x9E3779B97F4A7C15u)>;

void* RuntimeMalloc(std::size_t size)
{
    return RuntimeHeap::Allocate(size);
}

void* RuntimeCalloc(std::size_t count, std::size_t size)
{
    std::size_t bytes = 0;
    return __builtin_mul_overflow(count, size, &bytes) ? nullptr
                                                       : RuntimeHeap::AllocateZeroed(bytes);
}

void* RuntimeRealloc(void* block, std::size_t size)
{
    return RuntimeHeap::Reallocate(block, size);
}

void RuntimeFree(void* block)
{
    RuntimeHeap::Free(block);
}

std::size_t RuntimeMsize(const void* block)
{
    return RuntimeHeap::SizeOf(block);
}

} // namespace qv::platform
