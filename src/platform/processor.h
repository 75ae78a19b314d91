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

// In a loop that waits for another processor: gives way to it for some ten cycles.
inline void PauseProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

} // namespace qv::platform
