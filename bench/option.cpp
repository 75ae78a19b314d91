// The parse of a command line, beside the C library's for long options.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <getopt.h>
#include <qvcore6/option.h>

#include <array>
#include <string>
#include <vector>

namespace
{

constexpr int kNames = 20;

// Every other element is an option, each another one.
struct Line
{
    Line()
    {
        for (int i = 0; i < kNames; ++i) {
            names[std::size_t(i)] = std::string(1, static_cast<char>('a' + i)) + "-long-option";
        }
        texts.emplace_back("prog");
        for (int i = 0; i < kNames; ++i) {
            texts.push_back(i % 2 != 0 ? "argument" : "--" + names[std::size_t(i)]);
        }
    }
    std::array<std::string, kNames> names;
    std::vector<std::string> texts;
};

std::vector<char*> Pointers(Line& line)
{
    std::vector<char*> pointers;
    for (std::string& text : line.texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

template <class Parse> void ParseAll(benchmark::State& state, Parse parse)
{
    Line line;
    const std::vector<char*> pointers = Pointers(line);
    std::vector<char*> argv;
    for (auto _ : state) {
        argv = pointers; // a parse moves them
        parse(line, static_cast<int>(argv.size()) - 1, argv.data());
    }
}

void Ours(benchmark::State& state)
{
    static QVOption table[kNames + 1];
    ParseAll(state, [](const Line& line, int argc, char** argv) {
        for (std::size_t i = 0; i < kNames; ++i) {
            table[i] = {line.names[i].c_str(), 0, 1};
        }
        QVGetOptionIndex = 0;
        int32_t result;
        while ((result = QVGetOption(argc, argv, table, nullptr)) != -1) {
            benchmark::DoNotOptimize(result);
        }
    });
}

void Theirs(benchmark::State& state)
{
    static option table[kNames + 1];
    ParseAll(state, [](const Line& line, int argc, char** argv) {
        for (std::size_t i = 0; i < kNames; ++i) {
            table[i] = {line.names[i].c_str(), 0, nullptr, 1};
        }
        optind = 0;
        int result;
        while ((result = getopt_long(argc, argv, "", table, nullptr)) != -1) {
            benchmark::DoNotOptimize(result);
        }
    });
}

bool AddAll()
{
    benchmark::RegisterBenchmark("option/QVGetOption", Ours);
    benchmark::RegisterBenchmark("option/getopt_long", Theirs);
    return true;
}

const bool g_registered = AddAll();
const bool g_added = bench::AddGoals(
    {{"20 elements, table of 20", "option/QVGetOption", "option/getopt_long", 1.0}});

} // namespace
