// Files through their exported functions.
#include <gtest/gtest.h>
#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/own_folder.h"

using namespace qv::test;

namespace
{

constexpr uint32_t kBoth = QV_FILE_READ | QV_FILE_WRITE;

class File : public testing::Test
{
protected:
    ~File() override { EXPECT_EQ(CountDescriptors(), m_descriptors); }

    QVRESULT Open(const std::u16string& name, uint32_t flags, uint32_t mode = 0644)
    {
        return QVFileOpen(m_folder.Text(name).c_str(), flags, mode, &m_handle);
    }
    // Opens, closes, and gives the result.
    QVRESULT Try(const std::u16string& name, uint32_t flags, uint32_t mode = 0644)
    {
        const QVRESULT result = Open(name, flags, mode);
        EXPECT_EQ(m_handle == QV_HANDLE_NONE, result < 0);
        EXPECT_EQ(QVFileClose(m_handle), S_OK);
        return result;
    }
    void Put(const std::string& name, const std::string& content, mode_t mode = 0644)
    {
        std::ofstream(m_folder.Bytes(name)) << content;
        chmod(m_folder.Bytes(name).c_str(), mode);
    }
    std::string Content(const std::string& name)
    {
        std::ifstream file(m_folder.Bytes(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool Exists(const std::string& name) { return access(m_folder.Bytes(name).c_str(), F_OK) == 0; }

    std::ptrdiff_t m_descriptors = CountDescriptors();
    OwnFolder m_folder;
    QVHandle m_handle = QV_HANDLE_NONE;
};

std::string Read(QVHandle file, uint32_t count = 100)
{
    std::string text(count, '?');
    QVFileRead(file, text.data(), count, &count);
    return text.substr(0, count);
}

QVRESULT Write(QVHandle file, const std::string& text)
{
    uint32_t written = 0;
    return QVFileWrite(file, text.data(), static_cast<uint32_t>(text.size()), &written);
}

TEST_F(File, FlagsChooseWhatIsOpenedAndWhatBecomesOfIt)
{
    constexpr uint32_t kCreate = QV_FILE_CREATE;
    constexpr uint32_t kTruncate = QV_FILE_TRUNCATE;
    constexpr uint32_t kExclusive = QV_FILE_EXCLUSIVE;
    const struct
    {
        uint32_t flags;
        QVRESULT missing, existing;
        bool empties;
    } rows[] = {
        {QV_FILE_WRITE, QV_E_FILE_NOT_FOUND, S_OK, false},
        {kCreate | QV_FILE_WRITE, QV_S_CREATED, S_OK, false},
        {kCreate, QV_S_CREATED, S_OK, false},
        {kTruncate | QV_FILE_WRITE, QV_E_FILE_NOT_FOUND, S_OK, true},
        {kTruncate | QV_FILE_READ, E_FAIL, E_FAIL, false},
        {kTruncate | kCreate | QV_FILE_WRITE, QV_S_CREATED, S_OK, true},
        {kTruncate | kCreate | QV_FILE_READ, QV_S_CREATED, S_OK, true},
        {kTruncate | kCreate, QV_S_CREATED, S_OK, true},
        {kExclusive | kBoth, E_FAIL, E_FAIL, false},
        {kExclusive | kTruncate | kBoth, E_FAIL, E_FAIL, false},
        {kExclusive | kCreate | QV_FILE_WRITE, S_OK, E_FAIL, false},
        {kExclusive | kCreate | kTruncate | QV_FILE_WRITE, S_OK, E_FAIL, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        EXPECT_EQ(Try(u"missing", row.flags), row.missing);
        EXPECT_EQ(Exists("missing"), row.missing >= 0);
        unlink(m_folder.Bytes("missing").c_str());
        Put("there", "content");
        EXPECT_EQ(Try(u"there", row.flags), row.existing);
        EXPECT_EQ(Content("there"), row.empties ? "" : "content");
    }
}

// Also for the superuser, whom the kernel lets pass.
TEST_F(File, WhatMayNotBeChangedIsNot)
{
    Put("read-only", "content", 0444);
    mkdir(m_folder.Bytes("folder").c_str(), 0755);
    ASSERT_EQ(symlink("nowhere", m_folder.Bytes("dangling").c_str()), 0);
    const struct
    {
        std::u16string name;
        uint32_t flags;
        QVRESULT result;
    } rows[] = {
        {u"read-only", QV_FILE_READ, S_OK},
        {u"read-only", kBoth, E_ACCESSDENIED},
        {u"read-only", QV_FILE_READ | QV_FILE_CREATE | QV_FILE_TRUNCATE, E_ACCESSDENIED},
        {u"read-only", QV_FILE_READ | QV_FILE_TEMPORARY, E_ACCESSDENIED},
        {u"folder", QV_FILE_READ, E_ACCESSDENIED},
        {u"folder/", QV_FILE_WRITE, E_ACCESSDENIED},
        {u"folder", 0, E_ACCESSDENIED},
        {u"read-only/", QV_FILE_READ, E_FAIL},
        {u"read-only\\below", QV_FILE_READ, QV_E_FILE_NOT_FOUND},
        {u"new/", QV_FILE_WRITE | QV_FILE_CREATE, E_FAIL},
        {u"no-folder/new", QV_FILE_WRITE | QV_FILE_CREATE, QV_E_FILE_NOT_FOUND},
        {u"dangling", QV_FILE_WRITE, QV_E_FILE_NOT_FOUND},
        {u"dangling", QV_FILE_WRITE | QV_FILE_CREATE, QV_S_CREATED}, // what it leads to
        {{u'x', 0xDCC3, 0xDCA9}, QV_FILE_WRITE | QV_FILE_CREATE, E_FAIL},
        {std::u16string(300, u'x'), QV_FILE_WRITE | QV_FILE_CREATE, E_FAIL},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Try(row.name, row.flags), row.result) << &row - rows;
    }
    EXPECT_EQ(Content("read-only"), "content");
    EXPECT_EQ(m_folder.Count(), 4);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"read-only").c_str()), E_ACCESSDENIED);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"folder").c_str()), E_ACCESSDENIED);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"dangling").c_str()), S_OK);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"dangling").c_str()), QV_E_FILE_NOT_FOUND);
    EXPECT_TRUE(Exists("nowhere"));
    EXPECT_EQ(QVFileOpen(nullptr, kBoth, 0, &m_handle), QV_E_FILE_NOT_FOUND);

    // 259 units fit, one more does not, and nothing of it is used.
    for (const std::size_t length : {259u, 260u}) {
        std::u16string path = m_folder.Text();
        path.resize(length - 9, u'/');
        EXPECT_EQ(QVFileOpen((path + u"some-name").c_str(), kBoth | QV_FILE_CREATE, 0, &m_handle),
                  length == 259 ? QV_S_CREATED : E_FAIL);
        QVFileClose(m_handle);
    }
}

