#include <qvcore6/encoding.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "text/encoding_converter.h"
#include "text/encoding_pool.h"

using qv::core::PooledConverter;

namespace
{

// What opening gives where there is no memory for another.
constinit QVEncConverter g_noMemory{};

// The same converters on both sides; the length of what was read and written so far.
class Conversion
{
public:
    Conversion(QVEncConverter& from, QVEncConverter& to, const char* source, uint32_t sourceLength,
               char* target, uint32_t targetLength)
        : m_from(from), m_to(to), m_source(source), m_sourceStart(source),
          m_sourceEnd(source + sourceLength), m_target(target), m_targetStart(target),
          m_targetEnd(target + targetLength)
    {}

    QVRESULT Run()
    {
        do {
            const QVRESULT read = Read(PieceEnd(m_source, m_sourceEnd), false);
            const QVRESULT written = Write(m_pivotEnd, false);
            if (read < 0 || written < 0) {
                return read < 0 ? read : written;
            }
        } while (m_source < m_sourceEnd);
        QVRESULT result = Read(m_source, true);
        if (result >= 0) {
            result = Write(m_pivotEnd, false);
        }
        return result >= 0 ? Write(m_pivot, true) : result;
    }

    uint32_t ReadBytes() const { return static_cast<uint32_t>(m_source - m_sourceStart); }
    uint32_t WrittenBytes() const { return static_cast<uint32_t>(m_target - m_targetStart); }

private:
    // ICU refuses pieces of 2 GiB and more.
    template <class Pointer> static Pointer PieceEnd(Pointer start, Pointer end)
    {
        return start + std::min<std::ptrdiff_t>(end - start, 0x40000000);
    }

    // Into the pivot.
    QVRESULT Read(const char* end, bool isLast)
    {
        m_pivotEnd = m_pivot;
        const QVRESULT result = m_from.ToW(&m_source, end, &m_pivotEnd, std::end(m_pivot), isLast);
        return result == QV_E_BUFFER_TOO_SMALL ? S_OK : result; // the rest comes in the next round
    }

    // From the pivot.
    QVRESULT Write(const QVWChar* end, bool isLast)
    {
        const QVWChar* start = m_pivot;
        return m_to.FromW(&start, end, &m_target, PieceEnd(m_target, m_targetEnd), isLast);
    }

    QVEncConverter& m_from;
    QVEncConverter& m_to;
    const char* m_source;
    const char* const m_sourceStart;
    const char* const m_sourceEnd;
    char* m_target;
    char* const m_targetStart;
    char* const m_targetEnd;
    QVWChar* m_pivotEnd = m_pivot;
    QVWChar m_pivot[1024];
};

} // namespace

QVEncConverter* QVEncToW_Open(const QVWChar* encodingName)
{
    auto* const converter = new (std::nothrow) QVEncConverter;
    if (converter == nullptr) {
        return &g_noMemory;
    }
    converter->Open(encodingName);
    return converter;
}

QVEncConverter* QVEncFromW_Open(const QVWChar* encodingName)
{
    return QVEncToW_Open(encodingName);
}

void QVEncToW_Close(QVEncConverter* converter)
{
    if (converter != nullptr && converter != &g_noMemory) {
        converter->Close();
        delete converter;
    }
}

void QVEncFromW_Close(QVEncConverter* converter)
{
    QVEncToW_Close(converter);
}

QVRESULT QVEncToW_SetSubstitutionChar(QVEncConverter* converter, int32_t substitutionChar)
{
    return (converter != nullptr ? converter : &g_noMemory)->SetSubstitutionChar(substitutionChar);
}

QVRESULT QVEncFromW_SetSubstitutionChar(QVEncConverter* converter, int32_t substitutionChar)
{
    return QVEncToW_SetSubstitutionChar(converter, substitutionChar);
}

QVRESULT QVEncToW_Convert(QVEncConverter* converter, const char** source, const char* sourceLimit,
                          QVWChar** target, const QVWChar* targetLimit)
{
    return converter != nullptr ? converter->ToW(source, sourceLimit, target, targetLimit, false)
                                : QV_E_CONVERTER_NOT_OPEN;
}

QVRESULT QVEncFromW_Convert(QVEncConverter* converter, const QVWChar** source,
                            const QVWChar* sourceLimit, char** target, const char* targetLimit)
{
    return converter != nullptr ? converter->FromW(source, sourceLimit, target, targetLimit, false)
                                : QV_E_CONVERTER_NOT_OPEN;
}

QVRESULT QVEncToW_Flush(QVEncConverter* converter, QVWChar** target, const QVWChar* targetLimit)
{
    const char nothing = 0;
    const char* source = &nothing;
    return converter != nullptr ? converter->ToW(&source, source, target, targetLimit, true)
                                : QV_E_CONVERTER_NOT_OPEN;
}

QVRESULT QVEncFromW_Flush(QVEncConverter* converter, char** target, const char* targetLimit)
{
    const QVWChar nothing = 0;
    const QVWChar* source = &nothing;
    return converter != nullptr ? converter->FromW(&source, source, target, targetLimit, true)
                                : QV_E_CONVERTER_NOT_OPEN;
}

QVRESULT QVEncConvert(const char* source, uint32_t* sourceLength, const QVWChar* sourceEncoding,
                      char* target, uint32_t* targetLength, const QVWChar* targetEncoding,
                      int32_t substitutionChar)
{
    PooledConverter from(sourceEncoding, substitutionChar);
    if (from.Result() < 0) {
        return from.Result();
    }
    PooledConverter to(targetEncoding, substitutionChar);
    if (to.Result() < 0) {
        return to.Result();
    }
    const bool isUsable =
        (source != nullptr || *sourceLength == 0) && (target != nullptr || *targetLength == 0);
    if (!isUsable) {
        *sourceLength = *targetLength = 0;
        return E_FAIL;
    }
    Conversion conversion(from.Get(), to.Get(), source, *sourceLength, target, *targetLength);
    const QVRESULT result = conversion.Run();
    *sourceLength = conversion.ReadBytes();
    *targetLength = conversion.WrittenBytes();
    return result;
}
