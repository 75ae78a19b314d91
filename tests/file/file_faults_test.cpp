// Files with each system call and each allocation failing, under limits, and in many cycles.
#include <gtest/gtest.h>
#include <qvcore6/directory.h>
#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <fstream>
#include <functional>
#include <string>
#include <utility>

#include "frame/facts.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"
#include "support/own_folder.h"

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
    [[gnu::no_sanitize("address")]] long __wrap_syscall(long number, ...)
    {
        va_list arguments;
        va_start(arguments, number);
        long a[6];
        for (long& argument : a) {
            argument = va_arg(arguments, long);
        }
        va_end(arguments);
        if (number == SYS_close && g_beforeClose != nullptr) {
            std::exchange(g_beforeClose, nullptr)();
        }
        // A descriptor is gone also when its close fails.
        const bool fails = number != SYS_close && Fails(true);
        const long result = fails ? -1 : __real_syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
        return number == SYS_close && Fails(true) ? -1 : result;
    }
}

namespace
{

constexpr uint32_t kBoth = QV_FILE_READ | QV_FILE_WRITE;

// Everything that opens something. Each gives its result.
using Open = QVRESULT (*)(const QVWChar* file, const QVWChar* made, QVHandle& handle);
constexpr Open kOpens[] = {
    [](auto* file, auto*, auto& handle) { return QVFileOpen(file, QV_FILE_READ, 0, &handle); },
    [](auto*, auto* made, auto& handle) {
        return QVFileOpen(made, kBoth | QV_FILE_CREATE, 0644, &handle);
    },
    [](auto* file, auto*, auto& handle) {
        return QVFileOpen(file, QV_FILE_READ | QV_FILE_CREATE | QV_FILE_TRUNCATE, 0644, &handle);
    },
    [](auto*, auto* made, auto& handle) { return QVFileOpen(made, QV_FILE_CREATE, 0644, &handle); },
    [](auto*, auto*, auto& handle) {
        return QVFileOpen(nullptr, kBoth | QV_FILE_TEMPORARY, 0, &handle);
    },
    [](auto*, auto* made, auto& handle) {
        return QVFileOpen(made, kBoth | QV_FILE_TEMPORARY, 0644, &handle);
    },
    [](auto* file, auto* made, auto& handle) {
        return QVFileCopy(file, made, QV_FILE_CREATE | QV_FILE_TRUNCATE, 0644, &handle);
    },
    [](auto* file, auto*, auto& handle) {
        const QVRESULT result = QVFileOpen(file, QV_FILE_READ, 0, &handle);
        return result < 0 ? result : QVFileLock(handle, 0, 1, 0);
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
};
constexpr int kTemporary = 4; // and the next one
constexpr int kCopy = 6;
constexpr int kLock = 7;

class FileFaults : public testing::Test
{
protected:
    FileFaults()
    {
        setenv("TMPDIR", m_folder.Bytes().c_str(), 1);
        std::ofstream(m_folder.Bytes("file")) << std::string(20000, 'x');
        EXPECT_EQ(chdir(m_folder.Bytes().c_str()), 0);
    }
    ~FileFaults() override
    {
        unsetenv("TMPDIR");
        EXPECT_EQ(chdir("/"), 0);
    }

    // With all closed again.
    QVRESULT Do(int what)
    {
        QVHandle handle = QV_HANDLE_NONE;
        const QVRESULT result = kOpens[what](m_file.c_str(), m_made.c_str(), handle);
        EXPECT_TRUE((handle == QV_HANDLE_NONE) == (result < 0) || what >= kLock);
        QVFileClose(handle);
        return result;
    }

    OwnFolder m_folder;
    std::u16string m_file = m_folder.Text(u"file");
    std::u16string m_made = m_folder.Text(u"made");
    static constexpr int kKinds = std::size(kOpens);
};

TEST_F(FileFaults, EachSystemCallMayFail)
{
    const struct
    {
        int error;
        QVRESULT result;
    } rows[] = {{EACCES, E_ACCESSDENIED}, {EMFILE, E_FAIL}, {ENOMEM, E_OUTOFMEMORY}, {EIO, E_FAIL},
                {ENOSPC, E_FAIL},         {EINTR, S_OK}};
    for (int what = 0; what < kKinds; ++what) {
        for (const auto& row : rows) {
            const std::ptrdiff_t descriptors = CountDescriptors();
            bool failed = true;
            for (int n = 1; failed; ++n) {
                g_calls = 0;
                g_errno = row.error;
                g_failAt = n;
                errno = 77;
                const QVRESULT result = Do(what);
                EXPECT_EQ(errno, 77);
                failed = g_calls >= n;
                g_failAt = 0;
                EXPECT_TRUE(result >= 0 || result == row.result || row.error == ENOSPC ||
                            (what == kCopy && result == E_FAIL) ||
                            (what == kTemporary && result == QV_E_FILE_NOT_FOUND))
                    << what << ' ' << row.error << ' ' << n << ' ' << std::hex << result;
                EXPECT_EQ(CountDescriptors(), descriptors) << what << ' ' << row.error << ' ' << n;
                if ((result < 0 && what != kCopy) || what / 2 == kTemporary / 2) {
                    EXPECT_EQ(m_folder.Count(), 1) << what << ' ' << row.error << ' ' << n;
                }
                unlink(m_folder.Bytes("made").c_str());
            }
        }
    }
}

// To a pipe that nobody reads, under the number that a file had before: no signal comes.
void WriteUnheard()
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[1], ends[0]), ends[0]);
    uint32_t written = 0;
    EXPECT_EQ(QVFileWrite(ends[0], "x", 1, &written), E_FAIL);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(FileFaults, EachAllocationMayFail)
{
    for (int what = 0; what < kKinds; ++what) {
        const std::ptrdiff_t descriptors = CountDescriptors();
        QVRESULT result = S_OK;
        long live = 0;
        SweepAllocations(
            [&] {
                live = LiveBlocks();
                result = Do(what);
            },
            [&](long, bool failed) {
                EXPECT_EQ(result < 0, failed) << what;
                EXPECT_TRUE(!failed || result == E_OUTOFMEMORY) << what;
                EXPECT_EQ(LiveBlocks(), live);
                EXPECT_EQ(CountDescriptors(), descriptors);
                WriteUnheard();
                if (what != kCopy) {
                    unlink(m_folder.Bytes("made").c_str());
                    EXPECT_EQ(m_folder.Count(), 1) << what;
                }
            });
        unlink(m_folder.Bytes("made").c_str());
    }
}

