// Start and stop with each platform call failing, and with each allocation failing.
#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/module.h>
#include <qvcore6/mutex.h>
#include <qvcore6/result.h>

#include <clocale>
#include <string>
#include <vector>

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
    std::string hiddenName;
    LONG mallocResult = 0;
    bool mallocFails = false;
    std::vector<std::string> calls;
    std::string deletedNarrow;
    std::u16string deletedWide;
};

Platform* g_platform = nullptr;

} // namespace

extern "C"
{
    char* __real_setlocale(int category, const char* locale);
    BOOL __real_GetVersionExW(OSVERSIONINFOW* version);
    BOOL __real_IsWow64Process(ProcessHandle process, BOOL* isWow64);
    HMODULE __real_LoadLibraryA(const char* name);
    FARPROC __real_GetProcAddress(HMODULE module, const char* name);
    LONG __real_CoGetMalloc(DWORD context, IMalloc** out);
    LONG __real_RegDeleteKeyW(HKEY key, const WCHAR* name);
    LONG __real_RegDeleteKeyA(HKEY key, const char* name);

    char* __wrap_setlocale(int category, const char* locale)
    {
        if (g_platform != nullptr) {
            g_platform->calls.emplace_back("setlocale");
            return nullptr;
        }
        return __real_setlocale(category, locale);
    }

    BOOL __wrap_GetVersionExW(OSVERSIONINFOW* version)
    {
        if (g_platform == nullptr) {
            return __real_GetVersionExW(version);
        }
        g_platform->calls.emplace_back("GetVersionExW");
        if (g_platform->versionFails) {
            return 0;
        }
        const BOOL ok = __real_GetVersionExW(version);
        version->dwPlatformId = g_platform->platformId;
        return ok;
    }

    BOOL __wrap_IsWow64Process(ProcessHandle process, BOOL* isWow64)
    {
        if (g_platform == nullptr) {
            return __real_IsWow64Process(process, isWow64);
        }
        g_platform->calls.emplace_back("IsWow64Process");
        if (g_platform->wowFails) {
            return 0;
        }
        *isWow64 = g_platform->isWow64;
        return 1;
    }

    HMODULE __wrap_LoadLibraryA(const char* name)
    {
        if (g_platform == nullptr) {
            return __real_LoadLibraryA(name);
        }
        g_platform->calls.emplace_back(name);
        return g_platform->librariesMissing ? nullptr : __real_LoadLibraryA(name);
    }

    FARPROC __wrap_GetProcAddress(HMODULE module, const char* name)
    {
        if (g_platform != nullptr && g_platform->hiddenName == name) {
            return nullptr;
        }
        return __real_GetProcAddress(module, name);
    }

    LONG __wrap_CoGetMalloc(DWORD context, IMalloc** out)
    {
        if (g_platform == nullptr) {
            return __real_CoGetMalloc(context, out);
        }
        g_platform->calls.emplace_back("CoGetMalloc");
        return g_platform->mallocFails ? g_platform->mallocResult
                                       : __real_CoGetMalloc(context, out);
    }

    LONG __wrap_RegDeleteKeyW(HKEY key, const WCHAR* name)
    {
        if (g_platform == nullptr) {
            return __real_RegDeleteKeyW(key, name);
        }
        g_platform->deletedWide = name;
        return 77;
    }

    LONG __wrap_RegDeleteKeyA(HKEY key, const char* name)
    {
        if (g_platform == nullptr) {
            return __real_RegDeleteKeyA(key, name);
        }
        g_platform->deletedNarrow = name;
        return 78;
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
        g_platform = &m_platform;
    }
    void TearDown() override
    {
        g_platform = nullptr;
        QVLibraryStop();
        ExpectDown();
        ASSERT_EQ(QVLibraryStart(), S_OK);
        QVModuleSetInitialized(s_selfModule, 1);
    }
    static void ExpectDown()
    {
        EXPECT_EQ(g_globalData.m_mutexProvider, nullptr);
        EXPECT_EQ(g_globalData.m_debugMutex, nullptr);
        EXPECT_EQ(g_globalData.m_moduleManager, nullptr);
        EXPECT_EQ(g_globalData.m_clientData, nullptr);
        EXPECT_EQ(g_globalData.m_lockStatManager, nullptr);
    }

    Platform m_platform;
};

TEST_F(StartStop, AsksThePlatformInOrderAndOnce)
{
    EXPECT_EQ(QVLibraryStop(), E_FAIL) << "without a start";
    ASSERT_EQ(QVLibraryStart(), S_OK);
    ASSERT_EQ(QVLibraryStart(), S_OK);
    ASSERT_EQ(QVLibraryStop(), S_OK);
    const std::vector<std::string> expected = {"setlocale",    "GetVersionExW", "IsWow64Process",
                                               "kernel32.dll", "advapi32.dll",  "CoGetMalloc"};
    EXPECT_EQ(m_platform.calls, expected);
    EXPECT_EQ(s_isNT, 1);
    EXPECT_EQ(s_isWow64, 0);
    EXPECT_EQ(s_getPreciseTime, &GetSystemTimePreciseAsFileTime);
    EXPECT_EQ(s_regDeleteKeyEx, &RegDeleteKeyExW);
    EXPECT_NE(s_malloc, nullptr);
}

