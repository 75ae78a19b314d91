// The task allocator and the source of new UUIDs.
#pragma once

#include <cstddef>

#include "platform/types.h"

namespace qv::platform
{

inline constexpr LONG kComInvalidArgument = static_cast<LONG>(0x80070057);
inline constexpr LONG kComNoInterface = static_cast<LONG>(0x80004002);
inline constexpr DWORD MEMCTX_TASK = 1;

inline constexpr LONG RPC_S_OK = 0;
inline constexpr LONG RPC_S_UUID_LOCAL_ONLY = 0x720;
inline constexpr LONG RPC_S_UUID_NO_ADDRESS = 0x6CB;

struct UUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

struct IMalloc
{
    virtual LONG QueryInterface(const UUID* iid, void** out) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;
    // Null when memory is exhausted. A block of size 0 is a valid block.
    virtual void* Alloc(std::size_t size) = 0;
    // Null block: allocates. Size 0: frees, and gives null. On failure the block stays as it was.
    virtual void* Realloc(void* block, std::size_t size) = 0;
    // Null is allowed; a block of another heap is left alone.
    virtual void Free(void* block) = 0;
    // The size that was asked for; all bits set for null and for a block of another heap.
    virtual std::size_t GetSize(void* block) = 0;
    // 1 for a block of this heap, 0 for another, -1 for null.
    virtual int DidAlloc(void* block) = 0;
    virtual void HeapMinimize() = 0;

protected:
    ~IMalloc() = default;
};

extern "C"
{
    // 0 and the one task allocator, counted; kComInvalidArgument for a context but MEMCTX_TASK.
    LONG CoGetMalloc(DWORD context, IMalloc** out);
    // 0; RPC_S_UUID_NO_ADDRESS without randomness, with *out as it was.
    LONG UuidCreate(UUID* out);
}

} // namespace qv::platform
