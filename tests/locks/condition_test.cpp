#include <gtest/gtest.h>
#include <qvcore6/condition.h>
#include <qvcore6/result.h>

#include <chrono>
#include <deque>
#include <thread>
#include <vector>

#include "support/sleepers.h"

namespace
{

using qv::test::Sleeper;

QVCondition Make()
{
    QVCondition condition = QV_CONDITION_NONE;
    EXPECT_EQ(QVConditionCreate(nullptr, 0xFFFFFFFF, &condition), S_OK);
    return condition;
}

// Threads that sleep in a wait, in their order.
std::deque<Sleeper>& FillWithSleepers(std::deque<Sleeper>& sleepers, QVCondition condition)
{
    for (int count = 0; count < 4; ++count) {
        sleepers.emplace_back([condition] {
            QVConditionAcquire(condition);
            EXPECT_EQ(QVConditionWait(condition), S_OK);
            QVConditionRelease(condition);
        });
        sleepers.back().AwaitAsleep();
    }
    return sleepers;
}

TEST(Condition, SignalsFreeThoseWhoWaitInOrderAndAreLostWithoutThem)
{
    const QVCondition condition = Make();
    EXPECT_EQ(QVConditionSignal(condition), S_OK);
    EXPECT_EQ(QVConditionBroadcast(condition), S_OK);
    std::deque<Sleeper> sleepers;
    FillWithSleepers(sleepers, condition);
    for (std::size_t next = 0; next < sleepers.size(); ++next) {
        EXPECT_FALSE(sleepers[next].IsDone());
        EXPECT_EQ(QVConditionSignal(condition), S_OK);
        sleepers[next].AwaitDone();
    }
    sleepers.clear();
    FillWithSleepers(sleepers, condition);
    EXPECT_EQ(QVConditionBroadcast(condition), S_OK);
    sleepers.clear();
    QVConditionAcquire(condition);
    EXPECT_EQ(QVConditionTimedWait(condition, 1), QV_E_TIMEOUT);
    QVConditionRelease(condition);
    EXPECT_EQ(QVConditionDestroy(condition), S_OK);
    EXPECT_EQ(QVConditionDestroy(nullptr), S_OK);
}

// The wait gives up all levels, so that another thread gets in, and returns with all of them.
TEST(Condition, WaitRestoresTheDepthOfTheLock)
{
    for (const uint32_t timeout : {0u, 20u, 0xFFFFFFFFu}) {
        const QVCondition condition = Make();
        for (int level = 0; level < 3; ++level) {
            EXPECT_EQ(QVConditionAcquire(condition), S_OK);
        }
        if (timeout == 0xFFFFFFFF) {
            const Sleeper other([&] {
                QVConditionAcquire(condition);
                QVConditionSignal(condition);
                QVConditionRelease(condition);
            });
            EXPECT_EQ(QVConditionTimedWait(condition, timeout), S_OK);
        } else {
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_EQ(QVConditionTimedWait(condition, timeout), QV_E_TIMEOUT);
            EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(timeout));
        }
        const Sleeper next([&] {
            QVConditionAcquire(condition);
            QVConditionRelease(condition);
        });
        for (int level = 0; level < 3; ++level) {
            next.AwaitAsleep();
            EXPECT_FALSE(next.IsDone()) << "still held at level " << level;
            EXPECT_EQ(QVConditionRelease(condition), S_OK);
        }
        next.AwaitDone();
        QVConditionDestroy(condition);
    }
}

// Every item is waited for at least once; a lost signal would leave a thread asleep.
TEST(Condition, LosesNoSignal)
{
    const QVCondition condition = Make();
    long items = 0;
    const auto produce = [&] {
        for (int count = 0; count < 200000; ++count) {
            QVConditionAcquire(condition);
            ++items;
            QVConditionRelease(condition);
            QVConditionSignal(condition);
        }
    };
    const auto consume = [&](uint32_t timeout) {
        for (int count = 0; count < 200000; ++count) {
            QVConditionAcquire(condition);
            while (items == 0) {
                QVConditionTimedWait(condition, timeout);
            }
            --items;
            QVConditionRelease(condition);
        }
    };
    {
        std::vector<std::jthread> threads;
        for (const uint32_t timeout : {0xFFFFFFFFu, 0xFFFFFFFFu, 60000u}) {
            threads.emplace_back(produce);
            threads.emplace_back(consume, timeout);
        }
    }
    EXPECT_EQ(items, 0);
    QVConditionDestroy(condition);
}

// Who comes out of the wait may destroy the condition: the signal and the release that let it out
// must be done with it. Half of the waits run out of time about then.
TEST(Condition, MayGoWithTheLastWaiter)
{
    for (int round = 0; round < 400; ++round) {
        const QVCondition condition = Make();
        bool changed = false;
        std::thread waiter([&, condition] {
            QVConditionAcquire(condition);
            while (!changed) {
                QVConditionTimedWait(condition, round % 2 != 0 ? 0xFFFFFFFF : 1);
            }
            QVConditionRelease(condition);
            QVConditionDestroy(condition);
        });
        std::this_thread::sleep_for(std::chrono::microseconds(round % 2 != 0 ? 100 : 900 + round));
        QVConditionAcquire(condition);
        changed = true;
        if (round % 4 < 2) {
            QVConditionBroadcast(condition);
        } else {
            QVConditionSignal(condition);
        }
        QVConditionRelease(condition);
        waiter.join();
    }
}

} // namespace
