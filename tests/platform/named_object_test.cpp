// Named objects when calls of the system fail, and what depends on the process around them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qvcore6/result.h>
#include <qvcore6/security.h>
#include <qvcore6/sharedmem.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "platform/descriptor_record.h"
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

// The system call of this thread, counted from 1, that fails, and which of its two errors it has.
// Unlocking cannot fail.
thread_local int t_failing = 0;
int g_choice = 0;
int g_error = 0; // the one that it had
bool g_mayUnlink = true;
int g_naps = 0;
int g_napsUntilOpen = 0;
int g_gate = -1;
off_t g_lastUnlocked = 0;
HANDLE g_leaving = nullptr; // closed in the middle of the next opening, which then fails
std::atomic<bool> g_forksAreSlow = false;

using Errors = const int[2];

template <class Call, class Result = int>
Result OrFail(Errors& errors, Call call, Result failure = -1)
{
    if (t_failing == 0 || --t_failing != 0) {
        return call();
    }
    errno = g_error = errors[g_choice];
    return failure;
}

// Before the library's own, so that a fork comes here with the library standing still.
[[gnu::constructor(101)]] void SlowForksDown()
{
    const auto slowDown = [] {
        if (g_forksAreSlow) {
            usleep(1000);
        }
    };
    pthread_atfork(slowDown, nullptr, nullptr);
}

} // namespace

extern "C"
{
    decltype(open) __real_open;
    decltype(fcntl) __real_fcntl;
    decltype(fallocate) __real_fallocate;
    decltype(pread) __real_pread;
    decltype(pwrite) __real_pwrite;
    decltype(linkat) __real_linkat;
    decltype(unlink) __real_unlink;
    decltype(mmap) __real_mmap;
    decltype(nanosleep) __real_nanosleep;
    decltype(clock_gettime) __real_clock_gettime;

    int __wrap_open(const char* path, int flags, mode_t mode)
    {
        return OrFail({EMFILE, EINTR}, [&] { return __real_open(path, flags, mode); });
    }
    int __wrap_fcntl(int file, int command, void* argument)
    {
        const auto call = [&] { return __real_fcntl(file, command, argument); };
        const auto* const lock = static_cast<struct flock*>(argument);
        if (command != F_OFD_SETLK || lock->l_type != F_UNLCK) {
            return OrFail({ENOLCK, EINTR}, call);
        }
        g_lastUnlocked = lock->l_start;
        return call();
    }
    int __wrap_fallocate(int file, int mode, off_t at, off_t size)
    {
        return OrFail({ENOSPC, EINTR}, [&] { return __real_fallocate(file, mode, at, size); });
    }
    ssize_t __wrap_pread(int file, void* bytes, size_t size, off_t at)
    {
        return OrFail(
            {EIO, EINTR}, [&] { return __real_pread(file, bytes, size, at); }, ssize_t{-1});
    }
    ssize_t __wrap_pwrite(int file, const void* bytes, size_t size, off_t at)
    {
        return OrFail(
            {ENOSPC, EINTR}, [&] { return __real_pwrite(file, bytes, size, at); }, ssize_t{-1});
    }
    int __wrap_linkat(int from, const char* old, int to, const char* path, int flags)
    {
        return OrFail({ENOSPC, ENOMEM}, [&] { return __real_linkat(from, old, to, path, flags); });
    }
    int __wrap_unlink(const char* path)
    {
        return g_mayUnlink ? OrFail({EPERM, EROFS}, [&] { return __real_unlink(path); }) : -1;
    }
    void* __wrap_mmap(void* at, size_t size, int rights, int flags, int file, off_t offset)
    {
        if (g_leaving != nullptr) {
            CloseHandle(std::exchange(g_leaving, nullptr));
            errno = ENOMEM;
            return MAP_FAILED;
        }
        return OrFail(
            {ENOMEM, EAGAIN}, [&] { return __real_mmap(at, size, rights, flags, file, offset); },
            MAP_FAILED);
    }
    // A nap of an opener at the gate passes as a second. It is one, short: the gate may be held for
    // a moment by another process that looks for what has been left over.
    int __wrap_nanosleep(const timespec*, timespec*)
    {
        constexpr timespec kShort = {0, 100'000};
        if (++g_naps == g_napsUntilOpen) {
            close(g_gate);
        }
        return __real_nanosleep(&kShort, nullptr);
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

std::ptrdiff_t CountMappings()
{
    std::ifstream maps("/proc/self/maps");
    return std::count_if(std::istream_iterator<std::string>(maps), {},
                         [](const std::string& word) { return word.rfind("/dev/shm", 0) == 0; });
}

// The sections that another thread had open at the fork; false if one is not known as such.
bool GiveBackInherited()
{
    bool good = true;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        // Behind the head.
        if (line.find("s 00001000 ") != std::string::npos) {
            const auto view = std::stoull(line, nullptr, 16);
            good = QVSharedMemDetach(reinterpret_cast<void*>(view)) == S_OK && good;
        }
    }
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry, gone).string().find("/dev/shm") == 0) {
            const QVHandle handle = std::stoi(entry.path().filename());
            good = FindRecord(handle) && QVSharedMemClose(handle) == S_OK && good;
        }
    }
    return good;
}

