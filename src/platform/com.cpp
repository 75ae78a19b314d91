#include "platform/com.h"

#include <sys/random.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/marked_heap.h"

namespace qv::platform
{

namespace
{

using TaskHeap = MarkedHeap<static_cast<std::uintptr_t>(0xC2B2AE3D27D4EB4Fu)>;

class TaskAllocator final : public IMalloc
{
public:
    constexpr TaskAllocator() = default;

    LONG QueryInterface(const UUID* iid, void** out) override;
    ULONG AddRef() override { return ++m_count; }
    ULONG Release() override { return --m_count; }
    void* Alloc(std::size_t size) override { return TaskHeap::Allocate(size); }
    void* Realloc(void* block, std::size_t size) override
    {
        if (size == 0) { // also of no block: emptying one twice leaves none behind
            TaskHeap::Free(block);
            return nullptr;
        }
        return TaskHeap::Reallocate(block, size);
    }
    void Free(void* block) override { TaskHeap::Free(block); }
    std::size_t GetSize(void* block) override { return TaskHeap::SizeOf(block); }
    int DidAlloc(void* block) override
    {
        return block == nullptr ? -1 : TaskHeap::SizeOf(block) != kNoSize ? 1 : 0;
    }
    void HeapMinimize() override {}

private:
    std::atomic<ULONG> m_count{0};
};

constexpr UUID kUnknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr UUID kMalloc = {2, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

LONG TaskAllocator::QueryInterface(const UUID* iid, void** out)
{
    if (std::memcmp(iid, &kUnknown, sizeof kUnknown) != 0 &&
        std::memcmp(iid, &kMalloc, sizeof kMalloc) != 0) {
        *out = nullptr;
        return kComNoInterface;
    }
    AddRef();
    *out = this;
    return 0;
}

constinit TaskAllocator g_taskAllocator;

} // namespace

LONG CoGetMalloc(DWORD context, IMalloc** out)
{
    if (context != MEMCTX_TASK) {
        *out = nullptr;
        return kComInvalidArgument;
    }
    g_taskAllocator.AddRef();
    *out = &g_taskAllocator;
    return 0;
}

LONG UuidCreate(UUID* out)
{
    const KeepErrno keep;
    UUID made;
    ssize_t got = 0;
    do {
        got = getrandom(&made, sizeof made, 0);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof made)) {
        return RPC_S_UUID_NO_ADDRESS;
    }
    made.Data3 = static_cast<std::uint16_t>((made.Data3 & 0x0FFF) | 0x4000); // version 4
    made.Data4[0] = static_cast<std::uint8_t>((made.Data4[0] & 0x3F) | 0x80);
    *out = made;
    return RPC_S_OK;
}

} // namespace qv::platform
