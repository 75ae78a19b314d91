// Makes allocations of ICU fail, which calls none of the library's own.
#pragma once

#include <unicode/uclean.h>

#include <cstdlib>

namespace qv::test
{

// The allocation from now on, from 1, that fails; below 0 all do, 0 none.
inline int g_icuFailing = 0;

inline bool IcuFailsNow()
{
    return g_icuFailing < 0 || (g_icuFailing != 0 && --g_icuFailing == 0);
}

// For the rest of the program.
inline void TakeOverIcuMemory()
{
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(
        nullptr,
        [](const void*, std::size_t size) { return IcuFailsNow() ? nullptr : std::malloc(size); },
        [](const void*, void* block, std::size_t size) {
            return IcuFailsNow() ? nullptr : std::realloc(block, size);
        },
        [](const void*, void* block) { std::free(block); }, &status);
}

} // namespace qv::test
