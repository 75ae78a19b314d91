#include "platform/condition_variable.h"

#include "platform/error.h"
#include "platform/section_hold.h"
#include "platform/wait.h"

namespace qv::platform
{

namespace
{

void AddWaiter(CONDITION_VARIABLE& condition, Waiter& waiter)
{
    const SectionHold locked(&condition.lock);
    condition.queue.Append(waiter);
    condition.waiters.fetch_add(1);
}

Waiter* TakeFirst(CONDITION_VARIABLE& condition)
{
    const SectionHold locked(&condition.lock);
    Waiter* const first = condition.queue.TakeFirst();
    if (first != nullptr) {
        condition.waiters.fetch_sub(1);
    }
    return first;
}

Waiter* TakeAll(CONDITION_VARIABLE& condition)
{
    const SectionHold locked(&condition.lock);
    condition.waiters.store(0);
    return condition.queue.TakeAll();
}

// False if the waiter has been taken out of the queue meanwhile, and is owed a grant.
bool GiveUp(CONDITION_VARIABLE& condition, Waiter& waiter)
{
    const SectionHold locked(&condition.lock);
    const bool removed = condition.queue.Remove(waiter);
    if (removed) {
        condition.waiters.fetch_sub(1);
    }
    return removed;
}

// True if a wake-up came in time.
bool Sleep(CONDITION_VARIABLE& condition, Waiter& waiter, const Deadline& deadline)
{
    if (waiter.AwaitGrant(deadline)) {
        return true;
    }
    if (GiveUp(condition, waiter)) {
        return false;
    }
    waiter.AwaitGrant();
    return true;
}

// All levels of a section that the caller holds.
class GivenUp
{
public:
    explicit GivenUp(CRITICAL_SECTION& section) : m_section(section), m_depth(section.depth)
    {
        section.depth = 0;
        LeaveCriticalSection(&section);
    }
    ~GivenUp()
    {
        EnterCriticalSection(&m_section);
        m_section.depth = m_depth;
    }
    GivenUp(const GivenUp&) = delete;
    GivenUp& operator=(const GivenUp&) = delete;

private:
    CRITICAL_SECTION& m_section;
    std::uint32_t m_depth;
};

} // namespace

void InitializeConditionVariable(CONDITION_VARIABLE* condition)
{
    InitializeCriticalSectionAndSpinCount(&condition->lock, kQueueLockSpin);
    condition->queue = WaitQueue();
    condition->waiters.store(0);
}

void WakeConditionVariable(CONDITION_VARIABLE* condition)
{
    // A waiter is counted before it gives up the section. So whoever changed what it waits for
    // while holding the section either did so before the waiter looked, or sees it here.
    if (condition->waiters.load() == 0) {
        return;
    }
    Waiter* const first = TakeFirst(*condition);
    if (first != nullptr) {
        first->Grant();
    }
}

void WakeAllConditionVariable(CONDITION_VARIABLE* condition)
{
    if (condition->waiters.load() == 0) {
        return;
    }
    Waiter::GrantAll(TakeAll(*condition));
}

BOOL SleepConditionVariableCS(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section,
                              DWORD milliseconds)
{
    const Deadline deadline = Deadline::After(milliseconds);
    Waiter self;
    AddWaiter(*condition, self);
    bool woken = false;
    {
        const GivenUp givenUp(*section);
        woken = Sleep(*condition, self, deadline);
    }
    if (!woken) {
        SetLastError(ERROR_TIMEOUT);
    }
    return woken ? kTrue : kFalse;
}

} // namespace qv::platform
