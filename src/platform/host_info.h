// The system's version and the kind of the process.
#pragma once

#include "platform/wait.h"

namespace qv::platform
{

struct OSVERSIONINFOW
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};

struct OSVERSIONINFOA
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    char szCSDVersion[128];
};

inline constexpr DWORD VER_PLATFORM_WIN32_NT = 2;

extern "C"
{
    // The size field must hold the record's size, otherwise false with error 122. The platform is
    // reported as the NT family, which keeps every modern path on; the version is the kernel's.
    BOOL GetVersionExW(OSVERSIONINFOW* version);
    BOOL GetVersionExA(OSVERSIONINFOA* version);
    DWORD GetCurrentProcessId();
    // Always false: no process here sees two views by the kernel's doing.
    BOOL IsWow64Process(HANDLE process, BOOL* isWow64);
}

} // namespace qv::platform
