// The system clock as a file time.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    void GetSystemTimePreciseAsFileTime(FILETIME* time);
    void GetSystemTimeAsFileTime(FILETIME* time);
}

} // namespace qv::platform
