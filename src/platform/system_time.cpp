#include "platform/system_time.h"

#include <ctime>

namespace qv::platform
{

namespace
{

// Steps of 100 ns from 1601-01-01 to 1970-01-01.
constexpr std::int64_t kUnixEpoch = 116444736000000000;

} // namespace

void GetSystemTimePreciseAsFileTime(FILETIME* time)
{
    timespec now; // the clock cannot fail
    clock_gettime(CLOCK_REALTIME, &now);
    const auto steps =
        static_cast<std::uint64_t>(std::int64_t{now.tv_sec} * 10000000 + kUnixEpoch) +
        static_cast<std::uint32_t>(now.tv_nsec) / 100;
    time->dwLowDateTime = static_cast<DWORD>(steps);
    time->dwHighDateTime = static_cast<DWORD>(steps >> 32);
}

// The kernel's clock has one precision, so the two calls do not differ.
void GetSystemTimeAsFileTime(FILETIME* time)
{
    GetSystemTimePreciseAsFileTime(time);
}

} // namespace qv::platform
