// Events and unnamed semaphores in all interleavings of short programs.
#include <gtest/gtest.h>

#include <memory>

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

struct EventWorld
{
    explicit EventWorld(ObjectKind kind) : event(kind, false) {}

    bool Wait(DWORD milliseconds)
    {
        return event.Wait(Deadline::After(milliseconds)) == WAIT_OBJECT_0;
    }
    void Signal()
    {
        if (!event.TrySet()) {
            event.Set();
        }
    }

    EventObject event;
    int passed = 0;
};

// Sets that come once both threads wait free both.
Scenario TwoSetsFreeTwo()
{
    const auto world = std::make_shared<EventWorld>(ObjectKind::AutoEvent);
    const auto wait = [world] { world->passed += world->Wait(INFINITE) ? 1 : 0; };
    return {.threads = {wait, wait,
                        [world] {
                            AwaitSleepers(2);
                            world->Signal();
                            world->Signal();
                        }},
            .atEnd = [world] { Require(!world->event.IsSignalled(), "a signal is left"); }};
}

// Two sets and one wait before, between, beside and after them: 1 signal or none is left.
Scenario SetsAndOneWait()
{
    const auto world = std::make_shared<EventWorld>(ObjectKind::AutoEvent);
    return {.threads = {[world] { Require(world->Wait(INFINITE), "a wait without end ended"); },
                        [world] { world->Signal(); }, [world] { world->Signal(); }},
            .atEnd = [world] {
                world->passed = world->event.TryTake() ? 1 : 0;
                Require(!world->event.TryTake(), "two sets with nobody waiting left two signals");
            }};
}

// A wait that runs out of time beside a set: it passes or the signal stays.
Scenario TimedWaitBesideSet()
{
    const auto world = std::make_shared<EventWorld>(ObjectKind::AutoEvent);
    return {.threads = {[world] { world->passed += world->Wait(kSome) ? 1 : 0; },
                        [world] { world->Signal(); }},
            .atEnd = [world] {
                Require(world->passed + (world->event.TryTake() ? 1 : 0) == 1,
                        "a set freed other than one");
            }};
}

// A set that comes while one of two waiters runs out of time is not lost: it frees that one, who
// hands it on, or the other.
Scenario TimedWaitBesideWait()
{
    const auto world = std::make_shared<EventWorld>(ObjectKind::AutoEvent);
    return {.threads = {[world] {
                            if (world->Wait(kSome)) {
                                world->Signal();
                            }
                        },
                        [world] { world->Wait(INFINITE); }, [world] { world->Signal(); }},
            .atEnd = [world] { Require(!world->event.IsSignalled(), "a signal is left"); }};
}

// A set and a reset right behind it free all who waited.
Scenario PulseFreesAll()
{
    const auto world = std::make_shared<EventWorld>(ObjectKind::ManualEvent);
    const auto wait = [world] { world->passed += world->Wait(INFINITE) ? 1 : 0; };
    return {.threads = {wait, wait,
                        [world] {
                            AwaitSleepers(2);
                            world->Signal();
                            world->event.Reset();
                        }},
            .atEnd = [world] { Require(!world->event.IsSignalled(), "the reset was lost"); }};
}

template <ObjectKind kind> Scenario WaiterDestroysEvent()
{
    const auto event = std::make_shared<Storage<EventObject>>(kind, false);
    return {.threads = {[event] {
                            (*event)->Wait(Deadline::After(INFINITE));
                            event->Destroy();
                        },
                        [event] {
                            if (!(*event)->TrySet()) {
                                (*event)->Set();
                            }
                        }}};
}

bool Take(UnnamedSemaphore& semaphore, DWORD milliseconds)
{
    return semaphore.TryTake() || semaphore.Wait(Deadline::After(milliseconds)) == WAIT_OBJECT_0;
}

void Post(UnnamedSemaphore& semaphore)
{
    if (!semaphore.TryPost()) {
        Require(semaphore.Post(1, nullptr), "a post failed");
    }
}

Scenario WaiterDestroysSemaphore()
{
    const auto semaphore = std::make_shared<Storage<UnnamedSemaphore>>(0, 2);
    return {.threads = {[semaphore] {
                            Take(**semaphore, INFINITE);
                            semaphore->Destroy();
                        },
                        [semaphore] { Post(**semaphore); }}};
}

Scenario AsManyWaitsAsPosts()
{
    const auto semaphore = std::make_shared<UnnamedSemaphore>(0, 2);
    const auto wait = [semaphore] { Take(*semaphore, INFINITE); };
    return {.threads = {wait, wait,
                        [semaphore] {
                            Post(*semaphore);
                            Post(*semaphore);
                        }},
            .atEnd = [semaphore] { Require(!semaphore->TryTake(), "a post is left"); }};
}

// A wait that runs out of time takes no post with it.
Scenario TimedWaitBesidePosts()
{
    const auto semaphore = std::make_shared<UnnamedSemaphore>(0, 2);
    const auto taken = std::make_shared<int>(0);
    return {.threads = {[=] { *taken += Take(*semaphore, kSome) ? 1 : 0; },
                        [=] { *taken += Take(*semaphore, INFINITE) ? 1 : 0; },
                        [=] {
                            Post(*semaphore);
                            Post(*semaphore);
                        }},
            .atEnd = [=] {
                *taken += semaphore->TryTake() ? 1 : 0;
                Require(*taken == 2 && !semaphore->TryTake(), "two posts were not two");
            }};
}

} // namespace

TEST(EventInterleavings, HoldInAll)
{
    ExpectHold({
        {"auto-reset: two sets free two", TwoSetsFreeTwo},
        {"auto-reset: two sets free two, early wake", TwoSetsFreeTwo, kEarlyWake},
        {"auto-reset: two sets and one wait", SetsAndOneWait},
        {"auto-reset: timed wait beside set", TimedWaitBesideSet},
        {"auto-reset: timed wait beside wait", TimedWaitBesideWait},
        {"manual-reset: set and reset free all", PulseFreesAll},
        {"auto-reset: waiter destroys", WaiterDestroysEvent<ObjectKind::AutoEvent>},
        {"manual-reset: waiter destroys", WaiterDestroysEvent<ObjectKind::ManualEvent>},
        {"semaphore: as many waits as posts", AsManyWaitsAsPosts},
        {"semaphore: as many waits as posts, early wake", AsManyWaitsAsPosts, kEarlyWake},
        {"semaphore: timed wait beside posts", TimedWaitBesidePosts},
        {"semaphore: waiter destroys", WaiterDestroysSemaphore},
    });
}
