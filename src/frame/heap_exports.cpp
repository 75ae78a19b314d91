#include <qvcore6/memory.h>
#include <qvcore6/result.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/heap.h"

using namespace qv::platform;

namespace
{

QVRESULT ResultOf(const void* block)
{
    return block != nullptr ? S_OK : E_OUTOFMEMORY;
}

} // namespace

QVRESULT QVMalloc(uint32_t size, void** blockOut)
{
    *blockOut = RuntimeMalloc(size);
    return ResultOf(*blockOut);
}

QVRESULT QVCalloc(uint32_t count, uint32_t size, void** blockOut)
{
    // A larger block could not be had where a size has 32 bits, and QVMallocSize could not tell it.
    const std::uint64_t bytes = std::uint64_t{count} * size;
    *blockOut = bytes <= UINT32_MAX ? RuntimeCalloc(count, size) : nullptr;
    return ResultOf(*blockOut);
}

QVRESULT QVRealloc(void** block, uint32_t size)
{
    void* const resized = RuntimeRealloc(*block, size);
    if (resized == nullptr && size != 0) {
        return E_OUTOFMEMORY;
    }
    *block = resized;
    return S_OK;
}

QVRESULT QVRecalloc(void** block, uint32_t size)
{
    if (*block == nullptr) {
        *block = RuntimeCalloc(size, 1);
        return ResultOf(*block);
    }
    if (size == 0) {
        RuntimeFree(*block);
        *block = nullptr;
        return S_OK;
    }
    const std::size_t oldSize = RuntimeMsize(*block);
    if (oldSize == 0 || oldSize == kNoSize) {
        return E_POINTER;
    }
    void* const resized = RuntimeRealloc(*block, size);
    if (resized == nullptr) {
        return E_OUTOFMEMORY;
    }
    *block = resized;
    const std::size_t newSize = RuntimeMsize(resized);
    if (newSize != kNoSize && newSize > oldSize) {
        std::memset(static_cast<std::byte*>(resized) + oldSize, 0, newSize - oldSize);
    }
    return S_OK;
}

QVRESULT QVFree(void* block)
{
    RuntimeFree(block);
    return S_OK;
}

uint32_t QVMallocSize(const void* block)
{
    const std::size_t size = RuntimeMsize(block);
    return size == kNoSize ? 0 : static_cast<uint32_t>(size);
}

uint32_t QVGetAlignedSize(uint32_t size)
{
    return (size + 3) & ~uint32_t{3};
}
