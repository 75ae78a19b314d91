// The calendar: of the system clock now, and of seconds since 1970, in the process's time zone.
#pragma once

#include <cstdint>
#include <ctime>

#include "platform/critical_section.h"
#include "platform/types.h"

namespace qv::platform
{

struct SYSTEMTIME
{
    std::uint16_t wYear;
    std::uint16_t wMonth;     // January is 1
    std::uint16_t wDayOfWeek; // Sunday is 0
    std::uint16_t wDay;
    std::uint16_t wHour;
    std::uint16_t wMinute;
    std::uint16_t wSecond;
    std::uint16_t wMilliseconds;
};

// Held around every call that takes the C library's lock of the zone, and around a fork: a child
// would find that lock as another thread held it, for ever.
extern constinit CRITICAL_SECTION g_zoneLock;

extern "C"
{
    void GetSystemTime(SYSTEMTIME* time);
    void GetLocalTime(SYSTEMTIME* time);

    // A record of the calling thread, good until its next call. Null for negative times and those
    // after 2038-01-18 23:59:59 UTC.
    std::tm* _localtime32(const std::int32_t* time);
    // Brings the record into its ranges. -1, and the record as it was, if it lies outside the
    // times above.
    std::int32_t _mktime32(std::tm* record);
}

} // namespace qv::platform
