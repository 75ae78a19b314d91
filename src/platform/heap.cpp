#include "platform/heap.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/error.h"

namespace qv::platform
{

namespace
{

// Stands before each block. The C library's own usable size would not do: it tells 24 for a block
// of no bytes, and the fortified C library stops a program that writes past the size it asked for.
struct alignas(alignof(std::max_align_t)) Head
{
    std::uintptr_t mark; // ties the head to its address
    std::size_t size;
};

constexpr std::uintptr_t kMagic = static_cast<std::uintptr_t>(0x9E3779B97F4A7C15u);

Head* HeadOf(const void* block)
{
    return reinterpret_cast<Head*>(reinterpret_cast<std::uintptr_t>(block) - sizeof(Head));
}

std::uintptr_t MarkOf(const Head* head)
{
    return kMagic ^ reinterpret_cast<std::uintptr_t>(head);
}

bool IsLive(const void* block)
{
    if (reinterpret_cast<std::uintptr_t>(block) % alignof(Head) != 0) {
        return false;
    }
    Head* const head = HeadOf(block);
    return head->mark == MarkOf(head);
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

} // namespace

void* RuntimeMalloc(std::size_t size)
{
    const KeepErrno keep;
    return IsTooLarge(size) ? nullptr : Adopt(std::malloc(sizeof(Head) + size), size);
}

void* RuntimeCalloc(std::size_t count, std::size_t size)
{
    const KeepErrno keep;
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes) || IsTooLarge(bytes)) {
        return nullptr;
    }
    return Adopt(std::calloc(1, sizeof(Head) + bytes), bytes);
}

void* RuntimeRealloc(void* block, std::size_t size)
{
    if (block == nullptr) {
        return RuntimeMalloc(size);
    }
    const KeepErrno keep;
    if (size == 0) {
        RuntimeFree(block);
        return nullptr;
    }
    if (IsTooLarge(size) || !IsLive(block)) {
        return nullptr;
    }
    Head* const old = HeadOf(block);
    Unmark(old);
    void* const grown = std::realloc(old, sizeof(Head) + size);
    if (grown == nullptr) {
        old->mark = MarkOf(old);
        return nullptr;
    }
    return Adopt(grown, size);
}

void RuntimeFree(void* block)
{
    if (block == nullptr || !IsLive(block)) {
        return;
    }
    const KeepErrno keep;
    Head* const head = HeadOf(block);
    Unmark(head);
    std::free(head);
}

std::size_t RuntimeMsize(const void* block)
{
    return block != nullptr && IsLive(block) ? HeadOf(block)->size : kNoSize;
}

} // namespace qv::platform
