#include <qvcore6/str.h>

#include <cstring>
#include <new>

#include "text/wide_units.h"

using namespace qv::core;

namespace
{

// Both kinds of copies are plain bytes, so that either function may free either kind.
template <class Unit> Unit* Copy(const Unit* text, std::size_t length)
{
    if (length > SIZE_MAX / sizeof(Unit) - 1) {
        throw std::bad_alloc();
    }
    auto* const copy = static_cast<Unit*>(::operator new[]((length + 1) * sizeof(Unit)));
    std::memcpy(copy, text, length * sizeof(Unit));
    copy[length] = 0;
    return copy;
}

} // namespace

// No handler here on purpose: running out of memory is the caller's exception.

char* QVStrDupA(const char* s)
{
    return s == nullptr ? nullptr : Copy(s, std::strlen(s));
}

QVWChar* QVStrDupW(const QVWChar* s)
{
    return s == nullptr ? nullptr : Copy(s, WideLength(s));
}

char* QVStrNDupA(const char* s, uint32_t max)
{
    return s == nullptr ? nullptr : Copy(s, QVStrNLenA(s, max));
}

QVWChar* QVStrNDupW(const QVWChar* s, uint32_t max)
{
    return s == nullptr ? nullptr : Copy(s, QVStrNLenW(s, max));
}

void QVStrFreeA(char* p)
{
    ::operator delete[](p);
}

void QVStrFreeW(QVWChar* p)
{
    ::operator delete[](p);
}