TEST_F(File, ModeMakesReadOnlyFiles)
{
    for (const auto& [mode, isReadOnly] : {std::pair{0444u, true},
                                           {0644u, false},
                                           {0420u, false},
                                           {0600u, false},
                                           {0400u, true},
                                           {0xFFFFFF00u, true}}) {
        ASSERT_EQ(Open(u"new", kBoth | QV_FILE_CREATE, mode), QV_S_CREATED);
        EXPECT_EQ(Write(m_handle, "by its maker"), S_OK);
        QVFileClose(m_handle);
        struct stat status;
        stat(m_folder.Bytes("new").c_str(), &status);
        EXPECT_EQ((status.st_mode & 0222) == 0, isReadOnly) << mode;
        unlink(m_folder.Bytes("new").c_str());
    }
}

TEST_F(File, RightsAreThoseAskedFor)
{
    Put("file", "content");
    const struct
    {
        uint32_t flags;
        QVRESULT read, write;
    } rows[] = {{kBoth, S_OK, S_OK},
                {QV_FILE_READ, S_OK, E_ACCESSDENIED},
                {QV_FILE_WRITE, E_ACCESSDENIED, S_OK},
                {0, E_ACCESSDENIED, E_ACCESSDENIED},
                {QV_FILE_READ | QV_FILE_CREATE, S_OK, E_ACCESSDENIED}};
    for (const auto& row : rows) {
        Open(u"file", row.flags);
        char byte = 0;
        uint32_t count = 7;
        uint64_t size = 0;
        EXPECT_EQ(QVFileRead(m_handle, &byte, 1, &count), row.read);
        EXPECT_EQ(count, row.read == S_OK ? 1u : 0u);
        EXPECT_EQ(Write(m_handle, "O"), row.write);
        EXPECT_EQ(QVFileFlush(m_handle), row.write);
        EXPECT_EQ(QVFileGetSize(m_handle, &size), S_OK);
        EXPECT_EQ(size, 7u);
        QVFileClose(m_handle);
        EXPECT_EQ(QVFileRead(m_handle, &byte, 1, &count), E_HANDLE);
        EXPECT_EQ(QVFileClose(m_handle), E_HANDLE);
    }
}

