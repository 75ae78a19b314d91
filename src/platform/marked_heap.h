// Heaps that know their live blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/error.h"
#include "platform/heap.h"

namespace qv::platform
{

// Each heap has a magic of its own, so that a block which comes back through the wrong one is
// noticed and left alone. The bytes before any pointer that is handed in are read.
//
// The C library's usable size would not do for SizeOf: it tells 24 for a block of no bytes, and
// the fortified C library stops a program that writes past the size it asked for.
template <std::uintptr_t Magic> class MarkedHeap
{
public:
    static void* Allocate(std::size_t size)
    {
        const KeepErrno keep;
        return IsTooLarge(size) ? nullptr : Adopt(std::malloc(sizeof(Head) + size), size);
    }

    static void* AllocateZeroed(std::size_t size)
    {
        const KeepErrno keep;
        return IsTooLarge(size) ? nullptr : Adopt(std::calloc(1, sizeof(Head) + size), size);
    }

    // Null without memory, and for what is no block of this heap. Size 0 frees.
    static void* Reallocate(void* block, std::size_t size)
    {
        if (block == nullptr) {
            return Allocate(size);
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

    static void Free(void* block)
    {
        if (Head* const head = HeadOf(block)) {
            const KeepErrno keep;
            Unmark(head);
            std::free(head);
        }
    }

    // kNoSize for what is no block of this heap.
    static std::size_t SizeOf(const void* block)
    {
        const Head* const head = HeadOf(const_cast<void*>(block));
        return head != nullptr ? head->size : kNoSize;
    }

private:
    struct alignas(alignof(std::max_align_t)) Head
    {
        std::uintptr_t mark; // ties the head to its address
        std::size_t size;
    };

    static std::uintptr_t MarkOf(const Head* head)
    {
        return Magic ^ reinterpret_cast<std::uintptr_t>(head);
    }

    static Head* HeadOf(void* block)
    {
        if (block == nullptr || reinterpret_cast<std::uintptr_t>(block) % alignof(Head) != 0) {
            return nullptr;
        }
        Head* const head = static_cast<Head*>(block) - 1;
        return head->mark == MarkOf(head) ? head : nullptr;
    }

    static void* Adopt(void* memory, std::size_t size)
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
    static void Unmark(Head* head) { static_cast<volatile Head*>(head)->mark = 0; }

    static bool IsTooLarge(std::size_t size) { return size > PTRDIFF_MAX - sizeof(Head); }
};

} // namespace qv::platform
