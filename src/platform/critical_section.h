// Critical sections: recursive locks of one process.
//
// The word says who may be wrong about the rest:
//   kFree            owner and depth are 0
//   kHeld            nobody sleeps
//   kHeldAndAwaited  somebody may sleep: the leaver wakes one
// The owner is marked by a number that no other thread of this process ever had or will have, and
// that a forked child's only thread keeps: a mark that came back, as an address may, would let a
// new thread in beside what a vanished one left half done. Only the holder writes owner and depth;
// others read owner merely to see that it is not theirs, so a stale value does no harm.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/types.h"

namespace qv::platform
{

struct CRITICAL_SECTION_DEBUG
{
    // Entries that had to sleep since somebody last wrote 0.
    std::atomic<DWORD> ContentionCount;
};

struct CRITICAL_SECTION
{
    std::atomic<std::uint32_t> word;
    std::uint32_t depth; // levels beyond the first
    std::atomic<std::uintptr_t> owner;
    DWORD spin;
    CRITICAL_SECTION_DEBUG debug;
    CRITICAL_SECTION_DEBUG* DebugInfo;
};

inline constexpr std::uint32_t kFree = 0;
inline constexpr std::uint32_t kHeld = 1;
inline constexpr std::uint32_t kHeldAndAwaited = 2;

// The calling thread's mark; 0 until its first entry.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uintptr_t t_threadMark;

extern "C"
{
    void InitializeCriticalSection(CRITICAL_SECTION* section);
    BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spin);
    void DeleteCriticalSection(CRITICAL_SECTION* section);
    // Non-zero if the caller now holds the section.
    BOOL TryEnterCriticalSection(CRITICAL_SECTION* section);

    // The parts of enter and leave that are off the fast path. The section is another thread's, or
    // the calling one has no mark yet.
    LONG EnterHeldCriticalSection(CRITICAL_SECTION* section);
    void WakeCriticalSection(CRITICAL_SECTION* section);
}

// Gives 0: a caller who has nothing else to answer ends in the slow path, without a frame.
inline LONG EnterCriticalSection(CRITICAL_SECTION* section)
{
    const std::uintptr_t self = t_threadMark;
    if (self == 0) [[unlikely]] {
        return EnterHeldCriticalSection(section);
    }
    if (section->owner.load(std::memory_order_relaxed) == self) [[unlikely]] {
        ++section->depth;
        return 0;
    }
    std::uint32_t free = kFree;
    if (section->word.compare_exchange_strong(free, kHeld, std::memory_order_acquire,
                                              std::memory_order_relaxed)) [[likely]] {
        section->owner.store(self, std::memory_order_relaxed);
        return 0;
    }
    return EnterHeldCriticalSection(section);
}

// For callers with a path of their own for a free section. False for any other, and for a thread
// without a mark.
inline bool EnterFreeCriticalSection(CRITICAL_SECTION* section)
{
    const std::uintptr_t self = t_threadMark;
    std::uint32_t free = kFree;
    if (self == 0 || !section->word.compare_exchange_strong(free, kHeld, std::memory_order_acquire,
                                                            std::memory_order_relaxed))
        [[unlikely]] {
        return false;
    }
    section->owner.store(self, std::memory_order_relaxed);
    return true;
}

inline void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    if (section->depth != 0) [[unlikely]] {
        --section->depth;
        return;
    }
    section->owner.store(0, std::memory_order_relaxed);
    // From here on the next holder may free the section: nothing of it is read again.
    if (section->word.exchange(kFree, std::memory_order_release) == kHeldAndAwaited) [[unlikely]] {
        WakeCriticalSection(section);
    }
}

// Whether the calling thread holds the section. A forked child's thread holds what it held before.
inline bool HoldsCriticalSection(const CRITICAL_SECTION& section)
{
    const std::uintptr_t self = t_threadMark;
    return self != 0 && section.owner.load(std::memory_order_relaxed) == self;
}

} // namespace qv::platform
