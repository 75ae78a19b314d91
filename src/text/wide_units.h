// Plain loops over 16-bit units that several members share.
#pragma once

#include <qvcore6/base.h>

#include <cstring>

#include "text/ascii_kernels.h"

namespace qv::core
{

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

// Whether a terminated text starts with the count units, none of which is zero.
inline bool StartsWith(const QVWChar* text, const QVWChar* units, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (text[i] != units[i]) {
            return false;
        }
    }
    return true;
}

} // namespace qv::core
