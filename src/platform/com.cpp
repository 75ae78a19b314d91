#include "platform/com.h"

#include <sys/random.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/error.h"

namespace qv::platform
{

namespace
{

// Stands before each block. Its mark is not the one of the runtime library's heap, so a block that
// is freed through the wrong family is noticed and left alone.
struct alignas(alignof(std::max_align_t)) Head
{
    std::uintptr_t mark; // ties the head to its address
    std::size_t size;
};

constexpr std::uintptr_t kMagic = static_cast<std::uintptr_t>(0xC2B2AE3D27D4EB4Fu);
constexpr std::size_t kNoSize = static_cast<std::size_t>(-1);

std::uintptr_t MarkOf(const Head* head)
{
    return kMagic ^ reinterpret_cast<std::uintptr_t>(head);
}

// The head of a live block of this heap, else null.
Head* HeadOf(void* block)
{
    if (block == nullptr || reinterpret_cast<std::uintptr_t>(block) % alignof(Head) != 0) {
        return nullptr;
    }
    Head* const head = static_cast<Head*>(block) - 1;
    return head->mark == MarkOf(head) ? head : nullptr;
}

void* Adopt(void* memory, std::size_t size)
{
    if (memory == nullptr) {
        return nullptr;
    }
    Head* const head = static_cast<Head*>(memory);
    head->mark = MarkOf(head);
    head->size = size;
    return head + 1;
}

// A freed block must not look live; volatile, or the store before free() is dropped as dead.
void Unmark(Head* head)
{
    static_cast<volatile Head*>(head)->mark = 0;
}

bool IsTooLarge(std::size_t size)
{
    return size > PTRDIFF_MAX - sizeof(Head);
}

class TaskAllocator final : public IMalloc
{
public:
    constexpr TaskAllocator() = default;

    LONG QueryInterface(const UUID* iid, void** out) override;
    ULONG AddRef() override { return ++m_count; }
    ULONG Release() override { return --m_count; }
    void* Alloc(std::size_t size) override;
    void* Realloc(void* block, std::size_t size) override;
    void Free(void* block) override;
    std::size_t GetSize(void* block) override;
    int DidAlloc(void* block) override;
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

void* TaskAllocator::Alloc(std::size_t size)
{
    const KeepErrno keep;
    return IsTooLarge(size) ? nullptr : Adopt(std::malloc(sizeof(Head) + size), size);
}

void* TaskAllocator::Realloc(void* block, std::size_t size)
{
    if (block == nullptr) {
        return Alloc(size);
    }
    if (size == 0) {
        Free(block);
        return nullptr;
    }
    Head* const old = HeadOf(block);
    if (old == nullptr || IsTooLarge(size)) {
        return nullptr;
    }
    const KeepErrno keep;
    Unmark(old);
    void* const grown = std::realloc(old, sizeof(Head) + size);
    if (grown == nullptr) {
        old->mark = MarkOf(old);
        return nullptr;
    }
    return Adopt(grown, size);
}

void TaskAllocator::Free(void* block)
{
    if (Head* const head = HeadOf(block)) {
        const KeepErrno keep;
        Unmark(head);
        std::free(head);
    }
}

std::size_t TaskAllocator::GetSize(void* block)
{
    const Head* const head = HeadOf(block);
    return head != nullptr ? head->size : kNoSize;
}

int TaskAllocator::DidAlloc(void* block)
{
    return block == nullptr ? -1 : HeadOf(block) != nullptr ? 1 : 0;
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
