// The model of a critical section, found instead of the real one by explored sources.
#pragma once

#include <cstdint>

#include "interleavings/explored_atomic.h"
#include "platform/types.h"

namespace qv::platform
{

struct CRITICAL_SECTION
{
    static constexpr int kNobody = -2;

    bool IsFree() const { return holder == kNobody; }

    std::uint32_t depth = 0; // levels beyond the first
    int holder = kNobody;
    explore::Liveness<std::uint32_t> liveness;
};

inline void InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* /*section*/, DWORD /*spin*/) {}
inline void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    section->liveness.Check();
}
LONG EnterCriticalSection(CRITICAL_SECTION* section, explore::Where where = explore::Here());
BOOL TryEnterCriticalSection(CRITICAL_SECTION* section, explore::Where where = explore::Here());
void LeaveCriticalSection(CRITICAL_SECTION* section, explore::Where where = explore::Here());
inline bool HoldsCriticalSection(const CRITICAL_SECTION& section)
{
    return section.holder == explore::CurrentThread();
}

} // namespace qv::platform