TEST_F(File, PositionsAreTestedBeforeAnythingMoves)
{
    Put("file", "0123456789");
    Open(u"file", kBoth | QV_FILE_APPEND);
    const struct
    {
        int32_t offset;
        uint32_t origin;
        QVRESULT result;
        uint32_t position;
    } rows[] = {
        {0, QV_SEEK_CURRENT, S_OK, 10},
        {-4, QV_SEEK_CURRENT, S_OK, 6},
        {-7, QV_SEEK_CURRENT, E_FAIL, 0xFFFFFFFF},
        {-1, QV_SEEK_BEGIN, E_FAIL, 0xFFFFFFFF},
        {0, 3, E_FAIL, 0xFFFFFFFF},
        {0, QV_SEEK_CURRENT, S_OK, 6},
        {INT32_MAX, QV_SEEK_BEGIN, S_OK, 0x7FFFFFFF},
        {INT32_MAX, QV_SEEK_CURRENT, S_OK, 0xFFFFFFFE},
        {1, QV_SEEK_CURRENT, S_OK, 0xFFFFFFFF}, // a position like any other
        {1, QV_SEEK_CURRENT, E_FAIL, 0xFFFFFFFF},
        {-1, QV_SEEK_END, S_OK, 9},
    };
    for (const auto& row : rows) {
        uint32_t position = 1;
        EXPECT_EQ(QVFileSeek(m_handle, row.offset, row.origin, &position), row.result);
        EXPECT_EQ(position, row.position) << &row - rows;
    }
    EXPECT_EQ(Read(m_handle), "9");
    uint64_t position = 1;
    EXPECT_EQ(QVFileSeek64(m_handle, int64_t{5} << 32, QV_SEEK_CURRENT, &position), S_OK);
    EXPECT_EQ(position, (uint64_t{5} << 32) + 10);
    EXPECT_EQ(QVFileSeek64(m_handle, INT64_MAX, QV_SEEK_CURRENT, &position), E_FAIL);
    EXPECT_EQ(Write(m_handle, "far"), S_OK);
    QVFileClose(m_handle);
    EXPECT_EQ(Open(u"file", QV_FILE_APPEND | QV_FILE_WRITE), E_FAIL) << "its end is too far";
    EXPECT_EQ(Write(m_handle, "#"), S_OK) << "and the handle is good";
    QVFileClose(m_handle);
}

