// Named objects when calls of the system fail, and what depends on the process around them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "platform/error.h"
#include "platform/security.h"
#include "platform/wait.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"

using namespace qv::platform;
using namespace qv::test;
namespace fs = std::filesystem;

namespace
{

// The system call of this thread, counted from 1, that fails, and how. Unlocking cannot fail.
thread_local int t_failing = 0;
thread_local int t_errno = ENOSPC;
bool g_mayUnlink = true;
int g_naps = 0;
std::atomic<int> g_napsUntilOpen = 0;
int g_gate = -1;
std::function<void()> g_afterOpen;

bool FailsNow()
{
    if (t_failing == 0 || --t_failing != 0) {
        return false;
    }
    errno = t_errno;
    return true;
}

} // namespace

extern "C"
{
    decltype(open) __real_open;
    decltype(fcntl) __real_fcntl;
    decltype(fstat) __real_fstat;
    decltype(fallocate) __real_fallocate;
    decltype(ftruncate) __real_ftruncate;
    decltype(pread) __real_pread;
    decltype(pwrite) __real_pwrite;
    decltype(linkat) __real_linkat;
    decltype(unlink) __real_unlink;
    decltype(mmap) __real_mmap;
    decltype(clock_gettime) __real_clock_gettime;

    int __wrap_open(const char* path, int flags, mode_t mode)
    {
        const int file = FailsNow() ? -1 : __real_open(path, flags, mode);
        if (const auto meanwhile = std::exchange(g_afterOpen, nullptr)) {
            meanwhile();
        }
        return file;
    }
    int __wrap_fcntl(int file, int command, void* argument)
    {
        const bool unlocks =
            command == F_OFD_SETLK && static_cast<struct flock*>(argument)->l_type == F_UNLCK;
        return !unlocks && FailsNow() ? -1 : __real_fcntl(file, command, argument);
    }
    int __wrap_fstat(int file, struct stat* status)
    {
        return FailsNow() ? -1 : __real_fstat(file, status);
    }
    int __wrap_fallocate(int file, int mode, off_t at, off_t size)
    {
        return FailsNow() ? -1 : __real_fallocate(file, mode, at, size);
    }
    int __wrap_ftruncate(int file, off_t size)
    {
        return FailsNow() ? -1 : __real_ftruncate(file, size);
    }
    ssize_t __wrap_pread(int file, void* bytes, size_t count, off_t at)
    {
        return FailsNow() ? -1 : __real_pread(file, bytes, count, at);
    }
    ssize_t __wrap_pwrite(int file, const void* bytes, size_t count, off_t at)
    {
        return FailsNow() ? -1 : __real_pwrite(file, bytes, count, at);
    }
    int __wrap_linkat(int from, const char* old, int to, const char* path, int flags)
    {
        return FailsNow() ? -1 : __real_linkat(from, old, to, path, flags);
    }
    int __wrap_unlink(const char* path)
    {
        errno = EPERM;
        return !g_mayUnlink || FailsNow() ? -1 : __real_unlink(path);
    }
    void* __wrap_mmap(void* at, size_t size, int rights, int flags, int file, off_t offset)
    {
        return FailsNow() ? MAP_FAILED : __real_mmap(at, size, rights, flags, file, offset);
    }
    // A nap of an opener at the gate passes as a second.
    int __wrap_nanosleep(const timespec*, timespec*)
    {
        if (++g_naps == g_napsUntilOpen) {
            close(g_gate);
        }
        return 0;
    }
    int __wrap_clock_gettime(clockid_t clock, timespec* now)
    {
        const int result = __real_clock_gettime(clock, now);
        now->tv_sec += g_naps;
        return result;
    }
}

namespace
{

std::string Own(const char* name)
{
    return "object." + std::to_string(getpid()) + "." + name;
}

std::string FileOf(const std::string& name)
{
    return "/dev/shm/qvc." + name;
}

std::size_t CountDescriptors()
{
    std::size_t count = 0;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        count += fs::read_symlink(entry.path(), ignored).string().rfind("/dev/shm", 0) == 0;
    }
    return count;
}

std::size_t CountMappings()
{
    std::size_t count = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        count += line.find(" /dev/shm") != std::string::npos;
    }
    return count;
}

HANDLE Open(const std::string& name, LONG count = 1, const SECURITY_ATTRIBUTES* rights = nullptr)
{
    return CreateSemaphoreA(rights, count, 9, name.c_str());
}

