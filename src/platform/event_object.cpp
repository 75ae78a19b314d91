#include "platform/event_object.h"

#include "platform/section_hold.h"

namespace qv::platform
{

void EventObject::Set()
{
    std::uint32_t seen = kUnsignalled;
    while (!m_state.compare_exchange_strong(seen, kSignalled)) {
        if (seen != kAwaited) {
            continue;
        }
        Waiter* const freed = TakeFreed();
        if (freed != nullptr) {
            Waiter::GrantAll(freed);
            return;
        }
        seen = kUnsignalled; // all of them ran out of time meanwhile
    }
}

DWORD EventObject::Wait(const Deadline& deadline)
{
    if (TryPass()) {
        return WAIT_OBJECT_0;
    }
    if (deadline.IsNow()) {
        return WAIT_TIMEOUT;
    }
    Waiter self;
    if (PassOrQueue(self) || self.AwaitGrant(deadline)) {
        return WAIT_OBJECT_0;
    }
    if (GiveUp(self)) {
        return WAIT_TIMEOUT;
    }
    self.AwaitGrant();
    return WAIT_OBJECT_0;
}

Waiter* EventObject::TakeFreed()
{
    const SectionHold locked(&m_lock);
    if (m_queue.IsEmpty()) {
        return nullptr;
    }
    Waiter* const freed = IsManual() ? m_queue.TakeAll() : m_queue.TakeFirst();
    // The freed are still here, so the event stays until they have their grants.
    if (m_queue.IsEmpty()) {
        m_state.store(IsManual() ? kSignalled : kUnsignalled);
    }
    return freed;
}

bool EventObject::PassOrQueue(Waiter& waiter)
{
    const SectionHold locked(&m_lock);
    std::uint32_t seen = kUnsignalled;
    // Announced before it sleeps: every set from now on finds it.
    while (seen != kAwaited && !m_state.compare_exchange_strong(seen, kAwaited)) {
        if (seen == kSignalled) {
            if (TryPass()) {
                return true;
            }
            seen = kUnsignalled;
        }
    }
    m_queue.Append(waiter);
    return false;
}

bool EventObject::GiveUp(Waiter& waiter)
{
    const SectionHold locked(&m_lock);
    const bool removed = m_queue.Remove(waiter);
    if (removed && m_queue.IsEmpty()) {
        m_state.store(kUnsignalled);
    }
    return removed;
}

} // namespace qv::platform
