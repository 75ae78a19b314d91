// Threads that wait, in the order in which they came.
//
// Each waiter stands on its own thread's stack and sleeps on a word of its own, so a wake-up
// reaches the thread that it is meant for and nobody who came later. Whoever takes a waiter out of
// the queue owes it a grant; the waiter cannot leave before it.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/deadline.h"

namespace qv::platform
{

class Waiter
{
public:
    Waiter() = default;
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    // Lets the waiter go. Neither it nor what it waited for may be touched afterwards.
    void Grant();
    // The same for all that WaitQueue::TakeAll gave.
    static void GrantAll(Waiter* first);
    // False if the deadline passed first.
    bool AwaitGrant(const Deadline& deadline);
    void AwaitGrant();

private:
    friend class WaitQueue;

    static constexpr std::uint32_t kAwake = 0;
    static constexpr std::uint32_t kAsleep = 1;
    static constexpr std::uint32_t kGranted = 2;

    std::atomic<std::uint32_t> m_state{kAwake};
    Waiter* m_next = nullptr;
    Waiter* m_previous = nullptr;
    bool m_isQueued = false;
};

// For the lock of a queue: it is held for less time than a sleep takes.
inline constexpr DWORD kQueueLockSpin = 100;

// To be used under a lock of the owner's. All zero is an empty queue.
class WaitQueue
{
public:
    bool IsEmpty() const { return m_first == nullptr; }
    void Append(Waiter& waiter);
    // Null if the queue is empty.
    Waiter* TakeFirst();
    // All of them, as a chain from the first; null if the queue is empty.
    Waiter* TakeAll();
    // False if somebody has taken the waiter already, and owes it a grant.
    bool Remove(Waiter& waiter);

private:
    Waiter* m_first = nullptr;
    Waiter* m_last = nullptr;
};

} // namespace qv::platform
