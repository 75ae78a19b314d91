#include "platform/processor.h"

#include <sched.h>

#include <atomic>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include "platform/error.h"

namespace qv::platform
{

namespace
{

#if defined(__x86_64__) || defined(__i386__)
// The processor has the instructions, and the system keeps their registers.
bool HasAvx2()
{
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    constexpr unsigned needed = bit_OSXSAVE | bit_AVX;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & needed) != needed) {
        return false;
    }
    unsigned low = 0;
    unsigned high = 0;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    constexpr unsigned keptRegisters = 6;
    return (low & keptRegisters) == keptRegisters && __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 &&
           (b & bit_AVX2) != 0;
}
#else
bool HasAvx2()
{
    return false;
}
#endif

} // namespace

// Asked of the processor itself: the compiler's own answer needs start-up code in the library.
BOOL IsProcessorFeaturePresent(DWORD feature)
{
    return feature == PF_AVX2_INSTRUCTIONS_AVAILABLE && HasAvx2() ? kTrue : kFalse;
}

bool HasSeveralProcessors()
{
    static constinit std::atomic<int> count{0};
    int processors = count.load(std::memory_order_relaxed);
    if (processors == 0) {
        const KeepErrno keep;
        cpu_set_t set;
        // More processors than a set of the usual size has places for are an error.
        processors = sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : CPU_SETSIZE;
        count.store(processors, std::memory_order_relaxed);
    }
    return processors > 1;
}

} // namespace qv::platform
