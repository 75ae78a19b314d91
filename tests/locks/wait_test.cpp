// Events, gates and unnamed semaphores by their exported functions.
#include <gtest/gtest.h>
#include <qvcore6/event.h>
#include <qvcore6/gate.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>

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

QVEvent AsEvent(void* object)
{
    return static_cast<QVEvent>(object);
}
QVGate AsGate(void* object)
{
    return static_cast<QVGate>(object);
}
QVSemaphore AsSemaphore(void* object)
{
    return static_cast<QVSemaphore>(object);
}

Kind EventKind(const char* name, uint32_t flags)
{
    return {name,
            [flags] {
                QVEvent event = nullptr;
                EXPECT_EQ(QVEventCreate(flags != 0 ? nullptr : "event", flags, &event), S_OK);
                return event;
            },
            [](void* object) { return QVEventDestroy(AsEvent(object)); },
            [](void* object) { return QVEventSignal(AsEvent(object)); },
            [](void* object) { return QVEventWait(AsEvent(object)); },
            [](void* object) { return QVEventTimedWait(AsEvent(object), 0); },
            [](void* object) { return QVEventReset(AsEvent(object)); },
            QV_E_TIMEOUT,
            (flags & QV_EVENT_MANUAL_RESET) != 0};
}

Kind GateKind(const char* name, uint32_t flags)
{
    return {name,
            [flags] {
                QVGate gate = nullptr;
                EXPECT_EQ(QVGateCreate(flags != 0 ? nullptr : "gate", flags, &gate), S_OK);
                return gate;
            },
            [](void* object) { return QVGateDestroy(AsGate(object)); },
            [](void* object) { return QVGateOpen(AsGate(object)); },
            [](void* object) { return QVGateWait(AsGate(object)); },
            [](void* object) { return QVGateTryWait(AsGate(object)); },
            [](void* object) { return QVGateClose(AsGate(object)); },
            E_FAIL,
            true};
}

const std::vector<Kind>& Kinds()
{
    static const std::vector<Kind> kinds = {
        EventKind("auto-reset event", 0),
        EventKind("auto-reset event, other bits", ~QV_EVENT_MANUAL_RESET),
        EventKind("manual-reset event", QV_EVENT_MANUAL_RESET),
        GateKind("gate", 0),
        GateKind("gate, all bits", 0xFFFFFFFF),
        {"semaphore",
         [] {
             QVSemaphore semaphore = nullptr;
             EXPECT_EQ(QVSemaphoreCreate(0, nullptr, ~QV_SEMAPHORE_NAMED, &semaphore), S_OK);
             return semaphore;
         },
         [](void* object) { return QVSemaphoreDestroy(AsSemaphore(object)); },
         [](void* object) { return QVSemaphorePost(AsSemaphore(object)); },
         [](void* object) { return QVSemaphoreWait(AsSemaphore(object)); },
         [](void* object) { return QVSemaphoreTryWait(AsSemaphore(object)); }, nullptr, E_FAIL,
         false},
    };
    return kinds;
}

