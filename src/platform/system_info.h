// The machine's memory and processors, and the name of the user.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace qv::platform
{

struct MEMORYSTATUSEX
{
    DWORD dwLength;
    DWORD dwMemoryLoad; // per cent in use
    std::uint64_t ullTotalPhys;
    std::uint64_t ullAvailPhys;
    std::uint64_t ullTotalPageFile; // these two: as the two above, as swap may be anywhere
    std::uint64_t ullAvailPageFile;
    std::uint64_t ullTotalVirtual;
    std::uint64_t ullAvailVirtual;
    std::uint64_t ullAvailExtendedVirtual; // 0
};

struct SYSTEM_INFO
{
    std::uint16_t wProcessorArchitecture;
    std::uint16_t wReserved;
    DWORD dwPageSize;
    void* lpMinimumApplicationAddress;
    void* lpMaximumApplicationAddress;
    std::uintptr_t dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    std::uint16_t wProcessorLevel;
    std::uint16_t wProcessorRevision;
};

inline constexpr std::uint16_t PROCESSOR_ARCHITECTURE_AMD64 = 9;
inline constexpr std::uint16_t PROCESSOR_ARCHITECTURE_UNKNOWN = 0xFFFF;
inline constexpr DWORD PROCESSOR_AMD_X8664 = 8664;

extern "C"
{
    // The length must be the record's size, otherwise false with error 87. Without /proc what
    // depends on it comes from sysinfo(2), or is 0.
    BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status);
    // The mask of processors is 0.
    void GetSystemInfo(SYSTEM_INFO* info);
    // *size is the room in units going in; coming out the length with the terminator, also when
    // that is more than the room: false with error 122 then. A user without a name has a number.
    BOOL GetUserNameW(WCHAR* buffer, DWORD* size);
}

} // namespace qv::platform
