// Pipes without a name, and the inherit mark of handles.
#pragma once

#include "platform/descriptor_record.h"
#include "platform/types.h"

namespace qv::platform
{

struct SECURITY_ATTRIBUTES;

inline constexpr DWORD HANDLE_FLAG_INHERIT = 1;

extern "C"
{
    // The two ends. A size of 0 is the system's default; another one is a wish. Errors: 4, 14, 31.
    BOOL CreatePipe(Descriptor* readEnd, Descriptor* writeEnd,
                    const SECURITY_ATTRIBUTES* attributes, DWORD size);
    // Of no effect: what a child gets is named when it is started, so no descriptor is ever
    // inheritable, not for a moment. Error 6 for what is not open, 87 for another flag.
    BOOL SetHandleInformation(Descriptor handle, DWORD mask, DWORD flags);
}

} // namespace qv::platform
