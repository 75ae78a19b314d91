#include "support/alloc_faults.h"

#include <atomic>
#include <cstdlib>
#include <new>

extern "C"
{
    void* __real_malloc(std::size_t size);
    void* __real_calloc(std::size_t count, std::size_t size);
    void* __real_realloc(void* block, std::size_t size);
    void __real_free(void* block);
}

namespace
{

std::atomic<long> g_live{0};
thread_local long t_countdown = 0; // 0: none is to fail
thread_local bool t_happened = false;

bool FailsNow()
{
    if (t_countdown > 0 && --t_countdown == 0) {
        t_happened = true;
        return true;
    }
    return false;
}

void* Counted(void* block)
{
    if (block != nullptr) {
        g_live.fetch_add(1, std::memory_order_relaxed);
    }
    return block;
}

void Uncount(const void* block)
{
    if (block != nullptr) {
        g_live.fetch_sub(1, std::memory_order_relaxed);
    }
}

void* New(std::size_t size, std::size_t alignment)
{
    if (FailsNow()) {
        return nullptr;
    }
    if (size == 0) {
        size = 1;
    }
    return Counted(alignment == 0
                       ? __real_malloc(size)
                       : std::aligned_alloc(alignment, (size + alignment - 1) & ~(alignment - 1)));
}

void* NewOrThrow(std::size_t size, std::size_t alignment)
{
    void* block = New(size, alignment);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void Delete(void* block)
{
    Uncount(block);
    __real_free(block);
}

} // namespace

// clang-format off
void* operator new(std::size_t n) { return NewOrThrow(n, 0); }
void* operator new[](std::size_t n) { return NewOrThrow(n, 0); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return New(n, 0); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return New(n, 0); }
void* operator new(std::size_t n, std::align_val_t a) { return NewOrThrow(n, static_cast<std::size_t>(a)); }
void* operator new[](std::size_t n, std::align_val_t a) { return NewOrThrow(n, static_cast<std::size_t>(a)); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return New(n, static_cast<std::size_t>(a)); }
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return New(n, static_cast<std::size_t>(a)); }
void operator delete(void* p) noexcept { Delete(p); }
void operator delete[](void* p) noexcept { Delete(p); }
void operator delete(void* p, std::size_t) noexcept { Delete(p); }
void operator delete[](void* p, std::size_t) noexcept { Delete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Delete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Delete(p); }
void operator delete(void* p, std::align_val_t) noexcept { Delete(p); }
void operator delete[](void* p, std::align_val_t) noexcept { Delete(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { Delete(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { Delete(p); }
// clang-format on

extern "C"
{
    void* __wrap_malloc(std::size_t size)
    {
        return FailsNow() ? nullptr : Counted(__real_malloc(size));
    }

    void* __wrap_calloc(std::size_t count, std::size_t size)
    {
        return FailsNow() ? nullptr : Counted(__real_calloc(count, size));
    }

    void* __wrap_realloc(void* block, std::size_t size)
    {
        if (FailsNow()) {
            return nullptr;
        }
        void* grown = __real_realloc(block, size);
        if (block == nullptr) {
            Counted(grown);
        } else if (grown == nullptr && size == 0) {
            Uncount(block);
        }
        return grown;
    }

    void __wrap_free(void* block)
    {
        Uncount(block);
        __real_free(block);
    }
}

namespace qv::test
{

long LiveBlocks()
{
    return g_live.load();
}

FailAllocation::FailAllocation(long n)
{
    t_countdown = n;
    t_happened = false;
}

FailAllocation::~FailAllocation()
{
    t_countdown = 0;
}

bool FailAllocation::Happened() const
{
    return t_happened;
}

long SweepAllocations(const std::function<void()>& call,
                      const std::function<void(long n, bool failed)>& check)
{
    for (long n = 1; n <= 10000; ++n) {
        bool failed = false;
        {
            const FailAllocation fault(n);
            call();
            failed = fault.Happened();
        }
        check(n, failed);
        if (!failed) {
            return n - 1;
        }
    }
    return -1;
}

} // namespace qv::test
