#include "platform/host_info.h"

#include <sys/utsname.h>

#include <cstdlib>

#include "platform/error.h"

namespace qv::platform
{

namespace
{

// Reads a number and the one character behind it; a missing part is 0.
DWORD NextNumber(const char*& text)
{
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 10);
    text = *end == '.' ? end + 1 : end;
    return static_cast<DWORD>(number);
}

} // namespace

BOOL GetVersionExW(OSVERSIONINFOW* version)
{
    static_assert(sizeof(OSVERSIONINFOW) == 276);
    if (version->dwOSVersionInfoSize != sizeof(OSVERSIONINFOW)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return kFalse;
    }
    const KeepErrno keep;
    utsname name{};
    uname(&name);
    const char* release = name.release;
    version->dwMajorVersion = NextNumber(release);
    version->dwMinorVersion = NextNumber(release);
    version->dwBuildNumber = NextNumber(release);
    version->dwPlatformId = VER_PLATFORM_WIN32_NT;
    version->szCSDVersion[0] = 0;
    return kTrue;
}

ProcessHandle GetCurrentProcess()
{
    return -1;
}

BOOL IsWow64Process(ProcessHandle /*process*/, BOOL* isWow64)
{
    *isWow64 = kFalse;
    return kTrue;
}

} // namespace qv::platform
