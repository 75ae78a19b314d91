#include "platform/system_info.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <string_view>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

#include "platform/error.h"
#include "platform/path_text.h"

namespace qv::platform
{

namespace
{

// The addresses that a process has on x86-64 with four levels of pages.
constexpr std::uint64_t kAddresses = 0x7FFF'FFFF'0000;

// The start of a file of the kernel's; empty if it cannot be read.
std::string_view ReadKernelFile(const char* path, char* room, std::size_t size)
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return {};
    }
    ssize_t count;
    do {
        count = read(file, room, size);
    } while (count < 0 && errno == EINTR);
    close(file);
    return {room, count > 0 ? static_cast<std::size_t>(count) : 0};
}

// The number behind the label, which is followed by spaces; 0 if there is none.
std::uint64_t NumberAfter(std::string_view text, std::string_view label)
{
    const std::size_t found = text.find(label);
    if (found == text.npos) {
        return 0;
    }
    text.remove_prefix(found + label.size());
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

void FillPhysical(MEMORYSTATUSEX* status)
{
    constexpr std::uint64_t kKibibyte = 1024;
    char room[512]; // the two stand in the first lines
    const std::string_view text = ReadKernelFile("/proc/meminfo", room, sizeof room);
    status->ullTotalPhys = NumberAfter(text, "MemTotal:") * kKibibyte;
    status->ullAvailPhys = NumberAfter(text, "MemAvailable:") * kKibibyte;
    struct sysinfo info = {};
    if (status->ullTotalPhys == 0 && sysinfo(&info) == 0) {
        status->ullTotalPhys = std::uint64_t{info.totalram} * info.mem_unit;
        status->ullAvailPhys = std::uint64_t{info.freeram} * info.mem_unit;
    }
    if (status->ullTotalPhys != 0) {
        const std::uint64_t available = std::min(status->ullAvailPhys, status->ullTotalPhys);
        status->dwMemoryLoad =
            static_cast<DWORD>(100 - available / (status->ullTotalPhys / 100 + 1));
    }
}

void FillVirtual(MEMORYSTATUSEX* status)
{
    rlimit limit = {};
    const bool isLimited = getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    status->ullTotalVirtual =
        isLimited ? std::min<std::uint64_t>(limit.rlim_cur, kAddresses) : kAddresses;
    char room[128];
    const std::string_view text = ReadKernelFile("/proc/self/statm", room, sizeof room);
    const std::uint64_t used =
        NumberAfter(text, "") * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    status->ullAvailVirtual = status->ullTotalVirtual - std::min(used, status->ullTotalVirtual);
}

void FillProcessor(SYSTEM_INFO* info)
{
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_UNKNOWN;
#if defined(__x86_64__)
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    info->dwProcessorType = PROCESSOR_AMD_X8664;
    unsigned signature = 0;
    unsigned other = 0;
    __get_cpuid(1, &signature, &other, &other, &other);
    // Intel 64 and IA-32 manual, volume 2, CPUID, figure 3-6; the extended model counts for the
    // families 6 and 15, the extended family for 15.
    const unsigned base = signature >> 8 & 0xF;
    const unsigned family = base == 15 ? base + (signature >> 20 & 0xFF) : base;
    const unsigned extended = base == 15 || base == 6 ? signature >> 12 & 0xF0 : 0;
    const unsigned model = extended | (signature >> 4 & 0xF);
    info->wProcessorLevel = static_cast<std::uint16_t>(family);
    info->wProcessorRevision = static_cast<std::uint16_t>(model << 8 | (signature & 0xF));
#endif
}

// What the data base of users gives for one that it does not have; getpwuid(3) lists them.
bool IsNoEntry(int error)
{
    return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

// 0 or an error number of the system. Throws std::bad_alloc.
int FindUserName(std::u16string* name)
{
    const uid_t user = geteuid();
    std::string room(1024, '\0');
    passwd entry = {};
    passwd* found = nullptr;
    int error = EINTR;
    while (error == EINTR || error == ERANGE) {
        if (error == ERANGE) {
            room.resize(room.size() * 2);
        }
        error = getpwuid_r(user, &entry, room.data(), room.size(), &found);
    }
    if (found != nullptr) {
        *name = PathFromBytes(entry.pw_name);
    } else if (IsNoEntry(error)) {
        *name = PathFromBytes(std::to_string(user));
    }
    return IsNoEntry(error) ? 0 : error;
}

} // namespace

BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status)
{
    static_assert(sizeof *status == 64);
    if (status->dwLength != sizeof *status) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return kFalse;
    }
    const KeepErrno keep;
    *status = {};
    status->dwLength = sizeof *status;
    FillPhysical(status);
    FillVirtual(status);
    status->ullTotalPageFile = status->ullTotalPhys;
    status->ullAvailPageFile = status->ullAvailPhys;
    return kTrue;
}

void GetSystemInfo(SYSTEM_INFO* info)
{
    const KeepErrno keep;
    *info = {};
    info->dwPageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    info->dwAllocationGranularity = info->dwPageSize;
    info->lpMinimumApplicationAddress = reinterpret_cast<void*>(std::uintptr_t{info->dwPageSize});
    info->lpMaximumApplicationAddress = reinterpret_cast<void*>(kAddresses - 1);
    info->dwNumberOfProcessors = static_cast<DWORD>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
    FillProcessor(info);
}

BOOL GetUserNameW(WCHAR* buffer, DWORD* size)
{
    const KeepErrno keep;
    std::u16string name;
    int error = 0;
    try {
        error = FindUserName(&name);
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    }
    if (error != 0) {
        SetLastError(ErrorFromErrno(error));
        return kFalse;
    }
    const auto needed = static_cast<DWORD>(name.size() + 1);
    const bool fits = needed <= *size;
    *size = needed;
    if (!fits) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return kFalse;
    }
    std::copy_n(name.c_str(), needed, buffer);
    return kTrue;
}

} // namespace qv::platform
