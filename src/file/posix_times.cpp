#include "file/posix_times.h"

#include <algorithm>
#include <iterator>

namespace qv::core
{

namespace
{

using namespace platform;

constexpr std::uint64_t kStepsInSecond = 10'000'000;
constexpr std::int64_t kPosixEpoch = 11'644'473'600; // in seconds since 1601
constexpr std::int64_t kSecondsInSpan = std::int64_t{4} * 86'400;
constexpr std::int32_t kUneven = INT32_MIN;

} // namespace

void PosixTimes::Refresh()
{
    const auto now = std::chrono::steady_clock::now();
    if (now >= m_until) {
        std::fill(std::begin(m_spans), std::end(m_spans), Span{});
        m_zone = AskZoneInForce();
        m_until = now + std::chrono::seconds(1);
    }
}

std::int32_t PosixTimes::Convert(std::uint64_t steps) const
{
    steps -= static_cast<std::uint64_t>(m_zone.bias * std::int64_t{60}) * kStepsInSecond;
    const FILETIME local = {static_cast<DWORD>(steps), static_cast<DWORD>(steps >> 32)};
    SYSTEMTIME shown;
    if (FileTimeToSystemTime(&local, &shown) == kFalse) {
        return 0;
    }
    std::tm record = {}; // as QVTimeToPosix has it, which would ask for the zone each time
    record.tm_year = shown.wYear - 1900;
    record.tm_mon = shown.wMonth - 1;
    record.tm_mday = shown.wDay;
    record.tm_hour = shown.wHour;
    record.tm_min = shown.wMinute;
    record.tm_sec = shown.wSecond;
    record.tm_isdst = m_zone.isDaylight ? 1 : 0;
    return _mktime32(&record);
}

PosixTimes::Span PosixTimes::Measure(std::int32_t number) const
{
    const std::int64_t first = number * kSecondsInSpan;
    const std::int64_t last = first + kSecondsInSpan - 1;
    const std::int32_t atFirst = Convert(static_cast<std::uint64_t>(first) * kStepsInSecond);
    const std::int32_t atLast = Convert(static_cast<std::uint64_t>(last) * kStepsInSecond);
    const std::int64_t difference = atFirst - (first - kPosixEpoch);
    const bool isEven = atFirst > 0 && atLast > 0 && atLast - (last - kPosixEpoch) == difference;
    return {number, isEven ? static_cast<std::int32_t>(difference) : kUneven};
}

std::int32_t PosixTimes::Of(const FILETIME& time)
{
    const std::uint64_t steps = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    const auto second = static_cast<std::int64_t>(steps / kStepsInSecond);
    const auto number = static_cast<std::int32_t>(second / kSecondsInSpan);
    Span& span = m_spans[static_cast<std::size_t>(number) % kSpans];
    if (span.number != number) {
        span = Measure(number);
    }
    return span.difference != kUneven
               ? static_cast<std::int32_t>(second - kPosixEpoch + span.difference)
               : Convert(steps);
}

} // namespace qv::core