HANDLE Open(const std::string& name, LONG count = 1, const SECURITY_ATTRIBUTES* rights = nullptr)
{
    return CreateSemaphoreA(rights, count, 9, name.c_str());
}

QVRESULT UseSemaphore(const std::string& name)
{
    SECURITY_DESCRIPTOR open = {1, 0, SE_DACL_PRESENT, nullptr, nullptr, nullptr, nullptr};
    const SECURITY_ATTRIBUTES all = {sizeof all, &open, kTrue};
    HANDLE const made = Open(name, 3, &all);
    const DWORD error = GetLastError();
    if (made == nullptr) {
        return QVResultFromNative(error);
    }
    LONG count = -1;
    EXPECT_EQ(kTrue, ReleaseSemaphore(made, 1, &count));
    EXPECT_EQ(3, count);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(made, 0));
    CloseHandle(made);
    return error == ERROR_ALREADY_EXISTS ? S_OK : QV_S_CREATED;
}

// The handle goes before the view.
QVRESULT UseSection(const std::string& name)
{
    QVHandle handle;
    void* view = nullptr;
    QVRESULT result = QVSharedMemOpen(name.c_str(), QV_FILE_CREATE, 0, 2 << 20, &handle);
    EXPECT_EQ(result < 0, handle == QV_HANDLE_NONE);
    // Who is through the gate takes a locked life for a holder's: it goes first.
    EXPECT_TRUE(result >= 0 || g_lastUnlocked == 0);
    if (result >= 0) {
        const QVRESULT attached = QVSharedMemAttach(handle, QV_FILE_WRITE, &view);
        EXPECT_EQ(attached < 0, view == nullptr);
        result = attached < 0 ? attached : result;
    }
    QVSharedMemClose(handle);
    EXPECT_TRUE(view == nullptr || QVSharedMemDetach(view) == S_OK);
    return result;
}

using Holder = std::shared_ptr<void>;

Holder HoldSemaphore(const std::string& name)
{
    return {Open(name, 3), [](HANDLE semaphore) { CloseHandle(semaphore); }};
}

Holder HoldSection(const std::string& name)
{
    QVHandle handle;
    void* view = nullptr;
    QVSharedMemOpen(name.c_str(), QV_FILE_CREATE, 0, 1, &handle);
    QVSharedMemAttach(handle, QV_FILE_READ, &view);
    QVSharedMemClose(handle);
    return {view, [](void* held) { QVSharedMemDetach(held); }};
}

TEST(NamedObject, LeavesNothingBehindWhenACallFails)
{
    const struct
    {
        const char* file;
        QVRESULT (*use)(const std::string& name);
        Holder (*hold)(const std::string& name);
    } kinds[] = {{"/dev/shm/qvc.", UseSemaphore, HoldSemaphore},
                 {"/dev/shm/qvc.SHM:", UseSection, HoldSection}};
    const std::string name = OwnName("sweep");
    for (const auto& kind : kinds) {
        const std::string file = kind.file + name;
        kind.use(name); // the table of records stays
        // Made; joined; a left-over replaced; one that may not be unlinked refilled.
        for (const int way : {0, 1, 2, 3}) {
            const Holder holder = way == 1 ? kind.hold(name) : nullptr;
            g_mayUnlink = way != 3;
            const long blocks = LiveBlocks();
            const auto descriptors = CountDescriptors();
            const auto mappings = CountMappings();
            const QVRESULT expected = way == 1 ? S_OK : QV_S_CREATED;
            QVRESULT result = expected;
            const auto use = [&] {
                g_lastUnlocked = 0;
                result = kind.use(name);
            };
            const auto check = [&](bool failed) {
                const bool isFine = result == expected;
                const bool isMemory = g_error == ENOMEM || g_error == EAGAIN;
                const bool mayFail = failed && g_error != EINTR;
                EXPECT_TRUE(isFine || (mayFail && result == (isMemory ? E_OUTOFMEMORY : E_FAIL)))
                    << result << " after " << g_error << ", way " << way;
                EXPECT_EQ(descriptors, CountDescriptors());
                EXPECT_EQ(mappings, CountMappings());
                EXPECT_EQ(blocks, LiveBlocks());
                // A failure may leave a name, which the next one takes over.
                EXPECT_TRUE(failed || way == 3 || fs::exists(file) == (way == 1));
                if (way >= 2) {
                    std::ofstream(file) << "left over";
                }
            };
            check(true);
            for (g_choice = 0; g_choice < 2; ++g_choice) {
                bool failed = true;
                for (int n = 1; failed; ++n) {
                    t_failing = n;
                    use();
                    failed = t_failing == 0;
                    t_failing = 0;
                    check(failed);
                    ASSERT_LT(n, 300);
                }
            }
            g_error = ENOMEM;
            SweepAllocations(std::ref(use), [&](long, bool failed) { check(failed); });
        }
        g_mayUnlink = true;
        kind.use(name);
        EXPECT_FALSE(fs::exists(file));
    }
    // The last holder goes, and sees one who is about to join, but fails.
    HANDLE const leaving = Open(name);
    g_leaving = leaving;
    EXPECT_EQ(nullptr, Open(name));
    EXPECT_FALSE(fs::exists("/dev/shm/qvc." + name));
}

