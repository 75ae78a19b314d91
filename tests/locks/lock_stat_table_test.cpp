// The table of mutexes with statistics, and its text.
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

#include "frame/library.h"
#include "lock_stats_test.h"
#include "platform/text_file.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"

using namespace qv::platform;
using namespace qv::test;
namespace fs = std::filesystem;

namespace
{

std::atomic<int> g_failing{0}; // the n-th write or close from now
std::atomic<bool> g_halfWrites{false};
std::atomic<bool> g_areHeld{false}; // writes wait
std::atomic<bool> g_waits{false};   // one does

} // namespace

extern "C"
{
    decltype(_write) __real__write;
    decltype(_close) __real__close;

    int __wrap__write(int file, const void* bytes, unsigned count)
    {
        if (--g_failing == 0) {
            return -1;
        }
        while (g_areHeld) {
            g_waits = true;
            std::this_thread::yield();
        }
        return __real__write(file, bytes, g_halfWrites ? (count + 1) / 2 : count);
    }

    int __wrap__close(int file)
    {
        const int result = __real__close(file);
        return --g_failing == 0 ? -1 : result;
    }
}

namespace
{

// In a folder of its own.
class LockStatTable : public LockStats
{
protected:
    LockStatTable()
    {
        fs::create_directory(m_folder);
        fs::current_path(m_folder);
    }
    ~LockStatTable() override
    {
        fs::current_path("/");
        fs::remove_all(m_folder);
    }

private:
    const fs::path m_folder = fs::temp_directory_path() / OwnName("lock-stats");
};

std::string Contents(const char* file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// What a dump appends, with the time it was made at replaced.
std::string Dumped(const char* name)
{
    const std::string before = Contents("qvlockstats.csv");
    std::time_t moment = std::time(nullptr);
    EXPECT_EQ(QVDumpLockStats(name, nullptr), S_OK);
    std::string text = Contents("qvlockstats.csv");
    EXPECT_EQ(text.compare(0, before.size(), before), 0);
    text.erase(0, before.size());
    for (; moment <= std::time(nullptr); ++moment) {
        char time[80];
        std::strftime(time, sizeof time, " - %m/%d/%Y %H:%M:%S\n", std::localtime(&moment));
        for (std::size_t at; (at = text.find(time)) != std::string::npos;) {
            text.replace(at, std::strlen(time), " - TIME\n");
        }
    }
    return text;
}

std::string RowOf(const std::string& type, QVMutex mutex, const std::string& rest)
{
    char address[20];
    std::snprintf(address, sizeof address, ":0x%0*lX", int{2 * sizeof(void*)},
                  reinterpret_cast<unsigned long>(mutex));
    return type + address + rest + "\n";
}

std::string Block(const std::string& name, const std::string& rows)
{
    return "BeginLockStatistics: " + name +
           " - TIME\nCPU Frequency,1000000\n"
           "Name/Handle,Held Count,Total Held Time,Max Held Time,Acquire Count,"
           "Total Acquire Time,Max Acquire Time,Contention Count\n" +
           rows + "EndLockStatistics: " + name + " - TIME\n\n\n";
}

TEST_F(LockStatTable, DumpsEveryByte)
{
    EXPECT_EQ(Dumped(""), Block("", ""));
    const std::string longName(100000, 'n');
    struct
    {
        QVMutex mutex;
        std::string name;
        std::string numbers;
    } rows[] = {{Make(QV_MUTEX_STATS, "one,(two)"), "(one,(two))", ",4,6,5,4,0,0,0"},
                {Make(QV_MUTEX_STATS, nullptr), "()", ",4,7,6,4,0,0,0"},
                {Make(QV_MUTEX_STATS | QV_MUTEX_CHECKED, longName.c_str()), "(" + longName + ")",
                 ",4,8,7,4,0,0,0"}};
    const QVMutex other = Make(QV_MUTEX_CHECKED);
    for (std::int64_t i = 0; i < 3; ++i) {
        for (const std::int64_t held : {5 + i, std::int64_t{1}}) {
            QVMutexAcquire(rows[i].mutex);
            QVMutexTryAcquire(rows[i].mutex);
            g_clock.now += held * 10;
            QVMutexRelease(rows[i].mutex);
            QVMutexRelease(rows[i].mutex);
        }
    }
    std::sort(rows, rows + 3, [](const auto& a, const auto& b) { return a.mutex < b.mutex; });
    const auto row = [&rows](const char* type, int i) {
        return RowOf(type, rows[i].mutex, rows[i].name + rows[i].numbers);
    };
    const std::string live = row("QV_MUTEX", 0) + row("QV_MUTEX", 1) + row("QV_MUTEX", 2);
    EXPECT_EQ(Dumped(nullptr), Block("LockStatsDump", live));
    g_halfWrites = true;
    EXPECT_EQ(Dumped("half"), Block("half", live)) << "what was left of a line follows";
    g_halfWrites = false;

    // The lower one of two that are destroyed comes first, but behind the live one.
    QVMutexDestroy(rows[2].mutex);
    QVMutexDestroy(rows[0].mutex);
    EXPECT_EQ(Dumped("d"),
              Block("d", row("QV_MUTEX", 1) + row("QV_DEL_MUTEX", 0) + row("QV_DEL_MUTEX", 2)));
    EXPECT_EQ(QVResetLockStats(), S_OK);
    rows[1].numbers = ",0,0,0,0,0,0,0";
    EXPECT_EQ(Dumped("r"), Block("r", row("QV_MUTEX", 1)));
    QVMutexDestroy(rows[1].mutex);
    QVMutexDestroy(other);
    EXPECT_EQ(QVDumpLockStats("x", u".\\caf\u00E9\xDC80.csv"), S_OK);
    EXPECT_TRUE(fs::exists("caf\xC3\xA9\x80.csv"));
}

TEST_F(LockStatTable, DumpsThatFailGiveTheLockBack)
{
    const auto descriptors = CountDescriptors();
    const auto expectFailure = [&](const char16_t* file) {
        EXPECT_EQ(QVDumpLockStats("x", file), E_FAIL);
        EXPECT_EQ(CountDescriptors(), descriptors);
        EXPECT_EQ(InAnotherThread(&QVResetLockStats), S_OK);
    };
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char16_t* const file : {u"", u"/", u"no/such.csv", u"/dev/full", u"pipe"}) {
        expectFailure(file);
    }
    Child limited([&] { // not ended by a signal
        const rlimit low = {100, 100};
        setrlimit(RLIMIT_FSIZE, &low);
        return QVDumpLockStats("x", u"limited") == E_FAIL;
    });
    EXPECT_TRUE(limited.Succeeded());
    for (int n = 1; n <= 7; ++n) { // the last is the close
        fs::remove("out");
        g_failing = n;
        expectFailure(u"out");
        const std::string text = Contents("out");
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), n - 1) << "a write makes a line";
    }
}

