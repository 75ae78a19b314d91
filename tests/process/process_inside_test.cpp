// Starts and waits with each allocation and each system call failing.
#include "process/children.h"

#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <filesystem>
#include <string_view>
#include <thread>

#include "platform/collation.h"
#include "platform/named_object.h"
#include "support/alloc_faults.h"

using namespace qv::test;

namespace
{

struct Fault
{
    std::string_view call;
    int error = 0;
    int number = 0; // from 1; this one fails
};

thread_local Fault t_fault;

bool Fails(std::string_view call)
{
    if (call != t_fault.call || --t_fault.number != 0) {
        return false;
    }
    errno = t_fault.error;
    return true;
}

} // namespace

extern "C"
{
    decltype(pipe2) __real_pipe2;
    decltype(mmap) __real_mmap;
    decltype(getcwd) __real_getcwd;
    decltype(waitid) __real_waitid;
    decltype(poll) __real_poll;
    int __real_fcntl(int file, int command, ...);
    int __real_ioctl(int file, unsigned long request, ...);
    int __real___clone(int (*run)(void*), void* stack, int flags, void* argument, int* handle);

    int __wrap_pipe2(int* ends, int flags)
    {
        return Fails("pipe2") ? -1 : __real_pipe2(ends, flags);
    }
    int __wrap_fcntl(int file, int command, long argument)
    {
        return Fails("fcntl") ? -1 : __real_fcntl(file, command, argument);
    }
    int __wrap_ioctl(int file, unsigned long request, void* argument)
    {
        return Fails("ioctl") ? -1 : __real_ioctl(file, request, argument);
    }
    void* __wrap_mmap(void* at, std::size_t size, int rights, int flags, int file, off_t offset)
    {
        return Fails("mmap") ? MAP_FAILED : __real_mmap(at, size, rights, flags, file, offset);
    }
    char* __wrap_getcwd(char* path, std::size_t size)
    {
        return Fails("getcwd") ? nullptr : __real_getcwd(path, size);
    }
    int __wrap___clone(int (*run)(void*), void* stack, int flags, void* argument, int* handle)
    {
        return Fails("clone") ? -1 : __real___clone(run, stack, flags, argument, handle);
    }
    int __wrap_waitid(idtype_t type, id_t id, siginfo_t* info, int options)
    {
        return Fails("waitid") ? -1 : __real_waitid(type, id, info, options);
    }
    int __wrap_poll(pollfd* entries, nfds_t count, int milliseconds)
    {
        return Fails("poll") ? -1 : __real_poll(entries, count, milliseconds);
    }
}

namespace
{

// A start that does all that can fail: in another folder, by a relative name, with pipes.
struct Request
{
    void Run()
    {
        static const QVWChar* const environment[] = {u"b=1", u"a=1", nullptr};
        streams = kPipes;
        process = 0;
        result =
            QVProcessCreate(u"bin/cat", nullptr, u"/tmp", environment, 0, streams.data(), &process);
    }
    // Ends the child if there is one; else nothing has changed.
    void Check(QVRESULT refusal)
    {
        if (result == S_OK) {
            std::for_each(streams.begin(), streams.end(), close);
            EXPECT_EQ(Join(process), 0u);
            return;
        }
        EXPECT_EQ(result, refusal);
        EXPECT_EQ(process, QV_HANDLE_NONE);
        EXPECT_EQ(streams, kPipes);
        EXPECT_EQ(CountDescriptors(), descriptors);
        EXPECT_TRUE(NothingIsLeft());
    }
    std::ptrdiff_t descriptors = CountDescriptors();
    Streams streams;
    QVHandle process;
    QVRESULT result;
};

TEST_F(Process, AStartThatFailsLeavesNothing)
{
    const struct
    {
        const char* call;
        int error;
        QVRESULT result;
        int times; // how often the call is made
    } rows[] = {
        {"pipe2", EMFILE, E_FAIL, 3},
        {"pipe2", ENFILE, E_FAIL, 3},
        {"pipe2", ENOMEM, E_OUTOFMEMORY, 3},
        {"fcntl", EBADF, E_HANDLE, 3},
        {"getcwd", ENOENT, QV_E_FILE_NOT_FOUND, 1},
        {"getcwd", EACCES, E_ACCESSDENIED, 1},
        {"getcwd", ENOMEM, E_OUTOFMEMORY, 1},
        {"getcwd", ERANGE, E_FAIL, 1},
        {"mmap", ENOMEM, E_OUTOFMEMORY, 1},
        {"mmap", EAGAIN, E_OUTOFMEMORY, 1},
        {"clone", EAGAIN, E_FAIL, 1},
        {"clone", ENOMEM, E_OUTOFMEMORY, 1},
        {"clone", ENOSPC, E_FAIL, 1},
        {"clone", EMFILE, E_FAIL, 1},
        {"clone", EPERM, E_ACCESSDENIED, 1},
    };
    std::filesystem::current_path("/");
    Request request;
    for (const auto& row : rows) {
        for (int number = 1; number <= row.times + 1; ++number) {
            t_fault = {row.call, row.error, number};
            errno = 1234;
            request.Run();
            EXPECT_EQ(errno, 1234);
            t_fault = {};
            EXPECT_EQ(request.result, number <= row.times ? row.result : S_OK)
                << number << ". call, " << strerror(row.error);
            request.Check(row.result);
        }
    }
}

// With numbers of descriptors that have no place in the table yet.
TEST_F(Process, AStartWithoutMemoryRunsNothing)
{
    std::filesystem::current_path("/");
    std::vector<int> files;
    while (files.empty() || files.back() < 300) {
        files.push_back(dup(STDERR_FILENO));
    }
    Request request;
    long refusals = 0;
    SweepAllocations([&] { request.Run(); }, [&](long, bool) { // sorting does without
        refusals += request.result != S_OK ? 1 : 0;
        request.Check(E_OUTOFMEMORY);
    });
    EXPECT_GT(refusals, 5);
    std::for_each(files.begin(), files.end(), close);
}

TEST_F(Process, AJoinForAnyWithoutMemoryCanBeRepeated)
{
    std::vector<Copier> copiers(20);
    QVHandle process = 0;
    QVRESULT result = S_OK;
    copiers[9].Wake();
    EXPECT_EQ(SweepAllocations([&] { result = QVProcessJoinChild(&process, nullptr); },
                               [&](long, bool failed) {
                                   EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK);
                                   EXPECT_EQ(process, failed ? QV_HANDLE_NONE : copiers[9].process);
                               }),
              1);
    copiers.erase(copiers.begin() + 9);
    for (Copier& copier : copiers) {
        copier.Wake();
        EXPECT_EQ(Join(copier.process), 0u);
    }
}

