// The lock statistics, on the screen and as a file.
#pragma once

#include <filesystem>

#include "handles.h"

namespace host
{

// Prints what a mutex has counted, and appends the numbers of all such mutexes of the process to a
// file of comma-separated lines. False, with the reason printed, if they cannot be written.
bool ReportLock(const char* name, const Mutex& mutex, const std::filesystem::path& file);

} // namespace host
