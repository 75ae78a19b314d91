// One call of ICU each, but for UTF-32, which goes through UTF-16.
#include <qvcore6/encoding.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "text/encoding_converter.h"

using qv::core::ResultOf;

namespace
{

constexpr int32_t kStackUnits = 512;

template <class Convert, class To, class From>
QVRESULT AtOnce(Convert convert, To* dest, int32_t destCapacity, int32_t* destLength,
                const From* src, int32_t srcLength, int32_t subChar)
{
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    convert(dest, destCapacity, &length, src, srcLength, subChar, nullptr, &status);
    if (destLength != nullptr) {
        *destLength = length;
    }
    return ResultOf(status);
}

std::size_t Count(const char* text)
{
    return std::strlen(text);
}

std::size_t Count(const uint32_t* text)
{
    std::size_t count = 0;
    while (text[count] != 0) {
        ++count;
    }
    return count;
}

// Makes the length of a terminated source known. False if there is none that ICU could take.
template <class Unit> bool Measure(const Unit* src, int32_t* length, int32_t* destLength)
{
    if (*length >= 0) {
        return true;
    }
    *destLength = 0;
    const std::size_t counted = src != nullptr ? Count(src) : SIZE_MAX;
    *length = static_cast<int32_t>(counted);
    return counted <= INT32_MAX;
}

// Of UTF-16, on the stack when it is short.
class Pivot
{
public:
    // False without memory.
    bool Make(std::int64_t units)
    {
        if (units < kStackUnits) {
            return true;
        }
        if (units > INT32_MAX) {
            return false;
        }
        m_capacity = static_cast<int32_t>(units);
        m_heap.reset(new (std::nothrow) UChar[static_cast<std::size_t>(units)]);
        m_units = m_heap.get();
        return m_units != nullptr;
    }

    UChar* Units() { return m_units; }
    int32_t Capacity() const { return m_capacity; }

private:
    UChar m_stack[kStackUnits];
    std::unique_ptr<UChar[]> m_heap;
    UChar* m_units = m_stack;
    int32_t m_capacity = kStackUnits;
};

// fill(pivot, capacity, &length, &status), then empty(the same) if that has not failed.
template <class Fill, class Empty>
QVRESULT Through(std::int64_t units, int32_t* destLength, Fill fill, Empty empty)
{
    Pivot pivot;
    if (!pivot.Make(units)) {
        return E_FAIL;
    }
    int32_t length = 0;
    int32_t needed = 0;
    UErrorCode status = U_ZERO_ERROR;
    fill(pivot.Units(), pivot.Capacity(), &length, &status);
    if (U_SUCCESS(status)) {
        status = U_ZERO_ERROR;
        empty(pivot.Units(), length, &needed, &status);
    }
    *destLength = needed;
    return ResultOf(status);
}

} // namespace

QVRESULT QVEncUTF8ToUTF16(QVWChar* dest, int32_t destCapacity, int32_t* destLength, const char* src,
                          int32_t srcLength, int32_t subChar)
{
    return AtOnce(u_strFromUTF8WithSub, dest, destCapacity, destLength, src, srcLength, subChar);
}

QVRESULT QVEncUTF16ToUTF8(char* dest, int32_t destCapacity, int32_t* destLength, const QVWChar* src,
                          int32_t srcLength, int32_t subChar)
{
    return AtOnce(u_strToUTF8WithSub, dest, destCapacity, destLength, src, srcLength, subChar);
}

QVRESULT QVUTF8ToW(QVWChar* dest, int32_t destCapacity, int32_t* destLength, const char* src,
                   int32_t srcLength, int32_t subChar)
{
    return QVEncUTF8ToUTF16(dest, destCapacity, destLength, src, srcLength, subChar);
}

QVRESULT QVWToUTF8(char* dest, int32_t destCapacity, int32_t* destLength, const QVWChar* src,
                   int32_t srcLength, int32_t subChar)
{
    return QVEncUTF16ToUTF8(dest, destCapacity, destLength, src, srcLength, subChar);
}

QVRESULT QVEncUTF8ToUTF32(uint32_t* dest, int32_t destCapacity, int32_t* destLength,
                          const char* src, int32_t srcLength, int32_t subChar)
{
    if (!Measure(src, &srcLength, destLength)) {
        return E_FAIL;
    }
    return Through(
        srcLength, destLength,
        [&](UChar* pivot, int32_t capacity, int32_t* length, UErrorCode* status) {
            u_strFromUTF8WithSub(pivot, capacity, length, src, srcLength, subChar, nullptr, status);
        },
        [&](const UChar* pivot, int32_t length, int32_t* needed, UErrorCode* status) {
            u_strToUTF32(reinterpret_cast<UChar32*>(dest), destCapacity, needed, pivot, length,
                         status);
        });
}

QVRESULT QVEncUTF32ToUTF8(char* dest, int32_t destCapacity, int32_t* destLength,
                          const uint32_t* src, int32_t srcLength, int32_t subChar)
{
    if (!Measure(src, &srcLength, destLength)) {
        return E_FAIL;
    }
    return Through(
        2 * std::int64_t{srcLength}, destLength,
        [&](UChar* pivot, int32_t capacity, int32_t* length, UErrorCode* status) {
            u_strFromUTF32WithSub(pivot, capacity, length, reinterpret_cast<const UChar32*>(src),
                                  srcLength, subChar, nullptr, status);
        },
        [&](const UChar* pivot, int32_t length, int32_t* needed, UErrorCode* status) {
            u_strToUTF8(dest, destCapacity, needed, pivot, length, status);
        });
}
