// Times of files as the calendar shows them.
#pragma once

#include "platform/calendar.h"
#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    // Error 87 for a time from 2^63 steps on.
    BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* record);
}

} // namespace qv::platform
