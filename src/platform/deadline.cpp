#include "platform/deadline.h"

namespace qv::platform
{

namespace
{

std::int64_t Now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

} // namespace

Deadline Deadline::After(DWORD milliseconds)
{
    if (milliseconds == INFINITE) {
        return Deadline(kForever);
    }
    return Deadline(milliseconds == 0 ? 0 : Now() + std::int64_t{milliseconds} * 1'000'000);
}

Deadline Deadline::OrAfter(DWORD milliseconds) const
{
    const Deadline other = After(milliseconds);
    return m_nanoseconds < other.m_nanoseconds ? *this : other;
}

bool Deadline::HasPassed() const
{
    return !IsForever() && (IsNow() || Now() >= m_nanoseconds);
}

} // namespace qv::platform
