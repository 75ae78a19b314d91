// The reader-writer lock on one thread and on several, and when something under it fails.
#include "locks/rw_lock.h"

#include <gtest/gtest.h>
#include <qvcore6/rwlock.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/alloc_faults.h"
#include "support/sleepers.h"

// Looks at what is behind the handle, and makes the gate's calls fail.
class RWLockInspector
{
public:
    explicit RWLockInspector(QVRWLock lock) : m_lock(*reinterpret_cast<CQVRWLockImpl*>(lock)) {}

    int HoldCount() const { return m_lock.m_holdCount; }
    int SavedReads() const { return m_lock.m_savedReadCount; }
    unsigned WaitingWriter() const { return m_lock.m_waitingWriter; }
    void SwapGateObject(qv::platform::HANDLE& object)
    {
        std::swap(reinterpret_cast<qv::core::WaitRecord*>(m_lock.m_writerGate)->m_handle, object);
    }

private:
    CQVRWLockImpl& m_lock;
};

namespace
{

using qv::test::Sleeper;

struct OwnedLock
{
    OwnedLock() { EXPECT_EQ(QVRWLockCreate("test", 0, &lock), S_OK); }
    ~OwnedLock() { QVRWLockDestroy(lock); }
    OwnedLock(const OwnedLock&) = delete;
    OwnedLock& operator=(const OwnedLock&) = delete;
    QVRWLock lock = QV_RWLOCK_NONE;
};

QVRESULT Do(QVRWLock lock, char step)
{
    switch (step) {
    case 'R':
        return QVRWLockAcquireRead(lock);
    case 'W':
        return QVRWLockAcquireWrite(lock);
    case 'r':
        return QVRWLockReleaseRead(lock);
    case 'w':
        return QVRWLockReleaseWrite(lock);
    case 'T':
        return QVRWLockTryAcquireRead(lock);
    default:
        return QVRWLockTryAcquireWrite(lock); // 'U'
    }
}

// What a thread of its own gets, which holds nothing before and nothing after.
QVRESULT Elsewhere(QVRWLock lock, char acquire, char release)
{
    QVRESULT result = S_OK;
    std::thread([&] {
        result = Do(lock, acquire);
        if (result >= 0) {
            EXPECT_EQ(Do(lock, release), S_OK);
        }
    }).join();
    return result;
}

struct Holds
{
    int reads = 0;
    int writes = 0;

