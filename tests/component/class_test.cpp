// Class look-up: the cache, components that misbehave, and what is left after a failure.
#include <qvcore6/module.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "component/component_test.h"
#include "frame/facts.h"

using namespace qv::test;

namespace
{

using ClassTest = ComponentTest;

TEST_F(ClassTest, TheSecondLookUpAsksNeitherRegistryNorLoader)
{
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(Register(Kind::Plain, u"/nowhere.so"), S_OK); // the registration may be gone by now
    EXPECT_EQ(Ask(Kind::Plain, QV_IID_CLASS_FACTORY), S_OK);
    EXPECT_EQ(g_calls.registryReads, 1);
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    EXPECT_EQ(TakeJournal(), (Journal{"load", "make 0", "query 0", "end 0", "unload"}));
    EXPECT_EQ(Ask(Kind::Plain), E_FAIL);
}

TEST_F(ClassTest, AFailureGivesItsCodeAndLeavesNothing)
{
    const GUID other = ClassOf(Kind::Other);
    const struct
    {
        Kind kind;
        const GUID& iid;
        qv::platform::DWORD loadError;
        qv::platform::DWORD symbolError;
        QVRESULT result;
    } rows[] = {
        {Kind::Fails, QV_IID_UNKNOWN, 0, 0, kForeignFailure},
        {Kind::Throws, QV_IID_UNKNOWN, 0, 0, E_FAIL},
        {Kind::Null, QV_IID_UNKNOWN, 0, 0, E_FAIL},
        {Kind::Plain, other, 0, 0, kNoInterface},
        {Kind::Plain, QV_IID_UNKNOWN, 2, 0, QV_E_FILE_NOT_FOUND},
        {Kind::Plain, QV_IID_UNKNOWN, 0, 5, E_ACCESSDENIED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        g_calls.loadError = row.loadError;
        g_calls.symbolError = row.symbolError;
        for (int round = 0; round < 2; ++round) { // the failure is not cached
            EXPECT_EQ(Ask(row.kind, row.iid), row.result);
            EXPECT_EQ(TakeJournal(), row.loadError != 0 ? Journal() : (Journal{"load", "unload"}));
        }
    }
}

TEST_F(ClassTest, AComponentMayLookUpClassesOnTheWay)
{
    g_hook = {"get", Kind::Other, [] { EXPECT_EQ(Ask(Kind::Plain), S_OK); }};
    EXPECT_EQ(Ask(Kind::Other), S_OK);
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK); // in the order of the bytes
    EXPECT_EQ(TakeJournal(), (Journal{"load", "make 0", "make 1", "end 0", "end 1", "unload"}));

    // The inner look-up of the same class caches a record, which the outer one replaces.
    g_hook = {"get", Kind::Plain, [] { EXPECT_EQ(Ask(Kind::Plain), S_OK); }};
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(TakeJournal(), (Journal{"load", "make 0", "make 0", "end 0", "query 0"}));
}

TEST_F(ClassTest, LoadAndUnloadRoutinesMayLookUpClasses)
{
    EXPECT_EQ(Register(Kind::Other, LibraryPath("lib_without_entry")), S_OK);
    bool hasUnloaded = false;
    g_hook = {"load", Kind::None, [&] {
                  EXPECT_EQ(Ask(Kind::Plain), S_OK);
                  g_hook = {"unload", Kind::None, [&] { hasUnloaded = Ask(Kind::Plain) == S_OK; }};
              }};
    // The entry point of the component that the library links is none of its own.
    EXPECT_EQ(Ask(Kind::Other), E_FAIL);
    EXPECT_TRUE(hasUnloaded);
    EXPECT_EQ(TakeJournal(), (Journal{"load", "make 0", "query 0"}));
}

TEST_F(ClassTest, ClassObjectsAndFlushesMayMeet)
{
    QVLibrary library = nullptr; // keeps the code of what a flush drops
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    g_hook = {"query", Kind::Plain, [] { EXPECT_EQ(QVComFlushFactoryCache(), S_OK); }};
    EXPECT_EQ(Ask(Kind::Plain), S_OK); // its record is in use until it has answered
    EXPECT_EQ(TakeJournal(), (Journal{"load", "make 0", "query 0", "end 0"}));

    // A look-up during a flush finds an empty cache, and what it makes stays.
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(Ask(Kind::Other), S_OK);
    g_hook = {"release", Kind::Other, [] { EXPECT_EQ(Ask(Kind::Plain), S_OK); }};
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(TakeJournal(), (Journal{"make 0", "make 1", "end 0", "make 0", "end 1", "query 0"}));
    EXPECT_EQ(QVLibClose(library), S_OK);
}

TEST_F(ClassTest, WhileTheLibraryUnloadsNothingIsLoadedOrFreed)
{
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(QVModuleSetInitialized(qv::core::s_selfModule, 0), S_OK);
    EXPECT_EQ(Ask(Kind::Other), QV_E_NOT_INITIALIZED);
    EXPECT_EQ(Ask(Kind::Plain), S_OK); // cached
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    // Released, and left mapped.
    EXPECT_EQ(TakeJournal(), (Journal{"load", "make 0", "query 0", "end 0"}));
    QVLibrary library = nullptr;
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    for (int i = 0; i < 2; ++i) { // the second one is what the cache left open
        EXPECT_EQ(QVLibClose(library), S_OK);
    }
}

const std::u16string kGuidText = u"{7E57C0DE-0001-0002-0000-000000000000}"; // of Kind::Plain

TEST_F(ClassTest, ObjectsAreMadeByTheClassObject)
{
    EXPECT_EQ(SetClassValue(u"Test.Plain\\CLSID", kGuidText), S_OK);
    void* object = nullptr;
    ASSERT_EQ(QVComCreateObjectByProgID(u"Test.Plain", nullptr, &QV_IID_UNKNOWN, &object), S_OK);
    EXPECT_EQ(TakeJournal(), (Journal{"load", "make 0", "create 0", "query 0"}));
    auto* const outer = static_cast<IQVUnknown*>(object);
    const GUID plain = ClassOf(Kind::Plain);
    EXPECT_EQ(QVComCreateObject(&plain, outer, &QV_IID_UNKNOWN, &object), S_OK);
    EXPECT_EQ(TakeJournal(), (Journal{"query 0", "create inside 0", "query 0"}));
    for (const uint32_t left : {2u, 1u}) { // the last one is the cache's own
        EXPECT_EQ(IQVUnknown_Release(outer), left);
    }

    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    for (int round = 0; round < 2; ++round) { // in CreateInstance, and in the cached look-up
        g_hook = {"query", Kind::Plain, [] { throw 1; }};
        EXPECT_EQ(QVComCreateObject(&plain, nullptr, &QV_IID_UNKNOWN, &object), E_FAIL);
    }
    EXPECT_EQ(Ask(Kind::Plain), S_OK); // the lock is free again
    object = &object;
    const GUID fails = ClassOf(Kind::Fails);
    EXPECT_EQ(QVComCreateObject(&fails, nullptr, &QV_IID_UNKNOWN, &object), kForeignFailure);
    EXPECT_EQ(object, &object); // nobody was there to write it
}

// What stands in the registry is foreign data, of any size and content. A read gives these units,
// as many as fit, and claims a size of its own.
constinit struct
{
    std::u16string_view units;
    uint32_t claimed;
    QVRESULT result;
} g_answer = {};

QVRESULT Answer(void* data, uint32_t* size)
{
    std::memcpy(data, g_answer.units.data(),
                std::min<std::size_t>(2 * g_answer.units.size(), *size));
    *size = g_answer.claimed;
    return g_answer.result;
}

TEST_F(ClassTest, AProgIDOfAnyLengthIsReadOrRefused)
{
    g_calls.registryAnswer = Answer;
    g_answer = {kGuidText, 78, S_OK};
    for (const std::size_t length : {0u, 1u, 253u, 254u, 300u}) {
        GUID clsid = {};
        EXPECT_EQ(QVComClassIDFromProgID(std::u16string(length, u'p').c_str(), &clsid),
                  length <= 253 ? S_OK : E_INVALIDARG);
    }
    EXPECT_EQ(g_calls.registryReads, 3);
}

// Of a ProgID's text and of a library's path.
TEST_F(ClassTest, DataIsReadWithinItsSize)
{
    const std::u16string guid = kGuidText + std::u16string(60, u'0');
    const std::u16string path(300, u'p');
    const struct
    {
        std::u16string_view units;
        uint32_t claimed;
        QVRESULT ofName;
        std::size_t loaded;
    } rows[] = {
        // Not terminated, an odd size, one unit short, and a claim beyond the buffer.
        {guid, 76, S_OK, 38},           {guid, 77, S_OK, 38},       {guid, 75, E_INVALIDARG, 37},
        {path, 600, E_INVALIDARG, 260}, {u"{", 1, E_INVALIDARG, 0},
    };
    g_calls.registryAnswer = Answer;
    for (const auto& row : rows) {
        g_answer = {row.units, row.claimed, S_OK};
        GUID clsid = {};
        EXPECT_EQ(QVComClassIDFromProgID(u"any", &clsid), row.ofName) << row.claimed;
        EXPECT_EQ(Ask(Kind::Plain), E_FAIL);
        EXPECT_EQ(g_calls.loadedPath, row.units.substr(0, row.loaded)) << row.claimed;
    }
}

TEST_F(ClassTest, ReadFailuresOfAClassAreAllTheSameAndThoseOfANameAreNot)
{
    g_calls.registryAnswer = Answer;
    for (const QVRESULT failure : {QV_E_FILE_NOT_FOUND, E_ACCESSDENIED}) {
        g_answer = {u"", 0, failure};
        EXPECT_EQ(Ask(Kind::Plain), REGDB_E_CLASSNOTREG);
        void* object = nullptr;
        EXPECT_EQ(QVComCreateObjectByProgID(u"any", nullptr, &QV_IID_UNKNOWN, &object),
                  failure == QV_E_FILE_NOT_FOUND ? REGDB_E_CLASSNOTREG : failure);
    }
}

} // namespace
