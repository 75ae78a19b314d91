#include "platform/wait_queue.h"

#include "platform/futex.h"

namespace qv::platform
{

void Waiter::Grant()
{
    const std::atomic<std::uint32_t>* const word = &m_state;
    // From here on the waiter may be gone, and its stack with it: only the address is used.
    if (m_state.exchange(kGranted) == kAsleep) {
        FutexWake(word, 1);
    }
}

void Waiter::GrantAll(Waiter* first)
{
    while (first != nullptr) {
        Waiter* const next = first->m_next;
        first->Grant();
        first = next;
    }
}

bool Waiter::AwaitGrant(const Deadline& deadline)
{
    std::uint32_t seen = kAwake;
    if (!SpinUntilChanged(m_state, kAwake)) {
        m_state.compare_exchange_strong(seen, kAsleep);
    }
    while (m_state.load(std::memory_order_acquire) != kGranted) {
        if (!FutexWaitUntil(m_state, kAsleep, deadline)) {
            return m_state.load(std::memory_order_acquire) == kGranted;
        }
    }
    return true;
}

void Waiter::AwaitGrant()
{
    AwaitGrant(Deadline::After(INFINITE));
}

void WaitQueue::Append(Waiter& waiter)
{
    waiter.m_previous = m_last;
    waiter.m_isQueued = true;
    (m_last != nullptr ? m_last->m_next : m_first) = &waiter;
    m_last = &waiter;
}

Waiter* WaitQueue::TakeFirst()
{
    Waiter* const first = m_first;
    if (first != nullptr) {
        Remove(*first);
    }
    return first;
}

Waiter* WaitQueue::TakeAll()
{
    Waiter* const first = m_first;
    for (Waiter* waiter = first; waiter != nullptr; waiter = waiter->m_next) {
        waiter->m_isQueued = false;
    }
    m_first = nullptr;
    m_last = nullptr;
    return first;
}

bool WaitQueue::Remove(Waiter& waiter)
{
    if (!waiter.m_isQueued) {
        return false;
    }
    waiter.m_isQueued = false;
    (waiter.m_previous != nullptr ? waiter.m_previous->m_next : m_first) = waiter.m_next;
    (waiter.m_next != nullptr ? waiter.m_next->m_previous : m_last) = waiter.m_previous;
    waiter.m_next = nullptr; // what is taken is a chain of its own
    return true;
}

} // namespace qv::platform
