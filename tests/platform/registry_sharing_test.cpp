// Several threads and processes on one store; processes that are killed; forks at bad moments.
#include <lmdb.h>
#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "platform/store_fixture.h"
#include "support/child_process.h"

using namespace qv::test;

namespace
{

// Stops threads inside a call of LMDB until the test lets them go on. Without a lock, which a child
// could find taken.
struct Gate
{
    std::atomic<int> stops{0};
    std::atomic<int> inside{0};

    void Close(int count)
    {
        inside = 0;
        stops = count;
    }
    void Pass()
    {
        for (bool isStopped = stops != 0 && inside.fetch_add(1) < stops; isStopped && stops != 0;) {
            usleep(100);
        }
    }
    void AwaitStopped() const
    {
        EXPECT_TRUE(Becomes([this] { return inside >= stops; }));
    }
};

Gate g_opening;
Gate g_reading;
Gate g_committing;
bool g_noWipe = false; // the kernel cannot clear memory in a child

} // namespace

extern "C"
{
    decltype(mdb_env_open) __real_mdb_env_open;
    decltype(mdb_get) __real_mdb_get;
    decltype(mdb_txn_commit) __real_mdb_txn_commit;
    decltype(madvise) __real_madvise;

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
    std::jthread thread(inside);
    gate.AwaitStopped();
    Child child([&gate] {
        gate.stops = 0;
        alarm(100);
        return GetNumber(u"before") == 1 && SetNumber(u"child", 2) == 0 && Delete(u"child") == 0;
    });
    gate.stops = 0; // a commit holds up the child's writing until now
    EXPECT_TRUE(child.Succeeded());
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

// More threads inside at once than there are readers in store.
TEST_F(RegistrySharing, ManyReadersAtOnce)
{
    constexpr int kThreads = 40;
    ASSERT_EQ(SetNumber(u"before", 1), 0);
    g_reading.Close(kThreads);
    std::vector<std::jthread> threads(kThreads);
    for (std::jthread& thread : threads) {
        thread = std::jthread(&ReadBefore);
    }
    g_reading.AwaitStopped();
    g_reading.stops = 0;
}

std::u16string KeyOf(int i)
{
    return u"shared\\k" + std::u16string(1, static_cast<char16_t>(u'0' + i));
}

// Each thread counts up in its own key, which its neighbour reads, and makes and deletes another.
TEST_F(RegistrySharing, ThreadsReadAndWrite)
{
    constexpr int kThreads = 4;
    std::atomic<int> wrong{0};
    std::vector<std::jthread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        ASSERT_EQ(SetNumber(KeyOf(i), 0), 0);
    }
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&wrong, own = KeyOf(i), next = KeyOf((i + 1) % kThreads)] {
            const std::u16string passing = own + u"\\passing";
            std::int64_t seen = 0;
            for (std::uint32_t round = 1; round <= 250; ++round) {
                wrong += SetNumber(own, round) != 0 || SetNumber(passing, round) != 0;
                wrong += GetNumber(own) != round || GetNumber(passing) != round;
                wrong += Delete(passing) != 0 || GetNumber(passing) != -2;
                const std::int64_t number = GetNumber(next);
                wrong += number < seen;
                seen = number;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(wrong, 0);
}

// Writers are killed wherever they are. Every change that was acknowledged is there, the store
// works at once, and nothing of what they held stays behind.
TEST_F(RegistrySharing, KilledWritersLoseNothing)
{
    struct Shared
    {
        std::atomic<std::uint32_t> acknowledged[3];
        std::atomic<bool> failed;
    };
    Shared& shared = MakeShared<Shared>();
    const auto countUp = [&shared](int i) {
        alarm(100);
        const std::u16string passing = KeyOf(i) + u"\\passing";
        std::uint32_t number = shared.acknowledged[i] + 1;
        for (; SetNumber(KeyOf(i), number) == 0; ++number) {
            shared.acknowledged[i] = number;
            if (SetNumber(passing, number) != 0 || Delete(passing) != 0) {
                break;
            }
        }
        return !(shared.failed = true);
    };
    std::mt19937 random(7);
    for (std::uint32_t round = 0; round < 60; ++round) {
        Child writers[] = {Child([&] { return countUp(0); }), Child([&] { return countUp(1); }),
                           Child([&] { return countUp(2); })};
        for (int i = 0; i < 3; ++i) {
            std::atomic<std::uint32_t>& acknowledged = shared.acknowledged[i];
            const auto until = acknowledged + static_cast<std::uint32_t>(random() % 13);
            ASSERT_TRUE(Becomes([&] { return acknowledged >= until || shared.failed; }));
            usleep(static_cast<useconds_t>(random() % 400));
            writers[i].Kill();
            const std::int64_t number = GetNumber(KeyOf(i));
            const std::int64_t known = acknowledged;
            ASSERT_TRUE(number == known || number == known + 1) << number << " after " << known;
            acknowledged = static_cast<std::uint32_t>(number);
        }
        ASSERT_EQ(SetNumber(u"parent", round), 0);
    }
    EXPECT_FALSE(shared.failed);
    CloseRegistryStores();
    EXPECT_EQ(GetNumber(KeyOf(0)), std::int64_t{shared.acknowledged[0]}) << "opened anew";
}

} // namespace
