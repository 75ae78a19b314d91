// Class look-up: the cache, components that misbehave, and what is left after a failure.
#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/module.h>
#include <qvcore6/result.h>

#include <string>
#include <vector>

#include "component/class_test.h"
#include "component/journal.h"
#include "frame/facts.h"
#include "platform/error.h"
#include "platform/loader.h"

using namespace qv;
using namespace qv::test;

namespace qv::test
{

int g_registryReads = 0;
QVRESULT g_registryResult = S_OK;
std::function<void(void* data, uint32_t* size)> g_registryAnswer;
std::u16string g_registryKey;
std::u16string g_loadedPath;

} // namespace qv::test

namespace
{

platform::DWORD g_loadError = 0;
platform::DWORD g_symbolError = 0;

} // namespace

extern "C"
{
    QVRESULT __real_QVRegistryGetValue(uint32_t root, const QVWChar* key, const QVWChar* name,
                                       uint32_t* type, void* data, uint32_t* size);
    QVRESULT __wrap_QVRegistryGetValue(uint32_t root, const QVWChar* key, const QVWChar* name,
                                       uint32_t* type, void* data, uint32_t* size)
    {
        ++g_registryReads;
        g_registryKey = key;
        EXPECT_EQ(root, QV_HKEY_CLASSES);
        EXPECT_EQ(std::u16string(name), u"");
        if (g_registryResult < 0) {
            return g_registryResult;
        }
        if (g_registryAnswer) {
            g_registryAnswer(data, size);
            return S_OK;
        }
        return __real_QVRegistryGetValue(root, key, name, type, data, size);
    }

    platform::HMODULE __real_LoadLibraryW(const platform::WCHAR* path);
    platform::HMODULE __wrap_LoadLibraryW(const platform::WCHAR* path)
    {
        g_loadedPath = path;
        if (g_loadError == 0) {
            return __real_LoadLibraryW(path);
        }
        platform::SetLastError(g_loadError);
        return nullptr;
    }

    platform::FARPROC __real_GetProcAddress(platform::HMODULE module, const char* name);
    platform::FARPROC __wrap_GetProcAddress(platform::HMODULE module, const char* name)
    {
        if (g_symbolError == 0) {
            return __real_GetProcAddress(module, name);
        }
        platform::SetLastError(g_symbolError);
        return nullptr;
    }
}

namespace
{

using Journal = std::vector<std::string>;

class ClassTest : public testing::Test
{
protected:
    void SetUp() override
    {
        RegisterAllKinds();
        TakeJournal();
        g_registryReads = 0;
    }

    // Whatever a test did: afterwards no class object lives and no library is open.
    void TearDown() override
    {
        g_loadError = g_symbolError = 0;
        g_registryResult = S_OK;
        g_registryAnswer = nullptr;
        EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
        const Journal rest = TakeJournal();
        m_all.insert(m_all.end(), rest.begin(), rest.end());
        EXPECT_EQ(CountIn(m_all, "load"), CountIn(m_all, "unload"));
        for (int kind = 0; kind <= static_cast<int>(Kind::Waits); ++kind) {
            EXPECT_EQ(CountIn(m_all, Event("make", kind)), CountIn(m_all, Event("end", kind)))
                << kind;
        }
    }

    Journal Take()
    {
        const Journal now = TakeJournal();
        m_all.insert(m_all.end(), now.begin(), now.end());
        return now;
    }

