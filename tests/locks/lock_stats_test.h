// What the tests of mutexes and of their statistics share, with a clock that is set by hand.
#pragma once

#include <gtest/gtest.h>
#include <qvcore6/lockstats.h>
#include <qvcore6/mutex.h>
#include <qvcore6/result.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace qv::test
{

struct Clock
{
    std::atomic<bool> fails; // but for its milliseconds
    std::atomic<std::int64_t> now;
    std::atomic<int> looks;
};

extern Clock g_clock;

class LockStats : public testing::Test
{
protected:
    LockStats() { g_clock.now = g_clock.looks = 0; }
    ~LockStats() override { EXPECT_EQ(QVResetLockStats(), S_OK); }
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
