// Conditions in all interleavings of short programs.
//
// A program is a string of calls:
//   c t  take an item, waiting for it without end and until the time is over
//   a A  add an item and wake one, in the section and after it
//   b B  add two items and wake all, likewise
//   s    sleeps without end
//   h    sleeps until the time is over, or is woken and hands that on
//   2    waits until two threads sleep
//   ! *  wake one and all
#include <gtest/gtest.h>

#include "interleavings/explored_atomic.h" // last before what is explored
#include "interleavings/programs.h"

#include "platform/condition_variable.h"

using namespace qv::explore;
using namespace qv::platform;

namespace
{

constexpr DWORD kSome = 1000; // runs out at any moment

class World
{
public:
    World()
    {
        InitializeCriticalSection(&m_section);
        InitializeConditionVariable(&m_condition);
        Name(&m_section, "the section");
        Name(&m_condition.lock, "the queue's lock");
        Name(&m_condition.waiters, "waiters");
    }

    void Call(char call)
    {
        switch (call) {
        case 'c':
        case 't':
            Take(call == 'c' ? INFINITE : kSome);
            break;
        case 'a':
        case 'A':
            Add(1, call == 'a', &WakeConditionVariable);
            break;
        case 'b':
        case 'B':
            Add(2, call == 'b', &WakeAllConditionVariable);
            break;
        case 's':
            SleepOnce(INFINITE);
            break;
        case 'h':
            if (SleepOnce(kSome)) {
                WakeConditionVariable(&m_condition);
            }
            break;
        case '2':
            Await("waits for two sleeps", Here(), &HaveTwoBegun, this);
            break;
        case '!':
            WakeConditionVariable(&m_condition);
            break;
        default:
            WakeAllConditionVariable(&m_condition);
        }
    }
    void CheckEnd() { Require(m_items + m_taken == m_added, "an item was lost or taken twice"); }

private:
    // In the section, which it holds as often afterwards.
    bool Sleep(DWORD milliseconds)
    {
        const std::uint32_t depth = m_section.depth;
        const bool woken =
            SleepConditionVariableCS(&m_condition, &m_section, milliseconds) != kFalse;
        Require(m_section.holder == CurrentThread() && m_section.depth == depth,
                "the section is not held as before");
        Require(woken || milliseconds != INFINITE, "a sleep without end ended");
        return woken;
    }
    // Who runs out of time beside an item finds it.
    void Take(DWORD milliseconds)
    {
        EnterCriticalSection(&m_section);
        while (m_items == 0 && Sleep(milliseconds)) {
        }
        m_taken += m_items != 0 ? 1 : 0;
        m_items -= m_items != 0 ? 1 : 0;
        LeaveCriticalSection(&m_section);
    }
    void Add(int count, bool wakesInSection, void (*wake)(CONDITION_VARIABLE*))
    {
        EnterCriticalSection(&m_section);
        m_items += count;
        m_added += count;
        if (wakesInSection) {
            wake(&m_condition);
        }
        LeaveCriticalSection(&m_section);
        if (!wakesInSection) {
            wake(&m_condition);
        }
    }
    // It is said under the section that somebody sleeps, so the section is free only after the
    // sleep has begun.
    bool SleepOnce(DWORD milliseconds)
    {
        EnterCriticalSection(&m_section);
        EnterCriticalSection(&m_section);
        ++m_sleeps;
        const bool woken = Sleep(milliseconds);
        LeaveCriticalSection(&m_section);
        LeaveCriticalSection(&m_section);
        return woken;
    }
    static bool HaveTwoBegun(const void* object)
    {
        const World& seen = *static_cast<const World*>(object);
        return seen.m_sleeps == 2 && seen.m_section.holder == CRITICAL_SECTION::kNobody;
    }

    CRITICAL_SECTION m_section;
    CONDITION_VARIABLE m_condition;
    int m_items = 0;
    int m_added = 0;
    int m_taken = 0;
    int m_sleeps = 0;
};

} // namespace

TEST(ConditionInterleavings, HoldInAll)
{
    ExpectHold({
        Calls<World>("one item each, woken in the section:", {"c", "c", "aa"}, {}),
        Calls<World>("one item each, woken after it:", {"c", "c", "AA"}, {}),
        Calls<World>("early wake:", {"c", "c", "AA"}, {.preemptions = 2, .earlyWakes = 1}),
        Calls<World>("items for all, woken in the section:", {"c", "c", "b"}, {}),
        Calls<World>("items for all, woken after it:", {"c", "c", "B"}, {}),
        Calls<World>("two signals free two who slept:", {"s", "s", "2!!"}, {}),
        Calls<World>("a broadcast frees two who slept:", {"s", "s", "2*"}, {}),
        Calls<World>("timed sleep beside signal:", {"h", "s", "2!"}, {.preemptions = 2}),
        Calls<World>("timed sleeps beside item:", {"t", "t", "A"}, {.preemptions = 2}),
    });
}