// Locks a byte of the file until the descriptor is closed.
int LockOutside(const std::string& file, short type, off_t byte)
{
    const int opened = __real_open(file.c_str(), O_RDWR | O_CLOEXEC | O_CREAT, 0666);
    struct flock lock = {};
    lock.l_type = type;
    lock.l_start = byte;
    lock.l_len = 1;
    EXPECT_EQ(0, __real_fcntl(opened, F_OFD_SETLK, &lock));
    return opened;
}

TEST(NamedObject, LeavesNothingBehindWhenACallFails)
{
    const std::string name = Own("sweep");
    SECURITY_DESCRIPTOR open = {};
    InitializeSecurityDescriptor(&open, 1);
    SetSecurityDescriptorDacl(&open, kTrue, nullptr, kFalse);
    const SECURITY_ATTRIBUTES all = {sizeof all, &open, kTrue};
    // Made; joined; a left-over replaced; one that may not be unlinked refilled.
    for (const int way : {0, 1, 2, 3}) {
        HANDLE const holder = way == 1 ? Open(name, 5, &all) : nullptr;
        g_mayUnlink = way != 3;
        bool failed = true;
        for (int n = 1; failed; ++n) {
            if (way >= 2) {
                std::ofstream(FileOf(name)) << "left over";
            }
            const std::size_t held = CountDescriptors() + CountMappings();
            t_failing = n;
            HANDLE const made = Open(name, 3, &all);
            failed = t_failing == 0;
            t_failing = 0;
            const DWORD error = GetLastError();
            if (made == nullptr) {
                EXPECT_TRUE(error == ERROR_DISK_FULL || error == ERROR_OUTOFMEMORY) << error;
            } else {
                EXPECT_EQ(way == 1 ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS, error);
                LONG count = -1;
                EXPECT_EQ(kTrue, ReleaseSemaphore(made, 1, &count));
                EXPECT_EQ(way == 1 ? 5 : 3, count);
                EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(made, 0));
                CloseHandle(made);
            }
            EXPECT_EQ(held, CountDescriptors() + CountMappings());
            // A left-over may go before its successor cannot be made.
            EXPECT_TRUE((way == 2 && made == nullptr) ||
                        fs::exists(FileOf(name)) == (way == 1 || way == 3));
            ASSERT_LT(n, 50);
        }
        g_mayUnlink = true;
        if (holder != nullptr) {
            CloseHandle(holder);
        }
        fs::remove(FileOf(name));
    }
    const long blocks = LiveBlocks();
    const long failures = SweepAllocations(
        [&] { CloseHandle(Open("object.sweep")); },
        [&](long, bool failed) { EXPECT_TRUE(!failed || GetLastError() == ERROR_INVALID_HANDLE); });
    EXPECT_GE(failures, 1);
    EXPECT_EQ(blocks, LiveBlocks());
}

TEST(NamedObject, IsRefusedAtTheLimitsOfTheProcess)
{
    const std::string name = Own("limits");
    const auto expect = [&](decltype(RLIMIT_FSIZE) limit, rlim_t value, DWORD error) {
        Child limited([&] {
            const rlimit low = {value, value};
            setrlimit(limit, &low);
            return Open(name) == nullptr && GetLastError() == error;
        });
        EXPECT_TRUE(limited.Succeeded());
    };
    expect(RLIMIT_NOFILE, 3, ERROR_TOO_MANY_OPEN_FILES);
    expect(RLIMIT_FSIZE, 4095, ERROR_FILE_TOO_LARGE);
    Child withoutStreams([&] {
        close_range(0, 2, 0);
        HANDLE const made = Open(name);
        const bool isApart =
            made != nullptr && __real_fcntl(0, F_GETFD) == -1 && __real_fcntl(2, F_GETFD) == -1;
        CloseHandle(made);
        return isApart;
    });
    EXPECT_TRUE(withoutStreams.Succeeded());
    t_failing = 2; // the folder, after the file
    t_errno = ENOENT;
    EXPECT_EQ(nullptr, Open(name));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, GetLastError());
    t_errno = ENOSPC;
    EXPECT_FALSE(fs::exists(FileOf(name)));
}

