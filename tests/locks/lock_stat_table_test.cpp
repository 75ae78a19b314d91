// The table of mutexes with statistics, and its text.
#include <qvcore6/lockstats.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>

#include "frame/global_data.h"
#include "frame/library.h"
#include "lock_stats_test.h"
#include "platform/text_file.h"
#include "support/alloc_faults.h"

using namespace qv::platform;
using namespace qv::test;

namespace
{

// What the replaced calls do.
struct Files
{
    std::atomic<int> failWrite{0}; // the n-th from now
    std::atomic<bool> failClose{false};
    std::atomic<bool> halfWrites{false};
    std::atomic<bool> hold{false}; // writes wait
    std::atomic<bool> isHeld{false};
    std::atomic<int> lines{0}; // writes that end a line
};
constinit Files g_files;

} // namespace

extern "C"
{
    decltype(_write) __real__write;
    decltype(_close) __real__close;

    int __wrap__write(int file, const void* bytes, unsigned count)
    {
        if (g_files.failWrite > 0 && --g_files.failWrite == 0) {
            return -1;
        }
        while (g_files.hold) {
            g_files.isHeld = true;
            std::this_thread::yield();
        }
        if (static_cast<const char*>(bytes)[count - 1] == '\n') {
            ++g_files.lines;
        }
        return __real__write(file, bytes, g_files.halfWrites ? (count + 1) / 2 : count);
    }

    int __wrap__close(int file)
    {
        const int result = __real__close(file);
        return g_files.failClose ? -1 : result;
    }
}