TEST_F(File, LocksHoldBetweenHandles)
{
    Put("file", "");
    QVHandle a = QV_HANDLE_NONE, b = QV_HANDLE_NONE;
    Open(u"file", QV_FILE_READ), a = m_handle;
    Open(u"file", QV_FILE_WRITE), b = m_handle;
    constexpr QVRESULT kTaken = E_FAIL;
    const struct
    {
        QVHandle handle;
        char act; // e: exclusive, s: shared, u: unlock
        uint32_t offset, length;
        QVRESULT result;
    } rows[] = {
        {a, 's', 10, 10, S_OK},
        {a, 's', 15, 10, S_OK},
        {b, 's', 12, 1, S_OK},
        {b, 'e', 9, 2, kTaken},
        {b, 'e', 9, 1, S_OK},
        {a, 'e', 9, 1, kTaken},
        {a, 'e', 12, 1, kTaken},
        {b, 'u', 12, 2, E_FAIL},
        {b, 'u', 12, 1, S_OK},
        {a, 'u', 10, 10, S_OK},
        {b, 'e', 10, 5, S_OK},
        {b, 'e', 15, 1, kTaken},
        {a, 'u', 15, 10, S_OK},
        {b, 'e', 15, 99, S_OK},
        {b, 'e', 20, 1, kTaken},
        {b, 'e', 0, 0, S_OK},
        {b, 'u', 0, 0, S_OK},
        {a, 'e', 0xFFFFFFFF, 0xFFFFFFFF, S_OK},
        {a, 'u', 0xFFFFFFFF, 0xFFFFFFFF, S_OK},
    };
    for (const auto& row : rows) {
        const QVRESULT result = row.act == 'u' ? QVFileUnlock(row.handle, row.offset, row.length)
                                               : QVFileLock(row.handle, row.offset, row.length,
                                                            row.act == 's' ? QV_LOCK_SHARED : 0);
        EXPECT_EQ(result, row.result) << &row - rows;
    }
    Try(u"file", kBoth); // another handle of the file goes, and takes no lock along
    EXPECT_EQ(QVFileLock(a, 15, 1, 0), kTaken);
    EXPECT_EQ(QVFileClose(b), S_OK);
    EXPECT_EQ(QVFileLock(a, 15, 1, 0), S_OK);
    EXPECT_EQ(QVFileClose(a), S_OK);
    EXPECT_EQ(QVFileLock(a, 15, 1, 0), E_HANDLE);
    EXPECT_EQ(QVFileUnlock(a, 15, 1), E_HANDLE);
}

// Waits go on after signals, and a handle may be closed under one.
TEST_F(File, AWaitForALockEndsWithIt)
{
    Put("file", "");
    struct sigaction quiet = {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, nullptr);
    for (const bool closes : {false, true}) {
        QVHandle holder = QV_HANDLE_NONE;
        Open(u"file", kBoth), holder = m_handle;
        Open(u"file", kBoth);
        ASSERT_EQ(QVFileLock(holder, 0, 1, 0), S_OK);
        std::atomic<bool> isOver{false};
        std::thread waiter([&] {
            EXPECT_EQ(QVFileLock(m_handle, 0, 1, QV_LOCK_WAIT), S_OK);
            isOver = true;
        });
        for (int i = 0; i < 20; ++i) {
            pthread_kill(waiter.native_handle(), SIGUSR1);
            usleep(1000);
        }
        EXPECT_FALSE(isOver);
        EXPECT_EQ(QVFileLock(m_handle, 0, 1, QV_LOCK_WAIT), E_FAIL) << "not for oneself";
        if (closes) {
            QVFileClose(m_handle);
        }
        EXPECT_EQ(QVFileUnlock(holder, 0, 1), S_OK);
        waiter.join();
        EXPECT_EQ(QVFileLock(holder, 0, 1, 0), closes ? S_OK : E_FAIL);
        QVFileClose(holder);
        if (!closes) {
            QVFileClose(m_handle);
        }
    }
}

class Temporary : public File
{
protected:
    Temporary() { setenv("TMPDIR", m_folder.Bytes("").c_str(), 1); }
    ~Temporary() override { unsetenv("TMPDIR"); }
};

