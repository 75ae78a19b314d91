// Conditions in all interleavings of short programs.
//
// A program is a string of calls:
//   ( )  enter and leave the section
//   +    adds an item
//   c t  take an item, waiting for it without end and until the time is over
//   s h  sleep likewise, for no item
//   2    waits until two threads sleep so
//   d    destroys everything, if two have slept so: nobody may touch it any more
//   ! *  wake one and all
//   ?    wakes one if h was woken
#include <gtest/gtest.h>

#include <optional>

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
        InitializeConditionVariable(&*m_condition);
        Name(&*m_section, "the section");
        Name(&m_condition->lock, "the queue's lock");
        Name(&m_condition->waiters, "waiters");
    }

    void Call(char call)
    {
        switch (call) {
        case '(':
            EnterCriticalSection(&*m_section);
            break;
        case ')':
            LeaveCriticalSection(&*m_section);
            break;
        case '+':
            ++m_items;
            ++m_added;
            break;
        case 'c':
        case 't':
            Take(call == 'c' ? INFINITE : kSome);
            break;
        case 's':
        case 'h':
            ++m_sleeps;
            m_isWoken |= Sleep(call == 's' ? INFINITE : kSome) && call == 'h';
            break;
        case '2':
            // Said in the section, which is free only after the sleep has begun.
            Await("waits for two sleeps", nullptr, Here(),
                  [this] { return m_sleeps == 2 && m_section->IsFree(); });
            break;
        case 'd':
            if (++m_ends == 2) {
                m_condition.reset();
                m_section.reset();
            }
            break;
        case '?':
            if (!m_isWoken) {
                break;
            }
            [[fallthrough]];
        case '!':
            WakeConditionVariable(&*m_condition);
            break;
        default:
            WakeAllConditionVariable(&*m_condition);
        }
    }
    void CheckEnd() { Require(m_items + m_taken == m_added, "an item was lost or taken twice"); }

private:
    // In the section, which it holds as often afterwards.
    bool Sleep(DWORD milliseconds)
    {
        const std::uint32_t depth = m_section->depth;
        const bool woken =
            SleepConditionVariableCS(&*m_condition, &*m_section, milliseconds) != kFalse;
        Require(m_section->holder == CurrentThread() && m_section->depth == depth,
                "the section is not held as before");
        Require(woken || milliseconds != INFINITE, "a sleep without end ended");
        return woken;
    }
    // Who runs out of time beside an item finds it.
    void Take(DWORD milliseconds)
    {
        while (m_items == 0 && Sleep(milliseconds)) {
        }
        if (m_items != 0) {
            --m_items;
            ++m_taken;
        }
    }

    std::optional<CRITICAL_SECTION> m_section{std::in_place};
    std::optional<CONDITION_VARIABLE> m_condition{std::in_place};
    int m_items = 0;
    int m_added = 0;
    int m_taken = 0;
    int m_sleeps = 0;
    int m_ends = 0;
    bool m_isWoken = false;
};

} // namespace

TEST(ConditionInterleavings, HoldInAll)
{
    ExpectHold({
        Calls<World>("one item each:", {"(c)", "(c)", "(+!)(+!)"}, {}),
        Calls<World>("one item each:", {"(c)", "(c)", "(+)!(+)!"}, {}),
        Calls<World>("early wake:", {"(c)", "(c)", "(+)!(+)!"},
                     {.preemptions = 2, .earlyWakes = 1}),
        Calls<World>("items for all:", {"(c)", "(c)", "(++*)"}, {}),
        Calls<World>("items for all:", {"(c)", "(c)", "(++)*"}, {}),
        Calls<World>("two signals free two who slept:", {"((s))d", "((s))d", "2!!"}, {}),
        Calls<World>("a broadcast frees two who slept:", {"((s))d", "((s))d", "2*"}, {}),
        Calls<World>("timed sleep beside signal:", {"((h))?", "((s))", "2!"}, {.preemptions = 2}),
        Calls<World>("timed sleeps beside item:", {"(t)", "(t)", "(+)!"}, {.preemptions = 2}),
    });
}
