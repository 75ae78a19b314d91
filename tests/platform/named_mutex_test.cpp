// Mutexes that processes share: who has them, and what the death of an owner does.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/error.h"
#include "platform/wait.h"
#include "support/child_process.h"
#include "support/shared_names.h"

using namespace qv::platform;
using namespace qv::test;

namespace
{

struct Mutex
{
    explicit Mutex(const std::string& name) : handle(CreateMutexA(nullptr, kFalse, name.c_str())) {}
    ~Mutex() { CloseHandle(handle); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    DWORD Wait(DWORD milliseconds = INFINITE) { return WaitForSingleObject(handle, milliseconds); }
    bool Release() { return ReleaseMutex(handle) == kTrue; }

    HANDLE handle;
};

using NamedMutexTest = SharedNames;

TEST_F(NamedMutexTest, BelongsToOneHandle)
{
    const std::string name = OwnName("mutex");
    Mutex first(name);
    Mutex second(name);
    EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
    EXPECT_EQ(WAIT_OBJECT_0, first.Wait());
    EXPECT_EQ(WAIT_TIMEOUT, first.Wait(0)); // it does not nest
    EXPECT_EQ(WAIT_TIMEOUT, second.Wait(120));
    EXPECT_FALSE(second.Release());
    EXPECT_EQ(ERROR_NOT_OWNER, GetLastError());
    std::thread waiter([&] { EXPECT_EQ(WAIT_OBJECT_0, second.Wait()); });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(first.Release());
    waiter.join();
    EXPECT_EQ(WAIT_TIMEOUT, first.Wait(0));
    EXPECT_TRUE(second.Release());
    EXPECT_FALSE(second.Release());
    EXPECT_FALSE(ReleaseMutex(nullptr));
    for (const bool isNew : {false, true}) {
        HANDLE const owner = CreateMutexA(nullptr, kTrue, (isNew ? name + "2" : name).c_str());
        EXPECT_EQ(isNew ? kTrue : kFalse, ReleaseMutex(owner));
        CloseHandle(owner);
    }
    EXPECT_EQ(nullptr, CreateMutexA(nullptr, kFalse, nullptr));
}

// With the slot of the dead one free, and given again.
TEST_F(NamedMutexTest, TellsOfAnOwnersDeath)
{
    const std::string name = OwnName("mutex");
    const Mutex keeper(name);
    for (const bool isGivenAgain : {false, true}) {
        auto& isOwned = MakeShared<std::atomic<bool>>();
        auto& isOver = MakeShared<std::atomic<bool>>();
        Child owner([&] {
            Mutex mutex(name);
            const Child heir([&] {
                return mutex.Wait(0) == WAIT_FAILED && Becomes([&] { return isOver.load(); });
            });
            isOwned = mutex.Wait() == WAIT_OBJECT_0;
            return pause() == 0;
        });
        ASSERT_TRUE(Becomes([&] { return isOwned.load(); }));
        const auto early = isGivenAgain ? nullptr : std::make_unique<Mutex>(name);
        owner.Kill();
        const auto late = isGivenAgain ? std::make_unique<Mutex>(name) : nullptr;
        Mutex& next = isGivenAgain ? *late : *early;
        EXPECT_EQ(WAIT_ABANDONED, next.Wait(5000)); // though a child of the dead one lives
        isOver = true;
        EXPECT_TRUE(next.Release());
        EXPECT_EQ(WAIT_OBJECT_0, next.Wait());
        EXPECT_TRUE(next.Release());
    }
}

TEST_F(NamedMutexTest, HasOneOwnerWhoeverIsKilled)
{
    const std::string name = OwnName("mutex");
    const Mutex keeper(name);
    struct Told
    {
        std::atomic<int> inside;
        std::atomic<long> turns;
        std::atomic<long> failures;
    };
    auto& told = MakeShared<Told>();
    const auto use = [&] {
        Mutex mutex(name);
        for (;;) {
            const DWORD waited = mutex.Wait();
            // Who finds the mark of another took the mutex from a dead one.
            const int found = told.inside.exchange(getpid());
            told.failures += found != 0 && waited != WAIT_ABANDONED;
            ++told.turns;
            told.failures += told.inside.exchange(0) != getpid();
            told.failures += !mutex.Release();
        }
        return false;
    };
    std::vector<std::unique_ptr<Child>> users;
    for (int i = 0; i < 4; ++i) {
        users.push_back(std::make_unique<Child>(use));
    }
    long kills = 0;
    for (const auto end = StressEnd(); std::chrono::steady_clock::now() < end; ++kills) {
        users[static_cast<std::size_t>(kills % 4)].reset();
        users[static_cast<std::size_t>(kills % 4)] = std::make_unique<Child>(use);
    }
    const long before = told.turns;
    EXPECT_TRUE(Becomes([&] { return told.turns > before; }));
    users.clear();
    EXPECT_EQ(0, told.failures);
    RecordProperty("kills", std::to_string(kills));
}

} // namespace
