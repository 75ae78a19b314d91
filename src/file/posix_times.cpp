#include "file/posix_times.h"

#include <qvcore6/time.h>

#include <algorithm>
#include <iterator>

namespace qv::core
{

namespace
{

using namespace platform;

constexpr std::uint64_t kStepsInSecond = 10'000'000;
constexpr std::int64_t kSecondsInDay = 86'400;

FILETIME TimeAt(std::int64_t second)
{
    const std::uint64_t steps = static_cast<std::uint64_t>(second) * kStepsInSecond;
    return {static_cast<DWORD>(steps), static_cast<DWORD>(steps >> 32)};
}

} // namespace

std::int32_t PosixTimeOf(const FILETIME& time)
{
    FILETIME local;
    SYSTEMTIME record;
    if (FileTimeToLocalFileTime(&time, &local) == kFalse ||
        FileTimeToSystemTime(&local, &record) == kFalse) {
        return 0;
    }
    const QVTime shown = {record.wYear, record.wMonth,  record.wDayOfWeek, record.wDay,
                          record.wHour, record.wMinute, record.wSecond,    record.wMilliseconds};
    std::int32_t seconds = 0;
    QVTimeToPosix(&shown, &seconds);
    return seconds;
}

void PosixTimes::Refresh()
{
    const auto now = std::chrono::steady_clock::now();
    if (now >= m_until) {
        std::fill(std::begin(m_days), std::end(m_days), Day{});
        m_until = now + std::chrono::seconds(1);
    }
}

PosixTimes::Day PosixTimes::Measure(std::int64_t number)
{
    const std::int64_t first = number * kSecondsInDay;
    const std::int64_t last = first + kSecondsInDay - 1;
    const std::int32_t atFirst = PosixTimeOf(TimeAt(first));
    const std::int32_t atLast = PosixTimeOf(TimeAt(last));
    const bool isEven = atFirst > 0 && atLast > 0 && atFirst - first == atLast - last;
    return {number, isEven, atFirst - first};
}

std::int32_t PosixTimes::Of(const FILETIME& time)
{
    const std::uint64_t steps = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    if (steps >> 63 != 0) {
        return PosixTimeOf(time);
    }
    const auto second = static_cast<std::int64_t>(steps / kStepsInSecond);
    const std::int64_t number = second / kSecondsInDay;
    Day& day = m_days[static_cast<std::size_t>(number) % kDays];
    if (day.number != number) {
        day = Measure(number);
    }
    return day.isEven ? static_cast<std::int32_t>(second + day.difference) : PosixTimeOf(time);
}

} // namespace qv::core
