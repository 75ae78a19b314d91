// A converter between a charset and wide text, and the results of ICU's calls.
#pragma once

#include <qvcore6/base.h>
#include <qvcore6/result.h>
#include <unicode/ucnv.h>

// What the caller has opened and closes.
struct QVEncConverter
{
    // A failure leaves it without a converter.
    void Open(const QVWChar* encodingName);
    void Close();

    QVRESULT SetSubstitutionChar(int32_t character);

    QVRESULT ToW(const char** source, const char* sourceLimit, QVWChar** target,
                 const QVWChar* targetLimit, bool isLast);
    QVRESULT FromW(const QVWChar** source, const QVWChar* sourceLimit, char** target,
                   const char* targetLimit, bool isLast);

    UConverter* m_converter = nullptr;
};

namespace qv::core
{

// One for a scope.
struct ScopedConverter : QVEncConverter
{
    explicit ScopedConverter(const QVWChar* encodingName) { Open(encodingName); }
    ~ScopedConverter() { Close(); }
    ScopedConverter(const ScopedConverter&) = delete;
    ScopedConverter& operator=(const ScopedConverter&) = delete;
};

QVRESULT ResultOf(UErrorCode status);

} // namespace qv::core
