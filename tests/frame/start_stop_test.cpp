// Start and stop with each platform call failing, and with each allocation failing.
#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/lockstats.h>
#include <qvcore6/module.h>
#include <qvcore6/mutex.h>
#include <qvcore6/result.h>
#include <qvcore6/thread.h>

#include <clocale>
#include <string_view>

#include "frame/facts.h"
#include "frame/global_data.h"
#include "frame/library.h"
#include "platform/com.h"
#include "platform/host_info.h"
#include "platform/lifecycle.h"
#include "platform/loader.h"
#include "platform/registry_store.h"
#include "platform/system_time.h"
#include "support/alloc_faults.h"

using namespace qv::platform;

namespace
{

// What the replaced calls do.
struct Platform
{
    DWORD platformId = VER_PLATFORM_WIN32_NT;
    BOOL isWow64 = 0;
    std::string_view missing = {};
    LONG mallocResult = 0;
};

constinit Platform g_platform;

} // namespace

extern "C"
{
    decltype(GetVersionExW) __real_GetVersionExW;
    decltype(LoadLibraryA) __real_LoadLibraryA;
    decltype(GetProcAddress) __real_GetProcAddress;
    decltype(CoGetMalloc) __real_CoGetMalloc;

    BOOL __wrap_GetVersionExW(OSVERSIONINFOW* version)
    {
        const BOOL result = __real_GetVersionExW(version);
        version->dwPlatformId = g_platform.platformId;
        return result;
    }
    BOOL __wrap_IsWow64Process(HANDLE, BOOL* isWow64)
    {
        *isWow64 = g_platform.isWow64;
        return 1;
    }
    HMODULE __wrap_LoadLibraryA(const char* name)
    {
        return name == g_platform.missing ? nullptr : __real_LoadLibraryA(name);
    }
    FARPROC __wrap_GetProcAddress(HMODULE module, const char* name)
    {
        return name == g_platform.missing ? nullptr : __real_GetProcAddress(module, name);
    }
    LONG __wrap_CoGetMalloc(DWORD context, IMalloc** out)
    {
        return g_platform.mallocResult != 0 ? g_platform.mallocResult
                                            : __real_CoGetMalloc(context, out);
    }
}

namespace
{

using namespace qv::core;

void StopAndExpectDown()
{
    EXPECT_EQ(QVLibraryStop(), S_OK);
    const auto& [debugMutex, lockStats, clientData, moduleManager, mutexProvider] = g_globalData;
    EXPECT_TRUE(debugMutex == nullptr && lockStats == nullptr && clientData == nullptr &&
                moduleManager == nullptr && mutexProvider == nullptr);
}

// The result of a thread's creation, after its join.
QVRESULT UseThread()
{
    QVThread thread = 9;
    uint32_t id = 9;
    const QVRESULT created = QVThreadCreate([](void*) { return 1u; }, nullptr, 0, 0, &thread, &id);
    EXPECT_EQ(QVThreadJoin(thread, nullptr) == S_OK, created == S_OK);
    EXPECT_EQ(QVThreadIsFinished(thread), 1);
    return created;
}

// Takes the library down for the length of a test and brings it up again after it.
class StartStop : public testing::Test
{
protected:
    void SetUp() override { StopAndExpectDown(); }
    void TearDown() override
    {
        g_platform = {};
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    }
};

TEST_F(StartStop, TheFirstStartSetsTheLocaleAndTheLastStopEnds)
{
    EXPECT_EQ(QVLibraryStop(), E_FAIL) << "without a start";
    for (const char* const locale : {"C.UTF-8", "C"}) { // the environment's; untouched
        std::setlocale(LC_ALL, "C");
        ASSERT_EQ(QVLibraryStart(), S_OK);
        EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), locale);
    }
    ASSERT_EQ(QVLibraryStop(), S_OK);
    EXPECT_NE(g_globalData.m_clientData, nullptr);
    StopAndExpectDown();
}

