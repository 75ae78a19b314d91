#include "platform/calendar.h"

#include <time.h>

#include <chrono>

#include "platform/error.h"
#include "platform/section_hold.h"

namespace qv::platform
{

constinit CRITICAL_SECTION g_zoneLock{};

namespace
{

constexpr std::int64_t kLastTime = 0x7FFFD27F;
constexpr int kFirstYear = 69; // west of Greenwich, 1970 begins in a local 1969
constexpr int kLastYear = 138;

[[gnu::tls_model("initial-exec")]] constinit thread_local std::tm t_localTime = {};

timespec Now()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

std::uint16_t Milliseconds(const timespec& time)
{
    return static_cast<std::uint16_t>(time.tv_nsec / 1'000'000);
}

// In the zone as the environment has it now.
std::tm* Localise(std::time_t moment, std::tm* local)
{
    const SectionHold zone(&g_zoneLock);
    tzset();
    return localtime_r(&moment, local);
}

bool IsInRange(std::int64_t time)
{
    return time >= 0 && time <= kLastTime;
}

} // namespace

// Without the C library, which would take the lock of its time zone for this.
void GetSystemTime(SYSTEMTIME* time)
{
    using namespace std::chrono;
    const timespec now = Now();
    const sys_seconds moment{seconds{now.tv_sec}};
    const sys_days day = floor<days>(moment);
    const year_month_day date{day};
    const hh_mm_ss clock{moment - day};
    time->wYear = static_cast<std::uint16_t>(int{date.year()});
    time->wMonth = static_cast<std::uint16_t>(unsigned{date.month()});
    time->wDayOfWeek = static_cast<std::uint16_t>(weekday{day}.c_encoding());
    time->wDay = static_cast<std::uint16_t>(unsigned{date.day()});
    time->wHour = static_cast<std::uint16_t>(clock.hours().count());
    time->wMinute = static_cast<std::uint16_t>(clock.minutes().count());
    time->wSecond = static_cast<std::uint16_t>(clock.seconds().count());
    time->wMilliseconds = Milliseconds(now);
}

void GetLocalTime(SYSTEMTIME* time)
{
    const KeepErrno keep;
    const timespec now = Now();
    std::tm local = {};
    Localise(now.tv_sec, &local);
    time->wYear = static_cast<std::uint16_t>(local.tm_year + 1900);
    time->wMonth = static_cast<std::uint16_t>(local.tm_mon + 1);
    time->wDayOfWeek = static_cast<std::uint16_t>(local.tm_wday);
    time->wDay = static_cast<std::uint16_t>(local.tm_mday);
    time->wHour = static_cast<std::uint16_t>(local.tm_hour);
    time->wMinute = static_cast<std::uint16_t>(local.tm_min);
    time->wSecond = static_cast<std::uint16_t>(local.tm_sec);
    time->wMilliseconds = Milliseconds(now);
}

std::tm* _localtime32(const std::int32_t* time)
{
    const KeepErrno keep;
    if (!IsInRange(*time)) {
        return nullptr;
    }
    return Localise(*time, &t_localTime);
}

std::int32_t _mktime32(std::tm* record)
{
    const KeepErrno keep;
    if (record->tm_year < kFirstYear || record->tm_year > kLastYear) {
        return -1;
    }
    std::tm normal = *record;
    const std::int64_t time = [&normal] {
        const SectionHold zone(&g_zoneLock);
        return std::mktime(&normal);
    }();
    if (!IsInRange(time)) {
        return -1;
    }
    *record = normal;
    return static_cast<std::int32_t>(time);
}

} // namespace qv::platform
