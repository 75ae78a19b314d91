// What the tests of checked mutexes and of their statistics share: a clock that is set by hand, and
// the alerts that were raised.
#pragma once

#include <gtest/gtest.h>
#include <qvcore6/lockstats.h>
#include <qvcore6/mutex.h>
#include <qvcore6/result.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace qv::test
{

struct Clock
{
    std::atomic<bool> isByHand;
    std::atomic<bool> fails;
    std::atomic<std::int64_t> now;
    std::atomic<std::uint32_t> tick; // what the tick count is when the counter fails
    std::atomic<int> looks;

    void Reset(bool byHand)
    {
        isByHand = byHand;
        fails = false;
        now = 0;
        tick = 0;
        looks = 0;
    }
};

extern Clock g_clock;
extern std::vector<std::u16string> g_alerts;

class LockStats : public testing::Test
{
protected:
    void SetUp() override
    {
        QVResetLockStats();
        g_clock.Reset(true);
        g_alerts.clear();
    }
    void TearDown() override
    {
        g_clock.Reset(false);
        EXPECT_EQ(QVResetLockStats(), S_OK);
    }
};

inline QVMutex Make(std::uint32_t flags, const char* name = "test")
{
    QVMutex mutex = QV_MUTEX_NONE;
    EXPECT_EQ(QVMutexCreate(name, flags, &mutex), S_OK);
    return mutex;
}

template <class Call> auto InAnotherThread(Call call)
{
    decltype(call()) result{};
    std::thread([&] { result = call(); }).join();
    return result;
}

inline std::vector<std::int64_t> NumbersOf(QVMutex mutex)
{
    QVLockStats s = {};
    EXPECT_EQ(QVGetLockStats(mutex, &s), S_OK);
    return {s.maxAcquireTime, s.totalAcquireTime, s.acquireCount,   s.maxHeldTime,
            s.totalHeldTime,  s.heldCount,        s.contentionCount};
}

} // namespace qv::test
