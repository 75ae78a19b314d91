#include <qvcore6/memory.h>

#include "platform/clock.h"
#include "platform/debugger.h"

using namespace qv::platform;

// Where the counter is missing, milliseconds stand in for it, and the frequency says so.

uint64_t QVPerfGetCount(void)
{
    std::int64_t count = 0;
    return QueryPerformanceCounter(&count) != 0 ? static_cast<uint64_t>(count) : GetTickCount();
}

uint64_t QVPerfGetFreq(void)
{
    std::int64_t frequency = 0;
    return QueryPerformanceFrequency(&frequency) != 0 ? static_cast<uint64_t>(frequency) : 1000;
}

uint32_t QVPerfGetCountMS(void)
{
    return GetTickCount();
}

void QVDebugBreak(void)
{
    DebugBreak();
}
