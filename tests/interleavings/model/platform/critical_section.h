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

    std::uint32_t depth = 0; // levels beyond the first
    int holder = kNobody;
    explore::Liveness<std::uint32_t> liveness;
};

BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spin);
void InitializeCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);
LONG EnterCriticalSection(CRITICAL_SECTION* section, explore::Where where = explore::Here());
BOOL TryEnterCriticalSection(CRITICAL_SECTION* section, explore::Where where = explore::Here());
void LeaveCriticalSection(CRITICAL_SECTION* section, explore::Where where = explore::Here());
bool HoldsCriticalSection(const CRITICAL_SECTION& section);

} // namespace qv::platform
