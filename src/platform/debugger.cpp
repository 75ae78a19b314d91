#include "platform/debugger.h"

#include <csignal>

namespace qv::platform
{

void DebugBreak()
{
#if defined(__x86_64__) || defined(__i386__)
    // Not raise(SIGTRAP): a thread that blocks the signal would silently go on.
    __asm__ volatile("int3");
#else
    std::raise(SIGTRAP);
#endif
}

} // namespace qv::platform
