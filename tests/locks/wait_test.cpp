// Events, gates, unnamed semaphores and conditions: what they promise, and their records when
// memory runs out or the platform's object is gone.
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
#include <span>
#include <string>
#include <thread>
#include <utility>

#include "locks/wait_record.h"
#include "platform/error.h"
#include "platform/wait.h"
#include "support/alloc_faults.h"
#include "support/sleepers.h"

namespace
{

using namespace qv::platform;
using qv::test::Sleeper;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// One of the kinds that can be waited for, under one set of names.
struct Kind
{
    const char* name;
    bool staysSignalled;
    std::function<QVRESULT(void**)> create;
    std::function<QVRESULT(void*)> destroy, signal, wait;
    std::function<QVRESULT(void*, uint32_t)> timedWait = nullptr;
    std::function<QVRESULT(void*)> tryWait = nullptr, reset = nullptr;

    void* Make() const
    {
        void* object = nullptr;
        EXPECT_EQ(create(&object), S_OK) << name;
        return object;
    }
    QVRESULT Poll(void* object) const { return tryWait ? tryWait(object) : timedWait(object, 0); }
    QVRESULT NotNow() const { return tryWait ? E_FAIL : QV_E_TIMEOUT; }
};

const char kName[] = "a name for which memory is needed";

template <class Handle> auto New(QVRESULT (*create)(const char*, uint32_t, Handle*), uint32_t flags)
{
    return [=](void** out) { return create(kName, flags, reinterpret_cast<Handle*>(out)); };
}

template <class Handle, class... More> auto On(QVRESULT (*call)(Handle, More...))
{
    return
        [call](void* object, More... more) { return call(static_cast<Handle>(object), more...); };
}

QVRESULT CreateEmptySemaphore(const char* name, uint32_t flags, QVSemaphore* handleOut)
{
    return QVSemaphoreCreate(0, name, flags, handleOut);
}

// What a condition is for.
struct Jobs
{
    QVCondition condition;
    long count;
};

QVRESULT CreateJobs(const char* name, uint32_t flags, Jobs** out)
{
    static Jobs jobs;
    jobs.count = 0;
    const QVRESULT result = QVConditionCreate(name, flags, &jobs.condition);
    *out = jobs.condition != QV_CONDITION_NONE ? &jobs : QV_NO_HANDLE_(Jobs*);
    return result;
}

QVRESULT AddJob(Jobs* jobs)
{
    QVConditionAcquire(jobs->condition);
    ++jobs->count;
    QVConditionSignal(jobs->condition);
    return QVConditionRelease(jobs->condition);
}

QVRESULT TakeJob(Jobs* jobs, uint32_t timeoutMs)
{
    QVConditionAcquire(jobs->condition);
    QVRESULT result = S_OK;
    while (jobs->count == 0 && result == S_OK) {
        result = QVConditionTimedWait(jobs->condition, timeoutMs);
    }
    jobs->count -= result == S_OK ? 1 : 0;
    QVConditionRelease(jobs->condition);
    return result;
}

QVRESULT DestroyJobs(Jobs* jobs)
{
    return QVConditionDestroy(jobs != nullptr ? jobs->condition : nullptr);
}

const Kind kKinds[] = {
    {"auto-reset event", false, New(QVEventCreate, ~QV_EVENT_MANUAL_RESET), On(QVEventDestroy),
     On(QVEventSignal), On(QVEventWait), On(QVEventTimedWait), nullptr, On(QVEventReset)},
    {"manual-reset event", true, New(QVEventCreate, ~1u), On(QVEventDestroy), On(QVEventSignal),
     On(QVEventWait), On(QVEventTimedWait), nullptr, On(QVEventReset)},
    {"gate", true, New(QVGateCreate, ~2u), On(QVGateDestroy), On(QVGateOpen), On(QVGateWait),
     On(QVGateTimedWait), On(QVGateTryWait), On(QVGateClose)},
    {"semaphore", false, New(CreateEmptySemaphore, ~QV_SEMAPHORE_NAMED), On(QVSemaphoreDestroy),
     On(QVSemaphorePost), On(QVSemaphoreWait), nullptr, On(QVSemaphoreTryWait)},
    {"condition", false, New(CreateJobs, ~0u), On(DestroyJobs), On(AddJob),
     [](void* jobs) { return TakeJob(static_cast<Jobs*>(jobs), ~0u); }, On(TakeJob)},
};

TEST(Wait, SignalsStayForThoseWhoComeLater)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const QVRESULT afterOne = kind.staysSignalled ? S_OK : kind.NotNow();
        void* const object = kind.Make();
        EXPECT_EQ(kind.Poll(object), kind.NotNow()) << "not signalled at first";
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.wait(object), S_OK);
        EXPECT_EQ(kind.Poll(object), afterOne);
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.signal(object), S_OK);
        EXPECT_EQ(kind.Poll(object), S_OK);
        EXPECT_EQ(kind.Poll(object), kind.reset ? afterOne : S_OK) << "only posts add up";
        if (kind.reset) {
            kind.signal(object);
            EXPECT_EQ(kind.reset(object), S_OK);
        }
        EXPECT_EQ(kind.Poll(object), kind.NotNow());
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
        void* const object = kind.Make();
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
                EXPECT_EQ(kind.Poll(object), kind.NotNow());
            }
        }
        sleepers.clear();
        EXPECT_EQ(kind.Poll(object), kind.NotNow());
        kind.destroy(object);
    }
}

