// Events. A set of an auto-reset event frees one thread, the one that has waited longest, or stays
// for the next that comes; a set of a manual-reset one frees all and stays until a reset.
//
// The state says who may change it:
//   kUnsignalled, kSignalled  anybody, atomically
//   kAwaited                  not signalled and threads queue: only the holder of the lock
// So what meets nobody is one atomic operation. A set with threads waiting goes to these threads
// and to nobody who comes later: two sets of an auto-reset event free two that waited, and a reset
// right behind the set of a manual-reset one holds nobody back.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/critical_section.h"
#include "platform/wait.h"
#include "platform/wait_queue.h"

namespace qv::platform
{

class alignas(64) EventObject final : public KernelObject
{
public:
    EventObject(ObjectKind kind, bool isSignalled)
        : KernelObject(kind), m_state(isSignalled ? kSignalled : kUnsignalled)
    {
        InitializeCriticalSectionAndSpinCount(&m_lock, kQueueLockSpin);
    }

    // Tries, with one operation: if false, nothing has changed, and more may be to be done.
    bool TrySet()
    {
        std::uint32_t seen = kUnsignalled;
        return m_state.compare_exchange_strong(seen, kSignalled);
    }
    bool IsSignalled() const { return m_state.load() == kSignalled; }
    // Takes the signal of an auto-reset event.
    bool TryTake()
    {
        std::uint32_t seen = kSignalled;
        return m_state.compare_exchange_strong(seen, kUnsignalled);
    }

    // Whoever the set frees may destroy the event at once: nothing is read of it after that.
    void Set();
    // Always a write: what the caller looks at next, it looks at after the reset.
    void Reset() { m_state.fetch_and(~kSignalled); }

    DWORD Wait(const Deadline& deadline) override;
    void Close() override { delete this; }

private:
    static constexpr std::uint32_t kUnsignalled = 0;
    static constexpr std::uint32_t kSignalled = 1;
    static constexpr std::uint32_t kAwaited = 2;

    bool IsManual() const { return Kind() == ObjectKind::ManualEvent; }
    bool TryPass() { return IsManual() ? IsSignalled() : TryTake(); }
    // Those whom a set frees, as a chain; null if nobody waits.
    Waiter* TakeFreed();
    // Passes, or queues the waiter. True if passed.
    bool PassOrQueue(Waiter& waiter);
    // False if the waiter has been taken out of the queue meanwhile, and is owed a grant.
    bool GiveUp(Waiter& waiter);

    std::atomic<std::uint32_t> m_state;
    CRITICAL_SECTION m_lock;
    WaitQueue m_queue;
};

} // namespace qv::platform
