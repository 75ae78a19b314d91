// Events, gates and unnamed semaphores by their exported functions; time-outs of all waits.
#include <gtest/gtest.h>
#include <qvcore6/condition.h>
#include <qvcore6/event.h>
#include <qvcore6/gate.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "support/sleepers.h"

namespace
{

using qv::test::Sleeper;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// One of the kinds that can be waited for, under one set of names.
struct Kind
{
    const char* name;
    std::function<void*()> create;
    std::function<QVRESULT(void*)> destroy, signal, wait, poll;
    std::function<QVRESULT(void*)> reset; // none for semaphores
    QVRESULT notNow;                      // of the poll
    bool staysSignalled;
};

template <class Handle>
auto New(QVRESULT (*create)(const char*, uint32_t, Handle*), const char* name, uint32_t flags)
{
    return [=]() -> void* {
        Handle handle = nullptr;
        EXPECT_EQ(create(name, flags, &handle), S_OK);
        return handle;
    };
}

template <class Handle> auto On(QVRESULT (*call)(Handle))
{
    return [call](void* object) { return call(static_cast<Handle>(object)); };
}

QVRESULT PollEvent(QVEvent event)
{
    return QVEventTimedWait(event, 0);
}

QVRESULT CreateEmptySemaphore(const char* name, uint32_t flags, QVSemaphore* handleOut)
{
    return QVSemaphoreCreate(0, name, flags, handleOut);
}

const Kind kKinds[] = {
    {"auto-reset event", New(QVEventCreate, "name", ~QV_EVENT_MANUAL_RESET), On(QVEventDestroy),
     On(QVEventSignal), On(QVEventWait), On(PollEvent), On(QVEventReset), QV_E_TIMEOUT, false},
    {"manual-reset event", New(QVEventCreate, nullptr, QV_EVENT_MANUAL_RESET), On(QVEventDestroy),
     On(QVEventSignal), On(QVEventWait), On(PollEvent), On(QVEventReset), QV_E_TIMEOUT, true},
    {"gate", New(QVGateCreate, nullptr, 0xFFFFFFFF), On(QVGateDestroy), On(QVGateOpen),
     On(QVGateWait), On(QVGateTryWait), On(QVGateClose), E_FAIL, true},
    {"semaphore", New(CreateEmptySemaphore, nullptr, ~QV_SEMAPHORE_NAMED), On(QVSemaphoreDestroy),
     On(QVSemaphorePost), On(QVSemaphoreWait), On(QVSemaphoreTryWait), nullptr, E_FAIL, false},
};

TEST(Wait, SignalsStayForThoseWhoComeLater)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const QVRESULT afterOne = kind.staysSignalled ? S_OK : kind.notNow;
        void* const object = kind.create();
        EXPECT_EQ(kind.poll(object), kind.notNow) << "not signalled at first";
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.wait(object), S_OK);
        EXPECT_EQ(kind.poll(object), afterOne);
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.poll(object), S_OK);
        EXPECT_EQ(kind.poll(object), kind.reset ? afterOne : S_OK) << "only posts add up";
        if (kind.reset) {
            kind.signal(object);
            EXPECT_EQ(kind.reset(object), S_OK);
        }
        EXPECT_EQ(kind.poll(object), kind.notNow);
        EXPECT_EQ(kind.destroy(object), S_OK);
        EXPECT_EQ(kind.destroy(nullptr), S_OK);
    }
}

// As many signals in a row as threads sleep free them all and leave nothing for others, who try to
// get in between; a single one of a kind that stays signalled frees all, though it is reset at
// once.
TEST(Wait, SignalsReachAllWhoSleep)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        void* const object = kind.create();
        std::deque<Sleeper> sleepers;
        for (int count = 0; count < 4; ++count) {
            sleepers.emplace_back([&] { EXPECT_EQ(kind.wait(object), S_OK); });
            sleepers.back().AwaitAsleep();
            EXPECT_FALSE(sleepers.back().IsDone());
        }
        for (int count = 0; count < (kind.staysSignalled ? 1 : 4); ++count) {
            EXPECT_EQ(kind.signal(object), S_OK);
            if (kind.reset) {
                kind.reset(object);
                EXPECT_EQ(kind.poll(object), kind.notNow);
            }
        }
        sleepers.clear();
        EXPECT_EQ(kind.poll(object), kind.notNow);
        kind.destroy(object);
    }
}

