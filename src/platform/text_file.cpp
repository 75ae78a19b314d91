#include "platform/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
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
int Open(const char* path, int flags)
{
    // A pipe that nobody reads must not hold the caller up: it is no place to write to.
    flags |= O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_LARGEFILE;
    int file = OpenFile(path, flags);
    while (file < 0 && (errno == EINTR || (errno == EWOULDBLOCK && (flags & O_NONBLOCK) != 0))) {
        if (errno == EWOULDBLOCK) {
            flags &= ~O_NONBLOCK; // a file, which a server that holds a lease on it gives up soon
        }
        file = OpenFile(path, flags);
    }
    return AboveStandardNumbers(file);
}

int OpenForAppending(const char* path)
{
    const int file = Open(path, O_WRONLY | O_APPEND | O_CREAT);
    if (file >= 0) {
        fcntl(file, F_SETFL, O_APPEND);
    }
    return file;
}

int OpenPlain(const char* path, int flags)
{
    const int file = Open(path, flags == kReadText ? O_RDONLY : O_WRONLY | O_CREAT);
    struct stat status = {};
    if (file >= 0 && (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))) {
        CloseFile(file);
        errno = EACCES;
        return -1;
    }
    return file;
}

std::string SlashesOf(std::string path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// Does action(), which may throw std::bad_alloc and gives -1 with errno on failure.
template <class Action> int OrFailed(Action action)
{
    const KeepErrno keep;
    try {
        const int result = action();
        return result >= 0 ? result : Failed(errno);
    } catch (const std::bad_alloc&) {
        return Failed(ENOMEM);
    }
}

int TellStatus(int result, const struct stat& found, FileStatus* status)
{
    if (result == 0) {
        *status = {.size = found.st_size, .modified = found.st_mtime};
    }
    return result;
}

} // namespace

int _wsopen(const WCHAR* path, int flags, int share)
{
    if (path == nullptr || flags != kAppendText || share != kDenyNone) {
        return Failed(EINVAL);
    }
    return OrFailed([&] { return OpenForAppending(SlashesOf(PathToBytes(path)).c_str()); });
}

int _sopen(const char* path, int flags, int share)
{
    if ((flags != kReadText && flags != kWriteText) || share != kDenyNone) {
        return Failed(EINVAL);
    }
    return OrFailed([&] { return OpenPlain(SlashesOf(path).c_str(), flags); });
}

int _read(int file, void* bytes, unsigned count)
{
    const KeepErrno keep;
    ssize_t taken;
    do {
        taken = syscall(SYS_read, file, bytes, std::min<unsigned>(count, INT_MAX));
    } while (taken < 0 && errno == EINTR);
    return taken >= 0 ? static_cast<int>(taken) : Failed(errno);
}

std::int64_t _lseeki64(int file, std::int64_t offset, int origin)
{
    const KeepErrno keep;
    const off_t position = lseek(file, offset, origin);
    return position >= 0 ? position : Failed(errno);
}

int _chsize_s(int file, std::int64_t size)
{
    const KeepErrno keep;
    int result;
    do {
        result = ftruncate(file, size);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

int _stat64i32(const char* path, FileStatus* status)
{
    return OrFailed([&] {
        struct stat found;
        const bool isPlain = std::strchr(path, '\\') == nullptr; // nearly always: no copy then
        const int result = stat(isPlain ? path : SlashesOf(path).c_str(), &found);
        return TellStatus(result, found, status);
    });
}

int _fstat64i32(int file, FileStatus* status)
{
    return OrFailed([&] {
        struct stat found = {};
        const int result = fstat(file, &found);
        return TellStatus(result, found, status);
    });
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
