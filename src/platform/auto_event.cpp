#include "platform/auto_event.h"

namespace qv::platform
{

bool AutoEvent::GrantFirst()
{
    EnterCriticalSection(&m_lock);
    Waiter* const first = m_queue.TakeFirst();
    NoteIfNobodyWaits();
    LeaveCriticalSection(&m_lock);
    if (first == nullptr) {
        return false;
    }
    first->Grant();
    return true;
}

void AutoEvent::Reset()
{
    // Always a write: what the caller looks at next, it looks at after the reset.
    std::uint32_t seen = kSignalled;
    while (!m_state.compare_exchange_strong(seen, seen == kAwaited ? kAwaited : kUnsignalled)) {
    }
}

DWORD AutoEvent::Wait(const Deadline& deadline)
{
    if (TryTake()) {
        return WAIT_OBJECT_0;
    }
    if (deadline.IsNow()) {
        return WAIT_TIMEOUT;
    }
    Waiter self;
    if (TakeOrQueue(self) || self.AwaitGrant(deadline)) {
        return WAIT_OBJECT_0;
    }
    if (GiveUp(self)) {
        return WAIT_TIMEOUT;
    }
    self.AwaitGrant();
    return WAIT_OBJECT_0;
}

bool AutoEvent::TakeOrQueue(Waiter& waiter)
{
    EnterCriticalSection(&m_lock);
    // Announced before it sleeps: every set from now on finds it.
    std::uint32_t seen = kUnsignalled;
    while (seen != kAwaited &&
           !m_state.compare_exchange_strong(seen, seen == kSignalled ? kUnsignalled : kAwaited)) {
    }
    const bool taken = seen == kSignalled;
    if (!taken) {
        m_queue.Append(waiter);
    }
    LeaveCriticalSection(&m_lock);
    return taken;
}

bool AutoEvent::GiveUp(Waiter& waiter)
{
    EnterCriticalSection(&m_lock);
    const bool removed = m_queue.Remove(waiter);
    NoteIfNobodyWaits();
    LeaveCriticalSection(&m_lock);
    return removed;
}

void AutoEvent::NoteIfNobodyWaits()
{
    if (m_queue.IsEmpty() && m_state.load(std::memory_order_relaxed) == kAwaited) {
        m_state.store(kUnsignalled);
    }
}

} // namespace qv::platform
