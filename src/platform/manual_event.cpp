#include "platform/manual_event.h"

#include <climits>

#include "platform/futex.h"

namespace qv::platform
{

void ManualEvent::SetFrom(std::uint32_t seen)
{
    const std::atomic<std::uint32_t>* const word = &m_word;
    std::uint32_t next = 0;
    do {
        next = (seen & kAwaited) != 0 ? (seen & ~kAwaited) + kGeneration : seen;
    } while (!m_word.compare_exchange_weak(seen, next | kSignalled));
    if ((seen & kAwaited) != 0) {
        FutexWake(word, INT_MAX);
    }
}

DWORD ManualEvent::Wait(const Deadline& deadline)
{
    std::uint32_t seen = m_word.load(std::memory_order_acquire);
    const std::uint32_t generation = seen / kGeneration;
    bool isOver = deadline.IsNow();
    for (;;) {
        if ((seen & kSignalled) != 0 || seen / kGeneration != generation) {
            return WAIT_OBJECT_0;
        }
        if (isOver) {
            return WAIT_TIMEOUT;
        }
        // Announced before it sleeps: every set from now on wakes it.
        if ((seen & kAwaited) == 0 && !m_word.compare_exchange_weak(seen, seen | kAwaited)) {
            continue;
        }
        isOver = !FutexWaitUntil(m_word, seen | kAwaited, deadline);
        seen = m_word.load(std::memory_order_acquire);
    }
}

} // namespace qv::platform
