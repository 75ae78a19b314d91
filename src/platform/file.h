// Files: opening, reading, writing, positions. A handle is a descriptor, and the kernel carries
// what it may be used for.
//
// Nothing is told of a file's sharing: everybody may open what is open, and ranges are locked by
// file_locks.h. Opening a FIFO waits for its other end.
#pragma once

#include "platform/descriptor_handle.h"
#include "platform/types.h"

namespace qv::platform
{

struct SECURITY_ATTRIBUTES;

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD DELETE = 0x00010000;

inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;

inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x00000001;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x00000080;
inline constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x00000100;
inline constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000;
inline constexpr DWORD FILE_FLAG_WRITE_THROUGH = 0x80000000;

inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;

// What tells one open file from another.
struct BY_HANDLE_FILE_INFORMATION
{
    std::uint64_t volume;
    std::uint64_t index;
};

extern "C"
{
    // -1 on failure: 2 no such file; 3 no such folder, or no path; 4; 5 no right, a folder, or a
    // read-only file that is to be changed; 14; 80 for CREATE_NEW of what is there; 87 for another
    // disposition than those above, or one that truncates without the right to write; 112; 123 for
    // a name that no file can have; 206. The two dispositions that may create leave 183 as the last
    // error if the file was there, else 0.
    //
    // A new file has the rights of the process's umask, without those to write if it is to be
    // read-only; its creator may write it all the same. With DELETE_ON_CLOSE its name goes when the
    // handle is closed or the process ends by itself, its content with the last handle of any kind.
    Descriptor CreateFileW(const WCHAR* path, DWORD access, DWORD share,
                           const SECURITY_ATTRIBUTES* attributes, DWORD disposition,
                           DWORD flagsAndAttributes, void* templateFile);
    // Errors: 2, 3; 5 for a folder, a read-only file or no right.
    BOOL DeleteFileW(const WCHAR* path);

    // Error 6 for what is no file, 1 for a pipe or terminal.
    BOOL GetFileSizeEx(Descriptor file, std::int64_t* size);
    BOOL GetFileInformationByHandle(Descriptor file, BY_HANDLE_FILE_INFORMATION* information);

    // True with 0 bytes at the end of a file. Errors: 5 without the right; 109 when nobody can
    // write to the pipe any more; 6.
    BOOL ReadFile(Descriptor file, void* buffer, DWORD count, DWORD* bytesRead, void* overlapped);
    // True if anything was written. Errors: 5 without the right; 112; 232 when nobody reads the
    // pipe; 6.
    BOOL WriteFile(Descriptor file, const void* buffer, DWORD count, DWORD* bytesWritten,
                   void* overlapped);
    // Error 5 without the right to write.
    BOOL FlushFileBuffers(Descriptor file);

    // The new position, which is below 4 GiB; INVALID_SET_FILE_POINTER on failure, and then nothing
    // has moved: 131 for a position before the start, 87 for one beyond 4 GiB or another origin, 1
    // for what has no position. The high word is null.
    DWORD SetFilePointer(Descriptor file, LONG distance, LONG* distanceHigh, DWORD origin);
    // The same with 64 bits. The position is stored on success only.
    BOOL SetFilePointerEx(Descriptor file, std::int64_t distance, std::int64_t* position,
                          DWORD origin);
}

} // namespace qv::platform
