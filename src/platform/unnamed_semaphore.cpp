#include "platform/unnamed_semaphore.h"

#include <bit>

#include "platform/futex.h"

namespace qv::platform
{

bool UnnamedSemaphore::Post(LONG count, LONG* previousCount)
{
    const std::atomic<std::uint32_t>* const countWord = CountWord();
    const auto added = static_cast<std::uint32_t>(count);
    std::uint64_t seen = m_word.load();
    do {
        if (added > m_maximum - CountOf(seen)) {
            return false;
        }
    } while (!m_word.compare_exchange_weak(seen, seen + added));
    if (previousCount != nullptr) {
        *previousCount = static_cast<LONG>(CountOf(seen));
    }
    if (seen >= kWaiter) {
        FutexWake(countWord, count);
    }
    return true;
}

DWORD UnnamedSemaphore::Wait(const Deadline& deadline)
{
    std::uint64_t seen = m_word.load();
    while (CountOf(seen) != 0) {
        if (m_word.compare_exchange_weak(seen, seen - 1)) {
            return WAIT_OBJECT_0;
        }
    }
    if (deadline.IsNow()) {
        return WAIT_TIMEOUT;
    }
    // Announced before it sleeps: every post from now on wakes somebody.
    seen = m_word.fetch_add(kWaiter) + kWaiter;
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
            seen = m_word.load();
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

} // namespace qv::platform
