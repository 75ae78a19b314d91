#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/thread.h>

#include <pthread.h>
#include <sys/syscall.h>

#include <atomic>
#include <functional>
#include <malloc.h>
#include <semaphore>
#include <stdexcept>

#include "support/child_process.h"
#include "support/sleepers.h"

using qv::test::Becomes;
using qv::test::Sleeper;

namespace
{

using Body = std::function<uint32_t()>;

// The body must live as long as the thread.
QVThread Start(Body& body, uint32_t stackSize = 0, uint32_t reserved = 0)
{
    const auto run = [](void* argument) { return (*static_cast<Body*>(argument))(); };
    QVThread thread = 9;
    uint32_t id = 8;
    EXPECT_EQ(QVThreadCreate(run, &body, reserved, stackSize, &thread, &id), S_OK);
    EXPECT_EQ(thread, id);
    return thread;
}

void ExpectJoin(QVThread thread, QVRESULT expected, uint32_t expectedCode = 0)
{
    uint32_t exitCode = 1;
    EXPECT_EQ(QVThreadJoin(thread, &exitCode), expected);
    EXPECT_EQ(exitCode, expectedCode);
}

void ExpectGone(QVThread thread)
{
    ExpectJoin(thread, E_HANDLE);
    EXPECT_EQ(QVThreadDetach(thread), E_HANDLE);
    EXPECT_EQ(QVThreadIsFinished(thread), 1);
}

// A thread that stays until it is let go.
struct Held
{
    std::binary_semaphore barrier{0};
    Body body = [this] {
        barrier.acquire();
        return 8u;
    };
    QVThread id = Start(body);
};

TEST(Thread, KnowsItsIdAndGivesItsExitCode)
{
    const struct
    {
        uint32_t stackSize, reserved, exitCode;
    } rows[] = {{0, 0, 0}, {1, 1, 7}, {(1u << 20) + 1, ~0u, ~0u}, {1u << 28, 0, 259}};
    for (const auto& row : rows) {
        std::pair<QVThread, long> ids;
        Body body = [&] {
            [[maybe_unused]] volatile char stack[1 << 17]; // whatever small size was asked for
            stack[0] = 1;
            ids = {QVThreadGetID(), syscall(SYS_gettid)};
            return row.exitCode;
        };
        const QVThread thread = Start(body, row.stackSize, row.reserved);
        ExpectJoin(thread, S_OK, row.exitCode);
        EXPECT_EQ(ids, std::pair(thread, static_cast<long>(thread)));
        ExpectGone(thread);
    }
    ExpectGone(QV_THREAD_NONE);
    EXPECT_EQ(QVThreadJoin(0, nullptr), E_HANDLE);
    EXPECT_EQ(QVThreadGetHandle(), -2);
    EXPECT_EQ(QVThreadYield(), S_OK);
}

TEST(Thread, IsFinishedWhenItHasEndedAndIsGivenUp)
{
    Held detached;
    EXPECT_EQ(QVThreadIsFinished(detached.id), 0);
    EXPECT_EQ(QVThreadDetach(detached.id), S_OK);
    EXPECT_EQ(QVThreadIsFinished(detached.id), 0) << "it runs";
    EXPECT_EQ(QVThreadDetach(detached.id), E_HANDLE);
    ExpectJoin(detached.id, E_HANDLE); // at once
    detached.barrier.release();
    EXPECT_TRUE(Becomes([&] { return QVThreadIsFinished(detached.id) == 1; }));
    ExpectGone(detached.id);
}

TEST(Thread, RefusesToJoinTheFirstThreadAndTheCaller)
{
    const auto first = static_cast<QVThread>(getpid());
    Body body = [=] {
        ExpectJoin(QVThreadGetID(), QVThreadGetID() == first ? E_NOTIMPL : E_FAIL);
        EXPECT_EQ(QVThreadDetach(first), S_OK);
        ExpectJoin(first, E_NOTIMPL);
        EXPECT_EQ(QVThreadIsFinished(first), 0);
        return 6u;
    };
    body();
    ExpectJoin(Start(body), S_OK, 6);
    std::jthread([] { ExpectGone(QVThreadGetID()); }); // no thread of the library's
}

// Joins and a detach of one thread at the same time: one of them wins, all joins see the end.
TEST(Thread, IsGivenUpOnce)
{
    for (int round = 0; round < 300; ++round) {
        Held thread;
        const bool detaches = round % 3 == 0;
        std::atomic<int> won{0}, lost{0};
        const auto join = [&] {
            uint32_t exitCode = 1;
            const QVRESULT result = QVThreadJoin(thread.id, &exitCode);
            won += result == S_OK && exitCode == 8;
            lost += result == E_HANDLE && exitCode == 0;
        };
        {
            const Sleeper first(join);
            const Sleeper second(join);
            if (round % 2 == 0) {
                first.AwaitAsleep();
            }
            if (detaches) {
                EXPECT_EQ(QVThreadDetach(thread.id), S_OK);
            }
            thread.barrier.release();
        }
        EXPECT_EQ(won, detaches ? 0 : 1);
        EXPECT_EQ(lost, detaches ? 2 : 1);
        EXPECT_TRUE(Becomes([&] { return QVThreadIsFinished(thread.id) == 1; }));
    }
}

TEST(Thread, EndsByThePlatformsCallAndIsJoined)
{
    Body exits = []() -> uint32_t { pthread_exit(reinterpret_cast<void*>(uintptr_t{77})); };
    const QVThread thread = Start(exits);
    EXPECT_TRUE(Becomes([=] { return syscall(SYS_tgkill, getpid(), thread, 0) != 0; }));
    ExpectJoin(thread, S_OK, 77);
    ExpectJoin(thread, E_HANDLE);
    EXPECT_EQ(QVThreadDetach(thread), E_HANDLE);
    EXPECT_EQ(QVThreadIsFinished(thread), 0) << "its entry function never returned";
}

#ifndef __SANITIZE_THREAD__ // which loses track of a join that is cancelled
TEST(Thread, IsJoinedByTheNextWhenAJoinIsCancelled)
{
    Held thread;
    std::atomic<pthread_t> joining{};
    const Sleeper cancelled([&] {
        joining = pthread_self();
        QVThreadJoin(thread.id, nullptr);
    });
    cancelled.AwaitAsleep();
    const Sleeper next([&] { ExpectJoin(thread.id, S_OK, 8); });
    next.AwaitAsleep();
    pthread_cancel(joining);
    EXPECT_EQ(QVThreadIsFinished(thread.id), 0);
    thread.barrier.release();
    next.AwaitDone();
    ExpectGone(thread.id);
}
#endif

TEST(ThreadDeathTest, AnExceptionEndsTheProcessWithItsMessage)
{
    const auto die = [] {
        Body throws = []() -> uint32_t { throw std::runtime_error("the pump failed"); };
        QVThreadJoin(Start(throws), nullptr);
    };
    EXPECT_DEATH(die(), "the pump failed");
}

TEST(Thread, ThousandsLeaveNothingBehind)
{
    Body returns = [] { return 1u; };
    const auto run = [&](int count) {
        for (int round = 0; round < count; ++round) {
            ExpectJoin(Start(returns), S_OK, 1);
            const QVThread thread = Start(returns);
            EXPECT_EQ(QVThreadDetach(thread), S_OK); // perhaps while it runs
            EXPECT_TRUE(Becomes([&] { return QVThreadIsFinished(thread) == 1; }));
        }
    };
    run(200);
    const auto descriptors = qv::test::CountDescriptors();
    const std::size_t heap = mallinfo2().uordblks + mallinfo2().hblkhd;
    run(2000);
    EXPECT_EQ(qv::test::CountDescriptors(), descriptors);
    EXPECT_LE(mallinfo2().uordblks + mallinfo2().hblkhd, heap + 16384);
}

TEST(Thread, AForkedChildHasOneThreadWhichIsItsFirst)
{
    Held other;
    Body forks = [&]() -> uint32_t {
        const QVThread before = QVThreadGetID();
        qv::test::Child child([&] {
            const QVThread self = QVThreadGetID();
            return self == static_cast<QVThread>(getpid()) && self != before &&
                   QVThreadJoin(self, nullptr) == E_NOTIMPL && QVThreadIsFinished(other.id) == 1 &&
                   QVThreadJoin(other.id, nullptr) == E_HANDLE &&
                   QVThreadDetach(before) == E_HANDLE;
        });
        return child.Succeeded() && QVThreadGetID() == before ? 42 : 1;
    };
    ExpectJoin(Start(forks), S_OK, 42);
    other.barrier.release();
    ExpectJoin(other.id, S_OK, 8);
}

TEST(Thread, SleepsItsTimeThroughSignals)
{
    signal(SIGUSR1, [](int) {});
    std::atomic<bool> isOver{false};
    const std::jthread signals([&, sleeper = pthread_self()] {
        while (!isOver) {
            pthread_kill(sleeper, SIGUSR1);
            QVSleep(1);
        }
    });
    const auto begin = std::chrono::steady_clock::now();
    QVSleep(40);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(40));
    isOver = true;
}

TEST(Thread, SetsTheProcessorsOfTheCallerAlone)
{
    std::jthread([] {
        cpu_set_t set;
        sched_getaffinity(0, sizeof set, &set);
        const uint32_t lowest = 1u << (__builtin_ctzl(set.__bits[0]) % 32);
        uint32_t all = 0;
        ASSERT_EQ(QVGetSetCpuAffinity(&all, &lowest), S_OK);
        sched_getaffinity(0, sizeof set, &set);
        EXPECT_EQ(static_cast<uint32_t>(set.__bits[0] | set.__bits[0] >> 32), lowest);
        for (const uint32_t refused : {0u, all != ~0u ? ~0u : 0u}) {
            uint32_t previous = 1;
            EXPECT_EQ(QVGetSetCpuAffinity(&previous, &refused), E_FAIL);
            EXPECT_EQ(previous, 0u);
        }
        uint32_t inOut = all;
        EXPECT_EQ(QVGetSetCpuAffinity(&inOut, &inOut), S_OK);
        EXPECT_EQ(inOut, lowest) << "the failures changed nothing";
        EXPECT_EQ(QVSetCpuAffinity(&lowest), S_OK);
    });
}

} // namespace
