#include <qvcore6/result.h>
#include <qvcore6/str.h>
#include <qvcore6/time.h>

#include <bit>
#include <new>

#include "frame/facts.h"
#include "platform/calendar.h"
#include "platform/error.h"
#include "platform/system_time.h"
#include "platform/time_zone.h"

using namespace qv::platform;

namespace
{

// Clock steps of 100 ns between the epochs, 1601-01-01 and 1970-01-01.
constexpr std::uint64_t kPosixEpoch = 0x019DB1DED53E8000;

constexpr std::uint64_t kNanosecondsInSecond = 1'000'000'000;

template <class Number> std::uint16_t Cut(Number number)
{
    return static_cast<std::uint16_t>(number);
}

} // namespace

QVRESULT QVTimeGetLocal(QVTime* time)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    *time = std::bit_cast<QVTime>(now);
    return S_OK;
}

QVRESULT QVTimeGetSystem(QVTime* time)
{
    SYSTEMTIME now;
    GetSystemTime(&now);
    *time = std::bit_cast<QVTime>(now);
    return S_OK;
}

QVRESULT QVTimeGetPreciseTimestamp(uint64_t* nanoseconds)
{
    // The clock answers into the caller's place: one here would bring a stack guard, which shows
    // beside a clock.
    static_assert(sizeof(FILETIME) == sizeof *nanoseconds);
    auto* const now = new (nanoseconds) FILETIME;
    // A library that did not find out about its platform has no clock of choice.
    if (qv::core::s_getPreciseTime != nullptr) [[likely]] {
        qv::core::s_getPreciseTime(now);
    } else {
        GetSystemTimeAsFileTime(now);
    }
    const std::uint64_t steps = std::uint64_t{now->dwHighDateTime} << 32 | now->dwLowDateTime;
    new (nanoseconds) std::uint64_t(steps <= kPosixEpoch ? 1 : (steps - kPosixEpoch) * 100);
    return S_OK;
}

QVRESULT QVTimeGetTimeOfDay(QVTimeOfDay* timeOfDay)
{
    std::uint64_t now = 0;
    QVTimeGetPreciseTimestamp(&now);
    timeOfDay->seconds = static_cast<std::int64_t>(now / kNanosecondsInSecond);
    timeOfDay->nanoseconds = static_cast<std::int64_t>(now % kNanosecondsInSecond);
    return S_OK;
}

QVRESULT QVTimeGetZone(QVTimeZone* zone)
{
    *zone = {};
    TIME_ZONE_INFORMATION now;
    const DWORD part = GetTimeZoneInformation(&now);
    if (part == TIME_ZONE_ID_INVALID) {
        return QVResultFromNative(GetLastError());
    }
    LONG bias = now.Bias;
    if (part == TIME_ZONE_ID_DAYLIGHT) {
        bias += now.DaylightBias;
        zone->isDaylight = 1;
    } else if (part == TIME_ZONE_ID_STANDARD) {
        bias += now.StandardBias;
    }
    zone->biasSeconds = bias * 60;
    // The last unit stays the terminator.
    QVStrNCpyW(zone->standardName, now.StandardName, 31);
    QVStrNCpyW(zone->daylightName, now.DaylightName, 31);
    return S_OK;
}

QVRESULT QVTimeFromPosix(int32_t posixTime, QVTime* time)
{
    *time = {};
    const std::tm* const local = _localtime32(&posixTime);
    return local != nullptr ? QVTimeFromTM(local, time) : E_FAIL;
}

QVRESULT QVTimeFromTM(const struct tm* source, QVTime* time)
{
    time->year = Cut(1900u + static_cast<unsigned>(source->tm_year));
    time->month = Cut(1u + static_cast<unsigned>(source->tm_mon));
    time->dayOfWeek = Cut(source->tm_wday);
    time->day = Cut(source->tm_mday);
    time->hour = Cut(source->tm_hour);
    time->minute = Cut(source->tm_min);
    time->second = Cut(source->tm_sec);
    time->milliseconds = 0;
    return S_OK;
}

QVRESULT QVTimeToPosix(const QVTime* time, int32_t* posixTime)
{
    std::tm record = {};
    QVTimeToTM(time, &record);
    *posixTime = _mktime32(&record);
    return *posixTime == -1 ? E_FAIL : S_OK;
}

QVRESULT QVTimeToTM(const QVTime* time, struct tm* result)
{
    // After a failed query the record is all zero, which stands for no daylight time.
    QVTimeZone zone;
    QVTimeGetZone(&zone);
    result->tm_sec = time->second;
    result->tm_min = time->minute;
    result->tm_hour = time->hour;
    result->tm_mday = time->day;
    result->tm_mon = time->month - 1;
    result->tm_year = time->year - 1900;
    result->tm_wday = time->dayOfWeek;
    result->tm_isdst = zone.isDaylight;
    return S_OK;
}
