// Every allocation of every export of this family fails once.
#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/module.h>
#include <qvcore6/result.h>

#include <optional>

#include "component/factory_manager.h"
#include "component/journal.h"
#include "component/module_manager.h"
#include "frame/boundary.h"
#include "support/alloc_faults.h"

using namespace qv::test;

namespace
{

constexpr uint32_t kModule = 0xA110C;

// Runs the call until no allocation fails. While one fails, the call fails with memory exhausted or
// with this other code, and leaves no block behind.
void Sweep(const std::function<QVRESULT()>& call, const std::function<void()>& undo,
           QVRESULT otherFailure = E_OUTOFMEMORY)
{
    ASSERT_EQ(call(), S_OK); // what is made once and kept
    undo();
    QVRESULT result = S_OK;
    long before = LiveBlocks();
    const long failures = SweepAllocations(
        [&] {
            before = LiveBlocks();
            result = call();
        },
        [&](long n, bool failed) {
            if (result >= 0) {
                undo();
            }
            const long left = LiveBlocks() - before;
            EXPECT_EQ(left, 0) << "allocation " << n;
            EXPECT_TRUE(result == S_OK ||
                        (failed && (result == E_OUTOFMEMORY || result == otherFailure)))
                << "allocation " << n << ", result " << result;
        });
    EXPECT_GT(failures, 0);
}

TEST(ComponentAllocations, OfAClassLookUp)
{
    RegisterAllKinds();
    const GUID clsid = ClassOf(Kind::Plain);
    void* object = nullptr;
    KeepJournal(false);
    Sweep(
        [&] {
            object = &object;
            const QVRESULT result = QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object);
            return (object == nullptr) == (result < 0) ? result : E_ABORT;
        },
        [&] {
            static_cast<IQVUnknown*>(object)->Release();
            QVComFlushFactoryCache();
        },
        REGDB_E_CLASSNOTREG);
    KeepJournal(true);
    // Nothing of the failed ones is open: this one loads and unloads.
    ASSERT_EQ(QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object), S_OK);
    static_cast<IQVUnknown*>(object)->Release();
    QVComFlushFactoryCache();
    EXPECT_EQ(TakeJournal(), (std::vector<std::string>{"load", "make 0", "end 0", "unload"}));
}

TEST(ComponentAllocations, OfLibraries)
{
    const std::u16string path = LibraryPath("lib_component");
    QVLibrary library = nullptr;
    KeepJournal(false);
    Sweep(
        [&] {
            const QVRESULT result = QVLibOpen(path.c_str(), &library);
            return (library == QV_LIBRARY_NONE) == (result < 0) ? result : E_ABORT;
        },
        [&] { QVLibClose(library); });
    ASSERT_EQ(QVLibOpen(path.c_str(), &library), S_OK);
    void* symbol = nullptr;
    Sweep([&] { return QVLibGetSymbol(library, u"DllGetClassObject", &symbol); }, [] {});
    EXPECT_EQ(QVLibClose(library), S_OK);
    KeepJournal(true);
}

TEST(ComponentAllocations, OfTheModuleSet)
{
    Sweep([] { return QVModuleSetInitialized(kModule, 1); },
          [] { QVModuleSetInitialized(kModule, 0); });
}

// Without memory for their mutexes the tables refuse instead of racing.
TEST(ComponentAllocations, OfTheTablesThemselves)
{
    std::optional<CQVFactoryManager> factories;
    std::optional<CQVModuleManager> modules;
    {
        const FailAllocation fault(1);
        factories.emplace();
    }
    {
        const FailAllocation fault(1);
        modules.emplace();
    }
    const auto resultOf = [](const std::function<void()>& call) {
        return qv::core::Boundary([&] { call(); });
    };
    const GUID clsid = ClassOf(Kind::Plain);
    EXPECT_EQ(resultOf([&] { factories->GetClassObject(clsid, QV_IID_UNKNOWN); }), E_OUTOFMEMORY);
    EXPECT_EQ(resultOf([&] { factories->Flush(); }), E_OUTOFMEMORY);
    EXPECT_EQ(resultOf([&] { modules->SetInitialized(1, true); }), E_OUTOFMEMORY);
    EXPECT_EQ(resultOf([&] { modules->IsInitialized(1); }), E_OUTOFMEMORY);
    factories->PrepareFork();
    factories->ParentAfterFork();
    modules->PrepareFork();
    modules->ParentAfterFork();
}

TEST(ComponentAllocations, OfBlocks)
{
    void* block = nullptr;
    Sweep([&] { return QVComMalloc(100, &block); }, [&] { QVComFree(block); });
    ASSERT_EQ(QVComMalloc(4, &block), S_OK);
    void* const kept = block;
    {
        const FailAllocation fault(1);
        EXPECT_EQ(QVComRealloc(&block, 100000), E_OUTOFMEMORY);
    }
    EXPECT_EQ(block, kept);
    EXPECT_EQ(QVComRealloc(&block, 100000), S_OK); // still a live block
    EXPECT_EQ(QVComFree(block), S_OK);
}

} // namespace
