// The reader-writer lock on one thread and on several, and when something under it fails.
#include "locks/rw_lock.h"

#include <gtest/gtest.h>
#include <qvcore6/rwlock.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/alloc_faults.h"

// Looks at what is behind the handle, and makes the gate's calls fail.
class RWLockInspector
{
public:
    explicit RWLockInspector(QVRWLock lock) : m_lock(*reinterpret_cast<CQVRWLockImpl*>(lock)) {}

    int HoldCount() const { return m_lock.m_holdCount; }
    unsigned WaitingWriter() const { return m_lock.m_waitingWriter; }
    // To none, so that the gate's calls fail, and back.
    void SwapGateObject() const
    {
        static qv::platform::HANDLE other = nullptr;
        std::swap(reinterpret_cast<qv::core::WaitRecord*>(m_lock.m_writerGate)->m_handle, other);
    }

private:
    CQVRWLockImpl& m_lock;
};

namespace
{

struct OwnedLock
{
    OwnedLock() { EXPECT_EQ(QVRWLockCreate("test", 0, &lock), S_OK); }
    ~OwnedLock() { QVRWLockDestroy(lock); }
    OwnedLock(const OwnedLock&) = delete;
    OwnedLock& operator=(const OwnedLock&) = delete;
    QVRWLock lock = QV_RWLOCK_NONE;
};

// Takes the steps up to the first that fails.
QVRESULT Do(QVRWLock lock, const std::string& steps)
{
    static const std::map<char, QVRESULT (*)(QVRWLock)> calls = {
        {'R', QVRWLockAcquireRead},    {'W', QVRWLockAcquireWrite},    {'r', QVRWLockReleaseRead},
        {'T', QVRWLockTryAcquireRead}, {'U', QVRWLockTryAcquireWrite}, {'w', QVRWLockReleaseWrite}};
    QVRESULT result = S_OK;
    for (std::size_t i = 0; i < steps.size() && result == S_OK; ++i) {
        result = calls.at(steps[i])(lock);
    }
    return result;
}

// What a thread of its own gets, which holds nothing before and nothing after.
QVRESULT Elsewhere(QVRWLock lock, const std::string& steps)
{
    return std::async(std::launch::async, Do, lock, steps).get();
}

// Every sequence of up to five steps, tries among the first three, against two plain counters, and
// then what others may do.
TEST(RWLock, NestsInEveryWayOnOneThread)
{
    const std::string steps = "RWrwTU";
    std::vector<std::string> sequences = {""};
    for (std::size_t i = 0; i < sequences.size(); ++i) {
        const std::string sequence = sequences[i];
        const OwnedLock owned;
        int reads = 0;
        int writes = 0;
        for (const char step : sequence) {
            int& count = std::string("RTr").find(step) != std::string::npos ? reads : writes;
            const int left = count + (step == 'r' || step == 'w' ? -1 : 1);
            ASSERT_EQ(Do(owned.lock, {step}), left < 0 ? E_FAIL : S_OK) << sequence;
            count = std::max(left, 0);
        }
        ASSERT_EQ(Elsewhere(owned.lock, "r"), E_FAIL) << sequence;
        ASSERT_EQ(RWLockInspector(owned.lock).HoldCount(), writes != 0 ? writes : reads);
        ASSERT_EQ(Elsewhere(owned.lock, "Tr"), writes == 0 ? S_OK : E_FAIL) << sequence;
        ASSERT_EQ(Elsewhere(owned.lock, "Uw"), writes + reads == 0 ? S_OK : E_FAIL) << sequence;
        for (const char step : steps.substr(0, sequence.size() < 3 ? 6 : 4)) {
            if (sequence.size() < 5) {
                sequences.push_back(sequence + step);
            }
        }
    }
}

TEST(RWLockFaults, AFailingGateLeavesTheLockAsItWas)
{
    const char* const rows[][3] = {{"", "R", ""},     {"", "T", ""},     {"R", "r", "r"},
                                   {"WR", "w", "wr"}, {"RW", "w", "wr"}, {"RRWR", "w", "wrrr"}};
    for (const auto& [before, step, after] : rows) {
        SCOPED_TRACE(std::string(before) + step);
        const OwnedLock owned;
        ASSERT_EQ(Do(owned.lock, before), S_OK);
        const RWLockInspector inside(owned.lock);
        const int holds = inside.HoldCount();
        inside.SwapGateObject();
        EXPECT_EQ(Do(owned.lock, step), E_HANDLE);
        inside.SwapGateObject();
        EXPECT_EQ(inside.HoldCount(), holds);
        EXPECT_EQ(Do(owned.lock, after), S_OK);
        EXPECT_EQ(Elsewhere(owned.lock, "Uw"), S_OK);
    }
    const OwnedLock owned;
    const RWLockInspector inside(owned.lock);
    ASSERT_EQ(Do(owned.lock, "R"), S_OK);
    inside.SwapGateObject();
    EXPECT_EQ(Elsewhere(owned.lock, "W"), E_HANDLE) << "a writer that cannot wait";
    inside.SwapGateObject();
    EXPECT_EQ(inside.WaitingWriter(), 0u);
    EXPECT_EQ(Elsewhere(owned.lock, "Rr"), S_OK) << "no lock stayed behind";
    EXPECT_EQ(Do(owned.lock, "rWw"), S_OK);
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
                for (const char step : std::string("RTWUwwrr")) {
                    const QVRESULT refused = step < 'a' ? E_OUTOFMEMORY : E_FAIL;
                    EXPECT_EQ(Do(lock, {step}), failed ? refused : S_OK) << n << step;
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
    std::vector<std::jthread> readers;
    for (int count = 1; count <= 20; ++count) {
        readers.emplace_back([&] {
            EXPECT_EQ(Do(owned.lock, "R"), S_OK);
            ++inside;
            mayEnd.wait(false);
            EXPECT_EQ(Do(owned.lock, "r"), S_OK);
        });
        while (inside != count) {
            std::this_thread::yield();
        }
        if (count == 8) {
            const qv::test::FailAllocation fails(1);
            EXPECT_EQ(Do(owned.lock, "R"), E_OUTOFMEMORY);
            EXPECT_EQ(RWLockInspector(owned.lock).HoldCount(), 8);
        }
    }
    mayEnd = true;
    mayEnd.notify_all();
    readers.clear();
    EXPECT_EQ(Elsewhere(owned.lock, "Uw"), S_OK);
}

// For the thread sanitizer above all: what a writer wrote, every later holder sees whole.
TEST(RWLock, KeepsWritersAndReadersApartUnderLoad)
{
    const OwnedLock owned;
    long value = 0;
    const auto work = [&](unsigned seed) {
        std::minstd_rand random(seed);
        for (int i = 0; i < 30000; ++i) {
            const char step = "RRTWU"[random() % 5];
            const bool writes = step == 'W' || step == 'U';
            if (Do(owned.lock, {step}) == S_OK) {
                const long seen = writes ? ++value : value;
                ASSERT_EQ(Do(owned.lock, writes ? "Rw" : "Rr"), S_OK);
                ASSERT_EQ(value, seen);
                ASSERT_EQ(Do(owned.lock, "r"), S_OK);
            }
        }
    };
    std::vector<std::jthread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        threads.emplace_back(work, seed);
    }
    threads.clear();
    EXPECT_EQ(Elsewhere(owned.lock, "Uw"), S_OK);
}

} // namespace
