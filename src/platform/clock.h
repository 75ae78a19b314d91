// The performance counter and the millisecond tick count.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    // Ticks of 100 nanoseconds; finer ones would overflow conversions to microseconds within hours.
    BOOL QueryPerformanceCounter(std::int64_t* count);
    // Ticks per second.
    BOOL QueryPerformanceFrequency(std::int64_t* frequency);
    // Milliseconds since the system's start, sleep included; wraps at 2^32.
    DWORD GetTickCount();
}

} // namespace qv::platform
