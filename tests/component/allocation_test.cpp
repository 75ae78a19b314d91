// Every allocation of every export of this family fails once.
#include <qvcore6/module.h>

#include "component/component_test.h"
#include "support/alloc_faults.h"

using namespace qv;
using namespace qv::test;

namespace
{

// Runs the call until no allocation fails. While one fails, the call fails with memory exhausted or
// with this other code, and leaves no block behind.
void Sweep(const std::function<QVRESULT()>& call, const std::function<void()>& undo,
           QVRESULT otherFailure = E_OUTOFMEMORY)
{
    g_calls.keepsJournal = false;
    const int open = g_liveCount;
    ASSERT_EQ(call(), S_OK); // what is made once and kept
    undo();
    QVRESULT result = S_OK;
    long before = 0;
    const auto run = [&] {
        before = LiveBlocks();
        result = call();
    };
    const auto check = [&](long n, bool failed) {
        if (result >= 0) {
            undo();
        }
        EXPECT_EQ(LiveBlocks(), before) << n;
        EXPECT_TRUE(result == S_OK ||
                    (failed && (result == E_OUTOFMEMORY || result == otherFailure)))
            << n << ", result " << result;
    };
    EXPECT_GT(SweepAllocations(run, check), 0);
    EXPECT_EQ(g_liveCount, open);
}

using Allocations = ComponentTest;

TEST_F(Allocations, OfALookUpALibraryAndAModule)
{
    Sweep([] { return Ask(Kind::Plain); }, [] { QVComFlushFactoryCache(); }, REGDB_E_CLASSNOTREG);
    const std::u16string path = LibraryPath("lib_component");
    QVLibrary library = nullptr;
    Sweep([&] { return QVLibOpen(path.c_str(), &library); }, [&] { QVLibClose(library); });
    ASSERT_EQ(QVLibOpen(path.c_str(), &library), S_OK);
    void* symbol = nullptr;
    Sweep([&] { return QVLibGetSymbol(library, u"DllGetClassObject", &symbol); }, [] {});
    EXPECT_EQ(QVLibClose(library), S_OK);
    Sweep([] { return QVModuleSetInitialized(0xA110C, 1); },
          [] { QVModuleSetInitialized(0xA110C, 0); });
}

} // namespace
