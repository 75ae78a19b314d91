// Files with each system call and each allocation failing, under limits, and in many cycles.
#include <qvcore6/directory.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <string>
#include <utility>

#include "file/file_fixture.h"
#include "frame/facts.h"
#include "support/alloc_faults.h"

using namespace qv::test;

namespace
{

constinit int g_failAt = 0; // which of the calls below fails, from 1
constinit int g_calls = 0;
constinit int g_errno = 0;
using Action = void (*)();
constinit Action g_beforeClose = nullptr; // what another thread does just then

bool Fails(bool mayBeInterrupted = false)
{
    if (g_failAt == 0 || (g_errno == EINTR && !mayBeInterrupted) || ++g_calls != g_failAt) {
        return false;
    }
    errno = g_errno;
    return true;
}

} // namespace

extern "C"
{
    decltype(fstat) __real_fstat;
    decltype(statx) __real_statx;
    decltype(read) __real_read;
    decltype(ftruncate) __real_ftruncate;
    decltype(readlink) __real_readlink;
    decltype(getrandom) __real_getrandom;
    decltype(close) __real_close;
    int __real_fcntl(int file, int command, ...);
    long __real_syscall(long number, ...);

    int __wrap_fstat(int file, struct stat* status)
    {
        return Fails() ? -1 : __real_fstat(file, status);
    }
    int __wrap_statx(int folder, const char* path, int flags, unsigned mask, struct statx* result)
    {
        return Fails(true) ? -1 : __real_statx(folder, path, flags, mask, result);
    }
    ssize_t __wrap_read(int file, void* buffer, std::size_t size)
    {
        return Fails(true) ? -1 : __real_read(file, buffer, size);
    }
    int __wrap_ftruncate(int file, off_t size)
    {
        return Fails(true) ? -1 : __real_ftruncate(file, size);
    }
    ssize_t __wrap_readlink(const char* path, char* buffer, std::size_t size)
    {
        return Fails() ? -1 : __real_readlink(path, buffer, size);
    }
    ssize_t __wrap_getrandom(void* buffer, std::size_t size, unsigned flags)
    {
        return Fails(true) ? -1 : __real_getrandom(buffer, size, flags);
    }
    int __wrap_fcntl(int file, int command, ...)
    {
        va_list arguments;
        va_start(arguments, command);
        void* const argument = va_arg(arguments, void*);
        va_end(arguments);
        return Fails() ? -1 : __real_fcntl(file, command, argument);
    }
    // Takes as many arguments as any call has, also where there are fewer.
    [[gnu::no_sanitize_address]] long __wrap_syscall(long number, ...)
    {
        va_list arguments;
        va_start(arguments, number);
        long a[6];
        for (long& argument : a) {
            argument = va_arg(arguments, long);
        }
        va_end(arguments);
        return Fails(true) ? -1 : __real_syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    }
    int __wrap_close(int file)
    {
        if (g_beforeClose != nullptr) {
            std::exchange(g_beforeClose, nullptr)();
        }
        const int result = __real_close(file); // the descriptor is gone also when that fails
        return Fails(true) ? -1 : result;
    }
}

