#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <qvcore6/thread.h>

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <malloc.h>
#include <stdexcept>
#include <thread>

namespace
{

using Body = std::function<uint32_t()>;

uint32_t RunBody(void* body)
{
    return (*static_cast<Body*>(body))();
}

// The body must live as long as the thread.
QVThread Start(Body& body)
{
    QVThread thread = QV_THREAD_NONE;
    uint32_t id = 0;
    EXPECT_EQ(QVThreadCreate(RunBody, &body, 0, 0, &thread, &id), S_OK);
    EXPECT_EQ(thread, id);
    return thread;
}

void ExpectExitCode(QVThread thread, uint32_t expected)
{
    uint32_t exitCode = 1;
    EXPECT_EQ(QVThreadJoin(thread, &exitCode), S_OK);
    EXPECT_EQ(exitCode, expected);
}

void ExpectGone(QVThread thread)
{
    uint32_t exitCode = 1;
    EXPECT_EQ(QVThreadJoin(thread, &exitCode), E_HANDLE);
    EXPECT_EQ(exitCode, 0u);
    EXPECT_EQ(QVThreadJoin(thread, nullptr), E_HANDLE);
    EXPECT_EQ(QVThreadDetach(thread), E_HANDLE);
    EXPECT_EQ(QVThreadIsFinished(thread), 1);
}

bool Becomes(const std::function<bool()>& state)
{
    for (int attempt = 0; attempt < 20000 && !state(); ++attempt) {
        QVSleep(attempt < 1000 ? 0 : 1);
    }
    return state();
}

// Whether the system still has the thread.
bool Exists(QVThread thread)
{
    return syscall(SYS_tgkill, getpid(), thread, 0) == 0;
}

// Holds threads until it is opened.
class Barrier
{
public:
    Barrier() { QVSemaphoreCreate(0, nullptr, 0, &m_semaphore); }
    ~Barrier() { QVSemaphoreDestroy(m_semaphore); }
    Barrier(const Barrier&) = delete;
    Barrier& operator=(const Barrier&) = delete;
    void Pass() { QVSemaphoreWait(m_semaphore); }
    void Open() { QVSemaphorePost(m_semaphore); }

private:
    QVSemaphore m_semaphore = QV_SEMAPHORE_NONE;
};

TEST(Thread, KnowsItsIdAndGivesItsExitCode)
{
    struct Row
    {
        uint32_t stackSize, reserved, exitCode;
    };
    const Row rows[] = {
        {0, 0, 0}, {1, 1, 7}, {4096, 0, 259}, {(1u << 20) + 1, ~0u, ~0u}, {1u << 28, 0, 5}};
    for (const Row& row : rows) {
        uint32_t id = 9;
        QVThread seen[3] = {};
        Body body = [&] {
            volatile char stack[1 << 17]; // whatever small size was asked for
            stack[0] = 1;
            stack[sizeof stack - 1] = 1;
            seen[0] = QVThreadGetID();
            seen[1] = id;
            seen[2] = static_cast<QVThread>(syscall(SYS_gettid));
            return row.exitCode;
        };
        QVThread thread = 9;
        ASSERT_EQ(QVThreadCreate(RunBody, &body, row.reserved, row.stackSize, &thread, &id), S_OK);
        EXPECT_EQ(thread, id);
        ExpectExitCode(thread, row.exitCode);
        for (const QVThread value : seen) {
            EXPECT_EQ(value, id);
        }
        EXPECT_TRUE(Becomes([&] { return !Exists(thread); }));
        ExpectGone(thread);
    }
    EXPECT_EQ(QVThreadGetHandle(), -2);
    EXPECT_EQ(QVThreadYield(), S_OK);
    for (const QVThread never : {0u, 1u, QV_THREAD_NONE}) {
        ExpectGone(never);
    }
}

TEST(Thread, IsFinishedWhenItHasEndedAndIsGivenUp)
{
    Barrier barrier;
    Body waits = [&] {
        barrier.Pass();
        return 3u;
    };
    const QVThread detached = Start(waits);
    EXPECT_EQ(QVThreadIsFinished(detached), 0);
    EXPECT_EQ(QVThreadDetach(detached), S_OK);
    EXPECT_EQ(QVThreadIsFinished(detached), 0) << "it runs";
    EXPECT_EQ(QVThreadDetach(detached), E_HANDLE);
    EXPECT_EQ(QVThreadJoin(detached, nullptr), E_HANDLE) << "at once";
    barrier.Open();
    EXPECT_TRUE(Becomes([&] { return QVThreadIsFinished(detached) == 1; }));
    ExpectGone(detached);

    for (const bool joins : {true, false}) {
        Body returns = [] { return 4u; };
        const QVThread ended = Start(returns);
        EXPECT_TRUE(Becomes([&] { return !Exists(ended); }));
        EXPECT_EQ(QVThreadIsFinished(ended), 0) << "nobody has given it up";
        if (joins) {
            ExpectExitCode(ended, 4);
        } else {
            EXPECT_EQ(QVThreadDetach(ended), S_OK);
        }
        ExpectGone(ended);
    }
}

TEST(Thread, RefusesToJoinTheFirstThreadAndTheCaller)
{
    const QVThread first = QVThreadGetID();
    EXPECT_EQ(first, static_cast<QVThread>(getpid()));
    const auto expectRefusals = [first] {
        for (int round = 0; round < 2; ++round) {
            uint32_t exitCode = 1;
            EXPECT_EQ(QVThreadJoin(first, &exitCode), E_NOTIMPL);
            EXPECT_EQ(exitCode, 0u);
            EXPECT_EQ(QVThreadDetach(first), S_OK);
            EXPECT_EQ(QVThreadIsFinished(first), 0);
        }
    };
    expectRefusals();
    Body body = [&] {
        expectRefusals();
        uint32_t exitCode = 1;
        EXPECT_EQ(QVThreadJoin(QVThreadGetID(), &exitCode), E_FAIL);
        EXPECT_EQ(exitCode, 0u);
        return 6u;
    };
    ExpectExitCode(Start(body), 6);
    std::jthread([] { // no thread of the library's
        ExpectGone(QVThreadGetID());
    });
}

// Joins and a detach of one thread at the same time: one of them wins, all joins see the end.
TEST(Thread, IsGivenUpOnce)
{
    for (int round = 0; round < 300; ++round) {
        Barrier barrier;
        const bool detaches = round % 3 == 0;
        Body waits = [&] {
            barrier.Pass();
            return 8u;
        };
        const QVThread thread = Start(waits);
        std::atomic<int> won{0};
        std::atomic<int> codes{0};
        std::atomic<int> lost{0};
        const auto join = [&] {
            uint32_t exitCode = 1;
            const QVRESULT result = QVThreadJoin(thread, &exitCode);
            won += result == S_OK;
            lost += result == E_HANDLE && exitCode == 0;
            codes += result == S_OK && exitCode == 8;
        };
        {
            std::jthread first(join);
            std::jthread second(join);
            if (round % 2 == 0) {
                QVSleep(1); // they wait
            }
            if (detaches) {
                const QVRESULT result = QVThreadDetach(thread);
                EXPECT_EQ(result, S_OK);
                won += result == S_OK;
            }
            barrier.Open();
        }
        EXPECT_EQ(won, 1);
        EXPECT_EQ(codes, detaches ? 0 : 1);
        EXPECT_EQ(lost, detaches ? 2 : 1);
        EXPECT_TRUE(Becomes([&] { return QVThreadIsFinished(thread) == 1; }));
    }
}

TEST(Thread, EndsByThePlatformsCallsAndIsJoined)
{
    Body exits = []() -> uint32_t { pthread_exit(reinterpret_cast<void*>(uintptr_t{77})); };
    const QVThread exited = Start(exits);
    EXPECT_TRUE(Becomes([&] { return !Exists(exited); }));
    ExpectExitCode(exited, 77);
    std::atomic<pthread_t> self{};
    Body sleeps = [&] {
        self = pthread_self();
        QVSleep(0xFFFFFFFF);
        return 1u;
    };
    const QVThread cancelled = Start(sleeps);
    EXPECT_TRUE(Becomes([&] { return self != pthread_t{}; }));
    pthread_cancel(self);
    ExpectExitCode(cancelled, 0xFFFFFFFF);
    for (const QVThread thread : {exited, cancelled}) {
        EXPECT_EQ(QVThreadJoin(thread, nullptr), E_HANDLE);
        EXPECT_EQ(QVThreadDetach(thread), E_HANDLE);
        EXPECT_EQ(QVThreadIsFinished(thread), 0) << "its entry function never returned";
    }
}

#ifndef __SANITIZE_THREAD__ // which loses track of a join that is cancelled
TEST(Thread, CanBeJoinedAfterAJoinThatWasCancelled)
{
    Barrier barrier;
    Body waits = [&] {
        barrier.Pass();
        return 2u;
    };
    const QVThread thread = Start(waits);
    std::atomic<bool> begins{false};
    std::thread joiner([&] {
        begins = true;
        QVThreadJoin(thread, nullptr);
    });
    EXPECT_TRUE(Becomes([&] { return begins.load(); }));
    QVSleep(5);
    pthread_cancel(joiner.native_handle());
    joiner.join();
    EXPECT_EQ(QVThreadIsFinished(thread), 0);
    barrier.Open();
    ExpectExitCode(thread, 2);
    ExpectGone(thread);
}

#endif

using ThreadDeathTest = testing::Test;

TEST(ThreadDeathTest, AnExceptionEndsTheProcessWithItsMessage)
{
    const auto die = [] {
        Body throws = []() -> uint32_t { throw std::runtime_error("the pump failed"); };
        QVThreadJoin(Start(throws), nullptr);
    };
    EXPECT_DEATH(die(), "the pump failed");
}

long Descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Thread, ThousandsLeaveNothingBehind)
{
    Body returns = [] { return 1u; };
    // 1: joined. 2: detached, perhaps while it runs.
    const auto run = [&](int count) {
        for (int round = 0; round < count; ++round) {
            ExpectExitCode(Start(returns), 1);
            const QVThread thread = Start(returns);
            EXPECT_EQ(QVThreadDetach(thread), S_OK);
            EXPECT_TRUE(Becomes([&] { return QVThreadIsFinished(thread) == 1; }));
        }
        EXPECT_TRUE(Becomes([] { // this thread, and what a sanitizer may have
            return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}) <= 2;
        }));
    };
    run(200);
    const long descriptors = Descriptors();
    const std::size_t heap = mallinfo2().uordblks + mallinfo2().hblkhd;
    run(5000);
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_LE(mallinfo2().uordblks + mallinfo2().hblkhd, heap + 16384);
}

