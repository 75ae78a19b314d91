#include "platform/error.h"

#include <cerrno>

namespace qv::platform
{

namespace
{

// Trivially destructible and initial-exec: a destructor here would keep the library from being
// unloaded.
[[gnu::tls_model("initial-exec")]] constinit thread_local DWORD t_lastError = 0;

struct ErrorRow
{
    int fromErrno;
    DWORD error;
};

constexpr ErrorRow kErrorRows[] = {
    {0, ERROR_SUCCESS},
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {EACCES, ERROR_ACCESS_DENIED},
    {EPERM, ERROR_ACCESS_DENIED},
    {EROFS, ERROR_ACCESS_DENIED},
    {EISDIR, ERROR_ACCESS_DENIED},
    {EBADF, ERROR_INVALID_HANDLE},
    {ENOMEM, ERROR_OUTOFMEMORY},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {ESRCH, ERROR_INVALID_PARAMETER},
    {EIO, ERROR_IO_DEVICE},
    {ESPIPE, ERROR_INVALID_FUNCTION},
    {EBUSY, ERROR_SHARING_VIOLATION},
    {ETXTBSY, ERROR_SHARING_VIOLATION},
    {ENOSPC, ERROR_DISK_FULL},
    {EDQUOT, ERROR_DISK_FULL},
    {EFBIG, ERROR_FILE_TOO_LARGE},
    {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
    {E2BIG, ERROR_FILENAME_EXCED_RANGE},
    {ELOOP, ERROR_CANT_RESOLVE_FILENAME},
    {ENOEXEC, ERROR_BAD_EXE_FORMAT},
    {EAGAIN, ERROR_LOCK_VIOLATION},
    {EPIPE, ERROR_NO_DATA},
    {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
    {EEXIST, ERROR_ALREADY_EXISTS},
};

} // namespace

DWORD GetLastError()
{
    return t_lastError;
}

void SetLastError(DWORD error)
{
    t_lastError = error;
}

DWORD ErrorFromErrno(int error)
{
    for (const ErrorRow& row : kErrorRows) {
        if (row.fromErrno == error) {
            return row.error;
        }
    }
    return ERROR_GEN_FAILURE;
}

KeepErrno::KeepErrno() : m_errno(errno) {}

KeepErrno::~KeepErrno()
{
    errno = m_errno;
}

} // namespace qv::platform
