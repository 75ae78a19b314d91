// Times of files as seconds since 1970, by way of the calendar: the time as local time now would
// show it, back from that to seconds. 0 if no calendar shows it, -1 if no seconds do.
#pragma once

#include <chrono>
#include <cstdint>

#include "platform/file_time.h"
#include "platform/time_zone.h"

namespace qv::core
{

// The way there and back takes longer than all the rest of reading an entry. But all of a few days,
// if their two ends do, differ by the same from the seconds since 1970 in UTC: no zone has changed
// twice in less than six. So the differences are kept, for a second, in which the zone may change.
class PosixTimes
{
public:
    // Before the times of an entry.
    void Refresh();
    std::int32_t Of(const platform::FILETIME& time);

private:
    struct Span
    {
        std::int32_t number = -1; // since 1601
        std::int32_t difference = 0;
    };

    std::int32_t Convert(std::uint64_t steps) const;
    Span Measure(std::int32_t number) const;

    static constexpr std::size_t kSpans = 256; // nearly three years
    Span m_spans[kSpans];
    platform::ZoneInForce m_zone{};
    std::chrono::steady_clock::time_point m_until{};
};

} // namespace qv::core
