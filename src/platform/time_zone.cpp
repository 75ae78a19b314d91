#include "platform/time_zone.h"

#include <time.h>

#include <cstddef>

#include "platform/error.h"
#include "platform/section_hold.h"

namespace qv::platform
{

namespace
{

// A week finds every daylight period that a zone has had in decades. The one that begins or ends
// between two looks is in force at the next.
constexpr std::time_t kStep = std::time_t{7} * 24 * 3600;
constexpr std::time_t kYear = std::time_t{366} * 24 * 3600;

// The zone's names in a record of the C library live as long as the process.
struct Part
{
    bool found = false;
    long offset = 0; // east of Greenwich, in seconds
    const char* name = "";
};

// The nearest standard and the nearest daylight time around a moment. The C library's variables
// for them tell what was last in force in the zone's whole history.
class Parts
{
public:
    const Part& Standard() const { return m_parts[0]; }
    const Part& Daylight() const { return m_parts[1]; }

    // Both give whether daylight time is in force at the moment.
    bool LookAround(std::time_t moment)
    {
        const SectionHold zone(&g_zoneLock);
        tzset();
        const bool daylight = Look(moment);
        for (std::time_t away = kStep; away < kYear + kStep && !AreComplete(); away += kStep) {
            Look(moment - away);
            Look(moment + away);
        }
        return daylight;
    }

private:
    bool Look(std::time_t moment)
    {
        std::tm local = {};
        local.tm_zone = "";
        localtime_r(&moment, &local);
        const bool daylight = local.tm_isdst > 0;
        Part& part = m_parts[daylight ? 1 : 0];
        if (!part.found) {
            part = {true, local.tm_gmtoff, local.tm_zone};
        }
        return daylight;
    }
    bool AreComplete() const { return m_parts[0].found && m_parts[1].found; }

    Part m_parts[2]; // standard, daylight
};

// Names of zones are ASCII.
template <std::size_t size> void CopyName(WCHAR (&out)[size], const char* name)
{
    for (std::size_t i = 0; i + 1 < size && name[i] != '\0'; ++i) {
        out[i] = static_cast<unsigned char>(name[i]);
    }
}

std::time_t Now()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

} // namespace

ZoneInForce AskZoneInForce()
{
    const KeepErrno keep;
    const SectionHold zone(&g_zoneLock);
    const std::time_t now = Now();
    std::tm local = {};
    tzset();
    localtime_r(&now, &local);
    return {static_cast<LONG>(-local.tm_gmtoff / 60), local.tm_isdst > 0};
}

DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION* zone)
{
    const KeepErrno keep;
    Parts parts;
    const bool isDaylight = parts.LookAround(Now());
    // In a zone that has had one part alone for a year, both are that one.
    const bool hasDaylight = parts.Daylight().found;
    const Part& standard = parts.Standard().found ? parts.Standard() : parts.Daylight();
    const Part& daylight = hasDaylight ? parts.Daylight() : parts.Standard();

    *zone = {};
    zone->Bias = static_cast<LONG>(-standard.offset / 60);
    zone->DaylightBias = static_cast<LONG>((standard.offset - daylight.offset) / 60);
    CopyName(zone->StandardName, standard.name);
    CopyName(zone->DaylightName, daylight.name);
    if (!hasDaylight) {
        return TIME_ZONE_ID_UNKNOWN;
    }
    return isDaylight ? TIME_ZONE_ID_DAYLIGHT : TIME_ZONE_ID_STANDARD;
}

} // namespace qv::platform
