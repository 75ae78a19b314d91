// A time-out as one moment of the monotonic clock, fixed before the first try.
#pragma once

#include <cstdint>
#include <ctime>

#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD INFINITE = 0xFFFFFFFF;

class Deadline
{
public:
    // Milliseconds from now; INFINITE never comes, 0 is over at once and reads no clock.
    static Deadline After(DWORD milliseconds);

    bool IsForever() const { return m_nanoseconds == kForever; }
    // A wait that may not wait at all.
    bool IsNow() const { return m_nanoseconds == 0; }
    bool HasPassed() const;
    // The sooner of this one and that many milliseconds from now.
    Deadline OrAfter(DWORD milliseconds) const;
    // Since the clock's own start. Not to be asked of a deadline that never comes.
    std::int64_t Nanoseconds() const { return m_nanoseconds; }
    timespec Time() const
    {
        return {.tv_sec = m_nanoseconds / 1'000'000'000, .tv_nsec = m_nanoseconds % 1'000'000'000};
    }

private:
    static constexpr std::int64_t kForever = INT64_MAX;

    explicit Deadline(std::int64_t nanoseconds) : m_nanoseconds(nanoseconds) {}

    std::int64_t m_nanoseconds;
};

} // namespace qv::platform