namespace
{

// Everything that opens something. Each gives its result.
using Act = QVRESULT (*)(const QVWChar* file, const QVWChar* made, QVHandle& handle);
constexpr Act kActs[] = {
    [](auto* file, auto*, auto& handle) {
        const QVRESULT result = QVFileOpen(file, QV_FILE_READ, 0, &handle);
        return result < 0 ? result : QVFileLock(handle, 0, 1, 0);
    },
    [](auto*, auto* made, auto& handle) {
        return QVFileOpen(made, kBoth | QV_FILE_CREATE, 0644, &handle);
    },
    [](auto*, auto* made, auto& handle) { return QVFileOpen(made, QV_FILE_CREATE, 0644, &handle); },
    [](auto*, auto*, auto& handle) {
        return QVFileOpen(nullptr, kBoth | QV_FILE_TEMPORARY, 0, &handle);
    },
    [](auto*, auto* made, auto& handle) {
        return QVFileOpen(made, kBoth | QV_FILE_TEMPORARY, 0644, &handle);
    },
    [](auto*, auto*, auto&) {
        QVDir folder;
        QVDirEntry entry;
        QVRESULT result = QVDirOpen(u".", &folder);
        for (int i = 0; i < 3 && result >= 0; ++i) { // the third one is the file
            result = QVDirRead(folder, &entry, 0);
        }
        QVDirClose(folder);
        return result;
    },
    [](auto* file, auto* made, auto& handle) {
        return QVFileCopy(file, made, QV_FILE_CREATE | QV_FILE_TRUNCATE, 0644, &handle);
    },
    // At the end: there is nothing to copy any more.
    [](auto* file, auto*, auto& handle) {
        return QVFileOpen(file, QV_FILE_READ | QV_FILE_CREATE | QV_FILE_TRUNCATE, 0644, &handle);
    },
};
constexpr int kTemporary = 3;
constexpr int kScan = 5;
constexpr int kCopy = 6; // leaves what it has written
constexpr int kAll = 8;

class FileFaults : public File
{
protected:
    FileFaults()
    {
        setenv("TMPDIR", m_folder.Bytes().c_str(), 1);
        Put("file", std::string(20000, 'x'));
        EXPECT_EQ(chdir(m_folder.Bytes().c_str()), 0);
    }
    ~FileFaults() override
    {
        unsetenv("TMPDIR");
        EXPECT_EQ(chdir("/"), 0);
    }

