// A table of programs that must hold in every interleaving. If the environment names a
// QV_PLANTED_FAULT, the sources have that, and one of the programs must fail.
#pragma once

#include <memory>
#include <vector>

#include "interleavings/explorer.h"

namespace qv::explore
{

struct Program
{
    std::string name;
    std::function<Scenario()> make;
    Limits limits;
};

// Threads that each make the calls of a string, on a world that is new for each schedule. A world
// has Call(char) and CheckEnd(), and may have CheckStep().
template <class World, class... Arguments> Program Calls(std::string name,
                                                         const std::vector<std::string>& threads,
                                                         Limits limits, Arguments... arguments)
{
    for (const std::string& calls : threads) {
        name += "  " + calls;
    }
    const auto make = [=] {
        const auto world = std::make_shared<World>(arguments...);
        Scenario scenario = {.threads = {}, .atEnd = [world] { world->CheckEnd(); }};
        if constexpr (requires { world->CheckStep(); }) {
            scenario.afterEachStep = [world] { world->CheckStep(); };
        }
        for (const std::string& calls : threads) {
            scenario.threads.push_back([world, &calls] {
                for (const char call : calls) {
                    world->Call(call);
                }
            });
        }
        return scenario;
    };
    return {name, make, limits};
}

// Prints how many schedules each took. QV_MORE_PREEMPTIONS in the environment adds to the limits.
void ExpectHold(const std::vector<Program>& programs);

} // namespace qv::explore