TEST(Thread, AForkedChildHasOneThreadWhichIsItsFirst)
{
    Barrier barrier;
    Body waits = [&] {
        barrier.Pass();
        return 9u;
    };
    const QVThread other = Start(waits);
    Body forks = [&]() -> uint32_t {
        const QVThread before = QVThreadGetID();
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            const QVThread self = QVThreadGetID();
            bool isRight = self == static_cast<QVThread>(getpid()) && self != before &&
                           QVThreadJoin(self, nullptr) == E_NOTIMPL &&
                           QVThreadIsFinished(self) == 0 && QVThreadIsFinished(other) == 1 &&
                           QVThreadJoin(other, nullptr) == E_HANDLE &&
                           QVThreadDetach(before) == E_HANDLE;
#ifndef __SANITIZE_THREAD__ // which allows no threads in a child of several
            Body returns = [] { return 5u; };
            uint32_t exitCode = 0;
            isRight = isRight && QVThreadJoin(Start(returns), &exitCode) == S_OK && exitCode == 5;
#endif
            _exit(isRight ? 42 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(QVThreadGetID(), before);
        return static_cast<uint32_t>(WEXITSTATUS(status));
    };
    ExpectExitCode(Start(forks), 42);
    barrier.Open();
    ExpectExitCode(other, 9);
}

TEST(Thread, SleepsItsTimeThroughSignals)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    std::atomic<bool> isOver{false};
    const pthread_t sleeper = pthread_self();
    std::jthread signals([&] {
        while (!isOver) {
            pthread_kill(sleeper, SIGUSR1);
            QVSleep(1);
        }
    });
    for (const uint32_t milliseconds : {0u, 1u, 40u}) {
        const auto begin = std::chrono::steady_clock::now();
        errno = 77;
        QVSleep(milliseconds);
        EXPECT_EQ(errno, 77);
        EXPECT_GE(std::chrono::steady_clock::now() - begin,
                  std::chrono::milliseconds(milliseconds));
    }
    isOver = true;
}

