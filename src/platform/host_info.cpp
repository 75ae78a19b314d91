#include "platform/host_info.h"

#include <sys/utsname.h>
#include <unistd.h>

#include "platform/error.h"

namespace qv::platform
{

namespace
{

// A part that is missing, or no number, is 0, and so are those behind it.
DWORD NextNumber(const char*& text)
{
    DWORD number = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        number = number * 10 + static_cast<DWORD>(*text - '0');
    }
    text = *text == '.' ? text + 1 : "";
    return number;
}

template <class Version> BOOL FillVersion(Version* version)
{
    if (version->dwOSVersionInfoSize != sizeof(Version)) {
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

} // namespace

BOOL GetVersionExW(OSVERSIONINFOW* version)
{
    static_assert(sizeof(OSVERSIONINFOW) == 276);
    return FillVersion(version);
}

BOOL GetVersionExA(OSVERSIONINFOA* version)
{
    static_assert(sizeof(OSVERSIONINFOA) == 148);
    return FillVersion(version);
}

DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}

BOOL IsWow64Process(HANDLE /*process*/, BOOL* isWow64)
{
    *isWow64 = kFalse;
    return kTrue;
}

} // namespace qv::platform
