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

// What the replaced calls do, and what they saw.
struct Platform
{
    bool versionFails = false;
    DWORD platformId = VER_PLATFORM_WIN32_NT;
    bool wowFails = false;
    BOOL isWow64 = 0;
    bool librariesMissing = false;
    std::string_view hiddenName = {};
    LONG mallocResult = 0;
};

constinit Platform g_platform;

constexpr LONG kDeletedWide = 77;
constexpr LONG kDeletedNarrow = 78;

} // namespace

extern "C"
{
    decltype(GetVersionExW) __real_GetVersionExW;
    decltype(LoadLibraryA) __real_LoadLibraryA;
    decltype(GetProcAddress) __real_GetProcAddress;
    decltype(CoGetMalloc) __real_CoGetMalloc;

    BOOL __wrap_GetVersionExW(OSVERSIONINFOW* version)
    {
        if (g_platform.versionFails) {
            return 0;
        }
        const BOOL result = __real_GetVersionExW(version);
        version->dwPlatformId = g_platform.platformId;
        return result;
    }

    BOOL __wrap_IsWow64Process(HANDLE, BOOL* isWow64)
    {
        if (g_platform.wowFails) {
            return 0;
        }
        *isWow64 = g_platform.isWow64;
        return 1;
    }

    HMODULE __wrap_LoadLibraryA(const char* name)
    {
        return g_platform.librariesMissing ? nullptr : __real_LoadLibraryA(name);
    }

    FARPROC __wrap_GetProcAddress(HMODULE module, const char* name)
    {
        return name == g_platform.hiddenName ? nullptr : __real_GetProcAddress(module, name);
    }

    LONG __wrap_CoGetMalloc(DWORD context, IMalloc** out)
    {
        return g_platform.mallocResult != 0 ? g_platform.mallocResult
                                            : __real_CoGetMalloc(context, out);
    }

    LONG __wrap_RegDeleteKeyW(HKEY, const WCHAR* name)
    {
        EXPECT_EQ(std::u16string_view(u"key"), name);
        return kDeletedWide;
    }

    LONG __wrap_RegDeleteKeyA(HKEY, const char* name)
    {
        EXPECT_STREQ("key", name);
        return kDeletedNarrow;
    }
}

namespace
{

using namespace qv::core;

// Takes the library down for the length of a test and brings it up again after it.
class StartStop : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(QVLibraryStop(), S_OK);
        ExpectDown();
        g_platform = {};
    }
    void TearDown() override
    {
        QVLibraryStop();
        ExpectDown();
        g_platform = {};
        ASSERT_EQ(QVLibraryStart(), S_OK);
        QVModuleSetInitialized(s_selfModule, 1);
    }
    static void ExpectDown()
    {
        EXPECT_EQ(g_globalData.m_mutexProvider, nullptr);
        EXPECT_EQ(g_globalData.m_lockStatManager, nullptr);
        EXPECT_EQ(g_globalData.m_debugMutex, nullptr);
        EXPECT_EQ(g_globalData.m_moduleManager, nullptr);
        EXPECT_EQ(g_globalData.m_clientData, nullptr);
    }
};

TEST_F(StartStop, TheFirstStartSetsTheLocaleAndTheLastStopEnds)
{
    EXPECT_EQ(QVLibraryStop(), E_FAIL) << "without a start";
    std::setlocale(LC_ALL, "C");
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8") << "the environment's";
    std::setlocale(LC_ALL, "C");
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
    ASSERT_EQ(QVLibraryStop(), S_OK);
    EXPECT_NE(g_globalData.m_clientData, nullptr);
    EXPECT_NE(s_malloc, nullptr);
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
        LONG deleted; // what deleting a key gives, 0 for the platform's own function
    } rows[] = {
        {{}, 1, 0, precise, 0},
        {{.versionFails = true}, 0, 0, nullptr, kDeletedNarrow},
        {{.platformId = 1, .isWow64 = 1}, 0, 0, nullptr, kDeletedNarrow},
        {{.wowFails = true, .isWow64 = 1}, 1, 0, precise, 0},
        {{.isWow64 = 1}, 1, 1, precise, 0},
        {{.isWow64 = 0x10000}, 1, 0, precise, 0}, // the low 16 bits count
        {{.librariesMissing = true}, 1, 0, coarse, kDeletedWide},
        {{.hiddenName = "GetSystemTimePreciseAsFileTime"}, 1, 0, coarse, 0},
        {{.hiddenName = "RegDeleteKeyExW"}, 1, 0, precise, kDeletedWide},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        g_platform = row.platform;
        ASSERT_EQ(QVLibraryStart(), S_OK);
        EXPECT_EQ(s_isNT, row.isNT);
        EXPECT_EQ(s_isWow64, row.isWow64);
        EXPECT_EQ(s_getPreciseTime, row.getPreciseTime);
        EXPECT_EQ(s_regDeleteKeyEx == &RegDeleteKeyExW, row.deleted == 0);
        if (row.deleted != 0) {
            EXPECT_EQ(s_regDeleteKeyEx(nullptr, u"key", 0x200, 0), row.deleted);
        }
        QVLibraryStop();
    }
}