    // Takes the step of a thread that is alone with the lock, and says what it answers.
    QVRESULT Take(char step)
    {
        int& count = step == 'R' || step == 'T' || step == 'r' ? reads : writes;
        const bool isRelease = step == 'r' || step == 'w';
        if (isRelease && count == 0) {
            return E_FAIL;
        }
        count += isRelease ? -1 : 1;
        return S_OK;
    }
};

// Every sequence of up to five steps, tries among the first three, against two plain counters, and
// then what others may do.
TEST(RWLock, NestsInEveryWayOnOneThread)
{
    const std::string steps = "RWrwTU";
    std::vector<std::string> sequences = {""};
    for (std::size_t i = 0; i < sequences.size(); ++i) {
        const std::string sequence = sequences[i];
        const OwnedLock owned;
        Holds holds;
        for (const char step : sequence) {
            ASSERT_EQ(Do(owned.lock, step), holds.Take(step)) << sequence;
        }
        if (holds.reads != 0 && holds.writes != 0) {
            ASSERT_EQ(Elsewhere(owned.lock, 'r', 'T'), E_FAIL) << sequence;
        }
        const RWLockInspector inside(owned.lock);
        ASSERT_EQ(inside.HoldCount(), holds.writes != 0 ? holds.writes : holds.reads) << sequence;
        ASSERT_EQ(inside.SavedReads(), holds.writes != 0 ? holds.reads : 0) << sequence;
        ASSERT_EQ(Elsewhere(owned.lock, 'T', 'r'), holds.writes == 0 ? S_OK : E_FAIL) << sequence;
        ASSERT_EQ(Elsewhere(owned.lock, 'U', 'w'),
                  holds.writes == 0 && holds.reads == 0 ? S_OK : E_FAIL)
            << sequence;
        for (const char step : steps.substr(0, sequence.size() < 3 ? 6 : 4)) {
            if (sequence.size() < 5) {
                sequences.push_back(sequence + step);
            }
        }
    }
}

TEST(RWLock, UpgradeBesideAReaderWaitsForItAndKeepsItsOwnReads)
{
    const OwnedLock owned;
    const RWLockInspector inside(owned.lock);
    ASSERT_EQ(QVRWLockAcquireRead(owned.lock), S_OK);
    ASSERT_EQ(QVRWLockAcquireRead(owned.lock), S_OK);
    std::atomic<bool> isIn{false};
    std::atomic<bool> mayEnd{false};
    {
        const Sleeper upgrader([&] {
            EXPECT_EQ(QVRWLockAcquireRead(owned.lock), S_OK);
            EXPECT_EQ(QVRWLockAcquireWrite(owned.lock), S_OK);
            isIn = true;
            EXPECT_EQ(QVRWLockReleaseWrite(owned.lock), S_OK);
            while (!mayEnd) {
                std::this_thread::yield();
            }
            EXPECT_EQ(QVRWLockReleaseRead(owned.lock), S_OK);
        });
        upgrader.AwaitAsleep();
        EXPECT_NE(inside.WaitingWriter(), 0u);
        EXPECT_EQ(Elsewhere(owned.lock, 'T', 'r'), E_FAIL) << "new readers wait behind a writer";
        EXPECT_EQ(QVRWLockAcquireRead(owned.lock), S_OK) << "those that read do not";
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(isIn);
            EXPECT_EQ(QVRWLockReleaseRead(owned.lock), S_OK);
        }
        while (inside.HoldCount() != 1 || inside.WaitingWriter() != 0 || !isIn) {
            std::this_thread::yield();
        }
        while (Elsewhere(owned.lock, 'T', 'r') != S_OK) { // until its write hold has ended
        }
        EXPECT_EQ(Elsewhere(owned.lock, 'U', 'w'), E_FAIL) << "the upgrader still reads";
        mayEnd = true;
    }
    EXPECT_EQ(Elsewhere(owned.lock, 'U', 'w'), S_OK);
}

// Fails the gate's calls while it lives.
class BrokenGate
{
public:
    explicit BrokenGate(QVRWLock lock) : m_inside(lock) { m_inside.SwapGateObject(m_object); }
    ~BrokenGate() { m_inside.SwapGateObject(m_object); }
    BrokenGate(const BrokenGate&) = delete;
    BrokenGate& operator=(const BrokenGate&) = delete;

private:
    RWLockInspector m_inside;
    qv::platform::HANDLE m_object = nullptr;
};

TEST(RWLockFaults, AFailingGateLeavesTheLockAsItWas)
{
    struct Row
    {
        const char* before;
        char step;
        const char* after;
    };
    const Row rows[] = {
        {"", 'R', ""},     {"", 'T', ""},     {"R", 'r', "r"},
        {"WR", 'w', "wr"}, {"RW", 'w', "rw"}, {"RRWR", 'w', "wrrr"},
    };
    for (const Row& row : rows) {
        const OwnedLock owned;
        for (const char step : std::string(row.before)) {
            ASSERT_EQ(Do(owned.lock, step), S_OK);
        }
        const RWLockInspector inside(owned.lock);
        const int holds = inside.HoldCount();
        {
            const BrokenGate broken(owned.lock);
            EXPECT_EQ(Do(owned.lock, row.step), E_HANDLE) << row.before << row.step;
        }
        EXPECT_EQ(inside.HoldCount(), holds) << row.before << row.step;
        for (const char step : std::string(row.after)) {
            EXPECT_EQ(Do(owned.lock, step), S_OK) << row.before << row.step;
        }
        EXPECT_EQ(Elsewhere(owned.lock, 'U', 'w'), S_OK) << row.before << row.step;
    }
    const OwnedLock owned;
    std::thread([&] {
        ASSERT_EQ(QVRWLockAcquireRead(owned.lock), S_OK);
        const BrokenGate broken(owned.lock);
        EXPECT_EQ(Elsewhere(owned.lock, 'W', 'w'), E_HANDLE) << "a writer that cannot wait";
    }).join();
    EXPECT_EQ(RWLockInspector(owned.lock).WaitingWriter(), 0u);
    EXPECT_EQ(Elsewhere(owned.lock, 'R', 'r'), S_OK) << "no lock stayed behind";
}

