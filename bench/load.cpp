// Loading and unloading the library in a process that has its dependencies loaded already.
#include "ratio.h"

#include <benchmark/benchmark.h>

#include <dlfcn.h>

namespace
{

// A second copy by another name, since this program is itself linked with the library.
void LoadAndUnload(benchmark::State& state, const char* path)
{
    for (auto _ : state) {
        void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            state.SkipWithError(dlerror());
            return;
        }
        dlclose(library);
    }
}

bool AddAll()
{
    benchmark::RegisterBenchmark("load/qvcore6", LoadAndUnload, QV_BENCH_COPY);
    benchmark::RegisterBenchmark("load/empty", LoadAndUnload, QV_BENCH_EMPTY_COPY);
    return true;
}

const bool g_registered = AddAll();

// The goal is a difference of at most a millisecond; the table shows both times.
const bool g_added = bench::AddGoals({{"load + unload (+ 1 ms)", "load/qvcore6", "load/empty", 0}});

} // namespace
