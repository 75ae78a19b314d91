#include "platform/clock.h"

#include <ctime>

namespace qv::platform
{

BOOL QueryPerformanceCounter(std::int64_t* count)
{
    timespec now; // the clock cannot fail
    clock_gettime(CLOCK_MONOTONIC, &now);
    *count = std::int64_t{now.tv_sec} * 10'000'000 + static_cast<std::uint32_t>(now.tv_nsec) / 100;
    return kTrue;
}

BOOL QueryPerformanceFrequency(std::int64_t* frequency)
{
    *frequency = 10'000'000;
    return kTrue;
}

DWORD GetTickCount()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<DWORD>(std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000);
}

} // namespace qv::platform
