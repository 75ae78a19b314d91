// Conditions in all interleavings of short programs.
#include <gtest/gtest.h>

#include <memory>

#include "interleavings/programs.h"

#include "interleavings/explored_atomic.h" // last before what is explored

#include "platform/condition_variable.h"

using namespace qv::explore;
using namespace qv::platform;

namespace
{

constexpr DWORD kSome = 1000; // runs out at any moment
constexpr Limits kEarlyWake = {.preemptions = 2, .earlyWakes = 1};

struct World
{
    World()
    {
        InitializeCriticalSection(&section);
        InitializeConditionVariable(&condition);
        Name(&section, "the section");
        Name(&condition.lock, "the queue's lock");
        Name(&condition.waiters, "waiters");
    }

    void Enter() { EnterCriticalSection(&section); }
    void Leave() { LeaveCriticalSection(&section); }
    // In the section, which it holds as often afterwards.
    bool Sleep(DWORD milliseconds)
    {
        const std::uint32_t depth = section.depth;
        const bool woken = SleepConditionVariableCS(&condition, &section, milliseconds) != kFalse;
        Require(section.holder == CurrentThread() && section.depth == depth,
                "the section is not held as before");
        return woken;
    }
    void Wake(bool all)
    {
        all ? WakeAllConditionVariable(&condition) : WakeConditionVariable(&condition);
    }

    CRITICAL_SECTION section;
    CONDITION_VARIABLE condition;
    int items = 0;
};

// Takes an item, waiting for it as everybody does.
void TakeItem(World& world)
{
    world.Enter();
    while (world.items == 0) {
        world.Sleep(INFINITE);
    }
    --world.items;
    world.Leave();
}

enum class Wakes
{
    InSection,
    AfterSection,
};

void AddItems(World& world, int count, Wakes wakes, bool all)
{
    world.Enter();
    world.items += count;
    if (wakes == Wakes::AfterSection) {
        world.Leave();
    }
    world.Wake(all);
    if (wakes == Wakes::InSection) {
        world.Leave();
    }
}

// Each of the items is taken, wherever the wake-ups come.
template <Wakes wakes> Scenario OneItemEach()
{
    const auto world = std::make_shared<World>();
    return {.threads = {[world] { TakeItem(*world); }, [world] { TakeItem(*world); },
                        [world] {
                            AddItems(*world, 1, wakes, false);
                            AddItems(*world, 1, wakes, false);
                        }}};
}

template <Wakes wakes> Scenario ItemsForAll()
{
    const auto world = std::make_shared<World>();
    return {.threads = {[world] { TakeItem(*world); }, [world] { TakeItem(*world); },
                        [world] { AddItems(*world, 2, wakes, true); }}};
}

// Without a predicate. It is said under the section that somebody sleeps, so the section is free
// only after the sleep has begun.
bool Sleep(World& world, DWORD milliseconds)
{
    world.Enter();
    world.Enter();
    ++world.items;
    const bool woken = world.Sleep(milliseconds);
    world.Leave();
    world.Leave();
    return woken;
}

void AwaitTwoSleeps(const World& world)
{
    const auto haveBegun = [](const void* object) {
        const World& seen = *static_cast<const World*>(object);
        return seen.items == 2 && seen.section.holder == CRITICAL_SECTION::kNobody;
    };
    Await("waits for two sleeps", Here(), haveBegun, &world);
}

// The last to come out destroys the condition.
template <bool all> Scenario SleptBeforeSignal()
{
    const auto world = std::make_shared<Storage<World>>();
    const auto sleep = [world] {
        Require(Sleep(**world, INFINITE), "a sleep without end ended");
        if (--(*world)->items == 0) {
            world->Destroy();
        }
    };
    return {.threads = {sleep, sleep, [world] {
                            AwaitTwoSleeps(**world);
                            (*world)->Wake(all);
                            if (!all) {
                                (*world)->Wake(all);
                            }
                        }}};
}

// A signal beside a sleep that runs out of time frees that one, who hands it on, or the other.
Scenario TimedSleepBesideSignal()
{
    const auto world = std::make_shared<World>();
    return {.threads = {[world] {
                            if (Sleep(*world, kSome)) {
                                world->Wake(false);
                            }
                        },
                        [world] { Sleep(*world, INFINITE); },
                        [world] {
                            AwaitTwoSleeps(*world);
                            world->Wake(false);
                        }}};
}

// Both wait with a time limit; the item is there, so who ran out of time finds it.
Scenario TimedSleepsBesideItem()
{
    const auto world = std::make_shared<World>();
    const auto taken = std::make_shared<int>(0);
    const auto take = [world, taken] {
        world->Enter();
        bool inTime = true;
        while (world->items == 0 && inTime) {
            inTime = world->Sleep(kSome);
        }
        if (world->items != 0) {
            --world->items;
            ++*taken;
        }
        world->Leave();
    };
    return {.threads = {take, take, [world] { AddItems(*world, 1, Wakes::AfterSection, false); }},
            .atEnd = [world, taken] {
                Require(world->items + *taken == 1, "an item was lost or taken twice");
            }};
}

} // namespace

TEST(ConditionInterleavings, HoldInAll)
{
    ExpectHold({
        {"one item each, woken in the section", OneItemEach<Wakes::InSection>},
        {"one item each, woken after the section", OneItemEach<Wakes::AfterSection>},
        {"one item each, early wake", OneItemEach<Wakes::AfterSection>, kEarlyWake},
        {"items for all, woken in the section", ItemsForAll<Wakes::InSection>},
        {"items for all, woken after the section", ItemsForAll<Wakes::AfterSection>},
        {"two signals free two who slept", SleptBeforeSignal<false>},
        {"a broadcast frees two who slept", SleptBeforeSignal<true>},
        {"timed sleep beside signal", TimedSleepBesideSignal, {.preemptions = 2}},
        {"timed sleeps beside item", TimedSleepsBesideItem, {.preemptions = 2}},
    });
}
