// Paths made whole, and names for temporary files.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD MAX_PATH = 260;

extern "C"
{
    // The path from the root on, with / between its components and without empty ones, "." and
    // "..". Nothing but the process's own folder is looked at. A separator at the end stays. Gives
    // the units without the terminator, or if they do not fit into size, the size that is needed
    // and leaves the buffer alone. *filePart: behind the last separator; null if nothing is there.
    // 0 on failure: 123 for an empty path, 2 if the process's folder is gone, 14.
    DWORD GetFullPathNameW(const WCHAR* path, DWORD size, WCHAR* buffer, WCHAR** filePart);

    // The folder for temporary files, with a separator at its end: TMPDIR or /tmp. Gives the same
    // as above. Whether it is there is not looked at.
    DWORD GetTempPathW(DWORD size, WCHAR* buffer);
    // Makes an empty file of a name of its own in the folder, which starts with the prefix, and
    // gives the name in MAX_PATH units. 0 on failure, and the name is empty: 267 without the
    // folder; 111 for one that leaves no room for a name; else why no file can be made. Unique is
    // 0.
    unsigned GetTempFileNameW(const WCHAR* folder, const WCHAR* prefix, unsigned unique,
                              WCHAR* name);
}

} // namespace qv::platform
