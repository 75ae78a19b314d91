// Several threads and processes on one store; processes that are killed; forks at bad moments.
#include <lmdb.h>
#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "platform/store_fixture.h"

using namespace qv::test;

namespace
{

// Stops threads inside a call of LMDB until the test lets them go on. Without a lock, which a child
// could find taken.
class Gate
{
public:
    void Close(int stops)
    {
        m_inside = 0;
        m_stops = stops;
    }
    void Open() { m_stops = 0; }
    void Pass()
    {
        if (m_stops == 0 || m_inside.fetch_add(1) >= m_stops) {
            return;
        }
        while (m_stops != 0) {
            usleep(100);
        }
    }
    void AwaitStopped() const
    {
        while (m_inside < m_stops) {
            usleep(100);
        }
    }

private:
    std::atomic<int> m_stops{0};
    std::atomic<int> m_inside{0};
};

Gate g_opening;
Gate g_reading;
Gate g_committing;
bool g_noWipe = false; // the kernel cannot clear memory in a child

} // namespace

extern "C"
{
    int __real_mdb_env_open(MDB_env* environment, const char* path, unsigned flags,
                            mdb_mode_t mode);
    int __real_mdb_get(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data);
    int __real_mdb_txn_commit(MDB_txn* transaction);
    int __real_madvise(void* memory, std::size_t size, int advice);

    int __wrap_mdb_env_open(MDB_env* environment, const char* path, unsigned flags, mdb_mode_t mode)
    {
        const int result = __real_mdb_env_open(environment, path, flags, mode);
        g_opening.Pass();
        return result;
    }
    int __wrap_mdb_get(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data)
    {
        g_reading.Pass();
        return __real_mdb_get(transaction, database, key, data);
    }
    int __wrap_mdb_txn_commit(MDB_txn* transaction)
    {
        g_committing.Pass();
        return __real_mdb_txn_commit(transaction);
    }
    int __wrap_madvise(void* memory, std::size_t size, int advice)
    {
        const bool fails = g_noWipe && advice == MADV_WIPEONFORK;
        return fails ? -1 : __real_madvise(memory, size, advice);
    }
}

