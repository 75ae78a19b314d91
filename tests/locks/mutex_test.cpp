// What mutexes are by their flags, their checks and their numbers.
#include "locks/checked_mutex.h"

#include <qvcore6/diagnostics.h>

#include <cerrno>
#include <limits>

#include "lock_stats_test.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/child_process.h"

using namespace qv::platform;
using namespace qv::test;

constinit Clock qv::test::g_clock{};

namespace
{

std::vector<std::u16string> g_alerts;

} // namespace

extern "C"
{
    BOOL __wrap_QueryPerformanceCounter(std::int64_t* count)
    {
        ++g_clock.looks;
        *count = g_clock.fails ? -1 : g_clock.now.load();
        return g_clock.fails ? 0 : 1;
    }

    BOOL __wrap_QueryPerformanceFrequency(std::int64_t* frequency)
    {
        *frequency = 10'000'000;
        return g_clock.fails ? 0 : 1;
    }

    DWORD __wrap_GetTickCount()
    {
        return static_cast<DWORD>(g_clock.now);
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
    Numbers All() { return NumbersOf(reinterpret_cast<QVMutex>(this)); }
    using CQVCoreMutexChecked::m_criticalSection;
    using CQVCoreMutexChecked::m_lockDepth;
    using CQVCoreMutexChecked::m_owner;
    using CQVCoreMutexChecked::s_counterFrequency;
};

TEST_F(LockStats, FlagsChooseWhatAMutexDoes)
{
    const struct
    {
        std::uint32_t flags;
        bool checks, counts, recursive;
    } rows[] = {
        {QV_MUTEX_SPIN | 0x7, false, false, true},
        {QV_MUTEX_NON_RECURSIVE, false, false, true},
        {QV_MUTEX_STATS | QV_MUTEX_UNTRACKED, false, false, true},
        {QV_MUTEX_CHECKED, true, false, true},
        {kStrict, true, false, false},
        {QV_MUTEX_STATS | QV_MUTEX_NON_RECURSIVE, false, true, true},
        {QV_MUTEX_STATS | QV_MUTEX_CHECKED | QV_MUTEX_SPIN, true, true, true},
        {QV_MUTEX_STATS | QV_MUTEX_CHECKED | QV_MUTEX_UNTRACKED, true, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        const QVMutex mutex = Make(row.flags);
        auto& object = *reinterpret_cast<IMutex*>(mutex);
        EXPECT_EQ(object.GetFlags(), row.counts ? row.flags : row.flags & ~QV_MUTEX_STATS);
        EXPECT_EQ(object.IsUntracked(), (row.flags & QV_MUTEX_UNTRACKED) != 0);
        const auto& section = *static_cast<CRITICAL_SECTION*>(QVMutexGetOSMutex(mutex));
        EXPECT_TRUE(section.spin == 0 || (section.spin == 4000 && row.flags & QV_MUTEX_SPIN));
        const auto asserted = [&] {
            return Numbers{QVMutexAssertOwnership(mutex, 1), QVMutexAssertOwnership(mutex, -3),
                           QVMutexAssertOwnership(mutex, 0)};
        };
        const Numbers notHeld = {row.checks ? 0 : 1, row.checks ? 0 : 1, 1};
        const auto tried = [&] { return QVMutexTryAcquire(mutex); };
        g_clock.looks = 0;
        EXPECT_EQ(asserted(), notHeld);
        EXPECT_EQ(tried(), S_OK);
        EXPECT_EQ(asserted(), row.checks ? (Numbers{1, -3, 0}) : notHeld);
        EXPECT_EQ(InAnotherThread(asserted), notHeld);
        EXPECT_EQ(QVMutexAcquire(mutex), row.recursive ? S_OK : E_FAIL);
        EXPECT_EQ(QVMutexRelease(mutex), S_OK);
        if (row.recursive) {
            EXPECT_EQ(InAnotherThread(tried), E_FAIL) << "one level is left";
            EXPECT_EQ(QVMutexRelease(mutex), S_OK);
        }
        EXPECT_EQ(g_clock.looks, row.counts ? 3 : 0) << "try, nested acquire, outer release";
        const bool isPlain = !row.checks && !row.counts;
        QVLockStats stats;
        stats.acquireCount = 77;
        EXPECT_EQ(QVGetLockStats(mutex, &stats), isPlain ? E_NOTIMPL : S_OK);
        EXPECT_EQ(stats.acquireCount, isPlain ? 77 : row.counts ? 2 : 0);
        EXPECT_EQ(InAnotherThread(tried), S_OK);
        QVMutexDestroy(mutex);
    }
}

TEST_F(LockStats, FailedChecksAlertAndChangeNothing)
{
    const std::u16string acquire = u"CQVCoreMutexChecked::preAcquire m_owner check failed";
    const std::u16string owner = u"CQVCoreMutexChecked::preRelease m_owner check failed";
    g_alerts.clear();
    Fields mutex(kStrict | QV_MUTEX_STATS);
    EXPECT_EQ(mutex.Release(), E_FAIL) << "never held";
    EXPECT_EQ(mutex.Acquire(), S_OK);
    EXPECT_EQ(mutex.Acquire(), E_FAIL);
    EXPECT_EQ(mutex.TryAcquire(), E_FAIL);
    EXPECT_EQ(InAnotherThread([&] { return mutex.Release(); }), E_FAIL);
    EXPECT_EQ(InAnotherThread([&] { return mutex.TryAcquire(); }), E_FAIL) << "held, no alert";
    mutex.m_lockDepth = 0;
    EXPECT_EQ(mutex.Release(), E_FAIL);
    mutex.m_lockDepth = 2;
    EXPECT_EQ(mutex.Release(), E_FAIL);
    mutex.m_lockDepth = 1;
    EXPECT_EQ(g_alerts,
              (std::vector<std::u16string>{
                  owner, acquire, acquire, owner,
                  u"CQVCoreMutexChecked::preRelease m_lockDepth check failed",
                  u"CQVCoreMutexChecked::preRelease m_lockDepth non recursive check failed "}));
    EXPECT_EQ(mutex.All(), (Numbers{0, 0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(mutex.Release(), S_OK);
    EXPECT_EQ(mutex.m_owner, 0u);
    EXPECT_EQ(InAnotherThread([&] { return mutex.Acquire(); }), S_OK);
    mutex.m_owner = GetCurrentThreadId();
    EXPECT_EQ(mutex.Release(), E_FAIL) << "got the id of a thread that ended as the holder";
}

TEST_F(LockStats, TimesAndCounts)
{
    Fields mutex(QV_MUTEX_STATS);
    const auto at = [&](std::int64_t ticks) -> Fields& {
        g_clock.now = ticks;
        return mutex;
    };
    at(0).Acquire(); // a start of 0 counts as no time taken
    EXPECT_EQ(g_clock.looks, 2);
    at(5).Acquire();
    at(6).TryAcquire();
    at(7).Release();
    at(8).Release();
    EXPECT_EQ(g_clock.looks, 3) << "deeper levels do not look, but for the acquire's start";
    at(109).Release();
    EXPECT_EQ(mutex.All(), (Numbers{0, 0, 3, 10, 10, 3, 0}));
    at(200).TryAcquire();
    at(219).Release();
    EXPECT_EQ(mutex.All(), (Numbers{0, 0, 4, 10, 12, 4, 0})) << "ticks are added, then converted";

    // Held until 1000, and given back after three others wait, however often each has to.
    at(300).Acquire();
    std::vector<std::jthread> waiters(3);
    for (std::jthread& waiter : waiters) {
        waiter = std::jthread([&] {
            errno = 4711;
            mutex.Acquire();
            mutex.Release();
            EXPECT_EQ(errno, 4711);
        });
    }
    const auto areAsleep = [&] { return mutex.m_criticalSection.debug.ContentionCount == 3; };
    EXPECT_TRUE(Becomes(areAsleep));
    for (int i = 0; i < 1000; ++i) {
        WakeCriticalSection(&mutex.m_criticalSection); // too early: they go to sleep again
    }
    at(1000).Release();
    waiters.clear();
    EXPECT_EQ(mutex.All(), (Numbers{70, 210, 8, 70, 82, 8, 3}));

    at(2000).Acquire();
    mutex.ResetStats();
    EXPECT_EQ(mutex.All(), (Numbers{0, 0, 0, 0, 0, 0, 0}));
    at(2500).Release();
    EXPECT_EQ(mutex.All(), (Numbers{0, 0, 0, 50, 50, 1, 0})) << "the hold began before the reset";
}

// Ten days and more, a clock that goes back, one that jumps from end to end, and none, for which
// milliseconds stand in.
TEST_F(LockStats, TimesOfAnyLength)
{
    constexpr std::int64_t kYear = std::int64_t{365} * 24 * 3600 * 10'000'000;
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    const struct
    {
        std::int64_t begin, end, longest, total;
        bool fails = false;
    } rows[] = {
        {1, 100 * kYear + 10, 10 * kYear, 10 * kYear},
        {1000, 900, 0, -10},
        {kMin, kMax, 0, 0},
        {-5, kMax - 5, kMax / 10, kMax / 10},
        {5, kMin + 5, 0, kMin / 10},
        {0xFFFFFFF0, 0xFFFFFFFF, 15000, 15000, true},
    };
    for (const auto& row : rows) {
        g_clock.fails = row.fails;
        Fields::s_counterFrequency = 0;
        Fields mutex(QV_MUTEX_STATS);
        g_clock.now = row.begin;
        mutex.TryAcquire();
        g_clock.now = row.end;
        mutex.Release();
        EXPECT_EQ(mutex.All(), (Numbers{0, 0, 1, row.longest, row.total, 1, 0})) << row.begin;
    }
    g_clock.fails = false;
    Fields::s_counterFrequency = 10'000'000;
}

TEST_F(LockStats, TheDeepestLevelIsTheLast)
{
    for (const std::uint32_t flags : {QV_MUTEX_CHECKED, QV_MUTEX_STATS}) {
        const QVMutex mutex = Make(flags);
        const auto tried = [&] { return QVMutexTryAcquire(mutex); };
        int levels = 0;
        while (QVMutexAcquire(mutex) == S_OK) {
            ++levels;
        }
        EXPECT_EQ(levels, 65535);
        const Numbers before = NumbersOf(mutex);
        EXPECT_EQ(tried(), E_FAIL);
        EXPECT_EQ(NumbersOf(mutex), before);
        for (; levels > 0; --levels) {
            EXPECT_TRUE(levels > 1 || InAnotherThread(tried) == E_FAIL);
            EXPECT_EQ(QVMutexRelease(mutex), S_OK);
        }
        EXPECT_EQ(InAnotherThread(tried), S_OK);
        QVMutexDestroy(mutex);
    }
}

// The next holder may destroy the mutex the moment it has it: the leaver must be done with it.
TEST_F(LockStats, ANextHolderMayDestroyTheMutex)
{
    for (int round = 0; round < 2000; ++round) {
        const QVMutex mutex = Make(0);
        QVMutexAcquire(mutex);
        const std::jthread next([&] {
            QVMutexAcquire(mutex);
            QVMutexRelease(mutex);
            QVMutexDestroy(mutex);
        });
        std::this_thread::sleep_for(std::chrono::microseconds(round % 128));
        QVMutexRelease(mutex);
    }
}

} // namespace
