// Facts about the platform, taken once by the library's start and read without a lock afterwards.
#pragma once

#include "platform/types.h"

namespace qv::platform
{
struct IMalloc;
}

namespace qv::core
{

using RegDeleteKeyExFunction = platform::LONG (*)(platform::HKEY key, const char16_t* name,
                                                  platform::DWORD view, platform::DWORD reserved);
using GetTimeFunction = void (*)(platform::FILETIME* time);

extern std::int32_t s_isNT;         // the platform is the NT family
extern std::int16_t s_isWow64;      // a 32-bit process on a 64-bit system
extern platform::IMalloc* s_malloc; // the task allocator; null when it could not be had
extern RegDeleteKeyExFunction s_regDeleteKeyEx;
extern GetTimeFunction s_getPreciseTime;
extern std::uint32_t s_selfModule; // this library's own identity in the module set

} // namespace qv::core
