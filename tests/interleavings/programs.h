// A table of programs that must hold in every interleaving. If the environment names a
// QV_PLANTED_FAULT, the sources have that, and one of the programs must fail.
#pragma once

#include <vector>

#include "interleavings/explorer.h"

namespace qv::explore
{

struct Program
{
    std::string name;
    std::function<Scenario()> make;
    Limits limits = {};
};

// Prints how many schedules each took. QV_MORE_PREEMPTIONS in the environment adds to the limits.
void ExpectHold(const std::vector<Program>& programs);

} // namespace qv::explore
