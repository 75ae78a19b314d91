// The library's one exception type, and its usual throw sites.
#pragma once

#include <qvcore6/result.h>

// A plain value with the result code; not a std::exception, thrown by value, caught by reference.
class EQVCoreException
{
public:
    explicit EQVCoreException(QVRESULT result) : m_result(result) {}
    QVRESULT Result() const { return m_result; }

private:
    QVRESULT m_result;
};

namespace qv::core
{

inline void ThrowIfFailed(QVRESULT result)
{
    if (result < 0) {
        throw EQVCoreException(result);
    }
}

// Throws the code of the platform's last error; call it before anything that can overwrite that.
[[noreturn]] void ThrowLastError();

} // namespace qv::core
