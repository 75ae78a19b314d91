#include "locks/checked_mutex.h"

#include <qvcore6/diagnostics.h>
#include <sys/wait.h>
#include <unistd.h>

#include <limits>

#include "lock_stats_test.h"
#include "platform/clock.h"
#include "platform/thread.h"

using namespace qv::platform;
using namespace qv::test;

namespace qv::test
{

Clock g_clock;
std::vector<std::u16string> g_alerts;

} // namespace qv::test

extern "C"
{
    decltype(QueryPerformanceCounter) __real_QueryPerformanceCounter;

    BOOL __wrap_QueryPerformanceCounter(std::int64_t* count)
    {
        if (!g_clock.isByHand) {
            return __real_QueryPerformanceCounter(count);
        }
        ++g_clock.looks;
        *count = g_clock.now;
        return g_clock.fails ? 0 : 1;
    }

    BOOL __wrap_QueryPerformanceFrequency(std::int64_t* frequency)
    {
        *frequency = 10'000'000;
        return g_clock.fails ? 0 : 1;
    }

    DWORD __wrap_GetTickCount()
    {
        return g_clock.tick;
    }

    void __wrap_QVErrorAlert(std::uint32_t method, const QVWChar* title, const QVWChar* format, ...)
    {
        EXPECT_EQ(method, 0u);
        EXPECT_EQ(std::u16string(title), u"QVCore Critical Error");
        g_alerts.emplace_back(format);
    }
}