namespace
{

class RegistrySharing : public StoreTest
{};

void ReadBefore()
{
    EXPECT_EQ(GetNumber(u"before"), 1);
}

// A child that was forked while another thread was inside.
void ForkBeside(Gate& gate, const std::function<void()>& inside)
{
    gate.Close(1);
    std::thread thread(inside);
    gate.AwaitStopped();
    const pid_t child = fork();
    if (child == 0) {
        gate.Open();
        alarm(100);
        const bool good =
            GetNumber(u"before") == 1 && SetNumber(u"child", 2) == 0 && Delete(u"child") == 0;
        _exit(good ? 0 : 1);
    }
    gate.Open(); // a commit holds up the child's writing until now
    thread.join();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    ReadBefore();
    EXPECT_EQ(SetNumber(u"parent", 3), 0);
}

TEST_F(RegistrySharing, ForkWhileAnotherThreadIsInside)
{
    for (const bool noWipe : {false, true}) {
        g_noWipe = noWipe;
        CloseRegistryStores();
        ASSERT_EQ(SetNumber(u"before", 1), 0);
        ForkBeside(g_reading, &ReadBefore);
        ForkBeside(g_committing, [] { EXPECT_EQ(SetNumber(u"other", 1), 0); });
        CloseRegistryStores();
        ForkBeside(g_opening, &ReadBefore);
        EXPECT_EQ(GetNumber(u"other"), 1);
    }
    g_noWipe = false;
}

// Parent, child and grandchild, each on its own; what one deletes the others no longer find.
TEST_F(RegistrySharing, ForkedProcessesGoOn)
{
    ASSERT_EQ(SetNumber(u"a\\b", 1), 0);
    ASSERT_EQ(SetNumber(u"a\\c", 1), 0);
    const Key key(u"a");
    const auto nameAt = [&key](DWORD index) {
        WCHAR name[8] = {};
        DWORD size = 8;
        RegEnumKeyExW(key.handle, index, name, &size, nullptr, nullptr, nullptr, nullptr);
        return name[0];
    };
    ASSERT_EQ(nameAt(0), u'b');
    ASSERT_EQ(GetNumber(u"a\\b"), 1);
    const auto below = [] { return GetNumber(u"a\\b") == 1 && Delete(u"a\\b") == 0; };
    EXPECT_TRUE(InChild(
        [&] { return nameAt(1) == u'c' && InChild(below) == 1 && GetNumber(u"a\\b") == -2; }));
    EXPECT_EQ(GetNumber(u"a\\b"), -2) << "its path is remembered here";
    EXPECT_EQ(SetNumber(u"a\\b", 5), 0);
    EXPECT_EQ(GetNumber(u"a\\b"), 5);
}

// Gives each thread its number.
void InThreads(int count, const std::function<void(int i)>& run)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(run, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// More threads inside at once than there are readers in store.
TEST_F(RegistrySharing, ManyReadersAtOnce)
{
    constexpr int kThreads = 40;
    ASSERT_EQ(SetNumber(u"before", 1), 0);
    g_reading.Close(kThreads);
    InThreads(kThreads + 1, [](int i) {
        if (i < kThreads) {
            ReadBefore();
        } else {
            g_reading.AwaitStopped();
            g_reading.Open();
        }
    });
}

std::u16string KeyOf(int i)
{
    return u"shared\\k" + std::u16string(1, static_cast<char16_t>(u'0' + i));
}

// Each thread counts up in its own key and makes and deletes another; all read all keys, in which
// numbers only grow.
TEST_F(RegistrySharing, ThreadsReadAndWrite)
{
    constexpr int kThreads = 4;
    for (int i = 0; i < kThreads; ++i) {
        ASSERT_EQ(SetNumber(KeyOf(i), 0), 0);
    }
    std::atomic<int> wrong{0};
    InThreads(kThreads, [&wrong](int i) {
        std::int64_t seen[kThreads] = {};
        const std::u16string passing = KeyOf(i) + u"\\passing";
        for (std::uint32_t round = 1; round <= 150; ++round) {
            wrong += SetNumber(KeyOf(i), round) != 0 || SetNumber(passing, round) != 0;
            for (int other = 0; other < kThreads; ++other) {
                const std::int64_t number = GetNumber(KeyOf(other));
                wrong += number < seen[other] || (other == i && number != round);
                seen[other] = number;
            }
            wrong += GetNumber(passing) != round;
            wrong += Delete(passing) != 0 || GetNumber(passing) != -2;
        }
    });
    EXPECT_EQ(wrong, 0);
}

constexpr int kWriters = 3;

[[noreturn]] void CountUp(int i, std::atomic<std::uint32_t>& acknowledged)
{
    alarm(100);
    const std::u16string passing = KeyOf(i) + u"\\passing";
    for (std::uint32_t number = acknowledged + 1;; ++number) {
        if (SetNumber(KeyOf(i), number) != 0) {
            _exit(1);
        }
        acknowledged = number;
        if (SetNumber(passing, number) != 0 || Delete(passing) != 0) {
            _exit(1);
        }
    }
}

// Writers are killed wherever they are. Every change that was acknowledged is there, the store
// works at once, and nothing of what they held stays behind.
TEST_F(RegistrySharing, KilledWritersLoseNothing)
{
    void* const shared =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto* const acknowledged = static_cast<std::atomic<std::uint32_t>*>(shared);
    for (int i = 0; i < kWriters; ++i) {
        ASSERT_EQ(SetNumber(KeyOf(i), 0), 0);
    }
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        pid_t writers[kWriters];
        std::uint32_t until[kWriters];
        for (int i = 0; i < kWriters; ++i) {
            until[i] = acknowledged[i] + static_cast<std::uint32_t>(random() % 13);
            writers[i] = fork();
            ASSERT_NE(writers[i], -1); // what kill() takes for every process
            if (writers[i] == 0) {
                CountUp(i, acknowledged[i]);
            }
        }
        for (int i = 0; i < kWriters; ++i) {
            int status = 0;
            while (acknowledged[i] < until[i] && waitpid(writers[i], nullptr, WNOHANG) == 0) {
                usleep(50);
            }
            usleep(static_cast<useconds_t>(random() % 400));
            kill(writers[i], SIGKILL);
            EXPECT_EQ(waitpid(writers[i], &status, 0), writers[i]);
            EXPECT_TRUE(WIFSIGNALED(status)) << "a writer had an error";
        }
        for (int i = 0; i < kWriters; ++i) {
            const std::int64_t number = GetNumber(KeyOf(i));
            const std::int64_t known = acknowledged[i];
            ASSERT_TRUE(number == known || number == known + 1) << number << " after " << known;
            acknowledged[i] = static_cast<std::uint32_t>(number);
        }
        ASSERT_EQ(SetNumber(u"parent", static_cast<std::uint32_t>(round)), 0);
    }
    CloseRegistryStores();
    EXPECT_EQ(GetNumber(KeyOf(0)), std::int64_t{acknowledged[0]}) << "opened anew";
    munmap(shared, 4096);
}

} // namespace
