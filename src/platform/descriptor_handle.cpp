#include "platform/descriptor_handle.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/error.h"
#include "platform/no_cancellation.h"

namespace qv::platform
{

BOOL CloseHandle(Descriptor descriptor)
{
    constexpr Descriptor kOwnProcess = -1;
    if (descriptor == kOwnProcess) {
        return kTrue;
    }
    MarkPlain(descriptor, false);
    const RecordHold<DescriptorRecord> record = TakeRecordToClose(descriptor);
    const DWORD error = record ? record->Close(descriptor) : CloseDescriptor(descriptor);
    EndDescriptor(descriptor);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return kFalse;
    }
    return kTrue;
}

DWORD CloseDescriptor(Descriptor descriptor)
{
    const KeepErrno keep;
    // The C library's, though it is a point of cancellation: race checkers must see that a number
    // which they know of comes free.
    const NoCancellation noCancellation;
    // Never again after a signal: the number may be another file's by then.
    const bool isClosed = close(descriptor) == 0 || errno == EINTR;
    return isClosed ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

Descriptor AboveStandardNumbers(Descriptor descriptor)
{
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const NoCancellation noCancellation;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const KeepErrno keep;
    close(descriptor);
    return moved;
}

Descriptor OpenPath(const char* path, int flags, unsigned mode)
{
    // By the bare call, which is no point of cancellation.
    Descriptor file;
    do {
        flags |= O_CLOEXEC | O_NOCTTY | O_LARGEFILE;
        file = static_cast<Descriptor>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    } while (file < 0 && errno == EINTR);
    return AboveStandardNumbers(file);
}

Descriptor OpenAgain(Descriptor descriptor, int flags)
{
    char link[40];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    return OpenPath(link, flags);
}

} // namespace qv::platform
