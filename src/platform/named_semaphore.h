// Semaphores that processes share by name.
//
// The count, and one bit for "somebody may sleep", are one shared word; a unit is never handed to a
// chosen waiter, as one that has been killed would keep it. A waiter that is killed after it was
// woken takes that wake-up with it, so everybody looks again from time to time. The bit heals
// itself: who took a unit after a sleep leaves it set for the others, and a post that then finds
// nobody to wake takes it away.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/named_object.h"
#include "platform/wait.h"

namespace qv::platform
{

class alignas(64) NamedSemaphore final : public KernelObject
{
public:
    NamedSemaphore() : KernelObject(ObjectKind::NamedSemaphore) {}

    // 0 and 183 as for NamedObject.
    DWORD Open(const SECURITY_ATTRIBUTES* attributes, LONG initialCount, LONG maximumCount,
               const char* name);

    // Tries, with one operation: if false, nothing has changed, and more may be to be done.
    bool TryPost()
    {
        NamedHead* const head = m_object.Head();
        if (head == nullptr) {
            return false;
        }
        std::uint32_t seen = head->word.load(std::memory_order_relaxed);
        return seen < m_maximum && head->word.compare_exchange_strong(seen, seen + 1);
    }
    bool TryTake()
    {
        NamedHead* const head = m_object.Head();
        if (head == nullptr) {
            return false;
        }
        std::uint32_t seen = head->word.load(std::memory_order_relaxed);
        return CountOf(seen) != 0 && head->word.compare_exchange_strong(seen, seen - 1);
    }

    // Errors: 298 if the count would pass its maximum; 6 after the module's end.
    DWORD Post(LONG count, LONG* previousCount);
    DWORD Wait(const Deadline& deadline) override;
    void Close() override { delete this; }

private:
    static constexpr std::uint32_t kMaySleep = 0x8000'0000;

    static std::uint32_t CountOf(std::uint32_t word) { return word & ~kMaySleep; }
    // Takes a unit if there is one; seen is the word as it was last.
    static bool Take(std::atomic<std::uint32_t>& word, std::uint32_t& seen, std::uint32_t marks);

    NamedHeadHold m_object;
    // The creator's; here it shares a cache line with the address of the head.
    std::uint32_t m_maximum = 0;
};

// The named form of CreateSemaphoreA, counts already tested. The last error is 183 if the object
// existed, 0 if it was made here. Null on failure, with the last error set.
HANDLE OpenNamedSemaphore(const SECURITY_ATTRIBUTES* attributes, LONG initialCount,
                          LONG maximumCount, const char* name);

} // namespace qv::platform
