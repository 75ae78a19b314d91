// Locked ranges of bytes: between handles, also of one process, and gone with their handle.
//
// They bind those who lock as well. A handle's own ranges never wait for each other: what meets one
// of them is refused at once, unless both are shared.
#pragma once

#include "platform/file.h"

namespace qv::platform
{

struct OVERLAPPED
{
    std::uintptr_t Internal;
    std::uintptr_t InternalHigh;
    DWORD Offset;
    DWORD OffsetHigh;
    void* hEvent;
};

inline constexpr DWORD LOCKFILE_FAIL_IMMEDIATELY = 1;
inline constexpr DWORD LOCKFILE_EXCLUSIVE_LOCK = 2;

extern "C"
{
    // Errors: 33 if another handle, or this one, has locked a part of the range; 5 if the file may
    // not be written, or read; 6, also for a handle that is closed while the call waits; 14. A
    // range of no bytes locks nothing.
    BOOL LockFileEx(Descriptor file, DWORD flags, DWORD reserved, DWORD lengthLow, DWORD lengthHigh,
                    const OVERLAPPED* offset);
    // Error 158 unless this handle has locked just that range.
    BOOL UnlockFileEx(Descriptor file, DWORD reserved, DWORD lengthLow, DWORD lengthHigh,
                      const OVERLAPPED* offset);
    // For oneself alone, and never waits.
    BOOL LockFile(Descriptor file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow,
                  DWORD lengthHigh);
    BOOL UnlockFile(Descriptor file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow,
                    DWORD lengthHigh);
}

class FileRecord;

// The handle is being closed. A forked child that has the same open file, if only until it executes
// a program, keeps none of its ranges.
void DropRanges(FileRecord& record, Descriptor file);

// Around a fork: no list of ranges is half changed in the child.
void HoldFileLocks();
void ReleaseFileLocks();

} // namespace qv::platform
