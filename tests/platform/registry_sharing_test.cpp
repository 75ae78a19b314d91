// Several threads and processes on one store; processes that are killed; forks at bad moments.
#include <lmdb.h>
#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "platform/store_fixture.h"

using namespace qv::platform;
using namespace qv::test;

namespace
{

// Stops threads inside a call of LMDB until the test lets them go on.
class Gate
{
public:
    void Close(int stops)
    {
        const std::lock_guard lock(m_mutex);
        m_stops = stops;
        m_inside = 0;
        m_closed.store(true);
    }
    void Open()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_closed.store(false);
        }
        m_changed.notify_all();
    }
    void OpenInChild() { m_closed.store(false); } // without the lock, which may be taken there
    void Pass()
    {
        if (!m_closed.load()) {
            return;
        }
        std::unique_lock lock(m_mutex);
        if (m_inside == m_stops) {
            return;
        }
        ++m_inside;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return !m_closed.load(); });
    }
    void AwaitStopped()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_inside == m_stops; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::atomic<bool> m_closed{false};
    int m_stops = 0;
    int m_inside = 0;
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
        if (g_noWipe && advice == MADV_WIPEONFORK) {
            errno = EINVAL;
            return -1;
        }
        return __real_madvise(memory, size, advice);
    }
}

namespace
{

class RegistrySharing : public StoreTest
{};

// A child that was forked while another thread was inside.
void ForkBeside(Gate& gate, const std::function<void()>& inside)
{
    gate.Close(1);
    std::thread thread(inside);
    gate.AwaitStopped();
    const pid_t child = fork();
    if (child == 0) {
        gate.OpenInChild();
        alarm(100);
        std::uint32_t number = 0;
        const bool read = GetNumber(u"before", &number) == 0 && number == 1;
        const bool written = SetNumber(u"child", 2) == 0;
        const bool removed = RegDeleteKeyExW(PredefinedKey(kUserRoot), u"child", 0, 0) == 0;
        _exit(read && written && removed ? 0 : 1);
    }
    gate.Open(); // a commit holds up the child's writing until now
    thread.join();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    std::uint32_t number = 0;
    EXPECT_EQ(GetNumber(u"before", &number), 0);
    EXPECT_EQ(SetNumber(u"parent", 3), 0);
}

TEST_F(RegistrySharing, ForkWhileAnotherThreadIsInside)
{
    for (const bool noWipe : {false, true}) {
        SCOPED_TRACE(noWipe);
        CloseRegistryStores();
        g_noWipe = noWipe;
        ASSERT_EQ(SetNumber(u"before", 1), 0);
        std::uint32_t number = 0;
        ForkBeside(g_reading, [] {
            std::uint32_t mine = 0;
            EXPECT_EQ(GetNumber(u"before", &mine), 0);
        });
        ForkBeside(g_committing, [] { EXPECT_EQ(SetNumber(u"other", 1), 0); });
        CloseRegistryStores();
        ForkBeside(g_opening, [] {
            std::uint32_t mine = 0;
            EXPECT_EQ(GetNumber(u"before", &mine), 0);
        });
        EXPECT_EQ(GetNumber(u"other", &number), 0);
    }
    g_noWipe = false;
}

// Parent, child and grandchild, each on its own; what one deletes the others no longer find.
TEST_F(RegistrySharing, ForkedProcessesGoOn)
{
    ASSERT_EQ(SetNumber(u"a\\b", 1), 0);
    ASSERT_EQ(SetNumber(u"a\\c", 1), 0);
    Key key;
    WCHAR name[8];
    DWORD size = 8;
    ASSERT_EQ(key.Open(kUserRoot, u"a"), 0);
    ASSERT_EQ(RegEnumKeyExW(key.Get(), 0, name, &size, nullptr, nullptr, nullptr, nullptr), 0);
    std::uint32_t number = 0;
    ASSERT_EQ(GetNumber(u"a\\b", &number), 0);
    const int step = InChild([&key] {
        WCHAR next[8];
        DWORD units = 8;
        if (RegEnumKeyExW(key.Get(), 1, next, &units, nullptr, nullptr, nullptr, nullptr) != 0 ||
            next[0] != u'c') {
            return 1;
        }
        const int below = InChild([] {
            std::uint32_t mine = 0;
            if (GetNumber(u"a\\b", &mine) != 0) {
                return 2;
            }
            return RegDeleteKeyExW(PredefinedKey(kUserRoot), u"a\\b", 0, 0) == 0 ? 0 : 3;
        });
        std::uint32_t mine = 0;
        return below != 0 ? below : GetNumber(u"a\\b", &mine) == 2 ? 0 : 4;
    });
    EXPECT_EQ(step, 0);
    EXPECT_EQ(GetNumber(u"a\\b", &number), 2) << "its path is remembered here";
    EXPECT_EQ(SetNumber(u"a\\b", 5), 0);
    EXPECT_EQ(GetNumber(u"a\\b", &number), 0);
    EXPECT_EQ(number, 5u);
}

// More threads inside at once than there are readers in store.
TEST_F(RegistrySharing, ManyReadersAtOnce)
{
    constexpr int kThreads = 40;
    ASSERT_EQ(SetNumber(u"a", 1), 0);
    g_reading.Close(kThreads);
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&good] {
            std::uint32_t number = 0;
            good += GetNumber(u"a", &number) == 0 && number == 1 ? 1 : 0;
        });
    }
    g_reading.AwaitStopped();
    g_reading.Open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(good, kThreads);
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
    constexpr std::uint32_t kRounds = 150;
    for (int i = 0; i < kThreads; ++i) {
        ASSERT_EQ(SetNumber(KeyOf(i).c_str(), 0), 0);
    }
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([i, &wrong] {
            std::uint32_t seen[kThreads] = {};
            const std::u16string passing = KeyOf(i) + u"\\passing";
            for (std::uint32_t round = 1; round <= kRounds; ++round) {
                wrong += SetNumber(KeyOf(i).c_str(), round) != 0;
                wrong += SetNumber(passing.c_str(), round) != 0;
                for (int other = 0; other < kThreads; ++other) {
                    std::uint32_t number = 0;
                    wrong += GetNumber(KeyOf(other).c_str(), &number) != 0;
                    wrong += number < seen[other] || (other == i && number != round);
                    seen[other] = number;
                }
                std::uint32_t number = 0;
                wrong += GetNumber(passing.c_str(), &number) != 0 || number != round;
                wrong += RegDeleteKeyExW(PredefinedKey(kUserRoot), passing.c_str(), 0, 0) != 0;
                wrong += GetNumber(passing.c_str(), &number) != 2;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

struct Book
{
    std::atomic<std::uint32_t> acknowledged[8];
};

[[noreturn]] void CountUp(int i, Book& book)
{
    alarm(100);
    const std::u16string passing = KeyOf(i) + u"\\passing";
    for (std::uint32_t number = book.acknowledged[i] + 1;; ++number) {
        if (SetNumber(KeyOf(i).c_str(), number) != 0) {
            _exit(1);
        }
        book.acknowledged[i].store(number);
        if (SetNumber(passing.c_str(), number) != 0 ||
            RegDeleteKeyExW(PredefinedKey(kUserRoot), passing.c_str(), 0, 0) != 0) {
            _exit(1);
        }
    }
}

// Writers are killed wherever they are. Every change that was acknowledged is there, the store
// works at once, and nothing of what they held stays behind.
TEST_F(RegistrySharing, KilledWritersLoseNothing)
{
    constexpr int kWriters = 3;
    constexpr int kRounds = 60;
    auto* const book = static_cast<Book*>(
        mmap(nullptr, sizeof(Book), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(book, MAP_FAILED);
    for (int i = 0; i < kWriters; ++i) {
        ASSERT_EQ(SetNumber(KeyOf(i).c_str(), 0), 0);
    }
    std::mt19937 random(7);
    std::uniform_int_distribution<std::uint32_t> more(0, 12);
    std::uniform_int_distribution<int> moment(0, 400);
    for (int round = 0; round < kRounds; ++round) {
        pid_t writers[kWriters];
        std::uint32_t until[kWriters];
        for (int i = 0; i < kWriters; ++i) {
            until[i] = book->acknowledged[i] + more(random);
            writers[i] = fork();
            ASSERT_NE(writers[i], -1); // what kill() takes for every process
            if (writers[i] == 0) {
                CountUp(i, *book);
            }
        }
        for (int i = 0; i < kWriters; ++i) {
            while (book->acknowledged[i] < until[i] && waitpid(writers[i], nullptr, WNOHANG) == 0) {
                usleep(50);
            }
            usleep(static_cast<useconds_t>(moment(random)));
            kill(writers[i], SIGKILL);
            int status = 0;
            EXPECT_EQ(waitpid(writers[i], &status, 0), writers[i]);
            EXPECT_TRUE(WIFSIGNALED(status)) << "a writer had an error";
        }
        for (int i = 0; i < kWriters; ++i) {
            std::uint32_t number = 0;
            ASSERT_EQ(GetNumber(KeyOf(i).c_str(), &number), 0);
            const std::uint32_t acknowledged = book->acknowledged[i];
            ASSERT_TRUE(number == acknowledged || number == acknowledged + 1)
                << number << " after " << acknowledged;
            book->acknowledged[i] = number;
        }
        ASSERT_EQ(SetNumber(u"parent", static_cast<std::uint32_t>(round)), 0);
    }
    munmap(book, sizeof(Book));
    CloseRegistryStores();
    std::uint32_t number = 0;
    EXPECT_EQ(GetNumber(KeyOf(0).c_str(), &number), 0) << "opened anew";
}

} // namespace