TEST(NamedObject, HasTheRightsOfItsDescriptor)
{
    const std::string name = Own("rights");
    alignas(4) unsigned char list[28];
    auto* const acl = reinterpret_cast<ACL*>(list);
    SID* sid = nullptr;
    AllocateAndInitializeSid(&SECURITY_NT_AUTHORITY, 1, 11, 0, 0, 0, 0, 0, 0, 0, &sid);
    SECURITY_DESCRIPTOR descriptor = {};
    InitializeSecurityDescriptor(&descriptor, 1);
    const SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, kTrue};
    const mode_t before = umask(077);
    const auto expect = [&](mode_t mode, bool hasEntries, const SECURITY_ATTRIBUTES* given) {
        HANDLE const made = Open(name, 1, given);
        ASSERT_NE(nullptr, made);
        struct stat status = {};
        stat(FileOf(name).c_str(), &status);
        EXPECT_EQ(mode, status.st_mode & 07777);
        EXPECT_EQ(hasEntries,
                  getxattr(FileOf(name).c_str(), "system.posix_acl_access", nullptr, 0) > 0);
        CloseHandle(made);
    };
    expect(0600, false, nullptr);
    expect(0600, false, &attributes);
    SetSecurityDescriptorDacl(&descriptor, kTrue, nullptr, kFalse);
    expect(0666, false, &attributes);
    for (const DWORD mask : {0x1F0003u, 0x1u}) {
        InitializeAcl(acl, sizeof list, 2);
        SetSecurityDescriptorDacl(&descriptor, kTrue, acl, kFalse);
        expect(0600, false, &attributes);
        AddAccessAllowedAce(acl, 2, mask, sid);
        expect(mask == 1 ? 0600 : 0666, mask != 1, &attributes);
    }
    umask(before);
    FreeSid(sid);
}

TEST(NamedObject, WaitsAtTheGateButNotForEver)
{
    const std::string name = Own("gate");
    for (const int naps : {3, 0}) {
        HANDLE const holder = Open(name, 4);
        g_gate = LockOutside(FileOf(name), F_WRLCK, 0);
        g_naps = 0;
        g_napsUntilOpen = naps;
        HANDLE const made = Open(name);
        EXPECT_EQ(naps != 0, made != nullptr);
        EXPECT_EQ(naps != 0 ? ERROR_ALREADY_EXISTS : ERROR_SHARING_VIOLATION, GetLastError());
        if (made != nullptr) {
            // Whoever is in leaves it open.
            CloseHandle(Open(name));
            EXPECT_EQ(naps, g_naps);
            CloseHandle(made);
        } else {
            close(g_gate);
        }
        g_napsUntilOpen = 0;
        CloseHandle(holder);
        EXPECT_FALSE(fs::exists(FileOf(name)));
    }
}

TEST(NamedObject, IsTheOneAtTheNameAlsoIfThatChangesMeanwhile)
{
    const std::string name = Own("change");
    HANDLE holder = Open(name, 2);
    g_afterOpen = [&] {
        CloseHandle(holder);
        holder = Open(name, 5);
    };
    HANDLE const made = Open(name, 1);
    EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
    LONG count = -1;
    EXPECT_EQ(kTrue, ReleaseSemaphore(made, 1, &count));
    EXPECT_EQ(5, count);
    CloseHandle(made);
    CloseHandle(holder);
}

TEST(NamedObject, IsWholeOrNotThereInAForkedChild)
{
    const std::string name = Own("fork");
    std::atomic<bool> done = false;
    std::thread opener([&] {
        while (!done) {
            CloseHandle(Open(name));
        }
    });
    for (int i = 0; i < 100; ++i) {
        Child child([] { return CountDescriptors() == CountMappings(); });
        EXPECT_TRUE(child.Succeeded());
    }
    done = true;
    opener.join();
    EXPECT_FALSE(fs::exists(FileOf(name)));
}

TEST(NamedSemaphoreWait, LastsAsLongAsItWasAskedTo)
{
    HANDLE const semaphore = Open(Own("wait"), 0);
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 3000}, {0, 3000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (const int ms : {30, 450}) { // within a slice, and over two
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(semaphore, static_cast<DWORD>(ms)));
        const auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_GE(waited, std::chrono::milliseconds(ms));
        EXPECT_LT(waited, std::chrono::milliseconds(ms + 150));
    }
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    CloseHandle(semaphore);
}

} // namespace
