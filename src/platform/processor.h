// What this machine's processor can do.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD PF_AVX2_INSTRUCTIONS_AVAILABLE = 40;

extern "C"
{
    // For the feature above, at the cost of a microsecond; kFalse for any other, and on other
    // machines.
    BOOL IsProcessorFeaturePresent(DWORD feature);
}

// True if two threads of this process may run at once. Asked of the system at the first call.
bool HasSeveralProcessors();

} // namespace qv::platform