// A row that could not be made costs the numbers their place in the table, nothing else.
TEST_F(LockStatTable, EveryAllocationMayFail)
{
    const std::string name(200, 'n');
    QVMutex mutex = QV_MUTEX_NONE;
    QVRESULT result = S_OK;
    long before = 0;
    const auto create = [&](std::uint32_t flags) {
        before = LiveBlocks();
        mutex = nullptr;
        result = QVMutexCreate(name.c_str(), flags, &mutex);
    };
    const auto check = [&](long n, bool failed) {
        EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << n;
        EXPECT_EQ(mutex == QV_MUTEX_NONE, failed) << n;
        EXPECT_EQ(failed ? S_OK : QVMutexDestroy(mutex), S_OK) << n;
        EXPECT_EQ(LiveBlocks(), before) << n;
    };
    EXPECT_EQ(SweepAllocations([&] { create(0); }, check), 2) << "the object and its name";
    const auto failing = [](long n, auto call) {
        const FailAllocation fault(n);
        call();
        return fault.Happened();
    };
    const auto destroy = [&] { EXPECT_EQ(QVMutexDestroy(mutex), S_OK); };
    EXPECT_TRUE(failing(3, [&] { create(QV_MUTEX_STATS); })) << "the row";
    EXPECT_EQ(QVMutexAcquire(mutex) + QVMutexRelease(mutex), S_OK);
    EXPECT_EQ(NumbersOf(mutex)[2], 1);
    EXPECT_EQ(Dumped("x"), Block("x", ""));
    EXPECT_TRUE(failing(1, destroy)) << "no row either for its end";
    EXPECT_EQ(LiveBlocks(), before) << "nobody else would free it";
    create(QV_MUTEX_STATS);
    EXPECT_FALSE(failing(1, destroy)) << "a row that is there moves without memory";
    EXPECT_NE(Dumped("x").find("QV_DEL_MUTEX"), std::string::npos);
    const auto dump = [&] { result = QVDumpLockStats(name.c_str(), u"out"); };
    const auto checkDump = [&](long n, bool failed) {
        EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << n;
        EXPECT_EQ(InAnotherThread(&QVResetLockStats), S_OK);
    };
    EXPECT_GE(SweepAllocations(dump, checkDump), 5);
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
    g_areHeld = true;
    std::thread dump([] { EXPECT_EQ(QVDumpLockStats("parent", u"out"), S_OK); });
    EXPECT_TRUE(Becomes([] { return g_waits.load(); }));
    Child child([&] {
        alarm(20);
        g_areHeld = false;
        return Dumped("c") == Block("c", RowOf("QV_MUTEX", mutex, "(inherited),0,0,0,0,0,0,0")) &&
               QVMutexDestroy(Make(QV_MUTEX_STATS)) == S_OK && QVMutexDestroy(mutex) == S_OK &&
               QVResetLockStats() == S_OK;
    });
    g_areHeld = g_waits = false;
    EXPECT_TRUE(child.Succeeded());
    dump.join();
    QVMutexDestroy(mutex);
}

TEST_F(LockStatTable, EverythingAtOnce)
{
    for (const std::uint32_t flags : {QV_MUTEX_STATS | QV_MUTEX_SPIN, QV_MUTEX_CHECKED, 0u}) {
        const QVMutex shared = Make(flags);
        long held = 0;
        std::atomic<long> holds{0};
        std::atomic<bool> stop{false};
        std::vector<std::jthread> threads;
        for (const auto enter : {&QVMutexAcquire, &QVMutexAcquire, &QVMutexTryAcquire}) {
            threads.emplace_back([&, enter] {
                while (!stop) {
                    if (enter(shared) == S_OK) {
                        ++held;
                        g_clock.now += 1;
                        EXPECT_EQ(QVMutexRelease(shared), S_OK);
                        ++holds;
                    }
                }
            });
            threads.emplace_back([&] {
                while (!stop) {
                    EXPECT_EQ(QVMutexDestroy(Make(QV_MUTEX_STATS)), S_OK);
                }
            });
        }
        for (int round = 0; round < 100; ++round) {
            EXPECT_EQ(QVDumpLockStats("round", u"out"), S_OK);
            EXPECT_EQ(QVResetLockStats(), S_OK);
        }
        stop = true;
        threads.clear();
        EXPECT_EQ(held, holds);
        QVMutexDestroy(shared);
    }
}

} // namespace