    // With all closed and removed again.
    QVRESULT Do(int what)
    {
        errno = 77;
        const QVRESULT result = kActs[what](u"file", u"made", m_handle);
        QVFileClose(std::exchange(m_handle, QV_HANDLE_NONE));
        EXPECT_EQ(errno, 77);
        g_failAt = 0;
        EXPECT_EQ(CountDescriptors(), m_descriptors);
        EXPECT_TRUE(result >= 0 || what == kCopy || !Exists("made"));
        unlink("made");
        EXPECT_EQ(m_folder.Count(), 1);
        return result;
    }
};

TEST_F(FileFaults, EachSystemCallMayFail)
{
    const std::pair<int, QVRESULT> rows[] = {
        {EACCES, E_ACCESSDENIED}, {EMFILE, E_FAIL}, {ENOMEM, E_OUTOFMEMORY}, {EIO, E_FAIL},
        {ENOSPC, E_FAIL},         {EINTR, S_OK},
    };
    for (int what = 0; what < kAll; ++what) {
        for (const auto& [error, expected] : rows) {
            g_calls = 0;
            for (int n = 1; g_calls >= n - 1; ++n) {
                SCOPED_TRACE(testing::Message() << what << ' ' << error << ' ' << n);
                g_calls = 0;
                g_errno = error;
                g_failAt = n;
                const QVRESULT result = Do(what);
                const QVRESULT instead = error == EINTR       ? S_OK
                                         : what == kCopy      ? E_FAIL
                                         : what == kTemporary ? QV_E_FILE_NOT_FOUND
                                                              : expected;
                EXPECT_TRUE(result >= 0 || result == expected || result == instead) << result;
            }
        }
    }
}

TEST_F(FileFaults, EachAllocationMayFail)
{
    for (int what = 0; what < kAll; ++what) {
        QVRESULT result = S_OK;
        long live = 0;
        SweepAllocations(
            [&] {
                live = LiveBlocks();
                result = kActs[what](u"file", u"made", m_handle);
                QVFileClose(std::exchange(m_handle, QV_HANDLE_NONE));
            },
            [&](long, bool failed) {
                EXPECT_TRUE(failed ? result == E_OUTOFMEMORY : result >= 0) << what;
                EXPECT_EQ(LiveBlocks(), live);
                EXPECT_EQ(CountDescriptors(), m_descriptors);
                // To a pipe that nobody reads, under the number that a file had before.
                int ends[2];
                ASSERT_EQ(pipe(ends), 0);
                ASSERT_EQ(dup2(ends[1], ends[0]), ends[0]);
                EXPECT_EQ(Write(ends[0], "x"), E_FAIL) << "and no signal";
                close(ends[0]);
                close(ends[1]);
                EXPECT_TRUE(unlink("made") != 0 || !failed || what == kCopy) << what;
                EXPECT_EQ(m_folder.Count(), 1);
            });
    }
}

TEST_F(FileFaults, TenThousandCyclesLeaveNothing)
{
    long live = 0;
    for (int round = 0; round < 10000; ++round) {
        EXPECT_GE(Do(round % kAll), 0);
        live = round == kAll ? LiveBlocks() : live;
    }
    EXPECT_EQ(LiveBlocks(), live);
}

TEST_F(FileFaults, WithoutADescriptorLeftNothingIsMade)
{
    Child child([] {
        QVHandle handle = QV_HANDLE_NONE;
        const rlimit limit = {16, 16};
        setrlimit(RLIMIT_NOFILE, &limit);
        while (dup(0) >= 0) {
        }
        for (const Act act : kActs) {
            if (act(u"file", u"made", handle) >= 0 || access("made", F_OK) == 0) {
                return false;
            }
        }
        return close(15) == 0 && QVFileOpen(u"file", kBoth, 0, &handle) == S_OK;
    });
    EXPECT_TRUE(child.Succeeded());
}

TEST_F(FileFaults, OutsideTheFamilyThereAreNoSizesAndOneKindOfLock)
{
    qv::core::s_isNT = 0;
    QVHandle other = QV_HANDLE_NONE;
    uint64_t size = 7;
    QVFileOpen(u"file", kBoth, 0, &m_handle);
    QVFileOpen(u"file", kBoth, 0, &other);
    EXPECT_EQ(QVFileGetSize(m_handle, &size), E_NOTIMPL);
    EXPECT_EQ(QVFileLock(m_handle, 0, 1, QV_LOCK_SHARED), S_OK);
    EXPECT_EQ(QVFileLock(other, 0, 1, QV_LOCK_SHARED | QV_LOCK_WAIT), E_FAIL);
    EXPECT_EQ(QVFileUnlock(m_handle, 0, 1), S_OK);
    QVFileClose(m_handle);
    QVFileClose(other);
    qv::core::s_isNT = 1;
}

TEST_F(FileFaults, AFullDiskEndsACopyInGoodOrder)
{
    Child child([&] {
        const bool isMade =
            mkdir("disk", 0755) == 0 &&
            (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount("none", "disk", "tmpfs", 0, "size=16k") == 0;
        if (!isMade) {
            _exit(2);
        }
        return QVFileCopy(u"file", u"disk/copy", QV_FILE_CREATE, 0644, &m_handle) == E_FAIL &&
               m_handle == QV_HANDLE_NONE && CountDescriptors() == m_descriptors &&
               QVFileOpen(u"disk/copy", QV_FILE_WRITE | QV_FILE_APPEND, 0, &m_handle) == S_OK &&
               Write(m_handle, "x") == E_FAIL && QVFileClose(m_handle) == S_OK;
    });
    const int status = child.Status();
    if (status == 2) {
        GTEST_SKIP() << "no right to a file system of its own";
    }
    EXPECT_EQ(status, 0);
}

TEST_F(FileFaults, ALockDuringACloseVanishesToo)
{
    static QVHandle closed;
    QVFileOpen(u"file", kBoth, 0, &m_handle);
    for (const uint32_t flags : {kBoth, QV_FILE_READ}) {
        QVFileOpen(u"file", flags, 0, &closed);
        g_beforeClose = [] { EXPECT_EQ(QVFileLock(closed, 0, 1, 0), S_OK); };
        EXPECT_EQ(QVFileClose(closed), S_OK);
        EXPECT_EQ(QVFileLock(m_handle, 0, 1, 0), S_OK);
        QVFileUnlock(m_handle, 0, 1);
    }
    QVFileClose(m_handle);
}

// As the anonymous user, whom rights bind.
TEST_F(FileFaults, AFolderThatMayNotBeWrittenRefuses)
{
    chmod(".", 0555);
    Child child([&] {
        return (getuid() != 0 || setuid(65534) == 0) && Do(kScan) == S_OK &&
               Do(1) == E_ACCESSDENIED && Do(kTemporary) < 0 &&
               QVFileDelete(u"file") == E_ACCESSDENIED && QVDirCreate(u"made", 0) == E_ACCESSDENIED;
    });
    EXPECT_TRUE(child.Succeeded());
    chmod(".", 0755);
}

} // namespace
