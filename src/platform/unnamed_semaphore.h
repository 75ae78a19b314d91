// Semaphores of one process: a count that posts raise and waits lower.
//
// Count and number of waiters share one word, so that a post learns with the same operation that
// lets a waiter go whether there is anybody to wake. Waiters and newcomers compete for the count.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/wait.h"

namespace qv::platform
{

class alignas(64) UnnamedSemaphore final : public KernelObject
{
public:
    UnnamedSemaphore(LONG initialCount, LONG maximumCount)
        : KernelObject(ObjectKind::Semaphore), m_maximum(static_cast<std::uint32_t>(maximumCount)),
          m_word(static_cast<std::uint32_t>(initialCount))
    {}

    // Tries, with one operation: if false, nothing has changed, and more may be to be done.
    bool TryPost()
    {
        std::uint64_t seen = m_word.load();
        return seen < m_maximum && m_word.compare_exchange_strong(seen, seen + 1);
    }
    bool TryTake()
    {
        std::uint64_t seen = m_word.load();
        return CountOf(seen) != 0 && m_word.compare_exchange_strong(seen, seen - 1);
    }

    // False if the count would pass its maximum. The count must be above 0. Whoever takes what was
    // posted may destroy the semaphore at once: nothing is read of it after that.
    bool Post(LONG count, LONG* previousCount);
    DWORD Wait(const Deadline& deadline) override;
    void Close() override { delete this; }

private:
    static constexpr std::uint64_t kWaiter = std::uint64_t{1} << 32;

    static std::uint32_t CountOf(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
    // The half of the word that waiters sleep on.
    const std::atomic<std::uint32_t>* CountWord() const;

    std::uint32_t m_maximum;
    std::atomic<std::uint64_t> m_word; // waiters, count
};

} // namespace qv::platform
