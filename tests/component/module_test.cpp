// Libraries and the gate in front of them, also when the platform's calls fail.
#include <gtest/gtest.h>
#include <qvcore6/module.h>
#include <qvcore6/result.h>

#include <cstring>
#include <map>
#include <string>
#include <utility>

#include "component/journal.h"
#include "frame/facts.h"
#include "frame/global_data.h"
#include "platform/error.h"
#include "platform/loader.h"

using namespace qv;
using qv::test::LibraryPath;

namespace
{

// The error with which each platform call fails; 0 calls the real one.
platform::DWORD g_loadError = 0;
platform::DWORD g_freeError = 0;
platform::DWORD g_symbolError = 0;
char g_symbolName[64]; // no object: the first calls come before this file is initialised

} // namespace

extern "C"
{
    platform::HMODULE __real_LoadLibraryW(const platform::WCHAR* path);
    platform::HMODULE __wrap_LoadLibraryW(const platform::WCHAR* path)
    {
        if (g_loadError == 0) {
            return __real_LoadLibraryW(path);
        }
        platform::SetLastError(g_loadError);
        return nullptr;
    }

    platform::BOOL __real_FreeLibrary(platform::HMODULE module);
    platform::BOOL __wrap_FreeLibrary(platform::HMODULE module)
    {
        if (g_freeError == 0) {
            return __real_FreeLibrary(module);
        }
        platform::SetLastError(g_freeError);
        return platform::kFalse;
    }

    platform::FARPROC __real_GetProcAddress(platform::HMODULE module, const char* name);
    platform::FARPROC __wrap_GetProcAddress(platform::HMODULE module, const char* name)
    {
        std::strncpy(g_symbolName, name, sizeof g_symbolName - 1);
        if (g_symbolError == 0) {
            return __real_GetProcAddress(module, name);
        }
        platform::SetLastError(g_symbolError);
        return nullptr;
    }
}

namespace
{

constexpr uint32_t kModule = 0xC0FFEE;

TEST(Library, OpensFindsAndCloses)
{
    test::TakeJournal();
    QVLibrary library = nullptr;
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    void* symbol = nullptr;
    EXPECT_EQ(QVLibGetSymbol(library, u"DllGetClassObject", &symbol), S_OK);
    EXPECT_NE(symbol, nullptr);
    QVLibrary second = nullptr;
    EXPECT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &second), S_OK);
    EXPECT_EQ(QVLibClose(second), S_OK);
    EXPECT_EQ(test::TakeJournal(), std::vector<std::string>{"load"});
    EXPECT_EQ(QVLibClose(library), S_OK);
    EXPECT_EQ(test::TakeJournal(), std::vector<std::string>{"unload"});

    EXPECT_EQ(QVLibClose(library), E_FAIL);
    EXPECT_EQ(QVLibGetSymbol(library, u"DllGetClassObject", &symbol), E_HANDLE);
    EXPECT_EQ(symbol, nullptr);
    EXPECT_EQ(QVLibClose(QV_LIBRARY_NONE), E_FAIL);
}

TEST(Library, ASymbolCountsOnlyInItsOwnLibrary)
{
    QVLibrary library = nullptr;
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_without_entry").c_str(), &library), S_OK);
    void* symbol = nullptr;
    EXPECT_EQ(QVLibGetSymbol(library, u"TestAnswer", &symbol), S_OK);
    EXPECT_EQ(QVLibGetSymbol(library, u"TestNumber", &symbol), S_OK);
    EXPECT_EQ(*static_cast<const int*>(symbol), 42);
    // The first is in the library that this one links, the others are nowhere.
    for (const char16_t* name : {u"DllGetClassObject", u"malloc", u"Nothing", u""}) {
        symbol = &symbol;
        EXPECT_EQ(QVLibGetSymbol(library, name, &symbol), E_FAIL);
        EXPECT_EQ(symbol, nullptr);
    }
    EXPECT_STREQ(g_symbolName, ""); // looked up by name even so
    EXPECT_EQ(QVLibClose(library), S_OK);
}

TEST(Library, FailuresOfThePlatformBecomeCodes)
{
    QVLibrary library = nullptr;
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    const struct
    {
        platform::DWORD error;
        QVRESULT result;
    } rows[] = {
        {2, QV_E_FILE_NOT_FOUND},
        {3, QV_E_FILE_NOT_FOUND},
        {5, E_ACCESSDENIED},
        {6, E_HANDLE},
        {14, E_OUTOFMEMORY},
        {126, E_FAIL},
        {127, E_FAIL},
        {193, E_FAIL},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        g_loadError = g_freeError = g_symbolError = row.error;
        QVLibrary opened = nullptr;
        EXPECT_EQ(QVLibOpen(u"any", &opened), row.result);
        EXPECT_EQ(opened, QV_LIBRARY_NONE);
        void* symbol = &symbol;
        EXPECT_EQ(QVLibGetSymbol(library, u"DllGetClassObject", &symbol), row.result);
        EXPECT_EQ(symbol, nullptr);
        EXPECT_EQ(QVLibClose(library), row.result);
    }
    g_loadError = g_freeError = g_symbolError = 0;
    EXPECT_EQ(QVLibClose(library), S_OK);
}

