// A thread's whole life: start, an entry function that does nothing, and the wait for its end.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <qvcore6/thread.h>

namespace
{

void Ours(benchmark::State& state)
{
    for (auto _ : state) {
        QVThread thread = QV_THREAD_NONE;
        uint32_t id = 0;
        uint32_t exitCode = 0;
        QVThreadCreate([](void*) { return uint32_t{0}; }, nullptr, 0, 0, &thread, &id);
        if (QVThreadJoin(thread, &exitCode) < 0) {
            state.SkipWithError("no thread");
            break;
        }
    }
}

void Posix(benchmark::State& state)
{
    for (auto _ : state) {
        pthread_t thread{};
        void* value = nullptr;
        pthread_create(
            &thread, nullptr, [](void* argument) { return argument; }, nullptr);
        if (pthread_join(thread, &value) != 0) {
            state.SkipWithError("no thread");
            break;
        }
    }
}

void OurId(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(QVThreadGetID());
    }
}

// What a caller does by itself, and compares instead of an id.
void PosixSelf(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(pthread_self());
    }
}

bool AddAll()
{
    benchmark::RegisterBenchmark("thread/life/QVThread", Ours);
    benchmark::RegisterBenchmark("thread/life/pthread", Posix);
    benchmark::RegisterBenchmark("thread/id/QVThread", OurId);
    benchmark::RegisterBenchmark("thread/id/pthread_self", PosixSelf);
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"thread, create and join", "thread/life/QVThread", "thread/life/pthread", 1.15},
    {"thread, id of the caller", "thread/id/QVThread", "thread/id/pthread_self", 0},
});

} // namespace