    // Asks for a class object and gives it back.
    QVRESULT Ask(Kind kind, const GUID& iid = QV_IID_UNKNOWN)
    {
        const GUID clsid = ClassOf(kind);
        void* object = &object;
        const QVRESULT result = QVComGetClassObject(&clsid, &iid, &object);
        EXPECT_EQ(object == nullptr, result < 0);
        if (result >= 0 && object != nullptr) {
            IQVUnknown_Release(static_cast<IQVUnknown*>(object));
        }
        return result;
    }

private:
    Journal m_all;
};

TEST_F(ClassTest, TheSecondLookUpAsksNeitherRegistryNorLoader)
{
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(Take(), (Journal{"load", "make 0"}));
    EXPECT_EQ(g_registryReads, 1);
    EXPECT_EQ(g_registryKey, u"CLSID\\{7E57C0DE-0001-0002-0000-000000000000}\\InprocServer32");

    // Even the registration may be gone by now.
    EXPECT_EQ(Register(ClassOf(Kind::Plain), u"/nowhere.so"), S_OK);
    EXPECT_EQ(Ask(Kind::Plain, QV_IID_CLASS_FACTORY), S_OK);
    EXPECT_EQ(Take(), (Journal{"query 0"}));
    EXPECT_EQ(g_registryReads, 1);
    EXPECT_EQ(Ask(Kind::Plain, ClassOf(Kind::Plain)), kNoInterface);
    EXPECT_EQ(Ask(Kind::Plain), S_OK); // still cached

    Take();
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    EXPECT_EQ(Take(), (Journal{"end 0", "unload"}));
    EXPECT_EQ(Ask(Kind::Plain), E_FAIL);
    EXPECT_EQ(g_registryReads, 2);
}

TEST_F(ClassTest, RecordsAreDroppedInTheOrderOfTheirBytes)
{
    for (const Kind kind : {Kind::CreateFails, Kind::Plain, Kind::AsksForPlain}) {
        EXPECT_EQ(Ask(kind), S_OK);
    }
    Take();
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    EXPECT_EQ(Take(), (Journal{"end 0", "end 5", "end 10", "unload"}));
}

// No row may leave the library open or put anything into the map; TearDown looks at the former.
TEST_F(ClassTest, AFailureGivesItsCodeAndLeavesNothing)
{
    const struct
    {
        Kind kind;
        const GUID& iid;
        QVRESULT result;
    } rows[] = {
        {Kind::Fails, QV_IID_UNKNOWN, kForeignFailure},
        {Kind::Throws, QV_IID_UNKNOWN, E_FAIL},
        {Kind::ThrowsBadAlloc, QV_IID_UNKNOWN, E_OUTOFMEMORY},
        {Kind::Null, QV_IID_UNKNOWN, E_FAIL},
        {Kind::Plain, IID_Other, kNoInterface},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.kind));
        EXPECT_EQ(Ask(row.kind, row.iid), row.result);
        const Journal first = Take();
        EXPECT_EQ(first.front(), "load");
        EXPECT_EQ(first.back(), "unload");
        EXPECT_EQ(Ask(row.kind, row.iid), row.result);
        EXPECT_EQ(Take(), first) << "the failure was cached";
    }
}

TEST_F(ClassTest, FailuresOfThePlatformPassThrough)
{
    const struct
    {
        platform::DWORD error;
        QVRESULT result;
    } rows[] = {{126, E_FAIL}, {2, QV_E_FILE_NOT_FOUND}, {5, E_ACCESSDENIED}, {14, E_OUTOFMEMORY}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        g_loadError = row.error;
        EXPECT_EQ(Ask(Kind::Plain), row.result);
        EXPECT_EQ(Take(), Journal());
        g_loadError = 0;
        g_symbolError = row.error;
        EXPECT_EQ(Ask(Kind::Plain), row.result);
        EXPECT_EQ(Take(), (Journal{"load", "unload"}));
        g_symbolError = 0;
    }
    EXPECT_EQ(Register(ClassOf(Kind::Plain), LibraryPath("lib_without_entry")), S_OK);
    EXPECT_EQ(Ask(Kind::Plain), E_FAIL);
}

TEST_F(ClassTest, WhileTheLibraryUnloadsNothingIsLoadedOrFreed)
{
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    Take();
    EXPECT_EQ(QVModuleSetInitialized(core::s_selfModule, 0), S_OK);
    EXPECT_EQ(Ask(Kind::AsksForPlain), QV_E_NOT_INITIALIZED);
    EXPECT_EQ(Ask(Kind::Plain), S_OK); // cached
    Take();
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    EXPECT_EQ(Take(), (Journal{"end 0"})); // released, and left mapped
    EXPECT_EQ(QVModuleSetInitialized(core::s_selfModule, 1), S_OK);
    QVLibrary library = nullptr;
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    EXPECT_EQ(QVLibClose(library), S_OK);
    EXPECT_EQ(QVLibClose(library), S_OK); // the one that the cache left
}