// All four calls behind the gate, on outputs that show a write.
void ExpectRefused(QVRESULT expected)
{
    QVLibrary library = nullptr;
    void* object = &object;
    const GUID clsid = test::ClassOf(test::Kind::Plain);
    EXPECT_EQ(QVModuleLibOpen(kModule, LibraryPath("lib_component").c_str(), &library), expected);
    EXPECT_EQ(library, nullptr);
    EXPECT_EQ(QVModuleLibClose(kModule, QV_LIBRARY_NONE), expected);
    EXPECT_EQ(QVModuleComGetClassObject(kModule, &clsid, &QV_IID_UNKNOWN, &object), expected);
    EXPECT_EQ(QVModuleComCreateObject(kModule, &clsid, nullptr, &QV_IID_UNKNOWN, &object),
              expected);
    EXPECT_EQ(object, &object);
}

TEST(ModuleGate, RefusesWithoutAWriteUntilTheModuleIsUp)
{
    ExpectRefused(QV_E_NOT_INITIALIZED);
    EXPECT_EQ(QVModuleSetInitialized(kModule, 0), S_OK); // absent already
    ExpectRefused(QV_E_NOT_INITIALIZED);

    EXPECT_EQ(QVModuleSetInitialized(kModule, 0x0100), S_OK);
    EXPECT_EQ(QVModuleSetInitialized(kModule, 1), S_OK);
    QVLibrary library = nullptr;
    EXPECT_EQ(QVModuleLibOpen(kModule, LibraryPath("lib_component").c_str(), &library), S_OK);
    EXPECT_EQ(QVModuleLibClose(kModule, library), S_OK);
    EXPECT_EQ(QVModuleLibOpen(kModule, u"/nowhere/at/all.so", &library), E_FAIL);
    EXPECT_EQ(library, QV_LIBRARY_NONE); // behind the gate the first write is done
    void* object = &object;
    EXPECT_EQ(QVModuleComGetClassObject(kModule, &QV_IID_UNKNOWN, &QV_IID_UNKNOWN, &object),
              REGDB_E_CLASSNOTREG);
    EXPECT_EQ(object, nullptr);

    // There is no count, and other modules have a state of their own.
    EXPECT_EQ(QVModuleSetInitialized(kModule + 1, 1), S_OK);
    EXPECT_EQ(QVModuleSetInitialized(kModule, 0), S_OK);
    ExpectRefused(QV_E_NOT_INITIALIZED);
    EXPECT_EQ(QVModuleSetInitialized(kModule + 1, 0), S_OK);
}

TEST(ModuleGate, OnlyTheLow16BitsCount)
{
    // As a caller sees it that passes a wider number.
    EXPECT_EQ(QVModuleSetInitialized(kModule, static_cast<int16_t>(0x10000)), S_OK);
    ExpectRefused(QV_E_NOT_INITIALIZED);
}

TEST(ModuleGate, TheLibraryItselfIsUp)
{
    EXPECT_EQ(QVModuleLibClose(core::s_selfModule, QV_LIBRARY_NONE), E_FAIL);
}

TEST(WithoutGlobalData, EveryCallRefuses)
{
    const CQVGlobalData saved = std::exchange(g_globalData, {});
    ExpectRefused(E_FAIL);
    EXPECT_EQ(QVModuleSetInitialized(kModule, 1), E_FAIL);
    QVLibrary library = nullptr;
    EXPECT_EQ(QVLibOpen(u"libc.so.6", &library), E_FAIL);
    EXPECT_EQ(library, QV_LIBRARY_NONE);
    EXPECT_EQ(QVLibClose(QV_LIBRARY_NONE), E_FAIL);
    void* out = &out;
    EXPECT_EQ(QVLibGetSymbol(QV_LIBRARY_NONE, u"x", &out), E_FAIL);
    EXPECT_EQ(out, nullptr);
    out = &out;
    EXPECT_EQ(QVComGetClassObject(&QV_IID_UNKNOWN, &QV_IID_UNKNOWN, &out), E_FAIL);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(QVComFlushFactoryCache(), E_FAIL);
    g_globalData = saved;
}

} // namespace
