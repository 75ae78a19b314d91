#include <qvcore6/sysinfo.h>

#include <cstddef>

#include "platform/error.h"
#include "platform/host_info.h"
#include "platform/system_info.h"

using namespace qv::platform;

static_assert(sizeof(QVSystemInfo) == 64 && offsetof(QVSystemInfo, buildNumber) == 56);

namespace
{

// The low half, where the field is no wider.
std::uint16_t Low(DWORD number)
{
    return static_cast<std::uint16_t>(number);
}

} // namespace

QVRESULT QVGetSystemInfo(QVSystemInfo* info, std::int32_t /*reserved*/)
{
    MEMORYSTATUSEX memory{};
    memory.dwLength = sizeof memory;
    GlobalMemoryStatusEx(&memory);
    info->totalPhysicalMemory = memory.ullTotalPhys;
    info->availablePhysicalMemory = memory.ullAvailPhys;
    info->totalVirtualMemory = memory.ullTotalVirtual;
    info->availableVirtualMemory = memory.ullAvailVirtual;

    SYSTEM_INFO system{};
    GetSystemInfo(&system);
    info->allocationGranularity = system.dwAllocationGranularity;
    info->pageSize = system.dwPageSize;
    info->processorType = Low(system.dwProcessorType);
    info->processorLevel = system.wProcessorLevel;
    info->processorRevision = system.wProcessorRevision;
    info->processorCount = Low(system.dwNumberOfProcessors);

    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (GetVersionExA(&version) == kFalse) {
        return QVResultFromNative(GetLastError());
    }
    info->platformId = Low(version.dwPlatformId);
    info->reserved = 0;
    info->majorVersion = Low(version.dwMajorVersion);
    info->minorVersion = Low(version.dwMinorVersion);
    info->buildNumber = Low(version.dwBuildNumber);
    return S_OK;
}

QVRESULT QVGetUserName(QVWChar* buffer, std::uint32_t size)
{
    DWORD length = size;
    return GetUserNameW(buffer, &length) != kFalse ? S_OK : QVResultFromNative(GetLastError());
}
