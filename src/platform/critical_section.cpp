#include "platform/critical_section.h"

#include <unistd.h>

#include "platform/futex.h"

namespace qv::platform
{

namespace
{

constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 1;
constexpr std::uint32_t kHeldAndAwaited = 2;

void Initialize(CRITICAL_SECTION& section, DWORD spin)
{
    section.word.store(kFree, std::memory_order_relaxed);
    section.depth = 0;
    section.owner.store(nullptr, std::memory_order_relaxed);
    section.spin = spin;
    section.debug.ContentionCount.store(0, std::memory_order_relaxed);
    section.DebugInfo = &section.debug;
}

void Pause()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
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
        Pause();
    }
    return false;
}

bool IsOwn(const CRITICAL_SECTION& section)
{
    return section.owner.load(std::memory_order_relaxed) == ThreadMark();
}

} // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    Initialize(*section, 0);
}

BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spin)
{
    // With one processor the holder cannot run while somebody spins.
    Initialize(*section, sysconf(_SC_NPROCESSORS_ONLN) > 1 ? spin : 0);
    return kTrue;
}

void DeleteCriticalSection(CRITICAL_SECTION* /*section*/) {}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section)
{
    if (Take(*section)) {
        section->owner.store(ThreadMark(), std::memory_order_relaxed);
        return kTrue;
    }
    if (IsOwn(*section)) {
        ++section->depth;
        return kTrue;
    }
    return kFalse;
}

void EnterHeldCriticalSection(CRITICAL_SECTION* section)
{
    if (IsOwn(*section)) {
        ++section->depth;
        return;
    }
    if (!Spin(*section)) {
        bool counted = false;
        // Once somebody has slept the word stays at 2, so that no sleeper is forgotten.
        while (section->word.exchange(kHeldAndAwaited, std::memory_order_acquire) != kFree) {
            if (!counted) {
                section->debug.ContentionCount.fetch_add(1, std::memory_order_relaxed);
                counted = true;
            }
            FutexWait(section->word, kHeldAndAwaited);
        }
    }
    section->owner.store(ThreadMark(), std::memory_order_relaxed);
}

void WakeCriticalSection(CRITICAL_SECTION* section)
{
    FutexWake(&section->word, 1);
}

} // namespace qv::platform