TEST(RWLockFaults, CreationWithoutMemoryGivesNothingOrALockThatRefuses)
{
    const std::string name(100, 'n');
    QVRWLock lock = nullptr;
    QVRESULT created = S_OK;
    long before = 0;
    long refusing = 0;
    qv::test::SweepAllocations(
        [&] {
            before = qv::test::LiveBlocks();
            created = QVRWLockCreate(name.c_str(), 0, &lock);
        },
        [&](long n, bool failed) {
            if (created < 0) {
                EXPECT_EQ(created, E_OUTOFMEMORY) << n;
                EXPECT_EQ(lock, QV_RWLOCK_NONE) << n;
            } else {
                for (const char step : std::string("RTWU")) {
                    EXPECT_EQ(Do(lock, step), failed ? E_OUTOFMEMORY : S_OK) << n << step;
                }
                for (const char step : std::string("rrww")) {
                    EXPECT_EQ(Do(lock, step), failed ? E_FAIL : S_OK) << n << step;
                }
                refusing += failed ? 1 : 0;
                QVRWLockDestroy(lock);
            }
            EXPECT_EQ(qv::test::LiveBlocks(), before) << n;
        });
    EXPECT_EQ(refusing, 4) << "two mutexes of an object and a name each";
}

TEST(RWLock, TakesMoreReadersThanItHasRoomForAndNoneWithoutMemory)
{
    const OwnedLock owned;
    std::atomic<int> inside{0};
    std::atomic<bool> mayEnd{false};
    {
        std::vector<std::jthread> readers;
        const auto readUntil = [&](int count) {
            while (readers.size() < static_cast<std::size_t>(count)) {
                readers.emplace_back([&] {
                    EXPECT_EQ(QVRWLockAcquireRead(owned.lock), S_OK);
                    ++inside;
                    mayEnd.wait(false);
                    EXPECT_EQ(QVRWLockReleaseRead(owned.lock), S_OK);
                });
            }
            while (inside != count) {
                std::this_thread::yield();
            }
        };
        readUntil(8);
        for (const char step : std::string("RT")) {
            const qv::test::FailAllocation fails(1);
            EXPECT_EQ(Do(owned.lock, step), E_OUTOFMEMORY);
        }
        EXPECT_EQ(RWLockInspector(owned.lock).HoldCount(), 8);
        readUntil(20);
        mayEnd = true;
        mayEnd.notify_all();
    }
    EXPECT_EQ(Elsewhere(owned.lock, 'U', 'w'), S_OK);
}

// For the thread sanitizer above all: what a writer wrote, every later holder sees whole.
TEST(RWLock, KeepsWritersAndReadersApartUnderLoad)
{
    const OwnedLock owned;
    long first = 0;
    long second = 0;
    const auto work = [&](unsigned seed) {
        std::minstd_rand random(seed);
        for (int i = 0; i < 20000; ++i) {
            const bool writes = random() % 4 == 0;
            if (writes) {
                ASSERT_EQ(QVRWLockAcquireWrite(owned.lock), S_OK);
                ++first;
                ++second;
            }
            const bool tries = random() % 2 == 0;
            const bool reads = Do(owned.lock, tries ? 'T' : 'R') >= 0;
            if (reads || writes) {
                ASSERT_EQ(first, second);
            }
            if (writes) {
                ASSERT_EQ(QVRWLockReleaseWrite(owned.lock), S_OK);
            }
            if (reads) {
                ASSERT_EQ(first, second);
                ASSERT_EQ(QVRWLockReleaseRead(owned.lock), S_OK);
            }
        }
    };
    {
        std::vector<std::jthread> threads;
        for (unsigned seed = 1; seed <= 4; ++seed) {
            threads.emplace_back(work, seed);
        }
    }
    EXPECT_EQ(first, second);
    EXPECT_EQ(Elsewhere(owned.lock, 'U', 'w'), S_OK);
}

} // namespace