TEST(Wait, SignalsStayForThoseWhoComeLater)
{
    for (const Kind& kind : Kinds()) {
        SCOPED_TRACE(kind.name);
        void* const object = kind.create();
        EXPECT_EQ(kind.poll(object), kind.notNow) << "not signalled at first";
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.wait(object), S_OK);
        EXPECT_EQ(kind.poll(object), kind.staysSignalled ? S_OK : kind.notNow);
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.poll(object), S_OK);
        if (kind.reset) {
            EXPECT_EQ(kind.poll(object), kind.staysSignalled ? S_OK : kind.notNow)
                << "a second signal adds nothing";
            kind.signal(object);
            EXPECT_EQ(kind.reset(object), S_OK);
            EXPECT_EQ(kind.reset(object), S_OK);
        } else {
            EXPECT_EQ(kind.poll(object), S_OK) << "a second post adds to the count";
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
    for (int round = 0; round < 8; ++round) {
        for (const Kind& kind : Kinds()) {
            SCOPED_TRACE(kind.name);
            void* const object = kind.create();
            std::deque<Sleeper> sleepers;
            for (int count = 0; count < 4; ++count) {
                sleepers.emplace_back([&] { EXPECT_EQ(kind.wait(object), S_OK); });
            }
            for (const Sleeper& sleeper : sleepers) {
                sleeper.AwaitAsleep();
                EXPECT_FALSE(sleeper.IsDone());
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
}

TEST(Wait, AutoResetEventFreesInTheOrderOfArrival)
{
    QVEvent event = QV_EVENT_NONE;
    ASSERT_EQ(QVEventCreate("", 0, &event), S_OK);
    std::deque<Sleeper> sleepers;
    for (int count = 0; count < 4; ++count) {
        sleepers.emplace_back([&] { QVEventWait(event); });
        sleepers.back().AwaitAsleep();
    }
    for (std::size_t next = 0; next < sleepers.size(); ++next) {
        QVEventSignal(event);
        sleepers[next].AwaitDone();
        for (std::size_t later = next + 1; later < sleepers.size(); ++later) {
            EXPECT_FALSE(sleepers[later].IsDone());
        }
    }
    sleepers.clear();
    QVEventDestroy(event);
}

TEST(Wait, SemaphoreKeepsItsLimits)
{
    for (const int32_t count : {-1, INT32_MIN, 32768, INT32_MAX}) {
        QVSemaphore semaphore = nullptr;
        EXPECT_EQ(QVSemaphoreCreate(count, "", 0, &semaphore), E_FAIL) << count;
        EXPECT_EQ(semaphore, QV_SEMAPHORE_NONE) << count;
    }
    QVSemaphore semaphore = nullptr;
    EXPECT_EQ(QVNamedSemOpen(nullptr, 1, &semaphore), E_INVALIDARG);
    EXPECT_EQ(semaphore, QV_SEMAPHORE_NONE);
    ASSERT_EQ(QVSemaphoreCreate(32766, "", 0, &semaphore), S_OK);
    EXPECT_EQ(QVSemaphorePost(semaphore), S_OK);
    EXPECT_EQ(QVNamedSemPost(semaphore), E_FAIL);
    EXPECT_EQ(QVSemaphorePost(semaphore), E_FAIL);
    for (int left = 32767; left > 1; --left) {
        ASSERT_EQ(left % 2 != 0 ? QVSemaphoreTryWait(semaphore) : QVNamedSemTryWait(semaphore),
                  S_OK);
    }
    int32_t value = 7;
    EXPECT_EQ(QVSemaphoreGetValue(semaphore, &value), S_OK);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(QVNamedSemWait(semaphore), S_OK);
    EXPECT_EQ(QVNamedSemTryWait(semaphore), E_FAIL);
    value = 7;
    EXPECT_EQ(QVNamedSemGetValue(semaphore, &value), S_OK);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(QVNamedSemClose(semaphore), S_OK);
    EXPECT_EQ(QVNamedSemClose(nullptr), S_OK);
}

// A wait that began anew after each of the thread's signals would last as long as these come.
TEST(Wait, TimeOutsHoldUnderSignals)
{
    struct sigaction handled = {}; // interrupts system calls
    handled.sa_handler = [](int) {};
    sigaction(SIGUSR1, &handled, nullptr);
    QVEvent events[2] = {};
    QVGate gate = nullptr;
    QVEventCreate("", 0, &events[0]);
    QVEventCreate("", QV_EVENT_MANUAL_RESET, &events[1]);
    QVGateCreate("", 0, &gate);
    const std::function<QVRESULT()> waits[] = {
        [&] { return QVEventTimedWait(events[0], 60); },
        [&] { return QVEventTimedWait(events[1], 60); },
        [&] { return QVGateTimedWait(gate, 60); },
    };
    for (const auto& wait : waits) {
        std::atomic<bool> ended{false};
        const pthread_t waiter = pthread_self();
        const auto begin = Clock::now();
        std::thread disturber([&] {
            while (!ended && Clock::now() - begin < milliseconds(4000)) {
                pthread_kill(waiter, SIGUSR1);
                std::this_thread::sleep_for(milliseconds(5));
            }
        });
        errno = 4711;
        EXPECT_EQ(wait(), QV_E_TIMEOUT);
        EXPECT_EQ(errno, 4711);
        const auto time = Clock::now() - begin;
        ended = true;
        disturber.join();
        EXPECT_GE(time, milliseconds(60));
        EXPECT_LT(time, milliseconds(3000));
    }
    QVEventDestroy(events[0]);
    QVEventDestroy(events[1]);
    QVGateDestroy(gate);
}

// Who has passed may destroy the object: the signal's call must be done with it.
TEST(Wait, ObjectsMayGoOnceTheWaitHasPassed)
{
    for (const Kind& kind : Kinds()) {
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
    for (const Kind& kind : Kinds()) {
        if (kind.staysSignalled) {
            continue;
        }
        void* const object = kind.create();
        kind.signal(object);
        long counter = 0;
        const auto count = [&] {
            for (int round = 0; round < 3000; ++round) {
                kind.wait(object);
                ++counter;
                kind.signal(object);
            }
        };
        {
            std::vector<std::jthread> threads;
            for (int thread = 0; thread < 4; ++thread) {
                threads.emplace_back(count);
            }
        }
        EXPECT_EQ(counter, 12000) << kind.name;
        kind.destroy(object);
    }
}

} // namespace
