// Order of text.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    // Negative, 0 or positive: the order of the process's locale, without regard to case; in the
    // locale "C" that of the characters in lower case. Asks for memory for long text, and does
    // without the locale if there is none.
    int _wcsicoll(const WCHAR* first, const WCHAR* second);
}

} // namespace qv::platform
