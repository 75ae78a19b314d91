// Auto-reset events: a signal frees one thread, the one that has waited longest, or stays for the
// next that comes.
//
// The state says who may change it:
//   kUnsignalled, kSignalled  anybody, atomically
//   kAwaited                  not signalled and threads queue: only the holder of the lock
// So a set and a wait that meet nobody are one atomic operation each, and a signal with threads
// waiting goes to the first of them, never to one that comes later: as many sets as threads waited
// free them all.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/critical_section.h"
#include "platform/wait.h"
#include "platform/wait_queue.h"

namespace qv::platform
{

class AutoEvent final : public KernelObject
{
public:
    explicit AutoEvent(bool isSignalled)
        : KernelObject(ObjectKind::AutoEvent), m_state(isSignalled ? kSignalled : kUnsignalled)
    {
        InitializeCriticalSection(&m_lock);
    }

    // Whoever takes the signal may destroy the event at once: nothing is read of it after that.
    void Set()
    {
        // What is usual is tried without a look.
        std::uint32_t seen = kUnsignalled;
        while (!m_state.compare_exchange_strong(seen, kSignalled)) {
            if (seen == kAwaited) {
                if (GrantFirst()) {
                    return;
                }
                seen = kUnsignalled; // all of them ran out of time meanwhile
            }
        }
    }
    void Reset();
    bool TryTake()
    {
        std::uint32_t seen = kSignalled;
        return m_state.compare_exchange_strong(seen, kUnsignalled);
    }

    DWORD Wait(const Deadline& deadline) override;
    void Close() override { delete this; }

private:
    static constexpr std::uint32_t kUnsignalled = 0;
    static constexpr std::uint32_t kSignalled = 1;
    static constexpr std::uint32_t kAwaited = 2;

    bool GrantFirst();
    // Takes the signal, or queues the waiter. True if taken.
    bool TakeOrQueue(Waiter& waiter);
    // False if the waiter has been taken out of the queue meanwhile, and is owed a grant.
    bool GiveUp(Waiter& waiter);
    void NoteIfNobodyWaits();

    std::atomic<std::uint32_t> m_state;
    CRITICAL_SECTION m_lock;
    WaitQueue m_queue;
};

} // namespace qv::platform
