// Whether a name means this computer, beside a map under a mutex.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/address.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace
{

// Addresses, so that no resolver is asked.
std::vector<std::string> Names()
{
    std::vector<std::string> names(200);
    int number = 1000;
    for (std::string& name : names) {
        name = "2001:DB8::" + std::to_string(number++);
    }
    return names;
}

void Ours(benchmark::State& state)
{
    const std::vector<std::string> names = Names();
    for (const std::string& name : names) {
        QVIsThisMyComputerA(name.c_str());
    }
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(QVIsThisMyComputerA(names[i++ % names.size()].c_str()));
    }
}

void Map(benchmark::State& state)
{
    const std::vector<std::string> names = Names();
    std::mutex mutex;
    std::map<std::string, std::int16_t> answers;
    const auto lowerCased = [](std::string name) {
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return name;
    };
    for (const std::string& name : names) {
        answers.emplace(lowerCased(name), std::int16_t{0});
    }
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string key = lowerCased(names[i++ % names.size()]);
        const std::lock_guard hold(mutex);
        benchmark::DoNotOptimize(answers.find(key)->second);
    }
}

bool AddAll()
{
    benchmark::RegisterBenchmark("address/QVIsThisMyComputerA", Ours);
    benchmark::RegisterBenchmark("address/mutex_and_map", Map);
    return true;
}

const bool g_registered = AddAll();
const bool g_added = bench::AddGoals(
    {{"known name, table of 200", "address/QVIsThisMyComputerA", "address/mutex_and_map", 0.8}});

} // namespace
