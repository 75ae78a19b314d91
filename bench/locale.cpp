// The name of the user's locale, beside a bare search in the same table.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/locale.h>

#include <algorithm>
#include <iterator>

#include "text/locale_table.h"

namespace
{

using qv::core::kLocales;

// All numbers, in an order that no predictor learns.
template <class Find> void Search(benchmark::State& state, Find find)
{
    std::size_t i = 0;
    for (auto _ : state) {
        i = (i * 157 + 89) % std::size(kLocales);
        benchmark::DoNotOptimize(find(kLocales[i].id));
    }
}

const char* Bare(std::uint32_t id)
{
    return std::lower_bound(std::begin(kLocales), std::end(kLocales), id,
                            [](const auto& row, std::uint32_t right) { return row.id < right; })
        ->name;
}

void Default(benchmark::State& state)
{
    QVWChar name[16];
    for (auto _ : state) {
        QVGetDefaultLocale(name, 16);
        benchmark::DoNotOptimize(name);
    }
}

bool AddAll()
{
    benchmark::RegisterBenchmark("locale/LocaleName",
                                 [](auto& state) { Search(state, qv::core::LocaleName); });
    benchmark::RegisterBenchmark("locale/lower_bound", [](auto& state) { Search(state, Bare); });
    benchmark::RegisterBenchmark("locale/QVGetDefaultLocale", Default);
    return true;
}

const bool g_registered = AddAll();
const bool g_added =
    bench::AddGoals({{"name of a locale", "locale/LocaleName", "locale/lower_bound", 1.2},
                     {"the user's, whole", "locale/QVGetDefaultLocale", "locale/lower_bound", 0}});

} // namespace