TEST(Thread, SetsTheProcessorsOfTheCallerAlone)
{
    const auto run = [] {
        uint32_t all = 0;
        const uint32_t none = 0;
        EXPECT_EQ(QVGetSetCpuAffinity(&all, &none), E_FAIL);
        EXPECT_EQ(all, 0u);
        cpu_set_t set;
        sched_getaffinity(0, sizeof set, &set);
        const uint32_t lowest = 1u << (__builtin_ctzl(set.__bits[0]) % 32);
        ASSERT_EQ(QVGetSetCpuAffinity(&all, &lowest), S_OK);
        EXPECT_EQ(all & lowest, lowest);
        sched_getaffinity(0, sizeof set, &set);
        EXPECT_GE(CPU_COUNT(&set), 1);
        if (const uint32_t foreign = ~all; foreign != 0) {
            const uint32_t withForeign = all | (foreign & -foreign);
            for (const uint32_t mask : {withForeign, foreign}) {
                uint32_t previous = 1;
                EXPECT_EQ(QVSetCpuAffinity(&mask), E_FAIL);
                EXPECT_EQ(QVGetSetCpuAffinity(&previous, &mask), E_FAIL);
                EXPECT_EQ(previous, 0u);
            }
        }
        uint32_t inOut = all;
        EXPECT_EQ(QVGetSetCpuAffinity(&inOut, &inOut), S_OK);
        EXPECT_EQ(inOut, lowest) << "the failures changed nothing";
    };
    run();
    cpu_set_t before;
    cpu_set_t after;
    sched_getaffinity(0, sizeof before, &before);
    std::jthread(run).join();
    sched_getaffinity(0, sizeof after, &after);
    EXPECT_TRUE(CPU_EQUAL(&before, &after));
}

} // namespace
