// Reader-writer locks: the paths of one thread, and two pinned threads that read at once.
#include <benchmark/benchmark.h>
#include <qvcore6/rwlock.h>

#if QV_BENCH_HAS_QT
#include <QReadWriteLock>
#endif
#if QV_BENCH_HAS_BOOST_THREAD
#include <boost/thread/shared_mutex.hpp>
#endif

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "pin.h"
#include "ratio.h"

namespace
{

class Ours
{
public:
    Ours() { QVRWLockCreate("bench", 0, &m_lock); }
    ~Ours() { QVRWLockDestroy(m_lock); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    void Read() { QVRWLockAcquireRead(m_lock); }
    void EndRead() { QVRWLockReleaseRead(m_lock); }
    void Write() { QVRWLockAcquireWrite(m_lock); }
    void EndWrite() { QVRWLockReleaseWrite(m_lock); }
    void Upgrade() { Write(); }
    void Downgrade() { EndWrite(); }

private:
    QVRWLock m_lock;
};

#if QV_BENCH_HAS_QT
class Qt
{
public:
    void Read() { m_lock.lockForRead(); }
    void EndRead() { m_lock.unlock(); }
    void Write() { m_lock.lockForWrite(); }
    void EndWrite() { m_lock.unlock(); }

private:
    QReadWriteLock m_lock{QReadWriteLock::Recursive};
};
#endif

#if QV_BENCH_HAS_BOOST_THREAD
class Boost
{
public:
    void Read() { m_lock.lock_shared(); }
    void EndRead() { m_lock.unlock_shared(); }
    void Upgrade() { m_lock.unlock_upgrade_and_lock(); }
    void Downgrade() { m_lock.unlock_and_lock_upgrade(); }
    void BeginUpgradable() { m_lock.lock_upgrade(); }
    void EndUpgradable() { m_lock.unlock_upgrade(); }

private:
    boost::upgrade_mutex m_lock;
};
#endif

template <class Lock> void FirstRead(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.Read();
        lock.EndRead();
    }
}

template <class Lock> void NestedRead(benchmark::State& state)
{
    Lock lock;
    lock.Read();
    for (auto _ : state) {
        lock.Read();
        lock.EndRead();
    }
    lock.EndRead();
}

template <class Lock> void Write(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.Write();
        lock.EndWrite();
    }
}

template <class Lock> void NestedWrite(benchmark::State& state)
{
    Lock lock;
    lock.Write();
    for (auto _ : state) {
        lock.Write();
        lock.EndWrite();
    }
    lock.EndWrite();
}

void UpgradeOurs(benchmark::State& state)
{
    Ours lock;
    lock.Read();
    for (auto _ : state) {
        lock.Upgrade();
        lock.Downgrade();
    }
    lock.EndRead();
}

#if QV_BENCH_HAS_BOOST_THREAD
void UpgradeBoost(benchmark::State& state)
{
    Boost lock;
    lock.BeginUpgradable();
    for (auto _ : state) {
        lock.Upgrade();
        lock.Downgrade();
    }
    lock.EndUpgradable();
}
#endif

// For a fixed time; the time of one read and release is what counts.
template <class Lock> void TwoReaders(benchmark::State& state)
{
    for (auto _ : state) {
        Lock lock;
        std::atomic<bool> stop{false};
        std::atomic<int> ready{0};
        std::atomic<long> reads{0};
        auto work = [&](int processor) {
            const bench::Pinned pinned(processor);
            ++ready;
            while (ready.load() != 2) {
            }
            long own = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                lock.Read();
                lock.EndRead();
                ++own;
            }
            reads += own;
        };
        std::thread first(work, 0);
        std::thread second(work, 1);
        const auto begin = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        stop = true;
        first.join();
        second.join();
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(time.count() / static_cast<double>(reads.load()));
    }
}

void Register(const std::string& name, void (*run)(benchmark::State&))
{
    benchmark::RegisterBenchmark(("rw_lock/" + name).c_str(), run);
}

template <class Lock> void RegisterTwoReaders(const std::string& name)
{
    benchmark::RegisterBenchmark(("rw_lock/two_readers/" + name).c_str(), TwoReaders<Lock>)
        ->UseManualTime()
        ->Iterations(1);
}

template <class Lock> void RegisterAll(const std::string& name)
{
    Register("read/" + name, FirstRead<Lock>);
    Register("nested_read/" + name, NestedRead<Lock>);
    Register("write/" + name, Write<Lock>);
    Register("nested_write/" + name, NestedWrite<Lock>);
    RegisterTwoReaders<Lock>(name);
}

bool AddAll()
{
    RegisterAll<Ours>("QVRWLock");
    Register("upgrade/QVRWLock", UpgradeOurs);
#if QV_BENCH_HAS_QT
    RegisterAll<Qt>("QReadWriteLock");
#endif
#if QV_BENCH_HAS_BOOST_THREAD
    Register("read/upgrade_mutex", FirstRead<Boost>);
    Register("upgrade/upgrade_mutex", UpgradeBoost);
#endif
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"read, first", "rw_lock/read/QVRWLock", "rw_lock/read/QReadWriteLock", 0.6},
    {"read, first", "rw_lock/read/QVRWLock", "rw_lock/read/upgrade_mutex", 0.6},
    {"read, nested", "rw_lock/nested_read/QVRWLock", "rw_lock/nested_read/QReadWriteLock", 0.6},
    {"write", "rw_lock/write/QVRWLock", "rw_lock/write/QReadWriteLock", 1.3},
    {"write, nested", "rw_lock/nested_write/QVRWLock", "rw_lock/nested_write/QReadWriteLock", 0.5},
    {"upgrade and back", "rw_lock/upgrade/QVRWLock", "rw_lock/upgrade/upgrade_mutex", 0.6},
    {"read, two threads", "rw_lock/two_readers/QVRWLock", "rw_lock/two_readers/QReadWriteLock",
     0.55},
});

} // namespace
