// Times of files as seconds since 1970, by way of the calendar.
#pragma once

#include <chrono>
#include <cstdint>

#include "platform/file_time.h"

namespace qv::core
{

// The long way: the time as local time now would show it, back from that to seconds. 0 if no
// calendar shows it, -1 if no seconds do.
std::int32_t PosixTimeOf(const platform::FILETIME& time);

// The same, remembered. Each step of the long way asks for the zone, which takes longer than all
// the rest of reading a folder. But all of a day, if its two ends do, differs by the same from the
// seconds since 1970 in UTC; so a few days are kept, for a second, in which the zone may change.
class PosixTimes
{
public:
    // Before the times of an entry.
    void Refresh();
    std::int32_t Of(const platform::FILETIME& time);

private:
    struct Day
    {
        std::int64_t number = -1; // since 1601
        bool isEven = false;      // its ends differ by the same
        std::int64_t difference = 0;
    };

    static Day Measure(std::int64_t number);

    static constexpr std::size_t kDays = 64;
    Day m_days[kDays];
    std::chrono::steady_clock::time_point m_until{};
};

} // namespace qv::core