namespace
{

constexpr std::uint32_t kStrict = QV_MUTEX_CHECKED | QV_MUTEX_NON_RECURSIVE;

using Numbers = std::vector<std::int64_t>;

// Its fields, to put them where no call can bring them.
struct Fields : CQVCoreMutexChecked
{
    explicit Fields(std::uint32_t flags) : CQVCoreMutexChecked("fields", flags) {}
    using CQVCoreMutexChecked::m_lockDepth;
    using CQVCoreMutexChecked::m_owner;
    using CQVCoreMutexChecked::s_counterFrequency;
};

TEST_F(LockStats, FailedChecksAlertAndChangeNothing)
{
    const std::u16string acquire = u"CQVCoreMutexChecked::preAcquire m_owner check failed";
    const std::u16string owner = u"CQVCoreMutexChecked::preRelease m_owner check failed";
    Fields mutex(kStrict | QV_MUTEX_STATS);
    EXPECT_EQ(mutex.Release(), E_FAIL) << "never held";
    EXPECT_EQ(mutex.Acquire(), S_OK);
    EXPECT_EQ(mutex.Acquire(), E_FAIL);
    EXPECT_EQ(mutex.TryAcquire(), E_FAIL);
    EXPECT_EQ(mutex.m_lockDepth, 1);
    EXPECT_EQ(InAnotherThread([&] { return mutex.Release(); }), E_FAIL);
    EXPECT_EQ(InAnotherThread([&] { return mutex.TryAcquire(); }), E_FAIL) << "held, no alert";
    EXPECT_EQ(g_alerts, (std::vector<std::u16string>{owner, acquire, acquire, owner}));

    g_alerts.clear();
    mutex.m_lockDepth = 0;
    EXPECT_EQ(mutex.Release(), E_FAIL);
    mutex.m_lockDepth = 2;
    EXPECT_EQ(mutex.Release(), E_FAIL);
    mutex.m_lockDepth = 1;
    EXPECT_EQ(g_alerts,
              (std::vector<std::u16string>{
                  u"CQVCoreMutexChecked::preRelease m_lockDepth check failed",
                  u"CQVCoreMutexChecked::preRelease m_lockDepth non recursive check failed "}));
    QVLockStats stats;
    mutex.GetStats(&stats);
    EXPECT_EQ(stats.acquireCount, 1);
    EXPECT_EQ(stats.heldCount, 0);
    EXPECT_EQ(mutex.Release(), S_OK);
    EXPECT_EQ(mutex.m_owner, 0u);
    EXPECT_EQ(InAnotherThread([&] { return mutex.Acquire(); }), S_OK);
    mutex.m_owner = GetCurrentThreadId();
    EXPECT_EQ(mutex.Release(), E_FAIL) << "got the id of a thread that ended as the holder";
}

TEST_F(LockStats, FlagsChooseChecksAndCountsApart)
{
    const struct
    {
        std::uint32_t flags;
        bool checks, counts, recursive;
    } rows[] = {
        {QV_MUTEX_CHECKED, true, false, true},
        {kStrict, true, false, false},
        {QV_MUTEX_STATS, false, true, true},
        {QV_MUTEX_STATS | QV_MUTEX_NON_RECURSIVE, false, true, true},
        {QV_MUTEX_STATS | QV_MUTEX_CHECKED, true, true, true},
        {QV_MUTEX_STATS | QV_MUTEX_CHECKED | QV_MUTEX_UNTRACKED, true, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        const QVMutex mutex = Make(row.flags);
        const auto asserted = [&](std::int16_t expected) {
            return QVMutexAssertOwnership(mutex, expected);
        };
        g_clock.looks = 0;
        EXPECT_EQ(asserted(1), row.checks ? 0 : 1);
        EXPECT_EQ(asserted(0), 1);
        EXPECT_EQ(QVMutexTryAcquire(mutex), S_OK);
        EXPECT_EQ(asserted(1), 1);
        EXPECT_EQ(asserted(-3), row.checks ? -3 : 1);
        EXPECT_EQ(asserted(0), row.checks ? 0 : 1);
        EXPECT_EQ(InAnotherThread([&] { return asserted(0); }), 1);
        EXPECT_EQ(InAnotherThread([&] { return asserted(1); }), row.checks ? 0 : 1);
        EXPECT_EQ(QVMutexAcquire(mutex), row.recursive ? S_OK : E_FAIL);
        EXPECT_EQ(QVMutexRelease(mutex), S_OK);
        if (row.recursive) {
            EXPECT_EQ(InAnotherThread([&] { return QVMutexTryAcquire(mutex); }), E_FAIL);
            EXPECT_EQ(QVMutexRelease(mutex), S_OK);
        }
        EXPECT_EQ(g_clock.looks, row.counts ? 3 : 0) << "try, nested acquire, outer release";
        EXPECT_EQ(NumbersOf(mutex)[2], row.counts ? 2 : 0);
        QVMutexDestroy(mutex);
    }
}

TEST_F(LockStats, TimesAndCounts)
{
    Fields mutex(QV_MUTEX_STATS);
    const auto at = [&](std::int64_t ticks) -> Fields& {
        g_clock.now = ticks;
        return mutex;
    };
    const auto numbers = [&] { return NumbersOf(reinterpret_cast<QVMutex>(&mutex)); };
    at(0).Acquire(); // a start of 0 counts as no time taken
    EXPECT_EQ(g_clock.looks, 2);
    at(5).Acquire();
    at(6).TryAcquire();
    at(7).Release();
    at(8).Release();
    EXPECT_EQ(g_clock.looks, 3) << "deeper levels do not look, but for the acquire's start";
    at(109).Release();
    EXPECT_EQ(numbers(), (Numbers{0, 0, 3, 10, 10, 3, 0}));
    at(200).TryAcquire();
    at(219).Release();
    EXPECT_EQ(numbers(), (Numbers{0, 0, 4, 10, 12, 4, 0})) << "ticks are added, then converted";

    // Somebody else has it until 1000, and gives it back after a second one waits.
    at(300).Acquire();
    std::thread waiter([&] {
        mutex.Acquire();
        mutex.Release();
    });
    const auto& entries = static_cast<CRITICAL_SECTION*>(mutex.GetOSMutex())->debug.ContentionCount;
    while (entries.load() == 0) {
        std::this_thread::yield();
    }
    at(1000).Release();
    waiter.join();
    EXPECT_EQ(numbers(), (Numbers{70, 70, 6, 70, 82, 6, 1}));

    at(2000).Acquire();
    mutex.ResetStats();
    EXPECT_EQ(numbers(), (Numbers{0, 0, 0, 0, 0, 0, 0}));
    at(2500).Release();
    EXPECT_EQ(numbers(), (Numbers{0, 0, 0, 50, 50, 1, 0})) << "the hold began before the reset";
}

// Ten days and more, a clock that goes back, and one that jumps from end to end.
TEST_F(LockStats, TimesOfAnyLength)
{
    constexpr std::int64_t kYear = std::int64_t{365} * 24 * 3600 * 10'000'000;
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    const struct
    {
        std::int64_t begin, end, longest, total;
    } rows[] = {
        {1, 100 * kYear + 10, 10 * kYear, 10 * kYear},
        {1000, 900, 0, -10},
        {kMin, kMax, 0, 0},
        {-5, kMax - 5, kMax / 10, kMax / 10},
        {5, kMin + 5, 0, kMin / 10},
    };
    for (const auto& row : rows) {
        const QVMutex mutex = Make(QV_MUTEX_STATS);
        g_clock.now = row.begin;
        QVMutexTryAcquire(mutex);
        g_clock.now = row.end;
        QVMutexRelease(mutex);
        EXPECT_EQ(NumbersOf(mutex), (Numbers{0, 0, 1, row.longest, row.total, 1, 0})) << row.begin;
        QVMutexDestroy(mutex);
    }
}

TEST_F(LockStats, WithoutTheCounterMillisecondsStandInForIt)
{
    g_clock.fails = true;
    Fields::s_counterFrequency = 0;
    Fields mutex(QV_MUTEX_STATS);
    EXPECT_EQ(Fields::s_counterFrequency, 1000);
    g_clock.tick = 0xFFFFFFF0;
    mutex.Acquire();
    g_clock.tick = 0xFFFFFFFF;
    mutex.Release();
    EXPECT_EQ(NumbersOf(reinterpret_cast<QVMutex>(&mutex)), (Numbers{0, 0, 1, 15000, 15000, 1, 0}));
    g_clock.fails = false;
    Fields::s_counterFrequency = 0;
    const Fields again(0);
    EXPECT_EQ(Fields::s_counterFrequency, 10'000'000);
}

TEST_F(LockStats, TheDeepestLevelIsTheLast)
{
    for (const std::uint32_t flags : {QV_MUTEX_CHECKED, QV_MUTEX_STATS}) {
        const QVMutex mutex = Make(flags);
        for (int level = 0; level < 65535; ++level) {
            ASSERT_EQ(QVMutexAcquire(mutex), S_OK);
        }
        const Numbers before = NumbersOf(mutex);
        EXPECT_EQ(QVMutexAcquire(mutex), E_FAIL);
        EXPECT_EQ(QVMutexTryAcquire(mutex), E_FAIL);
        EXPECT_EQ(NumbersOf(mutex), before);
        for (int level = 0; level < 65535; ++level) {
            ASSERT_EQ(QVMutexRelease(mutex), S_OK);
            if (level % 8192 == 0) {
                EXPECT_EQ(InAnotherThread([&] { return QVMutexTryAcquire(mutex); }), E_FAIL);
            }
        }
        EXPECT_EQ(InAnotherThread([&] { return QVMutexAcquire(mutex) + QVMutexRelease(mutex); }),
                  S_OK);
        QVMutexDestroy(mutex);
    }
}

// The child's thread has another id, and holds what it held.
TEST_F(LockStats, AForkedChildKeepsItsHolds)
{
    const QVMutex mutex = Make(kStrict);
    QVMutexAcquire(mutex);
    const pid_t child = fork();
    if (child == 0) {
        _exit(QVMutexAssertOwnership(mutex, 1) == 1 && QVMutexAcquire(mutex) == E_FAIL &&
                      QVMutexRelease(mutex) == S_OK && QVMutexAssertOwnership(mutex, 1) == 0 &&
                      QVMutexAcquire(mutex) == S_OK && QVMutexRelease(mutex) == S_OK
                  ? 0
                  : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(QVMutexRelease(mutex), S_OK);
    QVMutexDestroy(mutex);
}

} // namespace