TEST_F(Process, WaitsThatTheSystemRefusesKeepTheHandle)
{
    const struct
    {
        bool isForAny;
        const char* call;
        int error;
        QVRESULT result;
    } rows[] = {
        {false, "waitid", EINTR, S_OK},
        {false, "waitid", EBADF, E_HANDLE},
        {true, "poll", EINTR, S_OK},
        {true, "poll", ENOMEM, E_OUTOFMEMORY},
        {true, "poll", EINVAL, E_FAIL},
        {true, "waitid", EBADF, E_FAIL}, // what is no process is dropped from the children
    };
    for (const auto& row : rows) {
        const QVHandle started = StartShell(u"exit 7");
        QVHandle process;
        uint32_t code = 0;
        t_fault = {row.call, row.error, 1};
        EXPECT_EQ(row.isForAny ? QVProcessJoinChild(&process, &code)
                               : QVProcessJoin(started, &code),
                  row.result);
        t_fault = {};
        EXPECT_EQ(code, row.result == S_OK ? 7 : 0xFFFFFFFF);
        EXPECT_EQ(row.result == S_OK ? code : Join(started), 7u);
    }
}

// The host has taken the child, and an older kernel does not tell how it ended.
TEST_F(Process, AnUnknownExitCodeIsNoFailure)
{
    const QVHandle ended = StartShell(u"exit 7");
    ASSERT_GT(waitpid(-1, nullptr, 0), 0);
    t_fault = {"ioctl", ENOTTY, 1};
    EXPECT_EQ(Join(ended), 0xFFFFFFFFu);
    EXPECT_EQ(fcntl(ended, F_GETFD), -1);

    t_fault = {"waitid", EINTR, 1};
    EXPECT_EQ(Copier(u"/missing").result, QV_E_FILE_NOT_FOUND);
    t_fault = {};
}

// Else the child would share its locks until it executes its program.
TEST_F(Process, AStartWaitsForANamedObjectThatIsHalfOpen)
{
    std::atomic<bool> started{false};
    qv::platform::HoldNamedObjects();
    std::jthread starter([&] {
        const QVHandle process = StartShell(u"exit 0");
        started = true;
        Join(process);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(started);
    qv::platform::ReleaseNamedObjects();
    starter.join();
    qv::platform::HoldNamedObjects(); // the start has let go of them
    qv::platform::ReleaseNamedObjects();
}

TEST_F(Process, OrderIsTheLocalesWithoutCase)
{
    using qv::platform::_wcsicoll;
    const std::u16string longer(1000, u'B');
    EXPECT_EQ(_wcsicoll(u"Ab", u"aB"), 0);
    EXPECT_LT(_wcsicoll(u"b", longer.c_str()), 0);
    EXPECT_GT(_wcsicoll(u"\u00c4", u"b"), 0);
    ASSERT_NE(std::setlocale(LC_COLLATE, "de_DE.ISO-8859-1"), nullptr);
    EXPECT_LT(_wcsicoll(u"\u00c4", u"b"), 0);
    EXPECT_GT(_wcsicoll(u"\u00c4", u"a"), 0);
    std::setlocale(LC_COLLATE, "C");
}

} // namespace
