// The table of mutexes with statistics.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "locks/mutex.h"

namespace qv::core
{

// Types of the table's rows.
inline constexpr std::int32_t kLiveMutex = 0;
inline constexpr std::int32_t kDestroyedMutex = 4; // kept for its numbers

// By type, then by address. Each row owns the reference that the mutex's handle carried.
using LockKey = std::pair<std::int32_t, std::uintptr_t>;
using LockTable = std::map<LockKey, IMutex*>;

} // namespace qv::core