TEST_F(FileFaults, TenThousandCyclesLeaveNothing)
{
    for (int what = 0; what < kKinds; ++what) {
        Do(what);
    }
    const std::ptrdiff_t descriptors = CountDescriptors();
    const long live = LiveBlocks();
    for (int round = 0; round < 10000; ++round) {
        EXPECT_GE(Do(round % kKinds), 0);
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(LiveBlocks(), live);
}

TEST_F(FileFaults, WithoutADescriptorLeftNothingIsMade)
{
    Child child([&] {
        const rlimit limit = {16, 16};
        setrlimit(RLIMIT_NOFILE, &limit);
        const std::string made = m_folder.Bytes("made");
        while (dup(0) >= 0) {
        }
        for (int what = 0; what < kKinds; ++what) {
            if (Do(what) >= 0 || access(made.c_str(), F_OK) == 0) {
                return false;
            }
        }
        return close(15) == 0 && Do(0) == S_OK && Do(4) == S_OK;
    });
    EXPECT_TRUE(child.Succeeded());
}

TEST_F(FileFaults, OutsideTheFamilyThereAreNoSizesAndOneKindOfLock)
{
    qv::core::s_isNT = 0;
    QVHandle a = QV_HANDLE_NONE, b = QV_HANDLE_NONE;
    uint64_t size = 7;
    QVFileOpen(m_file.c_str(), kBoth, 0, &a);
    QVFileOpen(m_file.c_str(), kBoth, 0, &b);
    EXPECT_EQ(QVFileGetSize(a, &size), E_NOTIMPL);
    EXPECT_EQ(QVFileLock(a, 0, 1, QV_LOCK_SHARED), S_OK);
    EXPECT_EQ(QVFileLock(b, 0, 1, QV_LOCK_SHARED | QV_LOCK_WAIT), E_FAIL);
    EXPECT_EQ(QVFileUnlock(a, 0, 1), S_OK);
    QVFileClose(a);
    QVFileClose(b);
    qv::core::s_isNT = 1;
}

TEST_F(FileFaults, AFullDiskEndsACopyInGoodOrder)
{
    Child child([&] {
        const std::string disk = m_folder.Bytes("disk");
        const bool isMade =
            mkdir(disk.c_str(), 0755) == 0 &&
            (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount("none", disk.c_str(), "tmpfs", 0, "size=16k") == 0;
        if (!isMade) {
            _exit(2);
        }
        QVHandle handle = QV_HANDLE_NONE;
        const std::ptrdiff_t descriptors = CountDescriptors();
        const QVRESULT copied = QVFileCopy(m_file.c_str(), m_folder.Text(u"disk/copy").c_str(),
                                           QV_FILE_CREATE, 0644, &handle);
        QVFileOpen(m_folder.Text(u"disk/copy").c_str(), kBoth | QV_FILE_APPEND, 0, &handle);
        uint32_t written = 7;
        return copied == E_FAIL && QVFileWrite(handle, "x", 1, &written) == E_FAIL &&
               written == 0 && QVFileClose(handle) == S_OK && CountDescriptors() == descriptors;
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
    QVHandle other = QV_HANDLE_NONE;
    QVFileOpen(m_file.c_str(), kBoth, 0, &other);
    for (const uint32_t flags : {kBoth, QV_FILE_READ}) {
        QVFileOpen(m_file.c_str(), flags, 0, &closed);
        g_beforeClose = [] { EXPECT_EQ(QVFileLock(closed, 0, 1, 0), S_OK); };
        EXPECT_EQ(QVFileClose(closed), S_OK);
        EXPECT_EQ(QVFileLock(other, 0, 1, 0), S_OK);
        QVFileUnlock(other, 0, 1);
    }
    QVFileClose(other);
}

// As the anonymous user, whom rights bind.
TEST_F(FileFaults, AFolderThatMayNotBeWrittenRefuses)
{
    chmod(m_folder.Bytes().c_str(), 0555);
    Child child([&] {
        if (getuid() == 0 && setuid(65534) != 0) {
            return false;
        }
        return Do(0) == S_OK && Do(1) == E_ACCESSDENIED && Do(4) < 0 &&
               QVFileDelete(m_folder.Text(u"file").c_str()) == E_ACCESSDENIED;
    });
    EXPECT_TRUE(child.Succeeded());
    chmod(m_folder.Bytes().c_str(), 0755);
}

} // namespace
