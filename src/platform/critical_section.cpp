#include "platform/critical_section.h"

#include "platform/futex.h"
#include "platform/processor.h"

namespace qv::platform
{

[[gnu::tls_model("initial-exec")]] constinit thread_local std::uintptr_t t_threadMark = 0;

namespace
{

constinit std::atomic<std::uintptr_t> g_marks{0}; // the last that was given out

void Initialize(CRITICAL_SECTION& section, DWORD spin)
{
    section.word.store(kFree, std::memory_order_relaxed);
    section.depth = 0;
    section.owner.store(0, std::memory_order_relaxed);
    section.spin = spin;
    section.debug.ContentionCount.store(0, std::memory_order_relaxed);
    section.DebugInfo = &section.debug;
}

bool Take(CRITICAL_SECTION& section)
{
    std::uint32_t free = kFree;
    return section.word.load(std::memory_order_relaxed) == kFree &&
           section.word.compare_exchange_strong(free, kHeld, std::memory_order_acquire,
                                                std::memory_order_relaxed);
}

bool Spin(CRITICAL_SECTION& section)
{
    for (DWORD round = 0; round < section.spin; ++round) {
        if (Take(section)) {
            return true;
        }
        PauseProcessor();
    }
    return false;
}

std::uintptr_t ThreadMark()
{
    if (t_threadMark == 0) {
        t_threadMark = g_marks.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return t_threadMark;
}

} // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    Initialize(*section, 0);
}

BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spin)
{
    // With one processor the holder cannot run while somebody spins.
    Initialize(*section, HasSeveralProcessors() ? spin : 0);
    return kTrue;
}

void DeleteCriticalSection(CRITICAL_SECTION* /*section*/) {}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section)
{
    if (Take(*section)) {
        section->owner.store(ThreadMark(), std::memory_order_relaxed);
        return kTrue;
    }
    if (section->owner.load(std::memory_order_relaxed) != ThreadMark()) {
        return kFalse;
    }
    ++section->depth;
    return kTrue;
}

LONG EnterHeldCriticalSection(CRITICAL_SECTION* section)
{
    // Tried first, as a thread's first entry comes here even if the section is free.
    if (!Take(*section) && !Spin(*section)) {
        bool counted = false;
        // Once somebody has slept the word goes on saying so: no sleeper is forgotten.
        while (section->word.exchange(kHeldAndAwaited, std::memory_order_acquire) != kFree) {
            if (!counted) {
                section->debug.ContentionCount.fetch_add(1, std::memory_order_relaxed);
                counted = true;
            }
            FutexWait(section->word, kHeldAndAwaited);
        }
    }
    section->owner.store(ThreadMark(), std::memory_order_relaxed);
    return 0;
}

void WakeCriticalSection(CRITICAL_SECTION* section)
{
    FutexWake(&section->word, 1);
}

} // namespace qv::platform
