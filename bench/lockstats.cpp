// Mutexes that check their owner or keep statistics, free and nested.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/mutex.h>

#include <chrono>
#include <mutex>
#include <string>

namespace
{

template <std::uint32_t flags> struct Ours
{
    Ours() { QVMutexCreate("bench", flags, &m_mutex); }
    ~Ours() { QVMutexDestroy(m_mutex); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    void Lock() { QVMutexAcquire(m_mutex); }
    void Unlock() { QVMutexRelease(m_mutex); }
    QVMutex m_mutex;
};

// What one would write by hand for the same numbers.
struct Timed
{
    using Clock = std::chrono::steady_clock;

    void Lock()
    {
        const Clock::time_point start = Clock::now();
        m_mutex.lock();
        m_begin = Clock::now();
        m_waited += m_begin - start;
        ++m_acquired;
    }
    void Unlock()
    {
        m_held += Clock::now() - m_begin;
        ++m_released;
        m_mutex.unlock();
    }

    std::recursive_mutex m_mutex;
    Clock::time_point m_begin;
    Clock::duration m_waited{};
    Clock::duration m_held{};
    long m_acquired = 0;
    long m_released = 0;
};

template <class Lock> void Free(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.Lock();
        lock.Unlock();
    }
}

BENCHMARK(Free<Ours<0>>)->Name("lockstats/free/plain");
BENCHMARK(Free<Ours<QV_MUTEX_CHECKED>>)->Name("lockstats/free/checked");
BENCHMARK(Free<Ours<QV_MUTEX_STATS>>)->Name("lockstats/free/statistics");
BENCHMARK(Free<Timed>)->Name("lockstats/free/timed std::recursive_mutex");

const bool g_added = bench::AddGoals({
    {"checked mutex", "lockstats/free/checked", "lockstats/free/plain", 1.7},
    {"statistics mutex", "lockstats/free/statistics", "lockstats/free/timed std::recursive_mutex",
     1.0},
});

} // namespace
