// The process's time zone, as it is now.
#pragma once

#include "platform/calendar.h"

namespace qv::platform
{

inline constexpr DWORD TIME_ZONE_ID_UNKNOWN = 0; // no daylight time within a year of now
inline constexpr DWORD TIME_ZONE_ID_STANDARD = 1;
inline constexpr DWORD TIME_ZONE_ID_DAYLIGHT = 2;
inline constexpr DWORD TIME_ZONE_ID_INVALID = 0xFFFFFFFF;

// UTC is local time plus Bias plus that of the part in force, in minutes.
struct TIME_ZONE_INFORMATION
{
    LONG Bias;
    WCHAR StandardName[32];
    SYSTEMTIME StandardDate; // zeros: the days of change are not told
    LONG StandardBias;
    WCHAR DaylightName[32];
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
};

// What is in force now: Bias plus the part's, in minutes. A small share of the price of the whole.
struct ZoneInForce
{
    LONG bias;
    bool isDaylight;
};
ZoneInForce AskZoneInForce();

extern "C"
{
    // One of the numbers above; never the last one here.
    DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION* zone);
}

} // namespace qv::platform