TEST_F(ClassTest, AComponentMayLookUpClassesOnTheWay)
{
    EXPECT_EQ(Ask(Kind::AsksForPlain), S_OK);
    EXPECT_EQ(Take(), (Journal{"load", "make 0", "make 5"}));

    // The inner look-up of the same class caches a record, which the outer one replaces.
    EXPECT_EQ(Ask(Kind::AsksForItself), S_OK);
    EXPECT_EQ(Take(), (Journal{"make 6", "make 6", "end 6"}));
    EXPECT_EQ(Ask(Kind::AsksForItself), S_OK);
    EXPECT_EQ(Take(), (Journal{"query 6"}));
}

TEST_F(ClassTest, LoadAndUnloadRoutinesMayLookUpClasses)
{
    const GUID clsid = {0x7E57C0DE, 9, 9, {}};
    EXPECT_EQ(Register(clsid, LibraryPath("lib_asks_on_load")), S_OK);
    void* object = nullptr;
    EXPECT_EQ(QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object), kForeignFailure);
    EXPECT_EQ(Take(),
              (Journal{"load", "make 0", "asked on load 1", "query 0", "asked on unload 1"}));
}

TEST_F(ClassTest, AFlushInsideQueryInterfaceKeepsTheRecordInUse)
{
    EXPECT_EQ(Ask(Kind::Flushes), S_OK);
    Take();
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    QVLibrary library = nullptr; // or the answer would lie in an unloaded library
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    EXPECT_EQ(Ask(Kind::Flushes), S_OK);
    Take();
    EXPECT_EQ(Ask(Kind::Flushes), S_OK); // flushes its own record while it answers
    EXPECT_EQ(Take(), (Journal{"query 7", "end 7"}));
    EXPECT_EQ(Ask(Kind::Flushes), S_OK);
    EXPECT_EQ(Take(), (Journal{"make 7"}));
    EXPECT_EQ(QVLibClose(library), S_OK);
}

TEST_F(ClassTest, AClassObjectThatComesBackDuringAFlushFindsAnEmptyCache)
{
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(Ask(Kind::ReleaseAsks), S_OK);
    Take();
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    // A new record of the other class comes into being, and stays.
    EXPECT_EQ(Take(), (Journal{"end 0", "make 0", "end 8"}));
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(Take(), (Journal{"query 0"}));
}

TEST_F(ClassTest, WhatQueryInterfaceThrowsIsTranslated)
{
    EXPECT_EQ(Ask(Kind::QueryThrows), S_OK);
    EXPECT_EQ(Ask(Kind::QueryThrows), E_FAIL);
    EXPECT_EQ(Ask(Kind::QueryThrows), E_FAIL); // and the lock is free again
}

TEST_F(ClassTest, ObjectsAreMadeByTheClassObject)
{
    const GUID plain = ClassOf(Kind::Plain);
    void* object = nullptr;
    ASSERT_EQ(QVComCreateObject(&plain, nullptr, &QV_IID_UNKNOWN, &object), S_OK);
    auto* const outer = static_cast<IQVUnknown*>(object);
    EXPECT_EQ(IQVUnknown_AddRef(outer), 3u);
    EXPECT_EQ(IQVUnknown_Release(outer), 2u);
    void* inner = nullptr;
    EXPECT_EQ(IQVUnknown_QueryInterface(outer, &IID_Other, &inner), kNoInterface);
    ASSERT_EQ(QVComCreateObject(&plain, outer, &QV_IID_UNKNOWN, &inner), S_OK);
    EXPECT_EQ(CountIn(Take(), "create inside 0"), 1);
    static_cast<IQVUnknown*>(inner)->Release();
    EXPECT_EQ(outer->Release(), 1u); // the cache's own

    for (const auto& [kind, result] :
         {std::pair{Kind::CreateFails, kForeignFailure}, std::pair{Kind::CreateThrows, E_FAIL},
          std::pair{Kind::Fails, kForeignFailure}, std::pair{Kind::Null, E_FAIL}}) {
        const GUID clsid = ClassOf(kind);
        object = &object;
        EXPECT_EQ(QVComCreateObject(&clsid, nullptr, &QV_IID_UNKNOWN, &object), result);
        EXPECT_EQ(object, &object); // neither of them writes it
    }
}

} // namespace
