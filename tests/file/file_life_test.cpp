// Files that vanish, copies, pipes, and paths.
#include <gtest/gtest.h>
#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "file/file_fixture.h"

using namespace qv::test;

namespace
{

// Only reads may end there, and leave nothing open.
TEST_F(File, ACancelledThreadEndsWhatItBegan)
{
    Put("file", "content");
    const auto path = m_folder.Text(u"file");
    const auto cancelled = [](auto work) {
        bool isCancelled = true;
        std::thread([&] {
            pthread_cancel(pthread_self());
            work();
            isCancelled = false;
        }).join();
        return isCancelled;
    };
    EXPECT_FALSE(cancelled([&] {
        EXPECT_EQ(QVFileOpen(nullptr, kBoth | QV_FILE_TEMPORARY, 0, &m_handle), S_OK);
        EXPECT_EQ(Write(m_handle, "text"), S_OK);
        EXPECT_EQ(QVFileFlush(m_handle), S_OK);
        EXPECT_EQ(QVFileLock(m_handle, 0, 1, QV_LOCK_WAIT), S_OK);
        EXPECT_EQ(QVFileClose(m_handle), S_OK);
    }));
    EXPECT_TRUE(cancelled([&] { QVFileCopy(path.c_str(), u"/dev/null", 0, 0, nullptr); }));
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
    const mode_t mask = umask(0222);
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
    umask(mask);
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
        Child child([&]() -> bool {
            QVFileOpen(nullptr, kBoth | QV_FILE_TEMPORARY, 0, &m_handle);
            if (withThread) {
                std::thread(pause).detach();
            }
            exit(0);
        });
        EXPECT_TRUE(child.Succeeded());
        EXPECT_EQ(m_folder.Count(), 0);
    }
}

TEST_F(Temporary, ProcessesAtOnceNeverMeet)
{
    const auto work = [&] {
        uint64_t size = 0;
        bool isEmpty = true;
        for (int round = 0; round < 300; ++round) {
            QVFileOpen(nullptr, kBoth | QV_FILE_TEMPORARY, 0, &m_handle);
            isEmpty = isEmpty && QVFileGetSize(m_handle, &size) == S_OK && size == 0 &&
                      Write(m_handle, "mine") == S_OK;
            QVFileClose(m_handle);
        }
        return isEmpty;
    };
    Child other(work);
    EXPECT_TRUE(work());
    EXPECT_TRUE(other.Succeeded());
    EXPECT_EQ(m_folder.Count(), 0);
}

class FileCopy : public File
{
protected:
    QVRESULT Copy(const std::u16string& source, const std::u16string& target, uint32_t flags)
    {
        m_handle = 7;
        const QVRESULT result = QVFileCopy(m_folder.Text(source).c_str(),
                                           m_folder.Text(target).c_str(), flags, 0644, &m_handle);
        EXPECT_EQ(m_handle == QV_HANDLE_NONE, result < 0);
        return result;
    }
};

TEST_F(FileCopy, IsTheCallersChoiceOfFlags)
{
    constexpr uint32_t kReplace = QV_FILE_CREATE | QV_FILE_TRUNCATE;
    const std::string large(3 * 16384 + 5, 'x');
    const struct
    {
        std::string source, target;
        uint32_t flags;
        std::string result; // with a mark from the handle
    } rows[] = {
        {"", "old", kReplace, "!"},
        {large, "old", kReplace, large + '!'},
        {"new", "older", 0, "new!r"},
        {"new", "old", QV_FILE_APPEND, "oldnew!"},
    };
    for (const auto& row : rows) {
        Put("from", row.source);
        Put("to", row.target);
        EXPECT_EQ(Copy(u"from", u"to", row.flags), S_OK);
        Write(m_handle, "!");
        QVFileClose(m_handle);
        EXPECT_EQ(Content("to"), row.result) << &row - rows;
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
        EXPECT_EQ(Copy(row.source, row.target, row.flags), row.result) << &row - rows;
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

// As fast as it is copied.
TEST_F(FileCopy, EndsThoughTheSourceGrows)
{
    constexpr std::size_t kLarge = 10'000'000;
    Put("from", std::string(100'000, 'x'));
    mkfifo(m_folder.Bytes("to").c_str(), 0600);
    std::jthread copy([&] {
        EXPECT_EQ(Copy(u"from", u"to", 0), S_OK);
        QVFileClose(m_handle);
    });
    std::ifstream to(m_folder.Bytes("to"));
    std::ofstream from(m_folder.Bytes("from"), std::ios::app);
    std::string piece(4096, '?');
    std::size_t copied = 0;
    while (copied < kLarge && (to.read(piece.data(), 4096), to.gcount() != 0)) {
        copied += static_cast<std::size_t>(to.gcount());
        from << piece << std::flush;
    }
    EXPECT_GE(copied, 100'000u);
    EXPECT_LT(copied, kLarge);
}

TEST(Pipe, EndsAreFailuresAndSignalsNeither)
{
    int ends[2], others[2];
    char byte;
    uint32_t count = 7, position = 0;
    uint64_t size = 0;
    ASSERT_EQ(pipe(ends) | pipe(others), 0);
    close(ends[0]);
    EXPECT_EQ(Write(ends[1], "nobody reads"), E_FAIL) << "and no SIGPIPE";
    EXPECT_EQ(QVFileGetSize(ends[1], &size), E_FAIL);
    EXPECT_EQ(QVFileSeek(ends[1], 0, QV_SEEK_BEGIN, &position), E_FAIL);
    EXPECT_EQ(QVFileFlush(ends[1]), S_OK);
    close(ends[1]);
    close(others[1]);
    EXPECT_EQ(QVFileRead(others[0], &byte, 1, &count), E_FAIL);
    EXPECT_EQ(QVFileRead(others[0], &byte, 0, &count), QV_E_END_OF_DATA);
    EXPECT_EQ(count, 0u);
    close(others[0]);
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
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO); // which may be a file
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
        {{0xDCFF, u'\\', 0xDC5C}, u"/usr/bin/" + std::u16string{0xDCFF, u'/', 0xDC5C}},
    };
    for (const auto& row : rows) {
        QVWChar buffer[260] = {u'#'};
        const auto size = static_cast<uint32_t>(row.whole.size());
        EXPECT_EQ(QVPathExpand(row.path.c_str(), buffer, size), S_OK) << "no room";
        EXPECT_EQ(buffer[0], u'#');
        EXPECT_EQ(QVPathExpand(row.path.c_str(), buffer, size + 1), S_OK);
        EXPECT_EQ(std::u16string(buffer), row.whole);
    }
    QVWChar buffer[260];
    EXPECT_EQ(QVPathExpand(u"", buffer, 260), E_FAIL);
    char gone[] = "/tmp/qvcore6-\\gone-XXXXXX";
    ASSERT_EQ(chdir(mkdtemp(gone)), 0);
    EXPECT_EQ(QVPathExpand(u"a", buffer, 260), S_OK);
    EXPECT_EQ(buffer[13], 0xDC5C) << "no separator";
    rmdir(gone);
    EXPECT_EQ(QVPathExpand(u"a", buffer, 260), QV_E_FILE_NOT_FOUND);
    ASSERT_EQ(chdir("/"), 0);
}

} // namespace
