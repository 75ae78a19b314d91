#include "platform/text_file.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/path_text.h"
#include "platform/quiet_write.h"

namespace qv::platform
{

namespace
{

int Failed(int error)
{
    SetLastError(ErrorFromErrno(error));
    return -1;
}

// The bare calls, as the C library's are points where the thread can be cancelled.
int OpenFile(const char* path, int flags)
{
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0666));
}

int CloseFile(int file)
{
    return static_cast<int>(syscall(SYS_close, file));
}

// Never one of the standard numbers, which a program may have closed and still prints to.
int Open(const char* path)
{
    // A pipe that nobody reads must not hold the caller up: it is no place to write to.
    int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_LARGEFILE;
    int file = OpenFile(path, flags);
    while (file < 0 && (errno == EINTR || (errno == EWOULDBLOCK && (flags & O_NONBLOCK) != 0))) {
        if (errno == EWOULDBLOCK) {
            flags &= ~O_NONBLOCK; // a file, which a server that holds a lease on it gives up soon
        }
        file = OpenFile(path, flags);
    }
    file = AboveStandardNumbers(file);
    if (file >= 0) {
        fcntl(file, F_SETFL, O_APPEND);
    }
    return file;
}

} // namespace

int _wsopen(const WCHAR* path, int flags, int share)
{
    const KeepErrno keep;
    if (path == nullptr || flags != kAppendText || share != kDenyNone) {
        return Failed(EINVAL);
    }
    try {
        std::string bytes = PathToBytes(path);
        std::replace(bytes.begin(), bytes.end(), '\\', '/');
        const int file = Open(bytes.c_str());
        return file >= 0 ? file : Failed(errno);
    } catch (const std::bad_alloc&) {
        return Failed(ENOMEM);
    }
}

int _write(int file, const void* bytes, unsigned count)
{
    const KeepErrno keep;
    ssize_t written;
    do {
        written = WriteOnceQuietly(file, static_cast<const char*>(bytes), count);
    } while (written < 0 && errno == EINTR);
    return written >= 0 ? static_cast<int>(written) : Failed(errno);
}

int _close(int file)
{
    const KeepErrno keep;
    // Interrupted or not, the descriptor is gone.
    return CloseFile(file) == 0 || errno == EINTR ? 0 : Failed(errno);
}

} // namespace qv::platform
