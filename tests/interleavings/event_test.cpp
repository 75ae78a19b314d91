// Events and unnamed semaphores in all interleavings of short programs.
//
// A program is a string of calls:
//   w t  wait, without end and until the time is over
//   h    waits like t and hands on what it got
//   s r  signal and reset
//   2    waits until two threads sleep
//   d    destroys the object: nobody may touch it any more
#include <gtest/gtest.h>

#include <optional>

#include "interleavings/explored_atomic.h" // last before what is explored
#include "interleavings/programs.h"

#include "platform/event_object.h"
#include "platform/unnamed_semaphore.h"

using namespace qv::explore;
using namespace qv::platform;

namespace
{

constexpr DWORD kSome = 1000; // runs out at any moment
constexpr Limits kEarlyWake = {.preemptions = 2, .earlyWakes = 1};

bool Wait(EventObject& event, DWORD milliseconds)
{
    return event.Wait(Deadline::After(milliseconds)) == WAIT_OBJECT_0;
}

bool Wait(UnnamedSemaphore& semaphore, DWORD milliseconds)
{
    return semaphore.TryTake() || semaphore.Wait(Deadline::After(milliseconds)) == WAIT_OBJECT_0;
}

void Signal(EventObject& event)
{
    if (!event.TrySet()) {
        event.Set();
    }
}

void Signal(UnnamedSemaphore& semaphore)
{
    Require(semaphore.TryPost() || semaphore.Post(1, nullptr), "a post failed");
}

using Holds = bool (*)(int passed, int left); // waits, and signals at the end

template <class Object> class World
{
public:
    template <class... Arguments> explicit World(Holds holds, Arguments... arguments)
        : m_holds(holds), m_object(std::in_place, arguments...)
    {}

    void Call(char call)
    {
        switch (call) {
        case 'w':
            Require(Wait(*m_object, INFINITE), "a wait without end ended");
            ++m_passed;
            break;
        case 't':
            m_passed += Wait(*m_object, kSome) ? 1 : 0;
            break;
        case 'h':
            if (Wait(*m_object, kSome)) {
                Signal(*m_object);
            }
            break;
        case 's':
            Signal(*m_object);
            break;
        case 'r':
            if constexpr (requires { m_object->Reset(); }) {
                m_object->Reset();
            }
            break;
        case '2':
            AwaitSleepers(2);
            break;
        default:
            m_object.reset();
        }
    }
    void CheckEnd()
    {
        int left = 0;
        while (m_object && m_object->TryTake()) {
            ++left;
        }
        Require(m_holds(m_passed, left), "signals and waits do not match");
    }

private:
    const Holds m_holds;
    std::optional<Object> m_object;
    int m_passed = 0;
};

constexpr ObjectKind kAuto = ObjectKind::AutoEvent;
constexpr ObjectKind kManual = ObjectKind::ManualEvent;

Program Event(ObjectKind kind, const std::vector<std::string>& threads, Holds holds,
              Limits limits = {})
{
    const char* const name = kind == kAuto ? "auto-reset:" : "manual-reset:";
    return Calls<World<EventObject>>(name, threads, limits, holds, kind, false);
}

Program Semaphore(const std::vector<std::string>& threads, Holds holds, Limits limits = {})
{
    return Calls<World<UnnamedSemaphore>>("semaphore:", threads, limits, holds, 0, 2);
}

} // namespace

TEST(EventInterleavings, HoldInAll)
{
    const Holds noneLeft = [](int /*passed*/, int left) { return left == 0; };
    const Holds oneAtMostLeft = [](int /*passed*/, int left) { return left <= 1; };
    const Holds oneInAll = [](int passed, int left) { return passed + left == 1; };
    const Holds twoInAll = [](int passed, int left) { return passed + left == 2; };
    ExpectHold({
        Event(kAuto, {"w", "w", "2ss"}, noneLeft),
        Event(kAuto, {"w", "w", "2ss"}, noneLeft, kEarlyWake),
        Event(kAuto, {"w", "s", "s"}, oneAtMostLeft),
        Event(kAuto, {"t", "s"}, oneInAll),
        // A set while one of two waiters runs out of time is not lost.
        Event(kAuto, {"h", "w", "s"}, noneLeft),
        // A reset right behind a set takes nothing from those who waited.
        Event(kManual, {"w", "w", "2sr"}, noneLeft),
        Event(kAuto, {"wd", "s"}, noneLeft),
        Event(kManual, {"wd", "s"}, noneLeft),
        Semaphore({"w", "w", "ss"}, twoInAll),
        Semaphore({"w", "w", "ss"}, twoInAll, kEarlyWake),
        Semaphore({"t", "w", "ss"}, twoInAll),
        Semaphore({"wd", "s"}, noneLeft),
    });
}