TEST(Wait, SemaphoresKeepTheirLimits)
{
    QVSemaphore semaphore = nullptr;
    for (const int32_t count : {-1, INT32_MIN, 32768, INT32_MAX}) {
        EXPECT_EQ(QVSemaphoreCreate(count, "", 0, &semaphore), E_FAIL) << count;
        EXPECT_EQ(semaphore, QV_SEMAPHORE_NONE) << count;
    }
    ASSERT_EQ(QVSemaphoreCreate(32766, "", 0, &semaphore), S_OK);
    EXPECT_EQ(QVSemaphorePost(semaphore), S_OK);
    EXPECT_EQ(QVSemaphorePost(semaphore), E_FAIL);
    int32_t value = 7;
    EXPECT_EQ(QVSemaphoreGetValue(semaphore, &value), S_OK);
    EXPECT_EQ(value, -1);
    for (int left = 32767; left > 0; --left) {
        ASSERT_EQ(QVSemaphoreTryWait(semaphore), S_OK);
    }
    EXPECT_EQ(QVSemaphoreTryWait(semaphore), E_FAIL);
    QVSemaphoreDestroy(semaphore);
}

// A wait that began anew after each of the thread's signals would last as long as these come.
TEST(Wait, TimeOutsHoldUnderSignals)
{
    static int alarms = 0;
    signal(SIGALRM, [](int) { ualarm(++alarms < 1000 ? 5000 : 0, 0); });
    QVEvent event = nullptr;
    QVGate gate = nullptr;
    QVCondition condition = nullptr;
    QVEventCreate("", 0, &event);
    QVGateCreate("", 0, &gate);
    QVConditionCreate("", 0, &condition);
    QVConditionAcquire(condition);
    const std::function<QVRESULT()> waits[] = {[&] { return QVEventTimedWait(event, 60); },
                                               [&] { return QVGateTimedWait(gate, 60); },
                                               [&] { return QVConditionTimedWait(condition, 60); }};
    for (const auto& wait : waits) {
        ualarm(5000, 0);
        const auto begin = Clock::now();
        errno = 4711;
        EXPECT_EQ(wait(), QV_E_TIMEOUT);
        EXPECT_EQ(errno, 4711);
        EXPECT_GE(Clock::now() - begin, milliseconds(60));
        EXPECT_LT(Clock::now() - begin, milliseconds(3000));
    }
    ualarm(0, 0);
    EXPECT_GT(alarms, 0);
    QVConditionRelease(condition);
    QVEventDestroy(event);
    QVGateDestroy(gate);
    QVConditionDestroy(condition);
}

// Who has passed may destroy the object: the signal's call must be done with it.
TEST(Wait, ObjectsMayGoOnceTheWaitHasPassed)
{
    for (const Kind& kind : kKinds) {
        for (int round = 0; round < 200; ++round) {
            void* const object = kind.create();
            std::thread waiter([&] {
                kind.wait(object);
                kind.destroy(object);
            });
            for (int wait = 0; wait < round % 8; ++wait) {
                std::this_thread::yield();
            }
            kind.signal(object);
            waiter.join();
        }
    }
}

// An auto-reset event and a semaphore of one serve as locks; what they guard is not atomic.
TEST(Wait, ExcludesAndOrders)
{
    for (const Kind& kind : kKinds) {
        if (kind.staysSignalled) {
            continue;
        }
        void* const object = kind.create();
        long counter = 0;
        const auto count = [&] {
            for (int round = 0; round < 3000; ++round) {
                kind.wait(object);
                ++counter;
                kind.signal(object);
            }
        };
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back(count);
        }
        kind.signal(object);
        threads.clear();
        EXPECT_EQ(counter, 12000) << kind.name;
        kind.destroy(object);
    }
}

} // namespace