TEST_F(Temporary, TheNameGoesWithTheHandleAndTheContentWithTheLast)
{
    Put("given", "content");
    for (const bool isGiven : {true, false}) {
        const std::u16string path = isGiven ? m_folder.Text(u"given") : u"";
        const uint32_t flags = kBoth | QV_FILE_TEMPORARY | (isGiven ? 0 : QV_FILE_EXCLUSIVE);
        EXPECT_EQ(QVFileOpen(path.c_str(), flags, 0, &m_handle), S_OK);
        EXPECT_EQ(m_folder.Count(), 1);
        Write(m_handle, "replaced");
        ASSERT_EQ(chdir("/"), 0);
        Child([]() -> bool { exit(0); }).Succeeded(); // a child ends in order, and removes nothing
        EXPECT_EQ(m_folder.Count(), 1);
        const QVHandle copy = dup(m_handle);
        EXPECT_EQ(QVFileClose(m_handle), S_OK);
        EXPECT_EQ(m_folder.Count(), 0);
        uint64_t position = 0;
        QVFileSeek64(copy, 0, QV_SEEK_BEGIN, &position);
        EXPECT_EQ(Read(copy), "replaced");
        QVFileClose(copy);
    }
    // Another file has taken the name.
    QVFileOpen(m_folder.Text(u"given").c_str(), kBoth | QV_FILE_TEMPORARY, 0644, &m_handle);
    unlink(m_folder.Bytes("given").c_str());
    Put("given", "another's");
    QVFileClose(m_handle);
    EXPECT_EQ(Content("given"), "another's");
    setenv("TMPDIR", "/nowhere/at/all", 1);
    EXPECT_LT(QVFileOpen(u"", kBoth | QV_FILE_TEMPORARY, 0, &m_handle), 0);
    EXPECT_EQ(m_handle, QV_HANDLE_NONE);
}

TEST_F(Temporary, AProcessThatEndsRemovesItsOwn)
{
    for (const bool withThread : {false, true}) {
        Child child([&] {
            QVFileOpen(nullptr, kBoth | QV_FILE_TEMPORARY, 0, &m_handle);
            if (withThread) {
                std::thread([] { pause(); }).detach();
            }
            exit(0);
            return false;
        });
        EXPECT_TRUE(child.Succeeded());
        EXPECT_EQ(m_folder.Count(), 0);
    }
}

TEST_F(Temporary, ProcessesAtOnceNeverMeet)
{
    const auto work = [&] {
        for (int round = 0; round < 300; ++round) {
            QVFileOpen(nullptr, kBoth | QV_FILE_TEMPORARY, 0, &m_handle);
            uint64_t size = 1;
            QVFileGetSize(m_handle, &size);
            if (size != 0 || Write(m_handle, "mine") != S_OK) {
                return false;
            }
            QVFileClose(m_handle);
        }
        return true;
    };
    Child others[] = {Child(work), Child(work)};
    EXPECT_TRUE(work());
    for (Child& other : others) {
        EXPECT_TRUE(other.Succeeded());
    }
    EXPECT_EQ(m_folder.Count(), 0);
}

using FileCopy = File;

TEST_F(FileCopy, IsTheCallersChoiceOfFlags)
{
    constexpr uint32_t kReplace = QV_FILE_CREATE | QV_FILE_TRUNCATE;
    const std::string large(3 * 16384 + 5, 'x');
    const struct
    {
        std::string source, target;
        uint32_t flags;
        std::string result;
    } rows[] = {
        {"", "old", kReplace, ""},          {large, "old", kReplace, large},
        {"new", "older", 0, "newer"},       {"new", "old", QV_FILE_APPEND, "oldnew"},
        {large, "", QV_FILE_CREATE, large},
    };
    for (const auto& row : rows) {
        Put("from", row.source);
        Put("to", row.target);
        EXPECT_EQ(QVFileCopy(m_folder.Text(u"from").c_str(), m_folder.Text(u"to").c_str(),
                             row.flags, 0644, &m_handle),
                  S_OK);
        Write(m_handle, "!");
        QVFileClose(m_handle);
        const std::size_t end = (row.flags & QV_FILE_APPEND) != 0 ? 6 : row.source.size();
        std::string expected = row.result;
        expected.resize(std::max(expected.size(), end + 1));
        expected[end] = '!';
        EXPECT_EQ(Content("to"), expected) << &row - rows;
    }
}

