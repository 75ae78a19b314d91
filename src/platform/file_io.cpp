#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/no_cancellation.h"
#include "platform/quiet_write.h"

namespace qv::platform
{

namespace
{

constexpr DWORD kMostBytes = 0x7FFFF000; // of one system call

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return kFalse;
}

// The kernel's answer is the same for a number that is not open and for a right that is not there.
DWORD ErrorOfUse(Descriptor file, int error)
{
    if (error == EBADF) {
        return fcntl(file, F_GETFL) >= 0 ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE;
    }
    return ErrorFromErrno(error);
}

bool IsPipe(Descriptor file)
{
    struct stat status = {};
    return fstat(file, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

// The position from which a distance counts; -1 with errno. A descriptor without rights has none of
// its own, and nothing that could move it.
std::int64_t BaseOf(Descriptor file, DWORD origin)
{
    if (origin == FILE_BEGIN) {
        return 0;
    }
    struct stat status = {};
    if (origin == FILE_END) {
        std::int64_t size = fstat(file, &status) == 0 ? status.st_size : -1;
        if (size == 0 && S_ISBLK(status.st_mode) && ioctl(file, BLKGETSIZE64, &size) != 0) {
            return -1;
        }
        return size;
    }
    const off_t position = lseek(file, 0, SEEK_CUR);
    return position < 0 && errno == EBADF && fcntl(file, F_GETFL) >= 0 ? 0 : position;
}

// Moves to where the distance leads, if that is not above the limit.
DWORD Move(Descriptor file, std::int64_t distance, DWORD origin, std::int64_t limit,
           std::int64_t* position)
{
    if (origin > FILE_END) {
        return ERROR_INVALID_PARAMETER;
    }
    const std::int64_t base = BaseOf(file, origin);
    if (base < 0) {
        return ErrorFromErrno(errno);
    }
    std::int64_t target = 0;
    if (__builtin_add_overflow(base, distance, &target) || target > limit) {
        return ERROR_INVALID_PARAMETER;
    }
    if (target < 0) {
        return ERROR_NEGATIVE_SEEK;
    }
    if (lseek(file, target, SEEK_SET) < 0 && (errno != EBADF || fcntl(file, F_GETFL) < 0)) {
        return ErrorFromErrno(errno);
    }
    *position = target;
    return ERROR_SUCCESS;
}

// By the bare call where no signal can come: the one that asks for none costs more.
ssize_t Write(Descriptor file, const char* bytes, DWORD count)
{
    return IsPlain(file) ? syscall(SYS_write, file, bytes, count) : WriteOnce(file, bytes, count);
}

} // namespace

BOOL GetFileSizeEx(Descriptor file, std::int64_t* size)
{
    const KeepErrno keep;
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        return Fail(ErrorFromErrno(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        const bool isStream =
            S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || S_ISCHR(status.st_mode);
        return Fail(isStream ? ERROR_INVALID_FUNCTION : ERROR_INVALID_HANDLE);
    }
    *size = status.st_size;
    return kTrue;
}

BOOL GetFileInformationByHandle(Descriptor file, BY_HANDLE_FILE_INFORMATION* information)
{
    const KeepErrno keep;
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        return Fail(ErrorFromErrno(errno));
    }
    *information = {status.st_dev, status.st_ino};
    return kTrue;
}

BOOL ReadFile(Descriptor file, void* buffer, DWORD count, DWORD* bytesRead, void* /*overlapped*/)
{
    const KeepErrno keep;
    *bytesRead = 0;
    ssize_t result;
    do {
        result = read(file, buffer, std::min(count, kMostBytes));
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        return Fail(ErrorOfUse(file, errno));
    }
    if (result == 0 && count != 0 && IsPipe(file)) {
        return Fail(ERROR_BROKEN_PIPE);
    }
    *bytesRead = static_cast<DWORD>(result);
    return kTrue;
}

BOOL WriteFile(Descriptor file, const void* buffer, DWORD count, DWORD* bytesWritten,
               void* /*overlapped*/)
{
    const KeepErrno keep;
    const char* const bytes = static_cast<const char*>(buffer);
    *bytesWritten = 0;
    do {
        const ssize_t result =
            Write(file, bytes + *bytesWritten, std::min(count - *bytesWritten, kMostBytes));
        if (result > 0) {
            *bytesWritten += static_cast<DWORD>(result);
        } else if (result == 0 || (errno != EINTR && *bytesWritten != 0)) {
            return kTrue;
        } else if (errno != EINTR) {
            return Fail(ErrorOfUse(file, errno));
        }
    } while (*bytesWritten < count);
    return kTrue;
}

BOOL FlushFileBuffers(Descriptor file)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    const int flags = fcntl(file, F_GETFL);
    if (flags < 0) {
        return Fail(ErrorFromErrno(errno));
    }
    if ((flags & O_ACCMODE) == O_RDONLY || (flags & O_PATH) != 0) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    int result;
    do {
        result = fsync(file);
    } while (result != 0 && errno == EINTR);
    // What has no disk behind it has nothing to put off.
    return result == 0 || errno == EINVAL || errno == EROFS ? kTrue : Fail(ErrorFromErrno(errno));
}

DWORD SetFilePointer(Descriptor file, LONG distance, LONG* /*distanceHigh*/, DWORD origin)
{
    const KeepErrno keep;
    std::int64_t position = 0;
    const DWORD error = Move(file, distance, origin, 0xFFFFFFFF, &position);
    if (error != ERROR_SUCCESS || position == INVALID_SET_FILE_POINTER) {
        SetLastError(error); // which tells that position from a failure
        return INVALID_SET_FILE_POINTER;
    }
    return static_cast<DWORD>(position);
}

BOOL SetFilePointerEx(Descriptor file, std::int64_t distance, std::int64_t* position, DWORD origin)
{
    const KeepErrno keep;
    const DWORD error =
        Move(file, distance, origin, std::numeric_limits<std::int64_t>::max(), position);
    return error == ERROR_SUCCESS ? kTrue : Fail(error);
}

} // namespace qv::platform