// Who has passed may destroy the object: the signal's call must be done with it, also if it came
// when a wait's time ran out.
TEST(Wait, ObjectsMayGoOnceTheWaitHasPassed)
{
    for (const Kind& kind : kKinds) {
        for (int round = 0; round < 300; ++round) {
            const uint32_t timeout = round % 2 != 0 ? 1 : ~0u;
            void* const object = kind.Make();
            std::thread waiter([&] {
                while ((kind.timedWait ? kind.timedWait(object, timeout) : kind.wait(object)) < 0) {
                }
                kind.destroy(object);
            });
            std::this_thread::sleep_for(1us * (timeout == 1 ? 900 + round : round % 8));
            kind.signal(object);
            waiter.join();
        }
    }
}

// What frees one at a time serves as a lock; what it guards is not atomic.
TEST(Wait, ExcludesAndOrders)
{
    for (const Kind& kind : kKinds) {
        if (kind.staysSignalled) {
            continue;
        }
        void* const object = kind.Make();
        long counter = 0;
        std::deque<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&] {
                for (int round = 0; round < 10000; ++round) {
                    kind.wait(object);
                    ++counter;
                    kind.signal(object);
                }
            });
        }
        kind.signal(object);
        threads.clear();
        EXPECT_EQ(counter, 40000) << kind.name;
        kind.destroy(object);
    }
}

// A wait that began anew after each of the thread's signals would last as long as these come.
TEST(Wait, TimeOutsHoldUnderSignals)
{
    static int alarms = 0;
    signal(SIGALRM, [](int) { ualarm(++alarms < 1000 ? 5000 : 0, 0); });
    for (const Kind& kind : kKinds) {
        if (!kind.timedWait) {
            continue;
        }
        void* const object = kind.Make();
        ualarm(5000, 0);
        const auto begin = Clock::now();
        errno = 4711;
        EXPECT_EQ(kind.timedWait(object, 60), QV_E_TIMEOUT) << kind.name;
        EXPECT_EQ(errno, 4711);
        EXPECT_GE(Clock::now() - begin, 60ms);
        EXPECT_LT(Clock::now() - begin, 3s);
        kind.destroy(object);
    }
    ualarm(0, 0);
    EXPECT_GT(alarms, 0);
}

