// Text files of the runtime library.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace qv::platform
{

// As text: line ends are single line feeds here. For writing at the end, made if missing.
inline constexpr int kAppendText = 0x4109;
inline constexpr int kReadText = 0x4000;
// Made if missing; what is there stays until it is written over.
inline constexpr int kWriteText = 0x4101;
// Other processes may read and write the file meanwhile.
inline constexpr int kDenyNone = 0x40;

struct FileStatus
{
    std::int64_t size;
    std::int64_t modified; // seconds since 1970
};

extern "C"
{
    // Gives a descriptor, or -1. The flags are kAppendText.
    int _wsopen(const WCHAR* path, int flags, int share);
    // The same for the other two, with a path in CP_ACP. A file that is no plain one is refused
    // with error 5.
    int _sopen(const char* path, int flags, int share);
    // Gives the number of bytes read, 0 at the end, or -1.
    int _read(int file, void* bytes, unsigned count);
    // Gives the number of bytes written, as with write(), or -1. A reader that has gone, or a limit
    // that is reached, is a failure, not a signal.
    int _write(int file, const void* bytes, unsigned count);
    // The new position, or -1. Origin 0 is the start of the file.
    std::int64_t _lseeki64(int file, std::int64_t offset, int origin);
    // Cuts the file, or makes it longer by zeros. 0, or an errno value.
    int _chsize_s(int file, std::int64_t size);
    // 0, or -1 for what is not there or may not be looked at.
    int _stat64i32(const char* path, FileStatus* status);
    int _fstat64i32(int file, FileStatus* status);
    // 0, or -1 if the system reports now that bytes were lost. The descriptor is closed anyway.
    int _close(int file);
}

} // namespace qv::platform
