// Libraries and the gate in front of them.
#include <qvcore6/module.h>

#include <utility>

#include "component/component_test.h"
#include "frame/global_data.h"

using namespace qv;
using namespace qv::test;

namespace
{

constexpr uint32_t kModule = 0xC0FFEE;

using Library = ComponentTest;
using ModuleGate = ComponentTest;

TEST_F(Library, OpensFindsAndCloses)
{
    QVLibrary library = nullptr;
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_without_entry").c_str(), &library), S_OK);
    void* symbol = nullptr;
    ASSERT_EQ(QVLibGetSymbol(library, u"TestNumber", &symbol), S_OK);
    EXPECT_EQ(*static_cast<int*>(symbol), 42);
    // The first is in the library that this one links, the others are nowhere.
    for (const char16_t* name : {u"DllGetClassObject", u"malloc", u"Nothing", u""}) {
        symbol = &symbol;
        EXPECT_EQ(QVLibGetSymbol(library, name, &symbol), E_FAIL);
        EXPECT_EQ(symbol, nullptr);
    }
    const std::pair<platform::DWORD, QVRESULT> failures[] = {
        {3, QV_E_FILE_NOT_FOUND}, {5, E_ACCESSDENIED}, {127, E_FAIL}};
    for (const auto& [error, result] : failures) {
        g_calls.freeError = g_calls.symbolError = error;
        EXPECT_EQ(QVLibGetSymbol(library, u"TestNumber", &symbol), result);
        EXPECT_EQ(QVLibClose(library), result);
    }
    g_calls = {};
    EXPECT_EQ(QVLibClose(library), S_OK);
    EXPECT_EQ(QVLibClose(library), E_FAIL);
    EXPECT_EQ(QVLibGetSymbol(library, u"TestNumber", &symbol), E_HANDLE);
    EXPECT_EQ(QVLibOpen(u"/nowhere/at/all.so", &library), E_FAIL);
    EXPECT_EQ(library, QV_LIBRARY_NONE);
}

// All four calls behind the gate, on outputs that show a write.
void ExpectRefused(QVRESULT expected)
{
    QVLibrary library = nullptr;
    void* object = &object;
    const GUID clsid = ClassOf(Kind::Plain);
    const auto& iid = QV_IID_UNKNOWN;
    EXPECT_EQ(QVModuleLibOpen(kModule, LibraryPath("lib_component").c_str(), &library), expected);
    EXPECT_EQ(QVModuleLibClose(kModule, QV_LIBRARY_NONE), expected);
    EXPECT_EQ(QVModuleComGetClassObject(kModule, &clsid, &iid, &object), expected);
    EXPECT_EQ(QVModuleComCreateObject(kModule, &clsid, nullptr, &iid, &object), expected);
    EXPECT_EQ(library, nullptr);
    EXPECT_EQ(object, &object);
}

TEST_F(ModuleGate, RefusesWithoutAWriteUntilTheModuleIsUp)
{
    ExpectRefused(QV_E_NOT_INITIALIZED);
    for (const int16_t yes : {int16_t{0x100}, int16_t{1}}) { // the second one is not counted
        EXPECT_EQ(QVModuleSetInitialized(kModule, yes), S_OK);
    }
    QVLibrary library = nullptr;
    EXPECT_EQ(QVModuleLibOpen(kModule, LibraryPath("lib_component").c_str(), &library), S_OK);
    EXPECT_EQ(QVModuleLibClose(kModule, library), S_OK);
    EXPECT_EQ(QVModuleSetInitialized(kModule + 1, 1), S_OK); // has a state of its own
    EXPECT_EQ(QVModuleSetInitialized(kModule, 0), S_OK);
    ExpectRefused(QV_E_NOT_INITIALIZED);

    const CQVGlobalData saved = std::exchange(g_globalData, {}); // as after a failed start
    ExpectRefused(E_FAIL);
    EXPECT_EQ(QVModuleSetInitialized(kModule, 1), E_FAIL);
    EXPECT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), E_FAIL);
    EXPECT_EQ(QVComFlushFactoryCache(), E_FAIL);
    g_globalData = saved;
}

} // namespace
