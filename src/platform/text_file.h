// Files that text is appended to.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

// For writing at the end, made if missing, as text: line ends are single line feeds here.
inline constexpr int kAppendText = 0x4109;
// Other processes may read and write the file meanwhile.
inline constexpr int kDenyNone = 0x40;

extern "C"
{
    // Gives a descriptor, or -1. Flags and sharing are the two values above.
    int _wsopen(const WCHAR* path, int flags, int share);
    // Gives the number of bytes written, as with write(), or -1. A reader that has gone, or a limit
    // that is reached, is a failure, not a signal.
    int _write(int file, const void* bytes, unsigned count);
    // 0, or -1 if the system reports now that bytes were lost. The descriptor is closed anyway.
    int _close(int file);
}

} // namespace qv::platform
