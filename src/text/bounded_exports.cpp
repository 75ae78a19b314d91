// The bounded copies, which always terminate inside the buffer.
#include <qvcore6/str.h>

#include <algorithm>

#include "text/wide_units.h"

using namespace qv::core;

namespace
{

// As u_strncpy: the terminator is copied, and what lies behind it in the bound is left alone. That
// call counts in signed 32 bits, which a bound may exceed.
void CopyToTerminator(QVWChar* dest, const QVWChar* src, uint32_t count)
{
    const std::size_t length = AsciiKernels::LengthWithin(src, count);
    CopyUnits(dest, src, length < count ? length + 1 : length);
}

// A buffer of no units cannot hold a terminator, so nothing can be right; at least nothing is hurt.
template <class Unit, class Copy>
Unit* BoundedCopy(Unit* dest, uint32_t destSize, const Unit* src, uint32_t maxCount, Copy copy)
{
    if (destSize == 0) {
        return dest;
    }
    const uint32_t count = std::min(destSize - 1, maxCount);
    copy(dest, src, count);
    dest[count] = 0;
    return dest;
}

template <class Unit, class Length, class Copy> Unit* BoundedCat(Unit* dest, uint32_t destSize,
                                                                 const Unit* src, uint32_t maxCount,
                                                                 Length length, Copy copy)
{
    if (destSize == 0) {
        return dest;
    }
    // A text without a terminator loses its last unit to one.
    const uint32_t end = std::min(length(dest, destSize), destSize - 1);
    return BoundedCopy(dest + end, destSize - end, src, maxCount, copy);
}

} // namespace

char* QVStrNZCpyA(char* dest, uint32_t destSize, const char* src, uint32_t maxCount)
{
    return BoundedCopy(dest, destSize, src, maxCount, QVStrNCpyA);
}

QVWChar* QVStrNZCpyW(QVWChar* dest, uint32_t destSize, const QVWChar* src, uint32_t maxCount)
{
    return BoundedCopy(dest, destSize, src, maxCount, QVStrNCpyW);
}

QVWChar* QVStrNZCpyUTF16(QVWChar* dest, uint32_t destSize, const QVWChar* src, uint32_t maxCount)
{
    return BoundedCopy(dest, destSize, src, maxCount, CopyToTerminator);
}

char* QVStrNZCatA(char* dest, uint32_t destSize, const char* src, uint32_t maxCount)
{
    return BoundedCat(dest, destSize, src, maxCount, QVStrNLenA, QVStrNCpyA);
}

QVWChar* QVStrNZCatW(QVWChar* dest, uint32_t destSize, const QVWChar* src, uint32_t maxCount)
{
    return BoundedCat(dest, destSize, src, maxCount, QVStrNLenW, QVStrNCpyW);
}

QVWChar* QVStrNZCatUTF16(QVWChar* dest, uint32_t destSize, const QVWChar* src, uint32_t maxCount)
{
    return BoundedCat(dest, destSize, src, maxCount, QVStrNLenW, CopyToTerminator);
}
