// Prints the table of ratios. --benchmark_filter=REGEX picks topics; a run with
// --benchmark_min_time=0.001 --benchmark_repetitions=1 only shows that every benchmark works.
#include "ratio.h"

#include <benchmark/benchmark.h>

#include <future>
#include <string>
#include <thread>
#include <vector>

int main(int argc, char** argv)
{
    std::vector<char*> arguments(argv, argv + argc);
    // Defaults come first, so that the command line overrides them.
    std::string repetitions = "--benchmark_repetitions=9";
    std::string interleaving = "--benchmark_enable_random_interleaving=true";
    std::string minTime = "--benchmark_min_time=0.1";
    arguments.insert(arguments.begin() + 1,
                     {repetitions.data(), interleaving.data(), minTime.data()});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    // The C library leaves atomics out while a process has one thread: measure with a second one.
    std::promise<void> done;
    std::thread second([&done] { done.get_future().wait(); });
    bench::RunAndPrint();
    done.set_value();
    second.join();
    return 0;
}
