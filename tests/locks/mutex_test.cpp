#include <gtest/gtest.h>
#include <qvcore6/mutex.h>
#include <qvcore6/result.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace
{

class HeldMutex
{
public:
    explicit HeldMutex(uint32_t flags = 0)
    {
        EXPECT_EQ(QVMutexCreate("test", flags, &m_mutex), S_OK);
    }
    ~HeldMutex() { EXPECT_EQ(QVMutexDestroy(m_mutex), 0); }
    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;
    operator QVMutex() const { return m_mutex; }

private:
    QVMutex m_mutex = QV_MUTEX_NONE;
};

QVRESULT TryFromAnotherThread(QVMutex mutex)
{
    QVRESULT result = S_OK;
    std::thread([&] {
        result = QVMutexTryAcquire(mutex);
        if (result == S_OK) {
            QVMutexRelease(mutex);
        }
    }).join();
    return result;
}

TEST(Mutex, IsRecursiveWithAlmostAllFlags)
{
    for (const uint32_t flags :
         {0u, QV_MUTEX_UNTRACKED, QV_MUTEX_SPIN, QV_MUTEX_NON_RECURSIVE,
          QV_MUTEX_STATS | QV_MUTEX_UNTRACKED, 1u, QV_MUTEX_STATS, QV_MUTEX_CHECKED,
          QV_MUTEX_CHECKED | QV_MUTEX_STATS | QV_MUTEX_SPIN}) {
        QVMutex mutex = nullptr;
        ASSERT_EQ(QVMutexCreate("flags", flags, &mutex), S_OK) << flags;
        EXPECT_EQ(QVMutexAcquire(mutex), S_OK);
        EXPECT_EQ(QVMutexTryAcquire(mutex), S_OK) << "recursive, whatever the flags";
        EXPECT_EQ(TryFromAnotherThread(mutex), E_FAIL);
        EXPECT_EQ(QVMutexRelease(mutex), S_OK);
        EXPECT_EQ(TryFromAnotherThread(mutex), E_FAIL) << "one level is left";
        EXPECT_EQ(QVMutexRelease(mutex), S_OK);
        EXPECT_EQ(TryFromAnotherThread(mutex), S_OK);
        EXPECT_EQ(QVMutexDestroy(mutex), S_OK);
    }
}

TEST(Mutex, PlainOneKnowsNoOwner)
{
    const HeldMutex mutex;
    EXPECT_EQ(QVMutexAssertOwnership(mutex, 1), 1);
    EXPECT_EQ(QVMutexAssertOwnership(mutex, 0), 1);
    QVMutexAcquire(mutex);
    EXPECT_EQ(QVMutexAssertOwnership(mutex, 0), 1);
    QVMutexRelease(mutex);
    EXPECT_NE(QVMutexGetOSMutex(mutex), nullptr);
    EXPECT_EQ(QVMutexGetOSMutex(mutex), QVMutexGetOSMutex(mutex));
}

TEST(Mutex, ExcludesAndOrders)
{
    for (const uint32_t flags : {0u, QV_MUTEX_SPIN, QV_MUTEX_CHECKED | QV_MUTEX_STATS}) {
        const HeldMutex mutex(flags);
        long counter = 0;
        const auto count = [&](bool tries) {
            for (int round = 0; round < 5000; ++round) {
                while (tries && QVMutexTryAcquire(mutex) != S_OK) {
                    std::this_thread::yield();
                }
                QVMutexAcquire(mutex);
                ++counter;
                QVMutexRelease(mutex);
                if (tries) {
                    QVMutexRelease(mutex);
                }
            }
        };
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 6; ++thread) {
            threads.emplace_back(count, thread % 3 == 2);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(counter, 30000);
    }
}

// The next holder may destroy the mutex the moment it has it: the leaver must be done with it.
TEST(Mutex, MayBeDestroyedByTheNextHolder)
{
    for (int round = 0; round < 2000; ++round) {
        QVMutex mutex = QV_MUTEX_NONE;
        ASSERT_EQ(QVMutexCreate("handed over", 0, &mutex), S_OK);
        QVMutexAcquire(mutex);
        std::atomic<bool> waiting{false};
        std::thread next([&] {
            waiting = true;
            QVMutexAcquire(mutex);
            QVMutexRelease(mutex);
            QVMutexDestroy(mutex);
        });
        while (!waiting) {
            std::this_thread::yield();
        }
        QVMutexRelease(mutex);
        next.join();
    }
}

TEST(Mutex, ManyThreadsMakeTheirOwnWithNamesOfAnyLength)
{
    std::atomic<int> made{0};
    for (int batch = 0; batch < 40; ++batch) {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < 50; ++i) {
            threads.emplace_back([&made, i] {
                QVMutex mutex;
                const std::string name(i * 1000, 'n');
                made += QVMutexCreate(name.c_str(), 0, &mutex) == S_OK &&
                        QVMutexAcquire(mutex) == S_OK && QVMutexRelease(mutex) == S_OK &&
                        QVMutexDestroy(mutex) == S_OK;
            });
        }
    }
    EXPECT_EQ(made, 2000);
}

} // namespace
