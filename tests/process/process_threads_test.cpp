// Child processes beside other threads, other children, forks, and without descriptors.
#include "process/children.h"

#include <poll.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <thread>

using namespace qv::test;

namespace
{

using Threads = std::vector<std::jthread>;

// Sends a text of its own through a child, more than a pipe holds.
bool Exchange(int number)
{
    const std::string text(100'000, static_cast<char>('a' + number % 26));
    Streams streams = kPipes;
    QVHandle process;
    if (Start("copy", &streams, &process) < 0) {
        return false;
    }
    std::jthread writer([&] {
        EXPECT_EQ(write(streams[0], text.data(), text.size()), std::ssize(text));
        close(streams[0]);
    });
    const bool isSame = ReadAll(streams[1]) == text && ReadAll(streams[2]).empty();
    close(streams[1]);
    close(streams[2]);
    uint32_t code = 1;
    return QVProcessJoin(process, &code) == S_OK && code == 0 && isSame;
}

TEST(ProcessThreads, TwoHundredThreadsReachTheEndOfEveryPipe)
{
    const auto descriptors = CountDescriptors();
    std::atomic<int> done{0};
    std::atomic<bool> starts{false};
    {
        Threads threads;
        for (int i = 0; i < 200; ++i) {
            threads.emplace_back([&, i] {
                starts.wait(false);
                done += Exchange(i) ? 1 : 0;
            });
        }
        starts = true;
        starts.notify_all();
    }
    EXPECT_EQ(done, 200);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_TRUE(HasNoChildren());
}

// Any call looks after the children that are detached.
bool LooksAndFindsNoChildren()
{
    QVHandle process;
    EXPECT_EQ(QVProcessJoinChild(&process, nullptr), E_FAIL) << "not among the children";
    return HasNoChildren();
}

TEST(ProcessThreads, OfManyOwnersOneGetsTheChild)
{
    for (int round = 0; round < 30; ++round) {
        const auto descriptors = CountDescriptors();
        Sleeper sleeper;
        std::atomic<int> got{0};
        std::atomic<int> lost{0};
        {
            Threads threads;
            for (int i = 0; i < 8; ++i) {
                threads.emplace_back([&, i] {
                    uint32_t code = 0;
                    const QVRESULT result = i == 7 && round % 2 != 0
                                                ? QVProcessDetach(sleeper.process)
                                                : QVProcessJoin(sleeper.process, &code);
                    (result == S_OK ? got : lost) += 1;
                    EXPECT_TRUE(result == S_OK || result == E_HANDLE) << result;
                });
            }
            sleeper.Wake();
        }
        EXPECT_EQ(got, 1);
        EXPECT_EQ(lost, 7);
        EXPECT_TRUE(Becomes(LooksAndFindsNoChildren));
        EXPECT_TRUE(Becomes([&] { return CountDescriptors() == descriptors; }));
    }
}

// Each child goes to somebody, once, though the numbers of their handles come again at once.
TEST(ProcessThreads, AJoinForAnyBesideOtherOwners)
{
    constexpr int kRounds = 60;
    const auto descriptors = CountDescriptors();
    std::atomic<int> joined{0};
    std::atomic<int> taken{0};
    std::atomic<int> started{0};
    std::atomic<bool> isOver{false};
    {
        Threads threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&, i] {
                for (int round = 0; round < kRounds; ++round) {
                    QVHandle process;
                    uint32_t code = 0;
                    if (Start("exit " + std::to_string(40 + i), nullptr, &process) < 0) {
                        ADD_FAILURE();
                        return;
                    }
                    ++started;
                    // The others leave theirs to the join for any.
                    if (i < 2) {
                        const QVRESULT result = QVProcessJoin(process, &code);
                        joined += result == S_OK ? 1 : 0;
                        // Or somebody else's by now: numbers come again, and this one has two
                        // owners.
                        EXPECT_TRUE(result == E_HANDLE || (code >= 40 && code <= 43));
                    }
                }
            });
        }
        std::jthread any([&] {
            while (!isOver || taken + joined < started) {
                QVHandle process = 0;
                uint32_t code = 0;
                const QVRESULT result = QVProcessJoinChild(&process, &code);
                if (result == S_OK) {
                    ++taken;
                    EXPECT_TRUE(process > 2 && code >= 40 && code <= 43);
                } else {
                    EXPECT_EQ(result, E_FAIL);
                    std::this_thread::yield();
                }
            }
        });
        threads.clear();
        isOver = true;
    }
    EXPECT_EQ(started, 4 * kRounds);
    EXPECT_EQ(taken + joined, 4 * kRounds);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_TRUE(HasNoChildren());
}

// Whether the thread sleeps in the system's wait for descriptors.
bool IsWaiting(pid_t thread)
{
    std::ifstream info("/proc/self/task/" + std::to_string(thread) + "/syscall");
    long number = -1;
    info >> number;
    return number == SYS_poll || number == SYS_ppoll;
}