TEST_F(StartStop, FailingVersionCallsLeaveDefaults)
{
    struct Row
    {
        bool versionFails;
        bool wowFails;
        BOOL answer;
        int isNT;
        int isWow64;
    };
    const Row rows[] = {
        {true, false, 1, 0, 0},
        {false, true, 1, 1, 0},
        {false, false, 1, 1, 1},
        {false, false, 0x10000, 1, 0}, // the low 16 bits count
    };
    for (const Row& row : rows) {
        m_platform.versionFails = row.versionFails;
        m_platform.wowFails = row.wowFails;
        m_platform.isWow64 = row.answer;
        ASSERT_EQ(QVLibraryStart(), S_OK);
        EXPECT_EQ(s_isNT, row.isNT);
        EXPECT_EQ(s_isWow64, row.isWow64) << row.wowFails << row.answer;
        QVLibraryStop();
    }
}

TEST_F(StartStop, FallsBackWhereNamesAreMissing)
{
    m_platform.hiddenName = "GetSystemTimePreciseAsFileTime";
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_EQ(s_getPreciseTime, &GetSystemTimeAsFileTime);
    EXPECT_EQ(s_regDeleteKeyEx, &RegDeleteKeyExW);
    QVLibraryStop();

    m_platform.hiddenName = "RegDeleteKeyExW";
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_EQ(s_getPreciseTime, &GetSystemTimePreciseAsFileTime);
    EXPECT_EQ(s_regDeleteKeyEx(nullptr, u"wide", 0x200, 0), 77);
    EXPECT_EQ(m_platform.deletedWide, u"wide");
    QVLibraryStop();

    m_platform.hiddenName.clear();
    m_platform.librariesMissing = true;
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_EQ(s_getPreciseTime, &GetSystemTimeAsFileTime);
    EXPECT_EQ(s_regDeleteKeyEx(nullptr, u"again", 0, 0), 77);
}

TEST_F(StartStop, OffTheNtFamilyNamesAreNarrowed)
{
    m_platform.platformId = 1;
    m_platform.isWow64 = 1;
    ASSERT_EQ(QVLibraryStart(), S_OK);
    EXPECT_EQ(s_isNT, 0);
    EXPECT_EQ(s_isWow64, 0);
    EXPECT_EQ(s_getPreciseTime, nullptr);
    EXPECT_EQ(s_regDeleteKeyEx(nullptr, u"narrow", 0x200, 0), 78);
    EXPECT_EQ(m_platform.deletedNarrow, "narrow");
    const std::vector<std::string> expected = {"setlocale", "GetVersionExW", "CoGetMalloc"};
    EXPECT_EQ(m_platform.calls, expected);
}

TEST_F(StartStop, WithoutTaskAllocatorTheRestIsUp)
{
    m_platform.mallocFails = true;
    m_platform.mallocResult = E_ABORT;
    EXPECT_EQ(QVLibraryStart(), E_ABORT);
    EXPECT_NE(g_globalData.m_clientData, nullptr);
    void* block = &block;
    EXPECT_EQ(QVComMalloc(8, &block), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(QVComRealloc(&block, 8), E_OUTOFMEMORY);
    EXPECT_EQ(QVComFree(nullptr), S_OK);
}

TEST_F(StartStop, EveryAllocationMayFail)
{
    g_platform = nullptr;
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
            EXPECT_TRUE(failed || result == S_OK) << n;
            const QVRESULT marked = QVModuleSetInitialized(5, 1);
            EXPECT_TRUE(marked == S_OK || failed) << n;
            QVMutex mutex = nullptr;
            const QVRESULT created = QVMutexCreate("x", 0, &mutex);
            EXPECT_EQ(created >= 0, mutex != QV_MUTEX_NONE) << n;
            if (created >= 0) {
                QVMutexDestroy(mutex);
            }
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
    g_platform = nullptr;
    {
        const qv::test::FailAllocation fault(1);
        EXPECT_NE(DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr), 0);
    }
    EXPECT_EQ(g_globalData.m_mutexProvider, nullptr);
    QVMutex mutex = nullptr;
    EXPECT_EQ(QVMutexCreate("x", 0, &mutex), E_FAIL);
    EXPECT_EQ(mutex, QV_MUTEX_NONE);
    EXPECT_NE(DllMain(nullptr, 2, nullptr), 0);
    EXPECT_NE(DllMain(nullptr, 3, nullptr), 0);
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