TEST_F(StartStop, FactsFollowThePlatform)
{
    const GetTimeFunction precise = &GetSystemTimePreciseAsFileTime;
    const GetTimeFunction coarse = &GetSystemTimeAsFileTime;
    const struct
    {
        Platform platform;
        int isNT, isWow64;
        GetTimeFunction getPreciseTime;
        bool deletesWithView;
    } rows[] = {
        {{}, 1, 0, precise, true},
        {{.platformId = 1, .isWow64 = 1}, 0, 0, nullptr, false},
        {{.isWow64 = 1}, 1, 1, precise, true},
        {{.isWow64 = 0x10000}, 1, 0, precise, true}, // the low 16 bits count
        {{.missing = "kernel32.dll"}, 1, 0, coarse, true},
        {{.missing = "advapi32.dll"}, 1, 0, precise, false},
        {{.missing = "GetSystemTimePreciseAsFileTime"}, 1, 0, coarse, true},
        {{.missing = "RegDeleteKeyExW"}, 1, 0, precise, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        g_platform = row.platform;
        ASSERT_EQ(QVLibraryStart(), S_OK);
        EXPECT_EQ(s_isNT, row.isNT);
        EXPECT_EQ(s_isWow64, row.isWow64);
        EXPECT_EQ(s_getPreciseTime, row.getPreciseTime);
        EXPECT_EQ(s_regDeleteKeyEx == &RegDeleteKeyExW, row.deletesWithView);
        EXPECT_EQ(s_regDeleteKeyEx(nullptr, u"key", 0x200, 0), LONG{ERROR_INVALID_HANDLE});
        StopAndExpectDown();
    }
}

TEST_F(StartStop, WithoutTaskAllocatorTheRestIsUp)
{
    g_platform.mallocResult = E_ABORT;
    EXPECT_EQ(QVLibraryStart(), E_ABORT);
    void* block = &block;
    EXPECT_EQ(QVComMalloc(8, &block), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(QVComRealloc(&block, 8), E_OUTOFMEMORY);
    EXPECT_EQ(QVComFree(nullptr), S_OK);
    EXPECT_EQ(UseThread(), S_OK);
    StopAndExpectDown();
}

TEST_F(StartStop, EveryAllocationMayFailAndTheNotificationNeverDoes)
{
    const GUID clsid{};
    void* object = nullptr;
    // The store is opened once, by the first look-up, and outlives stops.
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_EQ(QVComGetClassObject(&clsid, &clsid, &object), REGDB_E_CLASSNOTREG);
    StopAndExpectDown();
    const long before = qv::test::LiveBlocks();
    const auto expectUse = [&](long n, bool failed) {
        // A table without its mutex comes up all the same; its functions then refuse.
        for (const QVRESULT used :
             {QVModuleSetInitialized(5, 1), UseThread(), QVResetLockStats()}) {
            EXPECT_TRUE(used == S_OK || failed) << n;
        }
        QVMutex mutex = nullptr;
        const QVRESULT made = QVMutexCreate("counts", QV_MUTEX_STATS, &mutex);
        EXPECT_TRUE(made == S_OK || (made == E_FAIL && failed && n == 1)) << n;
        EXPECT_EQ(made == S_OK ? QVMutexDestroy(mutex) : S_OK, S_OK) << n;
        EXPECT_EQ(mutex == QV_MUTEX_NONE, made < 0) << n;
        object = &object;
        EXPECT_LT(QVComGetClassObject(&clsid, &clsid, &object), 0) << n;
        EXPECT_EQ(object, nullptr) << n;
        QVComFlushFactoryCache();
        StopAndExpectDown();
    };
    const long failures = qv::test::SweepAllocations(
        [] { EXPECT_NE(DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr), 0); }, expectUse);
    EXPECT_GE(failures, 6) << "provider, debug mutex and cell, two tables and their mutexes";
    EXPECT_EQ(qv::test::LiveBlocks(), before);
}

TEST_F(StartStop, AnEndingProcessWithOtherThreadsKeepsItsTables)
{
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    char ending = 0;
    EXPECT_NE(DllMain(nullptr, DLL_PROCESS_DETACH, &ending), 0);
    EXPECT_EQ(QVModuleLibClose(s_selfModule, nullptr), QV_E_NOT_INITIALIZED);
    EXPECT_EQ(UseThread(), S_OK);
    StopAndExpectDown();
}

} // namespace