TEST_F(FileCopy, FailuresCloseEverythingAndSpareTheSource)
{
    Put("file", "content");
    Put("read-only", "", 0444);
    const struct
    {
        std::u16string source, target;
        uint32_t flags;
        QVRESULT result;
    } rows[] = {
        {u"missing", u"new", QV_FILE_CREATE, QV_E_FILE_NOT_FOUND},
        {u"", u"new", QV_FILE_CREATE, E_ACCESSDENIED},
        {u"file", u"missing", 0, QV_E_FILE_NOT_FOUND},
        {u"file", u"read-only", 0, E_ACCESSDENIED},
        {u"file", u"file", QV_FILE_TRUNCATE, E_ACCESSDENIED},
        {u"file", u"./file", QV_FILE_APPEND, E_ACCESSDENIED},
        {u"file", u"file", 0, S_OK},
    };
    for (const auto& row : rows) {
        m_handle = 7;
        EXPECT_EQ(QVFileCopy(m_folder.Text(row.source).c_str(), m_folder.Text(row.target).c_str(),
                             row.flags, 0644, &m_handle),
                  row.result);
        EXPECT_EQ(m_handle == QV_HANDLE_NONE, row.result < 0) << &row - rows;
        QVFileClose(m_handle);
    }
    EXPECT_EQ(Content("file"), "content");
    EXPECT_EQ(m_folder.Count(), 2);
    EXPECT_EQ(QVFileCopy(m_folder.Text(u"file").c_str(), u"/dev/full", 0, 0, nullptr), E_FAIL);
}

TEST_F(FileCopy, ReachesBeyondFourGigabytes)
{
    const OwnFolder memory("/dev/shm"); // where holes cost least
    const std::u16string path = memory.Text(u"large");
    QVFileOpen(path.c_str(), kBoth | QV_FILE_CREATE, 0644, &m_handle);
    uint64_t position = 0;
    QVFileSeek64(m_handle, (int64_t{4} << 30) + 3, QV_SEEK_BEGIN, &position);
    Write(m_handle, "end");
    QVFileClose(m_handle);
    EXPECT_EQ(QVFileCopy(path.c_str(), u"/dev/null", 0, 0, &m_handle), S_OK);
    QVFileClose(m_handle);
}

TEST(Pipe, EndsAreFailuresAndSignalsNeither)
{
    int ends[2];
    char byte;
    uint32_t count = 7;
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(Write(ends[1], "nobody reads"), E_FAIL) << "and no SIGPIPE";
    uint64_t size = 0;
    uint32_t position = 0;
    EXPECT_EQ(QVFileGetSize(ends[1], &size), E_FAIL);
    EXPECT_EQ(QVFileSeek(ends[1], 0, QV_SEEK_BEGIN, &position), E_FAIL);
    EXPECT_EQ(QVFileFlush(ends[1]), S_OK);
    close(ends[1]);
    ASSERT_EQ(pipe(ends), 0);
    close(ends[1]);
    EXPECT_EQ(QVFileRead(ends[0], &byte, 1, &count), E_FAIL);
    EXPECT_EQ(QVFileRead(ends[0], &byte, 0, &count), QV_E_END_OF_DATA);
    EXPECT_EQ(count, 0u);
    close(ends[0]);
}

