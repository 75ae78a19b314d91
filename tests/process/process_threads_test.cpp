// Child processes beside other threads, other children, forks, debuggers, and without descriptors.
#include "process/children.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <thread>

#include "support/sleepers.h"

using namespace qv::test;

namespace
{

// The threads begin together, and have ended after it.
template <class Run> void RunThreads(int count, Run run)
{
    std::atomic<bool> begun{false};
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&begun, run, i] {
            begun.wait(false);
            run(i);
        });
    }
    begun = true;
    begun.notify_all();
    threads.clear();
}

// Sends a text of its own through a child, more than a pipe holds.
bool Exchange(int number)
{
    const std::string text(100'000, static_cast<char>('a' + number % 26));
    Copier copier;
    std::jthread writer([&] {
        EXPECT_EQ(write(copier.streams[0], text.data(), text.size()), std::ssize(text));
        close(copier.streams[0]);
    });
    return ReadAll(copier.streams[1]) == text && ReadAll(copier.streams[2]).empty() &&
           Join(copier.process) == 0;
}

TEST_F(Process, TwoHundredThreadsReachTheEndOfEveryPipe)
{
    std::atomic<int> done{0};
    RunThreads(200, [&](int number) { done += Exchange(number) ? 1 : 0; });
    EXPECT_EQ(done, 200);
}

TEST_F(Process, OfManyOwnersOneGetsTheChild)
{
    for (int round = 0; round < 30; ++round) {
        const QVHandle process = StartShell(u"exit 0");
        std::atomic<int> got{0};
        RunThreads(8, [&](int i) {
            uint32_t code = 0;
            const bool detaches = i == 7 && round % 2 != 0;
            const QVRESULT result =
                detaches ? QVProcessDetach(process) : QVProcessJoin(process, &code);
            got += result == S_OK ? 1 : 0;
            EXPECT_TRUE(result == S_OK || result == E_HANDLE) << result;
        });
        EXPECT_EQ(got, 1);
    }
}

// Each child goes to one of its owners. None is started meanwhile: its number could be a stale one.
TEST_F(Process, AJoinForAnyBesideOtherOwners)
{
    for (int round = 0; round < 60; ++round) {
        QVHandle children[4];
        std::generate_n(children, 4, [] { return StartShell(u"exit 0"); });
        std::atomic<int> taken{0};
        RunThreads(5, [&](int i) {
            QVHandle process;
            if (i < 4) {
                taken += QVProcessJoin(children[i], nullptr) == S_OK ? 1 : 0;
                return;
            }
            while (QVProcessJoinChild(&process, nullptr) == S_OK) {
                ++taken;
            }
        });
        EXPECT_EQ(taken, 4);
    }
}

// Of never more than a join for any takes.
TEST_F(Process, AJoinForAnyBesideStarts)
{
    RunThreads(3, [](int i) {
        for (int left = 30; i > 0 && left > 0; --left) {
            StartShell(u"exit 5");
        }
        for (int left = 60; i == 0 && left > 0;) {
            QVHandle process;
            uint32_t code = 0;
            if (QVProcessJoinChild(&process, &code) == S_OK) {
                EXPECT_TRUE(process > 2 && code == 5);
                --left;
            }
        }
    });
}

TEST_F(Process, AForkDoesNotWaitForAJoinForAny)
{
    Copier copier;
    Copier given;
    QVHandle joined = 0;
    Sleeper any([&] { EXPECT_EQ(QVProcessJoinChild(&joined, nullptr), S_OK); });
    any.AwaitAsleep();
    uint32_t code = 0;
    EXPECT_TRUE(Child([&] {
                    QVHandle process = 0;
                    alarm(20);
                    return NothingIsLeft() &&
                           QVProcessGetExitCode(given.process, &code) == E_FAIL &&
                           StartShell(u"exit 9") > 2 &&
                           QVProcessJoinChild(&process, &code) == S_OK && code == 9 &&
                           QVProcessDetach(given.process) == S_OK &&
                           fcntl(given.process, F_GETFD) < 0;
                }).Succeeded());
    // The join does not count on a child that has been given up meanwhile.
    Sleeper detacher([&] { EXPECT_EQ(QVProcessDetach(given.process), S_OK); });
    detacher.AwaitAsleep();
    EXPECT_EQ(QVProcessGetExitCode(given.process, &code), E_HANDLE);
    given.Wake();
    any.AwaitAsleep();
    EXPECT_FALSE(any.IsDone());
    copier.Wake();
    any.AwaitDone();
    detacher.AwaitDone();
    EXPECT_EQ(joined, copier.process);
}

TEST_F(Process, ADetachedChildRunsOnAndLeavesNoZombie)
{
    Copier copier;
    EXPECT_EQ(QVProcessDetach(copier.process), S_OK);
    EXPECT_EQ(QVProcessDetach(copier.process), E_HANDLE);
    EXPECT_EQ(QVProcessJoin(copier.process, nullptr), E_HANDLE);
    char byte;
    EXPECT_EQ(write(copier.streams[0], "x", 1), 1);
    EXPECT_EQ(read(copier.streams[1], &byte, 1), 1);
    copier.Wake();
    EXPECT_TRUE(Becomes(HasNoChildren));
    EXPECT_TRUE(Becomes([&] { return fcntl(copier.process, F_GETFD) == -1; }));
}

TEST_F(Process, TheHostsChildrenAreItsOwn)
{
    const auto forkOne = [] {
        const pid_t child = fork();
        return child == 0 ? _exit(77), child : child;
    };
    const pid_t own = forkOne();
    EXPECT_EQ(QVProcessDetach(StartShell(u"exit 0")), S_OK);
    StartShell(u"exit 4");
    QVHandle process;
    uint32_t code = 0;
    EXPECT_EQ(QVProcessJoinChild(&process, &code), S_OK);
    EXPECT_EQ(code, 4u);
    int status = 0;
    EXPECT_EQ(waitpid(own, &status, 0), own);
    EXPECT_EQ(WEXITSTATUS(status), 77);

    // A pidfd of the host's, and one of a process that is nobody's child here.
    EXPECT_EQ(Join(static_cast<QVHandle>(syscall(SYS_pidfd_open, forkOne(), 0))), 77u);
    const auto parent = static_cast<QVHandle>(syscall(SYS_pidfd_open, getppid(), 0));
    EXPECT_EQ(QVProcessGetExitCode(parent, &code), E_FAIL) << "it runs";
    EXPECT_EQ(QVProcessDetach(parent), S_OK);
}

// Until the debugger has heard of it, the system hides from the parent the end that it shows by the
// handle.
TEST_F(Process, ADebuggerOfTheChildHearsOfItsEndFirst)
{
    for (const auto take : {
             +[](QVHandle process, uint32_t&code) { return QVProcessJoin(process, &code); },
             +[](QVHandle, uint32_t&code) {
                 QVHandle joined;
                 return QVProcessJoinChild(&joined, &code);
             },
             +[](QVHandle process, uint32_t&code) {
                 code = 0;
                 const QVRESULT result = QVProcessDetach(process);
                 return Becomes(HasNoChildren) ? result : E_FAIL;
             },
         }) {
        auto& id = MakeShared<std::atomic<pid_t>>();
        auto& isTraced = MakeShared<std::atomic<bool>>();
        auto& isHidden = MakeShared<std::atomic<bool>>();
        Child host([&] {
            Copier copier;
            id = IdOf(copier.process);
            Becomes([&] { return isTraced.load(); });
            copier.Wake();
            pollfd entry = {copier.process, POLLIN, 0};
            poll(&entry, 1, 10'000);
            uint32_t code = 7;
            const bool runs = QVProcessGetExitCode(copier.process, &code) == E_FAIL;
            isHidden = true;
            // In order: the thread that looks after detached children is joined.
            exit(runs && take(copier.process, code) == S_OK && code == 0 ? 0 : 1);
            return false;
        });
        EXPECT_TRUE(Becomes([&] { return id > 0; }));
        EXPECT_EQ(ptrace(PTRACE_SEIZE, id.load(), 0, 0), 0);
        isTraced = true;
        EXPECT_TRUE(Becomes([&] { return isHidden.load(); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // most joins wait by then
        EXPECT_EQ(waitpid(id, nullptr, 0), id);
        EXPECT_TRUE(host.Succeeded());
    }
}

TEST_F(Process, AHostThatTakesAllEndsOfChildrenLosesNoHandle)
{
    static std::atomic<int> ends;
    ends = 0;
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    const auto round = [] {
        const uint32_t code = Join(StartShell(u"exit 5"));
        EXPECT_TRUE(code == 5 || code == 0xFFFFFFFF) << code; // younger kernels keep it
        const int seen = ends;
        QVHandle process;
        EXPECT_EQ(Start(u"/missing", nullptr, nullptr, &process), QV_E_FILE_NOT_FOUND);
        EXPECT_LE(ends - seen, 1) << "not of what never was a program";
    };
    for (int i = 0; i < 30; ++i) {
        round();
    }
    std::signal(SIGCHLD, [](int) { ++ends; });
    std::atomic<bool> isOver{false};
    std::atomic<int> taken{0};
    std::jthread thief([&] {
        while (!isOver) {
            taken += waitpid(-1, nullptr, WNOHANG) > 0 ? 1 : 0;
        }
    });
    for (int i = 0; i < 40 || (taken == 0 && i < 5000); ++i) {
        round();
    }
    isOver = true;
    thief.join();
    std::signal(SIGCHLD, before);
    EXPECT_GT(taken, 0);
    EXPECT_GT(ends, 0);
}

TEST_F(Process, ALimitOfSixteenDescriptorsIsAFailureAndNoMore)
{
    EXPECT_TRUE(Child([] {
                    const rlimit limit = {16, 16};
                    closefrom(3);
                    setrlimit(RLIMIT_NOFILE, &limit);
                    std::vector<Copier> copiers(1);
                    while (copiers.back().result == S_OK) {
                        copiers.emplace_back();
                    }
                    const Copier refused = copiers.back();
                    copiers.pop_back();
                    bool isWhole = refused.result == E_FAIL && refused.streams == kPipes &&
                                   refused.process == QV_HANDLE_NONE && copiers.size() == 2;
                    for (Copier& copier : copiers) {
                        copier.Wake();
                        isWhole = isWhole && Join(copier.process) == 0;
                    }
                    return isWhole && NothingIsLeft() && Exchange(1) &&
                           CountDescriptors() == 4; // with the one that counts
                }).Succeeded());
}

TEST_F(Process, CyclesLeaveNothing)
{
    const auto run = [](long cycles) {
        for (; cycles > 0; --cycles) {
            Copier copier;
            copier.Wake();
            EXPECT_EQ(Join(copier.process), 0u);
            EXPECT_EQ(Copier(u"/missing").result, QV_E_FILE_NOT_FOUND);
        }
    };
    run(100);
    const long pages = ResidentPages();
    run(pages != 0 ? 10'000 : 300);
    EXPECT_LT(ResidentPages(), pages + 64) << "a page for each cycle, or a stack, would be more";
}

} // namespace