TEST(ProcessThreads, AForkDoesNotWaitForAJoinForAny)
{
    Sleeper sleeper;
    Sleeper given;
    std::atomic<pid_t> waiter{0};
    std::atomic<QVHandle> joined{0};
    std::jthread any([&] {
        waiter = gettid();
        QVHandle process;
        EXPECT_EQ(QVProcessJoinChild(&process, nullptr), S_OK);
        joined = process;
    });
    ASSERT_TRUE(Becomes([&] { return IsWaiting(waiter); }));
    EXPECT_TRUE(Child([&] {
                    QVHandle process = 0;
                    uint32_t code = 0;
                    alarm(20);
                    return QVProcessJoinChild(&process, &code) == E_FAIL &&
                           QVProcessGetExitCode(given.process, &code) == E_FAIL &&
                           Start("exit 9", nullptr, &process) == S_OK &&
                           QVProcessJoinChild(&process, &code) == S_OK && code == 9 &&
                           QVProcessDetach(given.process) == S_OK &&
                           fcntl(given.process, F_GETFD) < 0;
                }).Succeeded());
    // The join does not count on a child that has been given up meanwhile.
    std::jthread detacher([&] { EXPECT_EQ(QVProcessDetach(given.process), S_OK); });
    uint32_t code;
    ASSERT_TRUE(Becomes([&] { return QVProcessGetExitCode(given.process, &code) == E_HANDLE; }));
    given.Wake();
    EXPECT_FALSE(Becomes([&] { return joined > 0; }, std::chrono::seconds(0)));
    sleeper.Wake();
    any.join();
    detacher.join();
    EXPECT_EQ(joined, sleeper.process);
    EXPECT_TRUE(Becomes(LooksAndFindsNoChildren));
}

TEST(ProcessThreads, ADetachedChildRunsOnAndLeavesNoZombie)
{
    std::vector<Sleeper> sleepers(3);
    for (Sleeper& sleeper : sleepers) {
        EXPECT_EQ(QVProcessDetach(sleeper.process), S_OK);
        EXPECT_EQ(QVProcessDetach(sleeper.process), E_HANDLE);
        EXPECT_EQ(QVProcessJoin(sleeper.process, nullptr), E_HANDLE);
        EXPECT_EQ(write(sleeper.streams[0], "on", 2), 2);
        char text[2] = {};
        EXPECT_EQ(read(sleeper.streams[1], text, 2), 2);
        sleeper.Wake();
    }
    EXPECT_TRUE(Becomes(LooksAndFindsNoChildren));
    EXPECT_EQ(fcntl(sleepers[2].process, F_GETFD), -1);
}

TEST(ProcessThreads, TheHostsChildrenAreItsOwn)
{
    const pid_t own = fork();
    if (own == 0) {
        _exit(77);
    }
    Sleeper sleeper;
    EXPECT_EQ(QVProcessDetach(sleeper.process), S_OK);
    sleeper.Wake();
    QVHandle process;
    uint32_t code = 0;
    EXPECT_EQ(Start("exit 4", nullptr, &process), S_OK);
    EXPECT_EQ(QVProcessJoinChild(&process, &code), S_OK);
    int status = 0;
    EXPECT_EQ(waitpid(own, &status, 0), own);
    EXPECT_EQ(WEXITSTATUS(status), 77);

    // A pidfd of the host's, and one of a process that is nobody's child here.
    const pid_t second = fork();
    if (second == 0) {
        _exit(78);
    }
    EXPECT_EQ(QVProcessJoin(static_cast<QVHandle>(syscall(SYS_pidfd_open, second, 0)), &code),
              S_OK);
    EXPECT_EQ(code, 78u);
    const auto parent = static_cast<QVHandle>(syscall(SYS_pidfd_open, getppid(), 0));
    EXPECT_EQ(QVProcessGetExitCode(parent, &code), E_FAIL) << "it runs";
    EXPECT_EQ(QVProcessDetach(parent), S_OK);
    EXPECT_TRUE(Becomes(LooksAndFindsNoChildren));
}

