// The clock, beside the C library's, and what local time costs.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/time.h>

#include <ctime>

namespace
{

void Timestamp(benchmark::State& state)
{
    for (auto _ : state) {
        std::uint64_t now = 0;
        QVTimeGetPreciseTimestamp(&now);
        benchmark::DoNotOptimize(now);
    }
}

void ClockGettime(benchmark::State& state)
{
    for (auto _ : state) {
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
    }
}

void ToPosix(benchmark::State& state)
{
    QVTime time = {};
    QVTimeGetLocal(&time);
    for (auto _ : state) {
        std::int32_t posix = 0;
        QVTimeToPosix(&time, &posix);
        benchmark::DoNotOptimize(posix);
    }
}

void Mktime(benchmark::State& state)
{
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    for (auto _ : state) {
        std::tm record = local;
        std::time_t time = std::mktime(&record);
        benchmark::DoNotOptimize(time);
    }
}

BENCHMARK(Timestamp)->Name("time/timestamp/QVTimeGetPreciseTimestamp");
BENCHMARK(ClockGettime)->Name("time/timestamp/clock_gettime");
BENCHMARK(ToPosix)->Name("time/to_posix/QVTimeToPosix");
BENCHMARK(Mktime)->Name("time/to_posix/mktime");

const bool g_added = bench::AddGoals({
    {"time stamp", "time/timestamp/QVTimeGetPreciseTimestamp", "time/timestamp/clock_gettime", 1.1},
    {"record to seconds", "time/to_posix/QVTimeToPosix", "time/to_posix/mktime", 0},
});

} // namespace