TEST(Wait, SemaphoresKeepTheirLimits)
{
    QVSemaphore semaphore = nullptr;
    for (const int32_t count : {-1, INT32_MIN, 32768, INT32_MAX}) {
        EXPECT_EQ(QVSemaphoreCreate(count, "", 0, &semaphore), E_FAIL) << count;
        EXPECT_EQ(semaphore, QV_SEMAPHORE_NONE) << count;
    }
    ASSERT_EQ(QVSemaphoreCreate(32766, nullptr, 0, &semaphore), S_OK);
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

TEST(Wait, CreationSurvivesEveryFailure)
{
    for (const Kind& kind : kKinds) {
        long before = 0;
        void* object = nullptr;
        QVRESULT result = S_OK;
        const long failures = qv::test::SweepAllocations(
            [&] {
                before = qv::test::LiveBlocks();
                result = kind.create(&object);
            },
            [&](long n, bool failed) {
                EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << kind.name << n;
                EXPECT_EQ(object == QV_NO_HANDLE_(void*), failed) << kind.name << n;
                kind.destroy(failed ? nullptr : object);
                EXPECT_EQ(qv::test::LiveBlocks(), before) << kind.name << n;
            });
        EXPECT_GE(failures, 2) << "the record and its name";
    }
}

// The answer of the platform, which has no other failure, comes through.
TEST(Wait, RecordsWithoutAnObjectFailInEveryCall)
{
    using Record = qv::core::WaitRecord;
    static_assert(offsetof(Record, m_handle) == 0);
    static_assert(offsetof(Record, m_name) == sizeof(void*));
    static_assert(offsetof(Record, m_flags) == sizeof(void*) + sizeof(std::string));
    for (const Kind& kind : std::span(kKinds).first(4)) { // the condition has a record of its own
        SCOPED_TRACE(kind.name);
        void* const object = kind.Make();
        auto& record = *static_cast<Record*>(object);
        EXPECT_EQ(record.m_name, kName);
        EXPECT_EQ(record.m_flags >> 2, ~0u >> 2);
        CloseHandle(std::exchange(record.m_handle, nullptr));
        EXPECT_EQ(kind.signal(object), E_HANDLE);
        EXPECT_EQ(kind.wait(object), E_HANDLE);
        EXPECT_EQ(kind.Poll(object), E_HANDLE);
        EXPECT_EQ(kind.timedWait ? kind.timedWait(object, 1) : E_HANDLE, E_HANDLE);
        EXPECT_EQ(kind.reset ? kind.reset(object) : E_HANDLE, E_HANDLE);
        EXPECT_EQ(kind.destroy(object), S_OK);
    }
}

TEST(Wait, PlatformTellsWhatIsNoObjectOrOfAnotherKind)
{
    const HANDLE event = CreateEventA(nullptr, kFalse, kTrue, nullptr);
    const HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 5, nullptr);
    const auto expectRefused = [](BOOL answer, DWORD error) {
        EXPECT_EQ(answer, kFalse);
        EXPECT_EQ(GetLastError(), error);
        SetLastError(0);
    };
    for (const HANDLE pseudo : {GetCurrentProcess(), GetCurrentThread()}) {
        expectRefused(SetEvent(pseudo), ERROR_INVALID_HANDLE);
        expectRefused(ReleaseSemaphore(pseudo, 1, nullptr), ERROR_INVALID_HANDLE);
        EXPECT_EQ(WaitForSingleObject(pseudo, 5), WAIT_TIMEOUT);
        EXPECT_EQ(CloseHandle(pseudo), kTrue);
    }
    expectRefused(ResetEvent(semaphore), ERROR_INVALID_HANDLE);
    expectRefused(ReleaseSemaphore(event, 1, nullptr), ERROR_INVALID_HANDLE);
    expectRefused(CloseHandle(nullptr), ERROR_INVALID_HANDLE);
    expectRefused(ReleaseSemaphore(semaphore, 0, nullptr), ERROR_INVALID_PARAMETER);
    expectRefused(ReleaseSemaphore(semaphore, 6, nullptr), ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(ReleaseSemaphore(semaphore, 5, nullptr), kTrue);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0) << "signalled from the start";
    CloseHandle(event);
    CloseHandle(semaphore);
}

TEST(Condition, SignalsFreeThoseWhoWaitInOrderAndAreLostWithoutThem)
{
    QVCondition condition = nullptr;
    ASSERT_EQ(QVConditionCreate(nullptr, 0, &condition), S_OK);
    EXPECT_EQ(QVConditionSignal(condition), S_OK);
    EXPECT_EQ(QVConditionBroadcast(condition), S_OK);
    std::deque<Sleeper> sleepers;
    for (int count = 0; count < 6; ++count) {
        sleepers.emplace_back([condition] {
            QVConditionAcquire(condition);
            EXPECT_EQ(QVConditionWait(condition), S_OK);
            QVConditionRelease(condition);
        });
        sleepers.back().AwaitAsleep();
    }
    for (std::size_t next = 0; next < 3; ++next) {
        EXPECT_EQ(QVConditionSignal(condition), S_OK);
        sleepers[next].AwaitDone();
        EXPECT_FALSE(sleepers[next + 1].IsDone());
    }
    EXPECT_EQ(QVConditionBroadcast(condition), S_OK);
    sleepers.clear();
    QVConditionDestroy(condition);
}

// The wait gives up all levels, so that another thread gets in, and returns with all of them.
TEST(Condition, WaitRestoresTheDepthOfTheLock)
{
    QVCondition condition = nullptr;
    ASSERT_EQ(QVConditionCreate(nullptr, 0, &condition), S_OK);
    QVConditionAcquire(condition);
    QVConditionAcquire(condition);
    const auto signal = [condition] {
        QVConditionAcquire(condition);
        QVConditionSignal(condition);
        QVConditionRelease(condition);
    };
    const Sleeper other(signal);
    EXPECT_EQ(QVConditionWait(condition), S_OK);
    const Sleeper next(signal);
    for (int level = 0; level < 2; ++level) {
        next.AwaitAsleep();
        EXPECT_FALSE(next.IsDone()) << "still held at level " << level;
        EXPECT_EQ(QVConditionRelease(condition), S_OK);
    }
    next.AwaitDone();
    QVConditionDestroy(condition);
}

} // namespace
