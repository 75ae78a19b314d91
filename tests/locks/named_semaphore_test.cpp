// Named semaphores between real processes.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/child_process.h"

using namespace qv::test;
namespace fs = std::filesystem;

namespace
{

// Of this run alone, also beside other runs.
std::string Own(const std::string& name)
{
    static const std::string prefix = "test." + std::to_string(getpid()) + ".";
    return prefix + name;
}

fs::path FileOf(const std::string& name)
{
    return "/dev/shm/qvc.SEM:" + name;
}

std::size_t CountEntries(const char* folder, const std::string& part)
{
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        count += entry.path().string().find(part) != std::string::npos ? 1u : 0u;
    }
    return count;
}

class Semaphore
{
public:
    Semaphore(const std::string& name, int32_t initialCount)
        : m_result(QVNamedSemOpen(name.c_str(), initialCount, &m_semaphore))
    {}
    ~Semaphore()
    {
        if (m_result >= 0) {
            QVNamedSemClose(m_semaphore);
        }
    }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    QVRESULT Opened() const { return m_result; }
    bool Post() { return QVNamedSemPost(m_semaphore) == S_OK; }
    bool Wait() { return QVNamedSemWait(m_semaphore) == S_OK; }
    // Takes what there is.
    int Drain()
    {
        int count = 0;
        while (m_result >= 0 && QVNamedSemTryWait(m_semaphore) == S_OK) {
            ++count;
        }
        return count;
    }

private:
    QVSemaphore m_semaphore;
    QVRESULT m_result;
};

class NamedSemaphore : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(0u, CountEntries("/dev/shm", Own(""))) << "names are left in /dev/shm";
        EXPECT_EQ(m_descriptors, CountEntries("/proc/self/fd", ""));
    }
    const std::size_t m_descriptors = CountEntries("/proc/self/fd", "");
};

TEST_F(NamedSemaphore, IsOneForAllProcessesAndTheFirstOfEachLifeSetsTheCount)
{
    const std::string name = Own("meet");
    for (const int count : {2, 5}) {
        Semaphore first(name, count);
        EXPECT_EQ(S_OK, first.Opened());
        Child other([&] {
            Semaphore second(name, 9);
            return second.Wait() && second.Drain() == count - 1 && second.Post();
        });
        EXPECT_TRUE(other.Succeeded());
        EXPECT_TRUE(first.Wait());
        EXPECT_EQ(0, first.Drain());
        EXPECT_EQ(0, Semaphore(name, 7).Drain());
    }
    Semaphore full(name, 32767);
    EXPECT_FALSE(full.Post());
    for (const int32_t count : {-1, 32768}) {
        EXPECT_EQ(E_FAIL, Semaphore(Own("count"), count).Opened());
    }
}

TEST_F(NamedSemaphore, DiesWithTheLastHolderHoweverThatEnds)
{
    const std::string name = Own("life");
    Shared<std::atomic<int>> ready;
    const auto hold = [&] {
        Semaphore held(name, 3);
        ready->fetch_add(1);
        pause();
        return true;
    };
    Child killed(hold);
    ASSERT_TRUE(Becomes([&] { return ready->load() == 1; }));
    EXPECT_EQ(3, Semaphore(name, 1).Drain());
    killed.Kill();
    EXPECT_TRUE(fs::exists(FileOf(name)));
    auto again = std::make_unique<Semaphore>(name, 1);
    // A forked child holds what its parent has closed.
    Child forked([&] {
        ready->fetch_add(1);
        pause();
        return true;
    });
    ASSERT_TRUE(Becomes([&] { return ready->load() == 2; }));
    again.reset();
    EXPECT_EQ(1, Semaphore(name, 8).Drain());
    forked.Kill();
    EXPECT_EQ(8, Semaphore(name, 8).Drain());
    // The end of a process that closes nothing.
    const pid_t ending = fork();
    if (ending == 0) {
        new Semaphore(name, 1);
        std::exit(0);
    }
    waitpid(ending, nullptr, 0);
#if !defined(__SANITIZE_THREAD__) // which runs a thread of its own to the end
    EXPECT_FALSE(fs::exists(FileOf(name)));
#endif
    EXPECT_EQ(6, Semaphore(name, 6).Drain());
}