TEST(NamedObject, KeepsToTheLimitsOfTheProcess)
{
    const std::string name = OwnName("limits");
    // A host that closes what it does not know: no number is the object's, 0 to 2 least of all.
    Child withoutDescriptors([&] {
        close_range(0, ~0u, 0);
        HANDLE const made = Open(name, 3);
        const int own = __real_open("/dev/null", O_RDONLY);
        CloseHandle(made);
        const rlimit low = {0, 0};
        setrlimit(RLIMIT_NOFILE, &low);
        const bool isRefused = close(own) == 0 && Open(name) == nullptr;
        return made != nullptr && own == 0 && isRefused;
    });
    EXPECT_TRUE(withoutDescriptors.Succeeded());
}

TEST(NamedObject, HasTheRightsOfItsDescriptor)
{
    const std::string name = OwnName("rights");
    const std::string file = "/dev/shm/qvc." + name;
    QVSecurityDescriptor built = {};
    auto* const descriptor = reinterpret_cast<SECURITY_DESCRIPTOR*>(&built);
    const SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor, kTrue};
    const auto expect = [&](mode_t mode, bool hasEntries, const SECURITY_ATTRIBUTES* given) {
        HANDLE const made = Open(name, 1, given);
        EXPECT_EQ(fs::perms(mode), fs::status(file).permissions());
        EXPECT_EQ(hasEntries, getxattr(file.c_str(), "system.posix_acl_access", nullptr, 0) > 0);
        CloseHandle(made);
    };
    const mode_t before = umask(077);
    expect(0600, false, nullptr);
    for (const DWORD mask : {0x1F0003u, 0x1u}) {
        void* list = nullptr;
        QVWinBuildRestrictedSD(&built, mask, &list);
        expect(mask == 1 ? 0600 : 0666, mask != 1, &attributes);
        static_cast<ACL*>(list)->AceCount = 0;
        expect(0600, false, &attributes);
        QVWinFreeRestrictedSD(list);
    }
    for (const BOOL hasList : {kTrue, kFalse}) {
        SetSecurityDescriptorDacl(descriptor, hasList, nullptr, kFalse);
        expect(hasList ? 0666 : 0600, false, &attributes);
    }
    umask(before);
}

TEST(NamedObject, WaitsAtTheGateButNotForEver)
{
    const std::string name = OwnName("gate");
    const std::string file = "/dev/shm/qvc." + name;
    for (const int naps : {3, 100, 0}) {
        std::ofstream(file) << "left over";
        g_gate = naps != 0 ? LockByte(file.c_str(), 0) : -1;
        g_napsUntilOpen = g_naps + naps;
        HANDLE const made = Open(name);
        EXPECT_EQ(naps == 100 ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS, GetLastError());
        CloseHandle(naps == 0 ? Open(name) : nullptr);
        CloseHandle(made);
        EXPECT_TRUE(naps != 0 || g_naps == g_napsUntilOpen); // whoever is in leaves it open
        close(naps == 100 ? g_gate : -1);
    }
    HANDLE const holder = Open(name);
    g_gate = LockByte(file.c_str(), 0);
    CloseHandle(Open(name));
    EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError()); // what is alive needs no gate
    CloseHandle(holder);
    EXPECT_TRUE(fs::exists(file));
    close(g_gate);
    CloseHandle(Open(name));
    EXPECT_FALSE(fs::exists(file));
}

TEST(NamedObject, IsWholeOrNotThereInAForkedChild)
{
    const std::string name = OwnName("fork");
    std::atomic<bool> done = false;
    std::jthread opener([&] {
        while (!done) {
            CloseHandle(Open(name));
            UseSection(name);
        }
    });
    std::thread viewer([&] {
        QVHandle handle;
        QVSharedMemOpen(name.c_str(), QV_FILE_CREATE, 0, 1, &handle);
        for (void* view = nullptr; !done; QVSharedMemDetach(view)) {
            QVSharedMemAttach(handle, QV_FILE_READ, &view);
        }
        QVSharedMemClose(handle);
    });
    const auto forkOften = [&] {
        for (int i = 0; i < 60; ++i) {
            g_forksAreSlow = i % 2 != 0;
            Child child([&] {
                alarm(20); // for a lock of a thread that is not here
                CloseHandle(Open(name));
                return GiveBackInherited();
            });
            EXPECT_TRUE(child.Succeeded());
        }
    };
    std::thread other(forkOften);
    forkOften();
    other.join();
    g_forksAreSlow = false;
    done = true;
    opener.join();
    viewer.join();
    CloseHandle(Open(name)); // what a child may have held at its end
    UseSection(name);
    EXPECT_FALSE(fs::exists("/dev/shm/qvc." + name));
    EXPECT_FALSE(fs::exists("/dev/shm/qvc.SHM:" + name));
}

} // namespace
