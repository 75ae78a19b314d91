// What the host remembers from run to run.
#pragma once

#include <cstddef>
#include <string>

#include "store.h"

namespace host
{

struct Settings
{
    std::size_t threads = 0; // 0: as many as there are processors
    std::string lastRun;     // in the local zone; empty in the first one
};

// What cannot be read is as in a first run.
Settings ReadSettings();
// With this moment as that of the last run.
Problem WriteSettings(const Settings& settings);

// Moves the whole store to an ini file in that folder, shows the file, and moves it back.
Problem ShowSettings(const std::string& folder);

} // namespace host
