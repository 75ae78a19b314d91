#include "platform/pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "platform/descriptor_handle.h"
#include "platform/error.h"

namespace qv::platform
{

namespace
{

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return kFalse;
}

} // namespace

BOOL CreatePipe(Descriptor* readEnd, Descriptor* writeEnd,
                const SECURITY_ATTRIBUTES* /*attributes*/, DWORD size)
{
    const KeepErrno keep;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return Fail(ErrorFromErrno(errno));
    }
    for (int& end : ends) {
        end = AboveStandardNumbers(end);
        if (end < 0) {
            const DWORD error = ErrorFromErrno(errno);
            for (const int open : ends) {
                if (open >= 0) {
                    CloseDescriptor(open);
                }
            }
            return Fail(error);
        }
    }
    if (size != 0) {
        fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(std::min<DWORD>(size, INT_MAX)));
    }
    BeginDescriptor(ends[0]);
    BeginDescriptor(ends[1]);
    *readEnd = ends[0];
    *writeEnd = ends[1];
    return kTrue;
}

BOOL SetHandleInformation(Descriptor handle, DWORD mask, DWORD flags)
{
    if (mask != HANDLE_FLAG_INHERIT || flags > HANDLE_FLAG_INHERIT) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const KeepErrno keep;
    return fcntl(handle, F_GETFD) >= 0 ? kTrue : Fail(ErrorFromErrno(errno));
}

} // namespace qv::platform
