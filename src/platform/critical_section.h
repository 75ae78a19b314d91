// Critical sections: recursive locks of one process.
//
// The word says who may be wrong about the rest:
//   0  free: owner is null or stale, depth is 0
//   1  held, nobody sleeps
//   2  held, somebody may sleep: the leaver wakes one
// The owner mark is the thread's pointer to its thread-local data. Unlike a thread id it costs no
// system call and stays right in a forked child. Only the holder writes owner and depth; others
// read owner merely to see that it is not theirs, so a stale value does no harm.
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
    std::atomic<const void*> owner;
    DWORD spin;
    CRITICAL_SECTION_DEBUG debug;
    CRITICAL_SECTION_DEBUG* DebugInfo;
};

// The calling thread's mark: an address that no other live thread has.
inline const void* ThreadMark()
{
    return __builtin_thread_pointer();
}

extern "C"
{
    void InitializeCriticalSection(CRITICAL_SECTION* section);
    BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spin);
    void DeleteCriticalSection(CRITICAL_SECTION* section);
    // Non-zero if the caller now holds the section.
    BOOL TryEnterCriticalSection(CRITICAL_SECTION* section);

    // The parts of enter and leave that are off the fast path.
    void EnterHeldCriticalSection(CRITICAL_SECTION* section);
    void WakeCriticalSection(CRITICAL_SECTION* section);
}

inline void EnterCriticalSection(CRITICAL_SECTION* section)
{
    const void* const self = ThreadMark();
    if (section->owner.load(std::memory_order_relaxed) == self) [[unlikely]] {
        ++section->depth;
        return;
    }
    std::uint32_t free = 0;
    if (section->word.compare_exchange_strong(free, 1, std::memory_order_acquire,
                                              std::memory_order_relaxed)) [[likely]] {
        section->owner.store(self, std::memory_order_relaxed);
        return;
    }
    EnterHeldCriticalSection(section);
}

inline void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    if (section->depth != 0) [[unlikely]] {
        --section->depth;
        return;
    }
    section->owner.store(nullptr, std::memory_order_relaxed);
    // From here on the next holder may free the section: nothing of it is read again.
    if (section->word.exchange(0, std::memory_order_release) == 2) [[unlikely]] {
        WakeCriticalSection(section);
    }
}

} // namespace qv::platform
