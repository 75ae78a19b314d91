// Plain mutexes: free, nested, and contended by two pinned threads.
#include "pin.h"
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/mutex.h>

#if QV_BENCH_HAS_GLIB
#include <glib.h>
#endif

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>

#include "empty_calls.h"

namespace
{

struct Ours
{
    Ours() { QVMutexCreate("bench", 0, &m_mutex); }
    ~Ours() { QVMutexDestroy(m_mutex); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    void Lock() { QVMutexAcquire(m_mutex); }
    void Unlock() { QVMutexRelease(m_mutex); }
    QVMutex m_mutex;
};

template <class Mutex> struct Std
{
    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }
    Mutex m_mutex;
};

// What two calls of the same shape cost that do nothing: exported, then virtual.
struct Empty
{
    void Lock() { EmptyExportedAcquire(m_object); }
    void Unlock() { EmptyExportedRelease(m_object); }
    EmptyObject* m_object = MakeEmptyObject();
};

#if QV_BENCH_HAS_GLIB
struct GRec
{
    GRec() { g_rec_mutex_init(&m_mutex); }
    ~GRec() { g_rec_mutex_clear(&m_mutex); }
    GRec(const GRec&) = delete;
    GRec& operator=(const GRec&) = delete;
    void Lock() { g_rec_mutex_lock(&m_mutex); }
    void Unlock() { g_rec_mutex_unlock(&m_mutex); }
    GRecMutex m_mutex;
};
#endif

template <class Lock> void Free(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.Lock();
        lock.Unlock();
    }
}

template <class Lock> void Nested(benchmark::State& state)
{
    Lock lock;
    lock.Lock();
    for (auto _ : state) {
        lock.Lock();
        lock.Unlock();
    }
    lock.Unlock();
}

// Lines of their own, so that every lock moves as many of them between the processors.
template <class Lock> struct Arena
{
    alignas(64) Lock lock;
    alignas(64) long counter = 0;
    alignas(64) std::atomic<bool> stop{false};
    alignas(64) std::atomic<int> ready{0};
    std::atomic<long> pairs{0};
};

// Two pinned threads for a fixed time; the time of one pair is what counts.
template <class Lock> void Contended(benchmark::State& state)
{
    for (auto _ : state) {
        Arena<Lock> arena;
        auto work = [&arena](int processor) {
            const bench::Pinned pinned(processor);
            ++arena.ready;
            while (arena.ready.load() != 2) {
            }
            long own = 0;
            while (!arena.stop.load(std::memory_order_relaxed)) {
                arena.lock.Lock();
                ++arena.counter;
                arena.lock.Unlock();
                ++own;
            }
            arena.pairs += own;
        };
        std::thread first(work, 0);
        std::thread second(work, 1);
        const auto begin = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        arena.stop = true;
        first.join();
        second.join();
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(time.count() / static_cast<double>(arena.pairs.load()));
    }
}

template <class Lock> void Add(const std::string& name, bool recursive)
{
    benchmark::RegisterBenchmark(("mutex/free/" + name).c_str(), Free<Lock>);
    if (recursive) {
        benchmark::RegisterBenchmark(("mutex/nested/" + name).c_str(), Nested<Lock>);
    }
    benchmark::RegisterBenchmark(("mutex/contended/" + name).c_str(), Contended<Lock>)
        ->UseManualTime()
        ->Iterations(1);
}

bool AddAll()
{
    Add<Ours>("QVMutex", true);
    Add<Std<std::mutex>>("std::mutex", false);
    Add<Std<std::recursive_mutex>>("std::recursive_mutex", true);
#if QV_BENCH_HAS_GLIB
    Add<GRec>("GRecMutex", true);
#endif
    benchmark::RegisterBenchmark("mutex/free/empty", Free<Empty>);
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"mutex, free", "mutex/free/QVMutex", "mutex/free/std::recursive_mutex", 0.6},
    {"mutex, free", "mutex/free/QVMutex", "mutex/free/std::mutex", 0.95},
    {"mutex, free", "mutex/free/QVMutex", "mutex/free/empty", 1.25},
    {"mutex, nested", "mutex/nested/QVMutex", "mutex/nested/std::recursive_mutex", 0.85},
    {"mutex, nested", "mutex/nested/QVMutex", "mutex/nested/GRecMutex", 0.85},
    {"mutex, two threads", "mutex/contended/QVMutex", "mutex/contended/std::recursive_mutex", 1.0},
    {"mutex, two threads", "mutex/contended/QVMutex", "mutex/contended/std::mutex", 1.0},
});

} // namespace
