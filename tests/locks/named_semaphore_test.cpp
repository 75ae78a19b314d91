// Named semaphores between real processes.
#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <sys/stat.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/shared_names.h"

using namespace qv::test;
namespace fs = std::filesystem;

namespace
{

fs::path FileOf(const std::string& name)
{
    return "/dev/shm/qvc.SEM:" + name;
}

struct Semaphore
{
    Semaphore(const std::string& name, int32_t initialCount)
        : opened(QVNamedSemOpen(name.c_str(), initialCount, &handle))
    {}
    ~Semaphore() { QVNamedSemClose(opened == S_OK ? handle : nullptr); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    bool Post() { return QVNamedSemPost(handle) == S_OK; }
    bool Wait() { return QVNamedSemWait(handle) == S_OK; }
    // Takes what there is.
    int Drain()
    {
        int count = 0;
        while (opened == S_OK && QVNamedSemTryWait(handle) == S_OK) {
            ++count;
        }
        return count;
    }

    QVSemaphore handle;
    const QVRESULT opened;
};

using NamedSemaphore = SharedNames;

TEST_F(NamedSemaphore, IsOneForAllProcessesAndTheFirstOfEachLifeSetsTheCount)
{
    const std::string name = OwnName("meet");
    for (const int count : {2, 5}) {
        auto first = std::make_unique<Semaphore>(name, count);
        Semaphore second(name, 9);
        first.reset(); // who made it may go
        Child other([&] {
            Semaphore third(name, 8);
            return third.Wait() && third.Drain() == count - 1 && third.Post();
        });
        EXPECT_TRUE(other.Succeeded());
        EXPECT_EQ(1, second.Drain());
        EXPECT_EQ(0, Semaphore(name, 7).Drain());
    }
    EXPECT_FALSE(Semaphore(name, 32767).Post());
}

TEST_F(NamedSemaphore, DiesWithTheLastHolderHoweverThatEnds)
{
    const std::string name = OwnName("life");
    auto& ready = MakeShared<std::atomic<int>>();
    Child killed([&] {
        Semaphore held(name, 3);
        return ++ready != 0 && pause() == 0;
    });
    ASSERT_TRUE(Becomes([&] { return ready == 1; }));
    EXPECT_EQ(3, Semaphore(name, 1).Drain());
    killed.Kill();
    auto again = std::make_unique<Semaphore>(name, 1);
    // A forked child holds what its parent has closed.
    Child forked([&] { return ++ready != 0 && pause() == 0; });
    ASSERT_TRUE(Becomes([&] { return ready == 2; }));
    again.reset();
    EXPECT_EQ(1, Semaphore(name, 8).Drain());
    forked.Kill();
    // The end of a process that closes nothing.
    Child ending([&] {
        static Semaphore* const left = new Semaphore(name, 8);
        std::exit(left->Drain() == 8 ? 0 : 1);
        return false;
    });
    EXPECT_TRUE(ending.Succeeded());
#if !defined(__SANITIZE_THREAD__) // which runs a thread of its own to the end
    EXPECT_FALSE(fs::exists(FileOf(name)));
#endif
    EXPECT_EQ(6, Semaphore(name, 6).Drain());
}

TEST_F(NamedSemaphore, HasAnyNameOrGivesAClearError)
{
    const std::string longest(256 - OwnName("").size(), 'x'); // with "SEM:" 260
    std::vector<std::string> names = {"",   "a/b",  "a%2Fb", "../x",   "~",         "a b",
                                      "A",  "a",    "\xE9",  "\xFF",   "\xC3\xA9",  "\xED\xB2\x80",
                                      "\1", "\xFE", longest, "\uFFFD", "\U0001F642"};
    for (const auto& [at, byte] : {std::pair{0u, '/'}, {200u, '~'}, {230u, '\xFF'}, {235u, 'y'}}) {
        names.push_back(longest);
        names.back()[at] = byte;
    }
    std::deque<std::unique_ptr<Semaphore>> open;
    for (const std::string& name : names) {
        open.push_back(std::make_unique<Semaphore>(OwnName(name), open.size() + 1));
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(static_cast<int>(i) + 1, Semaphore(OwnName(names[i]), 77).Drain()) << names[i];
    }
    EXPECT_EQ(E_FAIL, Semaphore(OwnName(longest + 'x'), 1).opened);
    EXPECT_EQ(E_FAIL, Semaphore(OwnName(std::string(100'000, '\xFF')), 1).opened);
    EXPECT_EQ(QV_E_FILE_NOT_FOUND, Semaphore(OwnName("a\\b"), 1).opened);
}

// What else may lie at the name: never a hang, a crash, or somebody else's data lost.
TEST_F(NamedSemaphore, TellsWhatIsNoSemaphore)
{
    const std::string name = OwnName("foreign");
    const fs::path file = FileOf(name);
    const auto expect = [&](QVRESULT result, const std::string& what) {
        EXPECT_EQ(result, Semaphore(name, 1).opened) << what;
        fs::remove(file);
    };
    fs::create_directory(file);
    expect(E_ACCESSDENIED, "folder");
    fs::create_symlink("/dev/shm/nowhere", file);
    expect(E_ACCESSDENIED, "link");
    ASSERT_EQ(0, mkfifo(file.c_str(), 0600));
    expect(E_HANDLE, "pipe");
    std::ofstream(file) << "short";
    expect(S_OK, "what nobody holds is left over");
    std::string whole(4096, 0);
    {
        const Semaphore made(name, 1);
        ASSERT_TRUE(std::ifstream(file, std::ios::binary).read(whole.data(), 4096));
    }
    // The same, held, but cut or with one byte wrong: magic, version, kind, length and text of the
    // name, size of the data.
    for (const unsigned at : {0u, 4u, 8u, 13u, 16u, 543u, 4095u}) {
        std::string changed = whole.substr(0, at < 4095 ? 4096 : 4095);
        changed[at % 4095] ^= 7;
        std::ofstream(file, std::ios::binary) << changed;
        const int held = LockByte(file.c_str(), 1, F_RDLCK);
        expect(E_HANDLE, "wrong at " + std::to_string(at));
        close(held);
    }
}

TEST_F(NamedSemaphore, AdmitsEveryUserButTheOneForUnknownOnes)
{
    if (getuid() != 0) {
        GTEST_SKIP() << "only root can become other users";
    }
    const std::string name = OwnName("users");
    const auto drainAs = [&](uid_t user) {
        Child child([&] { return setuid(user) == 0 && Semaphore(name, 4).Drain() == 4; });
        return child.Succeeded();
    };
    for (const uid_t owner : {0u, 1000u}) {
        // What its owner has left over others cannot remove, and take over.
        Child leaving([&] { return setuid(owner) == 0 && new Semaphore(name, 1); });
        EXPECT_TRUE(leaving.Succeeded());
        EXPECT_FALSE(drainAs(65534));
        EXPECT_TRUE(drainAs(1001));
        struct stat status = {};
        stat(FileOf(name).c_str(), &status);
        EXPECT_EQ(owner, status.st_uid);
        EXPECT_TRUE(drainAs(0));
    }
}

// Each holds the only unit while it is inside.
TEST_F(NamedSemaphore, IsNeverTwoUnderOneName)
{
    const std::string name = OwnName("race");
    auto& inside = MakeShared<std::atomic<int>>();
    const auto race = [&, end = StressEnd()] {
        bool good = true;
        while (good && std::chrono::steady_clock::now() < end) {
            Semaphore semaphore(name, 1);
            good = semaphore.Wait() && inside.fetch_add(1) == 0 && sched_yield() == 0 &&
                   inside.fetch_sub(1) == 1 && semaphore.Post();
        }
        return good;
    };
    Child racers[] = {Child(race), Child(race), Child(race), Child(race)};
    for (Child& racer : racers) {
        EXPECT_TRUE(racer.Succeeded());
    }
}

// One asks, two answer, and one of these is killed again and again. Nobody else may stop for that.
TEST_F(NamedSemaphore, GoesOnWhenWaitersAreKilled)
{
    Semaphore asked(OwnName("ping"), 0);
    Semaphore answered(OwnName("pong"), 0);
    auto& passes = MakeShared<std::atomic<long>>();
    auto& victimHolds = MakeShared<std::atomic<bool>>();
    Child asking([&] {
        for (; asked.Post() && answered.Wait(); ++passes) {
            answered.Drain();
        }
        return false;
    });
    const auto answer = [&](std::atomic<bool>& holds) {
        for (bool good = true; good; holds = false) {
            good = asked.Wait();
            holds = true;
            good = good && answered.Post();
        }
        return false;
    };
    Child answering([&] {
        std::atomic<bool> holds;
        return answer(holds);
    });
    std::minstd_rand random(1);
    for (const auto end = StressEnd(); std::chrono::steady_clock::now() < end;) {
        Child victim([&] { return answer(victimHolds); });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        victim.Kill();
        const auto goesOn = [&, before = passes.load()] { return passes > before + 2; };
        if (victimHolds.exchange(false)) {
            answered.Post();
        }
        if (!Becomes(goesOn, std::chrono::seconds(1))) {
            // Only the unit that the victim had just taken may be missing.
            ASSERT_EQ(0, asked.Drain() + answered.Drain()) << "a waiter sleeps beside a unit";
            answered.Post();
            ASSERT_TRUE(Becomes(goesOn));
        }
    }
}

} // namespace
