#include "support/alloc_faults.h"

#include <pthread.h>
#include <sched.h>

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

using qv::test::FailAllocation;

std::atomic<long> g_live{0};

// An allocator of the sanitizers that another thread was in at a fork is locked in the child for
// ever. So with them a fork waits until nobody is.
class Allocator
{
public:
    Allocator()
    {
        while (kIsLockedByFork && !TryEnter()) {
            sched_yield();
        }
    }
    ~Allocator() { Leave(); }
    Allocator(const Allocator&) = delete;
    Allocator& operator=(const Allocator&) = delete;

private:
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool kIsLockedByFork = true;
#else
    static constexpr bool kIsLockedByFork = false;
#endif
    // No order comes of these, which would hide races: on the processors of the test machines each
    // change of a counter is a fence, which is all that is needed.
    static constexpr auto kUnordered = std::memory_order_relaxed;
    static inline std::atomic<int> s_users{0};
    static inline std::atomic<bool> s_forks{false};

    static bool TryEnter()
    {
        s_users.fetch_add(1, kUnordered);
        if (!s_forks.load(kUnordered)) {
            return true;
        }
        Leave();
        return false;
    }
    static void Leave()
    {
        s_users.fetch_sub(kIsLockedByFork ? 1 : 0, kUnordered);
    }

    // The first handler, so that it comes after those that wait for threads which allocate.
    [[gnu::constructor(101)]] static void FollowForks()
    {
        const auto prepare = [] {
            s_forks.exchange(kIsLockedByFork, kUnordered);
            while (s_users.load(kUnordered) != 0) {
                sched_yield();
            }
        };
        const auto end = [] { s_forks.store(false, kUnordered); };
        const auto begin = [] {
            s_users.store(0, kUnordered); // of threads that are not here
            s_forks.store(false, kUnordered);
        };
        pthread_atfork(prepare, end, begin);
    }
};

void* Counted(void* block)
{
    g_live += block != nullptr ? 1 : 0;
    return block;
}

void* New(std::size_t size, std::size_t alignment)
{
    if (FailAllocation::IsNow()) {
        return nullptr;
    }
    const Allocator inUse;
    return Counted(alignment == 0
                       ? __real_malloc(size)
                       : std::aligned_alloc(alignment, (size + alignment - 1) & ~(alignment - 1)));
}

void* NewOrThrow(std::size_t size, std::size_t alignment)
{
    if (void* const block = New(size, alignment)) {
        return block;
    }
    throw std::bad_alloc();
}

void Delete(void* block)
{
    const Allocator inUse;
    g_live -= block != nullptr ? 1 : 0;
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
        const Allocator inUse;
        return FailAllocation::IsNow() ? nullptr : Counted(__real_malloc(size));
    }
    void* __wrap_calloc(std::size_t count, std::size_t size)
    {
        const Allocator inUse;
        return FailAllocation::IsNow() ? nullptr : Counted(__real_calloc(count, size));
    }
    void* __wrap_realloc(void* block, std::size_t size)
    {
        if (FailAllocation::IsNow()) {
            return nullptr;
        }
        const Allocator inUse;
        void* const grown = __real_realloc(block, size);
        g_live -= block != nullptr && (grown != nullptr || size == 0) ? 1 : 0;
        return Counted(grown);
    }
    void __wrap_free(void* block)
    {
        Delete(block);
    }
}

namespace qv::test
{

long LiveBlocks()
{
    return g_live;
}

long SweepAllocations(const std::function<void()>& call,
                      const std::function<void(long n, bool failed)>& check)
{
    for (long n = 1; n <= 10000; ++n) {
        {
            const FailAllocation fault(n);
            call();
        }
        const bool failed = FailAllocation::Happened();
        check(n, failed);
        if (!failed) {
            return n - 1;
        }
    }
    return -1;
}

} // namespace qv::test