namespace
{

// A folder of its own as the current one, and no files with tricks.
class LockStatTable : public LockStats
{
protected:
    void SetUp() override
    {
        LockStats::SetUp();
        char name[] = "/tmp/qvlockstats-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        m_folder = name;
        ASSERT_EQ(chdir(name), 0);
    }
    void TearDown() override
    {
        g_files.failWrite = 0;
        g_files.failClose = g_files.halfWrites = g_files.hold = g_files.isHeld = false;
        ASSERT_EQ(chdir("/"), 0);
        EXPECT_EQ(std::system(("rm -r " + m_folder).c_str()), 0);
        LockStats::TearDown();
    }
    std::string m_folder;
};

std::string Contents(const char* file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The text with each piece that matches the pattern (0: a digit, X: a hexadecimal one) replaced.
std::string Replaced(std::string text, const std::string& pattern, const std::string& by)
{
    const auto matches = [](char c, char wanted) {
        return wanted == '0'   ? c >= '0' && c <= '9'
               : wanted == 'X' ? (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')
                               : c == wanted;
    };
    for (auto at = text.begin();;) {
        at = std::search(at, text.end(), pattern.begin(), pattern.end(), matches);
        if (at == text.end()) {
            return text;
        }
        const auto offset = at - text.begin();
        text.replace(static_cast<std::size_t>(offset), pattern.size(), by);
        at = text.begin() + offset;
    }
}

// A dump with its times and its addresses replaced.
std::string Dumped(const char* name)
{
    std::remove("qvlockstats.csv");
    EXPECT_EQ(QVDumpLockStats(name, nullptr), S_OK);
    const std::string text = Replaced(Contents("qvlockstats.csv"), "00/00/0000 00:00:00", "TIME");
    return Replaced(text, ":0x" + std::string(2 * sizeof(void*), 'X') + "(", ":AT(");
}

std::string Block(const std::string& name, const std::string& rows)
{
    return "BeginLockStatistics: " + name +
           " - TIME\nCPU Frequency,1000000\n"
           "Name/Handle,Held Count,Total Held Time,Max Held Time,Acquire Count,"
           "Total Acquire Time,Max Acquire Time,Contention Count\n" +
           rows + "EndLockStatistics: " + name + " - TIME\n\n\n";
}

bool TableIsFree()
{
    return InAnotherThread([] { return QVResetLockStats() == S_OK; });
}

TEST_F(LockStatTable, DumpsEveryByte)
{
    EXPECT_EQ(Dumped(""), Block("", ""));
    const std::string longName(100000, 'n');
    QVMutex mutexes[] = {Make(QV_MUTEX_STATS, "one,(two)"), Make(QV_MUTEX_STATS, nullptr),
                         Make(QV_MUTEX_STATS | QV_MUTEX_CHECKED, longName.c_str())};
    const QVMutex others[] = {Make(QV_MUTEX_CHECKED), Make(QV_MUTEX_STATS | QV_MUTEX_UNTRACKED)};
    const auto use = [](QVMutex mutex, std::int64_t held) {
        g_clock.now = 1000;
        QVMutexAcquire(mutex);
        QVMutexTryAcquire(mutex);
        g_clock.now = 1000 + held * 10;
        QVMutexRelease(mutex);
        QVMutexRelease(mutex);
    };
    std::string rows[3];
    for (int i = 0; i < 3; ++i) {
        use(mutexes[i], 5 + i);
        use(mutexes[i], 1);
        rows[i] = std::string(i == 0   ? "one,(two)"
                              : i == 1 ? ""
                                       : longName) +
                  "),4," + std::to_string(6 + i) + "," + std::to_string(5 + i) + ",4,0,0,0\n";
    }
    int order[] = {0, 1, 2};
    std::sort(order, order + 3, [&](int a, int b) { return mutexes[a] < mutexes[b]; });
    std::string live;
    for (const int i : order) {
        live += "QV_MUTEX:AT(" + rows[i];
    }
    g_files.lines = 0;
    EXPECT_EQ(Dumped(nullptr), Block("LockStatsDump", live));
    EXPECT_EQ(g_files.lines, 9) << "each line in one write";
    g_files.halfWrites = true;
    EXPECT_EQ(Dumped("half"), Block("half", live)) << "what was left of a line follows";
    g_files.halfWrites = false;

    // The lower one of two that are destroyed comes first, but behind the live one.
    QVMutexDestroy(mutexes[order[2]]);
    QVMutexDestroy(mutexes[order[0]]);
    EXPECT_EQ(Dumped("d"), Block("d", "QV_MUTEX:AT(" + rows[order[1]] + "QV_DEL_MUTEX:AT(" +
                                          rows[order[0]] + "QV_DEL_MUTEX:AT(" + rows[order[2]]));
    EXPECT_EQ(QVResetLockStats(), S_OK);
    const std::string name = rows[order[1]].substr(0, rows[order[1]].rfind(')') + 1);
    EXPECT_EQ(Dumped("r"), Block("r", "QV_MUTEX:AT(" + name + ",0,0,0,0,0,0,0\n"));
    QVMutexDestroy(mutexes[order[1]]);
    for (const QVMutex mutex : others) {
        QVMutexDestroy(mutex);
    }
}

TEST_F(LockStatTable, ShowsTheAddressAndTheTimeAndAppends)
{
    const QVMutex mutex = Make(QV_MUTEX_STATS);
    std::time_t before = std::time(nullptr);
    ASSERT_EQ(QVDumpLockStats("x", u"caf\u00E9\xDC80.csv"), S_OK);
    const std::time_t after = std::time(nullptr);
    const std::string first = Contents("caf\xC3\xA9\x80.csv");
    char address[40];
    std::snprintf(address, sizeof address, "QV_MUTEX:0x%0*lX(test),", int{2 * sizeof(void*)},
                  reinterpret_cast<unsigned long>(mutex));
    EXPECT_NE(first.find(address), std::string::npos) << first;
    bool found = false;
    for (; before <= after; ++before) {
        char text[80];
        std::strftime(text, sizeof text, "BeginLockStatistics: x - %m/%d/%Y %H:%M:%S\n",
                      std::localtime(&before));
        found = found || first.rfind(text, 0) == 0;
    }
    EXPECT_TRUE(found) << first;
    ASSERT_EQ(mkdir("sub", 0777), 0);
    ASSERT_EQ(QVDumpLockStats("y", u"sub\\..\\caf\u00E9\xDC80.csv"), S_OK);
    EXPECT_EQ(Contents("caf\xC3\xA9\x80.csv").rfind(first + "BeginLockStatistics: y", 0), 0u);
    QVMutexDestroy(mutex);
}

TEST_F(LockStatTable, DumpsThatFailGiveTheLockBack)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    const std::u16string tooLong(5000, u'x');
    for (const char16_t* const file : {u"", u"/", u"no/such/folder.csv", u"/dev/full", u"pipe",
                                       u"qvlockstats.csv/x", tooLong.c_str()}) {
        EXPECT_EQ(QVDumpLockStats("x", file), E_FAIL);
        EXPECT_TRUE(TableIsFree());
    }
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit low = {100, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
    EXPECT_EQ(QVDumpLockStats("x", u"limited"), E_FAIL) << "and no signal";
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    for (int n = 1; n <= 6; ++n) {
        std::remove("out");
        g_files.failWrite = n;
        EXPECT_EQ(QVDumpLockStats("x", u"out"), E_FAIL) << n;
        const std::string text = Contents("out");
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), n - 1) << "what was written stays";
        EXPECT_TRUE(TableIsFree());
    }
    g_files.failClose = true;
    EXPECT_EQ(QVDumpLockStats("x", u"out"), E_FAIL);
    EXPECT_TRUE(TableIsFree());
}

// A row that could not be made costs the numbers their place in the table, nothing else.
TEST_F(LockStatTable, EveryAllocationMayFail)
{
    const std::string name(200, 'n');
    QVMutex mutex = QV_MUTEX_NONE;
    QVRESULT made = S_OK;
    QVRESULT destroyed = S_OK;
    QVRESULT dumped = S_OK;
    long before = 0;
    const auto sweep = [&](bool destroysUnderFault) {
        return SweepAllocations(
            [&] {
                before = LiveBlocks();
                made = QVMutexCreate(name.c_str(), QV_MUTEX_STATS, &mutex);
                if (destroysUnderFault && made == S_OK) {
                    destroyed = QVMutexDestroy(mutex);
                }
            },
            [&](long n, bool failed) {
                EXPECT_TRUE(made == S_OK || (failed && made == E_OUTOFMEMORY)) << n;
                EXPECT_EQ(made == S_OK, mutex != QV_MUTEX_NONE) << n;
                if (made == S_OK && !destroysUnderFault) {
                    EXPECT_EQ(QVMutexAcquire(mutex) + QVMutexRelease(mutex), S_OK);
                    EXPECT_EQ(NumbersOf(mutex)[2], 1);
                    EXPECT_EQ(Dumped("x").find("nnn") == std::string::npos, failed) << n;
                    destroyed = QVMutexDestroy(mutex);
                }
                EXPECT_EQ(destroyed, S_OK);
                EXPECT_TRUE(TableIsFree());
                EXPECT_EQ(LiveBlocks(), before) << n;
            });
    };
    EXPECT_EQ(sweep(false), 3) << "the object, its name, its row";
    EXPECT_GE(sweep(true), 3);

    // Neither its creation nor its destruction finds memory for a row.
    before = LiveBlocks();
    {
        const FailAllocation fault(3);
        QVMutexCreate(name.c_str(), QV_MUTEX_STATS, &mutex);
    }
    {
        const FailAllocation fault(1);
        EXPECT_EQ(QVMutexDestroy(mutex), S_OK);
    }
    EXPECT_EQ(LiveBlocks(), before) << "nobody else would free it";
    // A row that is there moves without memory.
    mutex = Make(QV_MUTEX_STATS);
    {
        const FailAllocation fault(1);
        EXPECT_EQ(QVMutexDestroy(mutex), S_OK);
        EXPECT_FALSE(fault.Happened());
    }
    EXPECT_NE(Dumped("x").find("QV_DEL_MUTEX"), std::string::npos);

    const auto dump = [&] { dumped = QVDumpLockStats(name.c_str(), u"out"); };
    EXPECT_GE(SweepAllocations(dump,
                               [&](long n, bool failed) {
                                   EXPECT_EQ(dumped, failed ? E_OUTOFMEMORY : S_OK) << n;
                                   EXPECT_TRUE(TableIsFree());
                               }),
              5);
}

TEST_F(LockStatTable, TheStopFreesWhatIsLeft)
{
    qv::core::QVLibraryStop();
    const long before = LiveBlocks();
    EXPECT_EQ(QVResetLockStats(), E_FAIL);
    EXPECT_EQ(QVDumpLockStats(nullptr, nullptr), E_FAIL);
    EXPECT_EQ(qv::core::QVLibraryStart(), S_OK);
    Make(QV_MUTEX_STATS);
    QVMutexDestroy(Make(QV_MUTEX_STATS));
    EXPECT_EQ(qv::core::QVLibraryStop(), S_OK);
    EXPECT_EQ(LiveBlocks(), before);
    EXPECT_EQ(qv::core::QVLibraryStart(), S_OK);
}

// A fork does not wait for a dump that waits for its file, and the child can do everything.
TEST_F(LockStatTable, AForkBesideADumpLeavesTheChildAWholeTable)
{
    const QVMutex mutex = Make(QV_MUTEX_STATS, "inherited");
    g_files.hold = true;
    std::thread dump([] { EXPECT_EQ(QVDumpLockStats("parent", u"out"), S_OK); });
    std::thread creation([] { QVMutexDestroy(Make(QV_MUTEX_STATS, "waits for the dump")); });
    while (!g_files.isHeld) {
        std::this_thread::yield();
    }
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        g_files.hold = false;
        const bool dumped = QVDumpLockStats("child", u"child") == S_OK;
        const std::string text = Contents("child");
        QVMutex own = QV_MUTEX_NONE;
        _exit(dumped && text.find("(inherited),") != std::string::npos &&
                      QVMutexCreate("own", QV_MUTEX_STATS, &own) == S_OK &&
                      QVMutexDestroy(own) == S_OK && QVMutexDestroy(mutex) == S_OK &&
                      QVResetLockStats() == S_OK
                  ? 0
                  : 1);
    }
    g_files.hold = false;
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    dump.join();
    creation.join();
    QVMutexDestroy(mutex);
}

TEST_F(LockStatTable, EverythingAtOnce)
{
    const QVMutex shared = Make(QV_MUTEX_STATS, "shared");
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                QVMutexAcquire(shared);
                g_clock.now += 1;
                QVMutexRelease(shared);
            }
        });
        threads.emplace_back([&] {
            while (!stop) {
                const QVMutex own = Make(QV_MUTEX_STATS | QV_MUTEX_CHECKED, "own");
                EXPECT_EQ(QVMutexAcquire(own) + QVMutexRelease(own), S_OK);
                EXPECT_EQ(QVMutexDestroy(own), S_OK);
            }
        });
    }
    for (int round = 0; round < 60; ++round) {
        EXPECT_EQ(QVDumpLockStats("round", u"out"), S_OK);
        EXPECT_EQ(QVResetLockStats(), S_OK);
        EXPECT_GE(NumbersOf(shared)[2], 0);
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    QVMutexDestroy(shared);
}

} // namespace
