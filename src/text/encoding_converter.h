// A converter between a charset and wide text, and the results of ICU's calls.
#pragma once

#include <qvcore6/base.h>
#include <qvcore6/result.h>
#include <unicode/ucnv.h>

// What the caller has opened and closes.
struct QVEncConverter
{
    // A failure leaves it without a converter. True if it is the one of that name, and none that
    // stands in for it.
    bool Open(const QVWChar* encodingName);
    void Close();
    void Reset();

    QVRESULT SetSubstitutionChar(int32_t character);

    QVRESULT ToW(const char** source, const char* sourceLimit, QVWChar** target,
                 const QVWChar* targetLimit, bool isLast);
    QVRESULT FromW(const QVWChar** source, const QVWChar* sourceLimit, char** target,
                   const char* targetLimit, bool isLast);

    UConverter* m_converter = nullptr;
};

namespace qv::core
{

QVRESULT ResultOf(UErrorCode status);

} // namespace qv::core
