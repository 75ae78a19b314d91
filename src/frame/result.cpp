#include <qvcore6/result.h>

#include "frame/exception.h"
#include "platform/error.h"

QVRESULT QVResultFromNative(uint32_t nativeError)
{
    using namespace qv::platform;
    switch (nativeError) {
    case ERROR_SUCCESS:
        return S_OK;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return QV_E_FILE_NOT_FOUND;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
        return E_ACCESSDENIED;
    case ERROR_INVALID_HANDLE:
        return E_HANDLE;
    case ERROR_OUTOFMEMORY:
        return E_OUTOFMEMORY;
    case ERROR_ALREADY_EXISTS:
        return QV_E_ALREADY_EXISTS;
    case WAIT_TIMEOUT:
        return QV_E_TIMEOUT;
    default:
        return E_FAIL;
    }
}

namespace qv::core
{

void ThrowLastError()
{
    throw EQVCoreException(QVResultFromNative(platform::GetLastError()));
}

} // namespace qv::core
