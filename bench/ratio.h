// Goals of the benchmarks: a path of ours beside a peer in the same run, as a ratio of medians.
#pragma once

#include <initializer_list>
#include <string>

namespace bench
{

struct Goal
{
    std::string path; // what a reader of the table sees
    std::string ours; // benchmark names, with their arguments: "StrLenW/64"
    std::string peer;
    double atMost; // ours / peer; 0 shows the ratio without a goal
};

// Call from a static initialiser of a topic's file; the return value has no meaning.
bool AddGoals(std::initializer_list<Goal> goals);

// Runs the registered benchmarks in interleaved repetitions and prints the table of ratios.
void RunAndPrint();

} // namespace bench
