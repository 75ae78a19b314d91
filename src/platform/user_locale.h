// What the environment says of the user's language and charset.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    // The number of the ANSI code page: of the charset that CP_ACP converts by, or of the one most
    // like it that "CP" and the number name for ICU as well. 65001 is UTF-8.
    UINT GetACP();
    // The number of the locale that LC_ALL, LC_MESSAGES or LANG names, as they were at the first
    // call; 0x7F for "C" and where none is set, 0x409 for one that has no number.
    LCID GetUserDefaultLCID();
}

} // namespace qv::platform