TEST_F(NamedSemaphore, HasAnyNameOrGivesAClearError)
{
    const std::string longest(256 - Own("").size(), 'x'); // with "SEM:" 260
    const auto with = [&](std::size_t at, char byte) {
        std::string name = longest;
        name[at] = byte;
        return name;
    };
    const std::vector<std::string> names = {"",
                                            "a/b",
                                            "a%2Fb",
                                            "../x",
                                            "~",
                                            "a b",
                                            "A",
                                            "a",
                                            "\xC3\xA9",
                                            "\xE9",
                                            "\xFF",
                                            "\xFE",
                                            "\xED\xB2\x80",
                                            "\xF0\x9F\x99\x82",
                                            "\xEF\xBF\xBD",
                                            "\x01",
                                            longest,
                                            with(longest.size() - 1, 'y'),
                                            with(0, '/'),
                                            with(240, '\xFF'),
                                            with(200, '~')};
    std::vector<std::unique_ptr<Semaphore>> open;
    int count = 0;
    for (const std::string& name : names) {
        open.push_back(std::make_unique<Semaphore>(Own(name), ++count));
        EXPECT_EQ(S_OK, open.back()->Opened()) << name;
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(static_cast<int>(i) + 1, Semaphore(Own(names[i]), 77).Drain()) << names[i];
    }
    EXPECT_EQ(E_FAIL, Semaphore(Own(longest + 'x'), 1).Opened());
    EXPECT_EQ(E_FAIL, Semaphore(Own(std::string(100'000, '\xFF')), 1).Opened());
    EXPECT_EQ(QV_E_FILE_NOT_FOUND, Semaphore(Own("a\\b"), 1).Opened());
}

// What else may lie at the name: never a hang, a crash, or somebody else's data lost.
TEST_F(NamedSemaphore, TellsWhatIsNoSemaphore)
{
    const std::string name = Own("foreign");
    const fs::path file = FileOf(name);
    const auto expect = [&](QVRESULT result, const char* what) {
        EXPECT_EQ(result, Semaphore(name, 1).Opened()) << what;
        fs::remove(file);
    };
    fs::create_directory(file);
    expect(E_ACCESSDENIED, "folder");
    fs::create_symlink("/dev/shm/nowhere", file);
    expect(E_ACCESSDENIED, "link");
    ASSERT_EQ(0, mkfifo(file.c_str(), 0600));
    expect(E_HANDLE, "pipe");
    sockaddr_un address = {AF_UNIX, {}};
    file.string().copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    expect(E_HANDLE, "socket");
    close(listener);
    std::ofstream(file) << "short";
    expect(S_OK, "what nobody holds is left over");
    // The same, held: not an object, whatever it says.
    std::string whole;
    {
        const Semaphore made(name, 1);
        std::ifstream in(file, std::ios::binary);
        whole.assign(std::istreambuf_iterator<char>(in), {});
    }
    ASSERT_EQ(4096u, whole.size());
    const auto put = [&](std::size_t at, char byte) {
        std::string changed = whole;
        changed[at] = byte;
        return changed;
    };
    // In turn: cut, empty, magic, version, kind, length and text of the name, size of the data.
    for (const std::string& content : {whole.substr(0, 4095), std::string(), put(0, 0), put(4, 2),
                                       put(8, 2), put(13, 7), put(16, 'X'), put(543, 1)}) {
        std::ofstream(file, std::ios::binary) << content;
        const int held = open(file.c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_RDLCK;
        lock.l_start = 1;
        lock.l_len = 1;
        ASSERT_EQ(0, fcntl(held, F_OFD_SETLK, &lock));
        expect(E_HANDLE, "held");
        close(held);
    }
}

TEST_F(NamedSemaphore, IsNeverTwoUnderOneName)
{
    const std::string name = Own("race");
    Shared<std::atomic<int>> inside;
    Shared<std::atomic<long>> rounds;
    std::vector<std::unique_ptr<Child>> racers;
    const auto end = std::chrono::steady_clock::now() + StressTime();
    for (int i = 0; i < 4; ++i) {
        racers.push_back(std::make_unique<Child>([&] {
            bool good = true;
            while (good && std::chrono::steady_clock::now() < end) {
                Semaphore semaphore(name, 1);
                good = semaphore.Wait() && inside->fetch_add(1) == 0 && inside->fetch_sub(1) == 1 &&
                       semaphore.Post();
                rounds->fetch_add(1);
            }
            return good;
        }));
    }
    for (const auto& racer : racers) {
        EXPECT_TRUE(racer->Succeeded());
    }
    EXPECT_GT(rounds->load(), 1000);
    RecordProperty("rounds", std::to_string(rounds->load()));
}

// One asks, two answer, and one of these is killed again and again. Nobody else may stop for that.
TEST_F(NamedSemaphore, GoesOnWhenWaitersAreKilled)
{
    struct Seen
    {
        std::atomic<long> passes;
        std::atomic<bool> holds; // the victim a unit
    };
    const std::string ping = Own("ping");
    const std::string pong = Own("pong");
    Shared<Seen> seen;
    Semaphore asked(ping, 0);
    Semaphore answered(pong, 0);
    Child asking([&] {
        while (asked.Post() && answered.Wait()) {
            answered.Drain();
            seen->passes.fetch_add(1);
        }
        return false;
    });
    const auto answer = [&](bool isVictim) {
        Semaphore from(ping, 0);
        Semaphore to(pong, 0);
        for (bool good = true; good; seen->holds = false) {
            good = from.Wait();
            seen->holds = isVictim;
            good = good && to.Post();
        }
        return false;
    };
    Child answering([&] { return answer(false); });
    std::minstd_rand random(1);
    long kills = 0;
    long lost = 0;
    const auto end = std::chrono::steady_clock::now() + StressTime();
    while (std::chrono::steady_clock::now() < end) {
        Child victim([&] { return answer(true); });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        victim.Kill();
        ++kills;
        const long before = seen->passes.load();
        const auto goesOn = [&] { return seen->passes.load() > before + 2; };
        if (seen->holds.exchange(false)) {
            answered.Post();
        }
        if (!Becomes(goesOn, std::chrono::seconds(1))) {
            // Only the unit that the victim had just taken may be missing.
            ASSERT_EQ(0, asked.Drain() + answered.Drain()) << "a waiter sleeps beside a unit";
            ++lost;
            answered.Post();
            ASSERT_TRUE(Becomes(goesOn));
        }
    }
    RecordProperty("kills", std::to_string(kills));
    RecordProperty("lost", std::to_string(lost));
    RecordProperty("passes", std::to_string(seen->passes.load()));
}

TEST_F(NamedSemaphore, LeavesNothingBehindAnUnload)
{
    const fs::path copy = fs::path(QV_TEST_FOLDER) / "unloaded.so";
    fs::copy_file(QV_TEST_LIBRARY, copy, fs::copy_options::overwrite_existing);
    const std::string name = Own("unload");
    // In a child, as the handle that nobody closes is a leak of the caller's.
    Child unloading([&] {
        void* const library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
        const auto openIn =
            reinterpret_cast<decltype(&QVNamedSemOpen)>(dlsym(library, "QVNamedSemOpen"));
        QVSemaphore semaphore;
        const bool isOpen = openIn(name.c_str(), 1, &semaphore) == S_OK &&
                            Semaphore(name, 0).Drain() == 1 && fs::exists(FileOf(name));
        dlclose(library);
        std::ifstream maps("/proc/self/maps");
        const std::string text(std::istreambuf_iterator<char>(maps), {});
        maps.close();
        return isOpen && dlopen(copy.c_str(), RTLD_NOW | RTLD_NOLOAD) == nullptr &&
               text.find(name) == std::string::npos && !fs::exists(FileOf(name)) &&
               CountEntries("/proc/self/fd", "") == m_descriptors;
    });
    EXPECT_TRUE(unloading.Succeeded());
}

} // namespace
