// What the machine and the user are, beside what the system says of them elsewhere.
#include <gtest/gtest.h>
#include <pwd.h>
#include <qvcore6/sysinfo.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/error.h"
#include "platform/host_info.h"
#include "platform/path_text.h"
#include "platform/system_info.h"
#include "support/child_process.h"

using namespace qv::platform;
using namespace qv::test;

namespace
{

bool g_hasVersion = true;
bool g_hasProc = true;
int g_userError = 0;
int g_userErrors = 0;

} // namespace

extern "C"
{
    decltype(GetVersionExA) __real_GetVersionExA;
    decltype(open) __real_open;
    decltype(getpwuid_r) __real_getpwuid_r;

    BOOL __wrap_GetVersionExA(OSVERSIONINFOA* version)
    {
        if (!g_hasVersion) {
            SetLastError(ERROR_ACCESS_DENIED);
            return kFalse;
        }
        return __real_GetVersionExA(version);
    }
    int __wrap_open(const char* path, int flags, mode_t mode)
    {
        if (!g_hasProc && std::string(path).starts_with("/proc")) {
            errno = ENOENT;
            return -1;
        }
        return __real_open(path, flags, mode);
    }
    int __wrap_getpwuid_r(uid_t user, passwd* entry, char* room, size_t size, passwd** found)
    {
        *found = nullptr;
        return g_userErrors-- > 0 ? g_userError : __real_getpwuid_r(user, entry, room, size, found);
    }
}

namespace
{

TEST(SystemInfo, IsWhatTheSystemSays)
{
    for (const bool hasProc : {true, false}) {
        g_hasProc = hasProc;
        QVSystemInfo info = {};
        info.reserved = 7;
        ASSERT_EQ(S_OK, QVGetSystemInfo(&info, 5));
        struct sysinfo memory = {};
        sysinfo(&memory);
        EXPECT_EQ(memory.totalram * memory.mem_unit, info.totalPhysicalMemory);
        EXPECT_GT(info.availablePhysicalMemory, 0u);
        EXPECT_LE(info.availablePhysicalMemory, info.totalPhysicalMemory);
        EXPECT_EQ(0x7FFFFFFF0000u, info.totalVirtualMemory);
        EXPECT_EQ(hasProc, info.availableVirtualMemory < info.totalVirtualMemory);
        EXPECT_EQ(getpagesize(), static_cast<int>(info.pageSize));
        EXPECT_EQ(getpagesize(), static_cast<int>(info.allocationGranularity));
        EXPECT_EQ(get_nprocs(), info.processorCount);
#if defined(__x86_64__)
        EXPECT_EQ(8664, info.processorType);
        EXPECT_GE(info.processorLevel, 6);
#endif
        utsname name = {};
        uname(&name);
        const std::string release =
            std::to_string(info.majorVersion) + '.' + std::to_string(info.minorVersion) + '.';
        EXPECT_EQ(0u, std::string(name.release).find(release)) << name.release;
        EXPECT_EQ(2, info.platformId);
        EXPECT_EQ(0, info.reserved);
    }
    g_hasProc = true;
    Child limited([] {
        rlimit limit = {};
        getrlimit(RLIMIT_AS, &limit);
        limit.rlim_cur = 1 << 20;
        setrlimit(RLIMIT_AS, &limit);
        QVSystemInfo info = {};
        return QVGetSystemInfo(&info, 0) == S_OK && info.totalVirtualMemory == 1 << 20 &&
               info.availableVirtualMemory == 0;
    });
    EXPECT_TRUE(limited.Succeeded());
}

TEST(SystemInfo, LeavesTheVersionAloneWhenItCannotBeHad)
{
    QVSystemInfo info = {};
    info.platformId = info.reserved = info.majorVersion = info.minorVersion = info.buildNumber = 7;
    g_hasVersion = false;
    EXPECT_EQ(E_ACCESSDENIED, QVGetSystemInfo(&info, 0));
    g_hasVersion = true;
    EXPECT_GT(info.processorCount, 0);
    for (const uint16_t field :
         {info.platformId, info.reserved, info.majorVersion, info.minorVersion, info.buildNumber}) {
        EXPECT_EQ(7, field);
    }
}

std::u16string UserName(QVRESULT expected = S_OK, uint32_t size = 64)
{
    QVWChar name[64] = u"untouched";
    EXPECT_EQ(expected, QVGetUserName(name, size));
    return name;
}

TEST(UserName, IsThatOfTheEffectiveUser)
{
    const passwd* const entry = getpwuid(geteuid());
    const std::string name = entry != nullptr ? entry->pw_name : std::to_string(geteuid());
    const std::u16string wide(name.begin(), name.end());
    const auto units = static_cast<uint32_t>(wide.size());
    EXPECT_EQ(wide, UserName(S_OK, units + 1));
    EXPECT_EQ(u"untouched", UserName(E_FAIL, units));
    EXPECT_EQ(E_FAIL, QVGetUserName(nullptr, 0));
    // Large entries, interruptions, and a data base that has no answer.
    const struct
    {
        int error;
        int times;
        QVRESULT result;
        std::u16string name;
    } rows[] = {{ERANGE, 3, S_OK, wide},
                {EINTR, 2, S_OK, wide},
                {ENOENT, 1, S_OK, PathFromBytes(std::to_string(geteuid()))},
                {EMFILE, 1, E_FAIL, u"untouched"},
                {ENOMEM, 1, E_OUTOFMEMORY, u"untouched"},
                {EACCES, 1, E_ACCESSDENIED, u"untouched"}};
    for (const auto& row : rows) {
        g_userError = row.error;
        g_userErrors = row.times;
        EXPECT_EQ(row.name, UserName(row.result)) << row.error;
    }
    g_userErrors = 0;
    Child nameless([] { return seteuid(54321) == 0 && UserName() == u"54321"; });
    EXPECT_TRUE(nameless.Succeeded() || geteuid() != 0);
}

} // namespace