// Every signal ends a system call, and no byte is lost or doubled.
TEST(Pipe, SignalsAtFullSpeedChangeNothing)
{
    struct sigaction quiet = {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGALRM, &quiet, nullptr);
    const itimerval often = {{0, 200}, {0, 200}}, never = {};
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::vector<uint32_t> numbers(2'000'000);
    std::generate(numbers.begin(), numbers.end(), [n = 0u]() mutable { return ++n; });
    const auto bytes = static_cast<uint32_t>(numbers.size() * sizeof numbers[0]);
    setitimer(ITIMER_REAL, &often, nullptr);
    std::thread writer([&] {
        uint32_t written = 0;
        EXPECT_EQ(QVFileWrite(ends[1], numbers.data(), bytes, &written), S_OK);
        EXPECT_EQ(written, bytes);
        close(ends[1]);
    });
    std::vector<uint32_t> read(numbers.size());
    uint32_t done = 0, count = 0;
    while (done < bytes && QVFileRead(ends[0], reinterpret_cast<char*>(read.data()) + done,
                                      bytes - done, &count) == S_OK) {
        done += count;
    }
    writer.join();
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(read, numbers);
    close(ends[0]);
}

// A process that was started with a limit gets no signal when it reaches it.
TEST_F(File, AFullLimitIsAFailure)
{
    if (getenv("QV_TEST_LIMITED") == nullptr) {
        Child child([] {
            const rlimit limit = {8, 8};
            setrlimit(RLIMIT_FSIZE, &limit);
            setenv("QV_TEST_LIMITED", "1", 1);
            execl("/proc/self/exe", "file_test", "--gtest_filter=File.AFullLimitIsAFailure",
                  nullptr);
            return false;
        });
        EXPECT_TRUE(child.Succeeded());
        return;
    }
    Open(u"file", QV_FILE_WRITE | QV_FILE_CREATE);
    uint32_t written = 0;
    EXPECT_EQ(QVFileWrite(m_handle, "0123456789", 10, &written), S_OK);
    EXPECT_EQ(written, 8u);
    EXPECT_EQ(Write(m_handle, "89"), E_FAIL);
    QVFileClose(m_handle);
}

TEST(Path, IsMadeWholeByItsTextAlone)
{
    ASSERT_EQ(chdir("/usr/bin"), 0);
    const struct
    {
        std::u16string path, whole;
    } rows[] = {
        {u"a", u"/usr/bin/a"},
        {u"..\\a/", u"/usr/a/"},
        {u"/a//b\\.\\..\\c", u"/a/c"},
        {u"../../../../x", u"/x"},
        {u"..", u"/usr"},
        {u"/..", u"/"},
        {u"\\", u"/"},
        {u"C:", u"/usr/bin/C:"},
        {u"...", u"/usr/bin/..."},
        {{0xDCFF}, u"/usr/bin/" + std::u16string(1, 0xDCFF)},
    };
    for (const auto& row : rows) {
        QVWChar buffer[260] = {};
        EXPECT_EQ(QVPathExpand(row.path.c_str(), buffer, 260), S_OK);
        EXPECT_EQ(std::u16string(buffer), row.whole);
        buffer[0] = u'#';
        const auto size = static_cast<uint32_t>(row.whole.size());
        EXPECT_EQ(QVPathExpand(row.path.c_str(), buffer, size), S_OK) << "no room";
        EXPECT_EQ(buffer[0], u'#');
        EXPECT_EQ(QVPathExpand(row.path.c_str(), buffer, size + 1), S_OK);
        EXPECT_EQ(std::u16string(buffer), row.whole);
    }
    QVWChar buffer[260];
    EXPECT_EQ(QVPathExpand(u"", buffer, 260), E_FAIL);
    char gone[] = "/tmp/qvcore6-gone-XXXXXX";
    ASSERT_EQ(chdir(mkdtemp(gone)), 0);
    rmdir(gone);
    EXPECT_EQ(QVPathExpand(u"a", buffer, 260), QV_E_FILE_NOT_FOUND);
    ASSERT_EQ(chdir("/"), 0);
}

} // namespace
