#include "platform/file_time.h"

#include <chrono>

#include "platform/error.h"

namespace qv::platform
{

BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* record)
{
    using namespace std::chrono;
    constexpr std::uint64_t kStepsInMillisecond = 10'000;
    const std::uint64_t steps = std::uint64_t{time->dwHighDateTime} << 32 | time->dwLowDateTime;
    if (steps >> 63 != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return kFalse;
    }
    const sys_days epoch = 1601y / January / 1;
    const milliseconds since(static_cast<std::int64_t>(steps / kStepsInMillisecond));
    const auto past = floor<days>(since);
    const sys_days day = epoch + past;
    const year_month_day date(day);
    const hh_mm_ss clock(since - past);
    record->wYear = static_cast<std::uint16_t>(static_cast<int>(date.year()));
    record->wMonth = static_cast<std::uint16_t>(static_cast<unsigned>(date.month()));
    record->wDayOfWeek = static_cast<std::uint16_t>(weekday(day).c_encoding());
    record->wDay = static_cast<std::uint16_t>(static_cast<unsigned>(date.day()));
    record->wHour = static_cast<std::uint16_t>(clock.hours().count());
    record->wMinute = static_cast<std::uint16_t>(clock.minutes().count());
    record->wSecond = static_cast<std::uint16_t>(clock.seconds().count());
    record->wMilliseconds = static_cast<std::uint16_t>(clock.subseconds().count());
    return kTrue;
}

} // namespace qv::platform
