#include "interleavings/programs.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace qv::explore
{

namespace
{

std::string FailureOf(const Program& program)
{
    // Each preemption more takes some ten times as long.
    const char* const more = std::getenv("QV_MORE_PREEMPTIONS");
    Limits limits = program.limits;
    limits.preemptions += more != nullptr ? std::atoi(more) : 0;
    const auto begin = std::chrono::steady_clock::now();
    const Outcome outcome = Explore(limits, program.make);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%9ld schedules, %d preemptions, %.2f s: %s\n", outcome.schedules,
                limits.preemptions, time.count(), program.name.c_str());
    return outcome.failure;
}

} // namespace

void ExpectHold(const std::vector<Program>& programs)
{
    std::string failure;
    for (std::size_t i = 0; i < programs.size() && failure.empty(); ++i) {
        failure = FailureOf(programs[i]); // the models may still know its threads
    }
    if (const char* const fault = std::getenv("QV_PLANTED_FAULT")) {
        std::printf("%s: %s\n", fault, failure.c_str());
        EXPECT_FALSE(failure.empty()) << "not found";
    } else {
        EXPECT_TRUE(failure.empty()) << failure;
    }
}

} // namespace qv::explore
