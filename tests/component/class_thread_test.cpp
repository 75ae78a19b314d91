// Look-ups and flushes of many threads, and forks in the middle of them.
#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/module.h>
#include <qvcore6/result.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "component/journal.h"

using namespace qv::test;

namespace
{

QVRESULT Ask(Kind kind)
{
    const GUID clsid = ClassOf(kind);
    void* object = nullptr;
    const QVRESULT result = QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object);
    if (result >= 0) {
        static_cast<IQVUnknown*>(object)->Release();
    }
    return result;
}

// The exit code of a child that runs the body, or -1 if it did not end in a while.
int InChild(const std::function<int()>& body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::promise<void>* g_isInside = nullptr;
std::shared_future<void>* g_mayGoOn = nullptr;

TEST(ClassThreads, FlushesWhileOthersLookUp)
{
    RegisterAllKinds();
    QVLibrary library = nullptr; // what the look-ups give must not be unloaded under them
    ASSERT_EQ(QVLibOpen(LibraryPath("lib_component").c_str(), &library), S_OK);
    TakeJournal();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&wrong, i] {
            for (int round = 0; round < 300; ++round) {
                const Kind kind = round % 2 == 0 ? Kind::Plain : Kind::AsksForPlain;
                const QVRESULT result = i == 0 ? QVComFlushFactoryCache() : Ask(kind);
                wrong += result == S_OK ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    const std::vector<std::string> journal = TakeJournal();
    EXPECT_EQ(CountIn(journal, "make 0"), CountIn(journal, "end 0"));
    EXPECT_EQ(CountIn(journal, "make 5"), CountIn(journal, "end 5"));
    EXPECT_EQ(QVLibClose(library), S_OK);
}

TEST(ClassThreads, OneLoadServesAllThatWaitForIt)
{
    RegisterAllKinds();
    TakeJournal();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] { EXPECT_EQ(Ask(Kind::Plain), S_OK); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(CountIn(TakeJournal(), "make 0"), 1);
    QVComFlushFactoryCache();
}

TEST(ClassFork, AChildOfAQuietProcessUsesTheCacheOn)
{
    RegisterAllKinds();
    ASSERT_EQ(Ask(Kind::Plain), S_OK);
    EXPECT_EQ(InChild([] {
                  return Ask(Kind::Plain) == S_OK && QVComFlushFactoryCache() == S_OK &&
                                 Ask(Kind::Plain) == S_OK
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    QVComFlushFactoryCache();
}

TEST(ClassFork, AChildBornDuringAnotherThreadsLoadRefuses)
{
    RegisterAllKinds();
    ASSERT_EQ(Ask(Kind::Plain), S_OK);
    std::promise<void> isInside;
    std::promise<void> goOn;
    std::shared_future<void> mayGoOn = goOn.get_future().share();
    g_isInside = &isInside;
    g_mayGoOn = &mayGoOn;
    SetWait([] {
        g_isInside->set_value();
        g_mayGoOn->wait();
    });
    std::thread loader([] { EXPECT_EQ(Ask(Kind::Waits), S_OK); });
    isInside.get_future().wait();
    EXPECT_EQ(InChild([] {
                  const bool refuses = Ask(Kind::Plain) == E_FAIL && Ask(Kind::Waits) == E_FAIL &&
                                       QVComFlushFactoryCache() == E_FAIL;
                  // The rest of the library is not concerned.
                  QVLibrary library = nullptr;
                  const bool opens =
                      QVLibOpen(LibraryPath("lib_without_entry").c_str(), &library) == S_OK &&
                      QVLibClose(library) == S_OK;
                  const bool gates = QVModuleSetInitialized(7, 1) == S_OK;
                  // A second generation knows no more than the first.
                  const bool heirRefuses =
                      InChild([] { return Ask(Kind::Plain) == E_FAIL ? 0 : 1; }) == 0;
                  return refuses && opens && gates && heirRefuses ? 0 : 1;
              }),
              0);
    goOn.set_value();
    loader.join();
    SetWait(nullptr);
    EXPECT_EQ(Ask(Kind::Waits), S_OK);
    EXPECT_EQ(Ask(Kind::Plain), S_OK);
    QVComFlushFactoryCache();
}

TEST(ClassFork, TheLoadingThreadItselfMayFork)
{
    RegisterAllKinds();
    static int inside = -2;
    SetWait([] { inside = InChild([] { return Ask(Kind::Plain) == S_OK ? 0 : 1; }); });
    EXPECT_EQ(Ask(Kind::Waits), S_OK);
    EXPECT_EQ(inside, 0);
    SetWait(nullptr);
    QVComFlushFactoryCache();
}

} // namespace