TEST_F(StartStop, WithoutTaskAllocatorTheRestIsUp)
{
    g_platform.mallocResult = E_ABORT;
    EXPECT_EQ(QVLibraryStart(), E_ABORT);
    EXPECT_NE(g_globalData.m_clientData, nullptr);
    void* block = &block;
    EXPECT_EQ(QVComMalloc(8, &block), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(QVComRealloc(&block, 8), E_OUTOFMEMORY);
    EXPECT_EQ(QVComFree(nullptr), S_OK);
}

// The result of a thread's creation, after its join.
QVRESULT UseThread()
{
    QVThread thread = 9;
    uint32_t id = 9;
    const QVRESULT created = QVThreadCreate([](void*) { return 1u; }, nullptr, 0, 0, &thread, &id);
    EXPECT_EQ(thread, created == S_OK ? id : QV_THREAD_NONE);
    EXPECT_EQ(QVThreadJoin(thread, nullptr) == S_OK, created == S_OK);
    EXPECT_EQ(QVThreadIsFinished(thread), 1);
    return created;
}

TEST_F(StartStop, EveryAllocationMayFail)
{
    const GUID clsid{};
    void* object = nullptr;
    // The store is opened once, by the first look-up, and outlives stops.
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_EQ(QVComGetClassObject(&clsid, &clsid, &object), REGDB_E_CLASSNOTREG);
    ASSERT_EQ(QVLibraryStop(), S_OK);
    const long before = qv::test::LiveBlocks();
    QVRESULT result = E_FAIL;
    const long failures = qv::test::SweepAllocations(
        [&] { result = QVLibraryStart(); },
        [&](long n, bool failed) {
            // A table without its mutex comes up all the same; its functions then refuse.
            EXPECT_TRUE(result == S_OK || (failed && result == E_OUTOFMEMORY)) << n;
            EXPECT_TRUE(QVModuleSetInitialized(5, 1) == S_OK || failed) << n;
            EXPECT_TRUE(UseThread() == S_OK || failed) << n;
            EXPECT_TRUE(QVResetLockStats() == S_OK || failed) << n;
            QVMutex mutex = QV_MUTEX_NONE;
            const QVRESULT made = QVMutexCreate("counts", QV_MUTEX_STATS, &mutex);
            EXPECT_TRUE(made == S_OK ? QVMutexDestroy(mutex) == S_OK : made == E_FAIL && failed);
            object = &object;
            EXPECT_LT(QVComGetClassObject(&clsid, &clsid, &object), 0) << n;
            EXPECT_EQ(object, nullptr) << n;
            QVComFlushFactoryCache();
            EXPECT_EQ(QVLibraryStop(), S_OK) << n;
            ExpectDown();
        });
    EXPECT_GE(failures, 6) << "provider, debug mutex and cell, two tables and their mutexes";
    EXPECT_EQ(qv::test::LiveBlocks(), before);
}

TEST_F(StartStop, TheNotificationNeverFails)
{
    {
        const qv::test::FailAllocation fault(1);
        EXPECT_NE(DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr), 0);
    }
    QVMutex mutex = nullptr;
    EXPECT_EQ(QVMutexCreate("x", 0, &mutex), E_FAIL);
    EXPECT_EQ(mutex, QV_MUTEX_NONE);
    EXPECT_EQ(UseThread(), E_FAIL);
    EXPECT_NE(DllMain(nullptr, 2, nullptr), 0);
    EXPECT_NE(DllMain(nullptr, DLL_PROCESS_DETACH, nullptr), 0);
    ExpectDown();
}

TEST_F(StartStop, AnEndingProcessWithOtherThreadsKeepsItsTables)
{
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    char ending = 0;
    EXPECT_NE(DllMain(nullptr, DLL_PROCESS_DETACH, &ending), 0);
    EXPECT_NE(g_globalData.m_clientData, nullptr);
    EXPECT_EQ(QVModuleLibClose(s_selfModule, nullptr), QV_E_NOT_INITIALIZED);
}

} // namespace
