// What several members do with 16-bit units.
#pragma once

#include <qvcore6/base.h>

#include <cstring>

#include "text/ascii_kernels.h"

namespace qv::core
{

constexpr bool IsLead(QVWChar unit)
{
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool IsTrail(QVWChar unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

inline std::size_t WideLength(const QVWChar* text)
{
    return AsciiKernels::Length(text);
}

inline void CopyUnits(QVWChar* dest, const QVWChar* src, std::size_t count)
{
    std::memcpy(dest, src, count * sizeof(QVWChar));
}

// The first place of the unit, which may be the terminator, or null.
inline const QVWChar* FindUnit(const QVWChar* text, QVWChar unit)
{
    const QVWChar* const at = text + AsciiKernels::FindUnit(text, unit);
    return *at == unit ? at : nullptr;
}

inline int32_t UnitDifference(const QVWChar* first, const QVWChar* second)
{
    while (*first == *second && *first != 0) {
        ++first;
        ++second;
    }
    return *first - *second;
}

} // namespace qv::core
