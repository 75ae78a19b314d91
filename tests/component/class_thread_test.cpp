// Look-ups and flushes of many threads, and forks in the middle of them.
#include <qvcore6/module.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "component/component_test.h"
#include "support/child_process.h"

using namespace qv::test;

namespace
{

bool HoldsInChild(const std::function<bool()>& body)
{
    return Child([&] {
               alarm(60);
               return body();
           })
        .Succeeded();
}

using ClassThreads = ComponentTest;
using ClassFork = ComponentTest;

TEST_F(ClassThreads, FlushesWhileOthersLookUp)
{
    QVLibrary library = nullptr; // what the look-ups give must not be unloaded under them
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    std::atomic<int> wrong{0};
    const auto run = [&wrong](bool flushes) {
        for (int round = 0; round < 300; ++round) {
            const Kind kind = round % 2 == 0 ? Kind::Plain : Kind::Other;
            wrong += (flushes ? QVComFlushFactoryCache() : Ask(kind)) == S_OK ? 0 : 1;
        }
    };
    {
        const std::jthread threads[] = {std::jthread(run, true), std::jthread(run, false),
                                        std::jthread(run, false), std::jthread(run, false)};
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(QVLibClose(library), S_OK);
}

TEST_F(ClassFork, AChildBornDuringAnotherThreadsLoadRefuses)
{
    ASSERT_EQ(Ask(Kind::Plain), S_OK);
    std::promise<void> isInside;
    std::promise<void> mayGoOn;
    g_hook = {"get", Kind::Other, [&] {
                  isInside.set_value();
                  mayGoOn.get_future().wait();
              }};
    std::thread loader([] { EXPECT_EQ(Ask(Kind::Other), S_OK); });
    isInside.get_future().wait();
    EXPECT_TRUE(HoldsInChild([] {
        const bool refuses = Ask(Kind::Plain) == E_FAIL && QVComFlushFactoryCache() == E_FAIL;
        // The rest of the library is not concerned, and a second generation knows no more.
        QVLibrary library = nullptr;
        return refuses && QVLibOpen(LibraryPath("lib_component").c_str(), &library) == S_OK &&
               QVLibClose(library) == S_OK && QVModuleSetInitialized(7, 1) == S_OK &&
               HoldsInChild([] { return Ask(Kind::Plain) == E_FAIL; });
    }));
    mayGoOn.set_value();
    loader.join();
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
}

TEST_F(ClassFork, AChildOfAQuietProcessOrOfTheLoadingThreadUsesTheCacheOn)
{
    const auto works = [] {
        return Ask(Kind::Plain) == S_OK && QVComFlushFactoryCache() == S_OK &&
               Ask(Kind::Plain) == S_OK;
    };
    ASSERT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_TRUE(HoldsInChild(works));
    g_hook = {"get", Kind::Other, [&] { EXPECT_TRUE(HoldsInChild(works)); }};
    EXPECT_EQ(Ask(Kind::Other), S_OK);
}

} // namespace
