#include "interleavings/programs.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace qv::explore
{

namespace
{

// Each preemption more takes some ten times as long. Sanitizers look at each step, so fewer
// schedules do for them.
int MorePreemptions()
{
#if defined(QV_FEWER_SCHEDULES)
    constexpr int kDefault = -1;
#else
    constexpr int kDefault = 0;
#endif
    const char* const wanted = std::getenv("QV_MORE_PREEMPTIONS");
    return wanted != nullptr ? std::atoi(wanted) : kDefault;
}

Outcome Run(const Program& program)
{
    Limits limits = program.limits;
    limits.preemptions += MorePreemptions();
    const auto begin = std::chrono::steady_clock::now();
    Outcome outcome = Explore(limits, program.make);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::printf("%9ld schedules, %d preemptions, %.2f s: %s\n", outcome.schedules,
                limits.preemptions, time.count(), program.name.c_str());
    return outcome;
}

} // namespace

void ExpectHold(const std::vector<Program>& programs)
{
    const char* const fault = std::getenv("QV_PLANTED_FAULT");
    for (const Program& program : programs) {
        const Outcome outcome = Run(program);
        if (outcome.failure.empty()) {
            continue;
        }
        // The models may still know threads of a schedule that failed: nothing runs after it.
        if (fault != nullptr) {
            std::printf("found: %s\n%s\n", fault, outcome.failure.c_str());
        } else {
            ADD_FAILURE() << program.name << ": " << outcome.failure;
        }
        return;
    }
    if (fault != nullptr) {
        ADD_FAILURE() << "not found: " << fault;
    }
}

} // namespace qv::explore
