// References to the environment in text.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    // Replaces each %NAME% by that variable; the exact name first, then any letter case. A
    // reference to nothing stays as it is. What a variable holds is not expanded again. Returns the
    // units of the result with its terminator, also when size is smaller: then nothing useful is
    // written. 0 on failure: 14 out of memory, 87 more text than can be counted. Not while another
    // thread changes the environment, as everything that reads it.
    DWORD ExpandEnvironmentStringsW(const WCHAR* text, WCHAR* expanded, DWORD size);
}

} // namespace qv::platform