// Until the debugger has heard of it, the system hides the end that it shows by the handle.
TEST(ProcessThreads, ADebuggerOfTheChildHearsOfItsEndFirst)
{
    for (const bool any : {false, true}) {
        Sleeper sleeper;
        char byte = 0;
        EXPECT_TRUE(write(sleeper.streams[0], "x", 1) == 1 && read(sleeper.streams[1], &byte, 1));
        auto& isTraced = MakeShared<std::atomic<bool>>();
        auto& isHidden = MakeShared<std::atomic<bool>>();
        Child debugger([&, id = IdOf(sleeper.process)] {
            closefrom(3); // also of the pipe that the child reads
            const bool seized = ptrace(PTRACE_SEIZE, id, 0, 0) == 0;
            isTraced = true;
            Becomes([&] { return isHidden.load(); });
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return seized;
        });
        ASSERT_TRUE(Becomes([&] { return isTraced.load(); }));
        sleeper.Wake();
        pollfd entry = {sleeper.process, POLLIN, 0};
        EXPECT_EQ(poll(&entry, 1, 10'000), 1);
        uint32_t code = 7;
        EXPECT_EQ(QVProcessGetExitCode(sleeper.process, &code), E_FAIL);
        isHidden = true;
        QVHandle joined;
        EXPECT_EQ(any ? QVProcessJoinChild(&joined, &code) : QVProcessJoin(sleeper.process, &code),
                  S_OK);
        EXPECT_EQ(code, 0u);
        EXPECT_TRUE(debugger.Succeeded());
    }
    EXPECT_TRUE(HasNoChildren());
}

// The code is lost on kernels that do not keep it for the handle.
bool IsCode(uint32_t code, uint32_t expected)
{
    return code == expected || code == 0xFFFFFFFF;
}

TEST(ProcessThreads, AHostThatTakesAllEndsOfChildrenLosesNoHandle)
{
    struct sigaction ignore = {};
    struct sigaction before = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &before);
    for (int round = 0; round < 30; ++round) {
        QVHandle process;
        uint32_t code = 0;
        EXPECT_EQ(Start("exit 5", nullptr, &process), S_OK);
        EXPECT_EQ(QVProcessJoin(process, &code), S_OK);
        EXPECT_TRUE(IsCode(code, 5)) << code;
        EXPECT_EQ(Start("x", nullptr, &process, "/missing"), QV_E_FILE_NOT_FOUND);
    }
    static std::atomic<int> ends;
    ends = 0;
    ignore.sa_handler = [](int) { ++ends; };
    sigaction(SIGCHLD, &ignore, nullptr);
    std::atomic<bool> isOver{false};
    std::atomic<int> taken{0};
    std::jthread thief([&] {
        while (!isOver) {
            taken += waitpid(-1, nullptr, WNOHANG) > 0 ? 1 : 0;
        }
    });
    for (int round = 0; round < 40 || (taken == 0 && round < 5000); ++round) {
        QVHandle process;
        uint32_t code = 0;
        EXPECT_EQ(Start("signal 9", nullptr, &process), S_OK);
        EXPECT_EQ(QVProcessJoin(process, &code), S_OK);
        EXPECT_TRUE(IsCode(code, 137)) << code;
        const int seen = ends;
        EXPECT_EQ(Start("x", nullptr, &process, "/missing"), QV_E_FILE_NOT_FOUND);
        EXPECT_LE(ends - seen, 1) << "not of what never was a program";
    }
    isOver = true;
    thief.join();
    EXPECT_GT(taken, 0);
    EXPECT_GT(ends, 0);
    sigaction(SIGCHLD, &before, nullptr);
    EXPECT_TRUE(HasNoChildren());
}

TEST(ProcessThreads, ALimitOfSixteenDescriptorsIsAFailureAndNoMore)
{
    EXPECT_TRUE(Child([] {
                    const rlimit limit = {16, 16};
                    closefrom(3);
                    setrlimit(RLIMIT_NOFILE, &limit);
                    std::vector<Sleeper> sleepers;
                    QVRESULT result = S_OK;
                    while (result == S_OK) {
                        Sleeper& next = sleepers.emplace_back(Sleeper::NotYet());
                        result = Start("copy", &next.streams, &next.process);
                    }
                    const bool isWhole = result == E_FAIL && sleepers.back().streams == kPipes &&
                                         sleepers.back().process == QV_HANDLE_NONE;
                    sleepers.pop_back();
                    for (Sleeper& sleeper : sleepers) {
                        sleeper.Wake();
                    }
                    const bool isJoined =
                        std::all_of(sleepers.begin(), sleepers.end(), [](const Sleeper&) {
                            QVHandle process;
                            return QVProcessJoinChild(&process, nullptr) == S_OK;
                        });
                    return isWhole && isJoined && sleepers.size() == 2 && HasNoChildren() &&
                           Exchange(1) && CountDescriptors() == 4; // with the one that counts
                }).Succeeded());
}

// Sanitizers keep what is freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsOurs = false;
#else
constexpr bool kMemoryIsOurs = true;
#endif

long ResidentPages()
{
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
}

TEST(ProcessThreads, CyclesLeaveNothing)
{
    const long cycles = std::getenv("QV_TEST_SECONDS") != nullptr ? 10'000 : 300;
    const auto cycle = [] {
        Streams streams = kPipes;
        QVHandle process;
        EXPECT_EQ(Start("exit 0", &streams, &process), S_OK);
        for (const QVHandle stream : streams) {
            close(stream);
        }
        EXPECT_EQ(QVProcessJoin(process, nullptr), S_OK);
        EXPECT_EQ(Start("exit 0", nullptr, &process, "/missing"), QV_E_FILE_NOT_FOUND);
    };
    for (int i = 0; i < 100; ++i) {
        cycle();
    }
    const auto descriptors = CountDescriptors();
    const long pages = ResidentPages();
    for (long i = 0; i < cycles; ++i) {
        cycle();
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_TRUE(!kMemoryIsOurs || ResidentPages() < pages + 64)
        << "a page for each cycle, or a stack, would be more";
    EXPECT_TRUE(HasNoChildren());
}

} // namespace
