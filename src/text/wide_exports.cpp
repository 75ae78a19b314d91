#include <qvcore6/str.h>

#include <algorithm>

#include "platform/wide_text.h"
#include "text/wide_search.h"
#include "text/wide_units.h"

using namespace qv::core;

size_t QVStrLenW(const QVWChar* s)
{
    return WideLength(s);
}

uint32_t QVStrNLenW(const QVWChar* s, uint32_t max)
{
    return static_cast<uint32_t>(AsciiKernels::LengthWithin(s, max));
}

QVWChar* QVStrCpyW(QVWChar* dest, const QVWChar* src)
{
    CopyUnits(dest, src, WideLength(src) + 1);
    return dest;
}

QVWChar* QVStrNCpyW(QVWChar* dest, const QVWChar* src, uint32_t n)
{
    const std::size_t length = AsciiKernels::LengthWithin(src, n);
    CopyUnits(dest, src, length);
    std::fill(dest + length, dest + n, QVWChar{0});
    return dest;
}

QVWChar* QVStrCatW(QVWChar* dest, const QVWChar* src)
{
    QVStrCpyW(dest + WideLength(dest), src);
    return dest;
}

QVWChar* QVStrNCatW(QVWChar* dest, const QVWChar* src, uint32_t n)
{
    QVWChar* const end = dest + WideLength(dest);
    const std::size_t length = AsciiKernels::LengthWithin(src, n);
    CopyUnits(end, src, length);
    end[length] = 0;
    return dest;
}

int32_t QVStrCmpW(const QVWChar* first, const QVWChar* second)
{
    const int32_t difference = UnitDifference(first, second);
    return (difference > 0) - (difference < 0);
}

int32_t QVStrNCmpW(const QVWChar* first, const QVWChar* second, uint32_t n)
{
    for (; n != 0; ++first, ++second, --n) {
        if (*first != *second) {
            return *first < *second ? -1 : 1;
        }
        if (*first == 0) {
            break;
        }
    }
    return 0;
}

int32_t QVStrICmpW(const QVWChar* first, const QVWChar* second)
{
    return qv::platform::_wcsicmp(first, second);
}

int32_t QVStrNICmpW(const QVWChar* first, const QVWChar* second, uint32_t n)
{
    return qv::platform::_wcsnicmp(first, second, n);
}

QVWChar* QVStrChrW(const QVWChar* s, QVWChar character)
{
    return const_cast<QVWChar*>(FindUnit(s, character));
}

QVWChar* QVStrRChrW(const QVWChar* s, QVWChar character)
{
    const QVWChar* at = s + WideLength(s);
    while (*at != character) {
        if (at == s) {
            return nullptr;
        }
        --at;
    }
    return const_cast<QVWChar*>(at);
}

QVWChar* QVStrStrW(const QVWChar* s, const QVWChar* sub)
{
    return const_cast<QVWChar*>(FindText(s, sub, Pairs::MaySplit));
}
