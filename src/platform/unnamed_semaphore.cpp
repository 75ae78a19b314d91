#include "platform/unnamed_semaphore.h"

#include <bit>

#include "platform/futex.h"

namespace qv::platform
{

DWORD UnnamedSemaphore::Wait(const Deadline& deadline)
{
    if (TryTake()) {
        return WAIT_OBJECT_0;
    }
    if (deadline.IsNow()) {
        return WAIT_TIMEOUT;
    }
    // Announced before it sleeps: every post from now on wakes somebody.
    std::uint64_t seen = m_word.fetch_add(kWaiter) + kWaiter;
    bool isOver = false;
    for (;;) {
        if (CountOf(seen) != 0) {
            if (m_word.compare_exchange_weak(seen, seen - 1 - kWaiter)) {
                return WAIT_OBJECT_0;
            }
        } else if (isOver) {
            if (m_word.compare_exchange_weak(seen, seen - kWaiter)) {
                return WAIT_TIMEOUT;
            }
        } else {
            isOver = !FutexWaitUntil(*CountWord(), 0, deadline);
            seen = m_word.load(std::memory_order_relaxed);
        }
    }
}

const std::atomic<std::uint32_t>* UnnamedSemaphore::CountWord() const
{
    static_assert(sizeof m_word == 2 * sizeof(std::atomic<std::uint32_t>));
    // Only for its address: the kernel compares this half, nobody here reads it.
    return reinterpret_cast<const std::atomic<std::uint32_t>*>(&m_word) +
           (std::endian::native == std::endian::little ? 0 : 1);
}

void UnnamedSemaphore::Wake(LONG count) const
{
    FutexWake(CountWord(), count);
}

} // namespace qv::platform
