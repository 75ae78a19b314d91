// Text in the ANSI code page, CP_ACP: the charset of the environment's locale, fixed at the first
// use. A host's later setlocale changes what the runtime library's calls do, but not this.
#pragma once

#include <cstdint>

#include "platform/critical_section.h"
#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD CP_ACP = 0;

// Held around every call that takes a lock of the C library's for locales or of ICU's for charsets,
// and around a fork: a child would find that lock as another thread held it, for ever.
extern constinit CRITICAL_SECTION g_localeLock;

// The charset of CP_ACP, as the C library names it.
struct AnsiCharset
{
    char name[48];
};
AnsiCharset ReadAnsiCharset();

extern "C"
{
    // For CP_ACP with no flags. srcSize -1 means terminated, and counts the terminator; destSize 0
    // asks for the size. Result: units or bytes; 0 with ERROR_INVALID_PARAMETER (srcSize 0, another
    // page, flags), ERROR_INSUFFICIENT_BUFFER, or ERROR_OUTOFMEMORY. What cannot be converted
    // becomes U+FFFD, or '?' (U+FFFD in UTF-8 too), and is no failure.
    int MultiByteToWideChar(DWORD page, DWORD flags, const char* src, int srcSize, WCHAR* dest,
                            int destSize);
    int WideCharToMultiByte(DWORD page, DWORD flags, const WCHAR* src, int srcSize, char* dest,
                            int destSize, const char* defaultChar, BOOL* usedDefaultChar);
}

// For text that may be cut: converts as MultiByteToWideChar does, fills dest as far as it goes, and
// gives the units that the whole text needs; -1 without memory. Sets no error. srcSize is above 0.
int AnsiToWide(const char* src, int srcSize, WCHAR* dest, int destSize);

} // namespace qv::platform
