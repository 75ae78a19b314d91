// Loading and unloading the library in a process that is not linked with it.
#include <gtest/gtest.h>

#include <qvcore6/address.h>
#include <qvcore6/mutex.h>
#include <qvcore6/process.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <qvcore6/thread.h>

#include <dlfcn.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <barrier>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "support/child_process.h"

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kCountsMemory = false; // the sanitizers map and keep memory for each load
#else
constexpr bool kCountsMemory = true;
#endif

// Lines of the process's memory map, all of them or those that name the file.
int MapLines(const std::string& file = "")
{
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find(file) != std::string::npos ? 1 : 0;
    }
    return count;
}

struct Unload
{
    void operator()(void* handle) const { dlclose(handle); }
};
using Library = std::unique_ptr<void, Unload>;

Library Load(const char* path)
{
    return Library(dlopen(path, RTLD_NOW | RTLD_LOCAL));
}

// A null function ends the test program, as it should.
template <class Function> Function* Get(const Library& library, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(library.get(), name));
}

// One life of a mutex by the library's exports; false if anything is not as it should be.
bool UseMutex(const Library& library)
{
    QVMutex mutex = QV_MUTEX_NONE;
    const auto call = [&](const char* name) {
        return Get<decltype(QVMutexAcquire)>(library, name)(mutex) == S_OK;
    };
    const auto create = Get<decltype(QVMutexCreate)>(library, "QVMutexCreate");
    return create("reload", QV_MUTEX_SPIN, &mutex) == S_OK && mutex != QV_MUTEX_NONE &&
           call("QVMutexAcquire") && call("QVMutexRelease") && call("QVMutexDestroy");
}

TEST(Reload, ThousandTimesLeavesNothingBehind)
{
    int maps = 0;
    std::ptrdiff_t descriptors = 0;
    std::size_t heap = 0;
    // What the dependencies keep after their first load is not growth.
    constexpr int kWarmUp = 20;
    constexpr int kRounds = 1000;
    for (int round = 0; round < kWarmUp + kRounds; ++round) {
        if (round == kWarmUp) {
            maps = MapLines();
            descriptors = qv::test::CountDescriptors();
            heap = mallinfo2().uordblks;
        }
        {
            const Library library = Load(QV_LIBRARY);
            ASSERT_TRUE(library) << "round " << round << ": " << dlerror();
            ASSERT_TRUE(UseMutex(library)) << "round " << round;
            // Which makes two tables that live as long as the library.
            ASSERT_EQ(Get<decltype(QVIsThisMyComputerA)>(library, "QVIsThisMyComputerA")("::1"), 1);
        }
        ASSERT_EQ(MapLines("libqvcore6.so"), 0) << "still mapped after round " << round;
    }
    EXPECT_EQ(qv::test::CountDescriptors(), descriptors);
    if (kCountsMemory) {
        EXPECT_LE(MapLines(), maps + 4);
        // Half of what the smallest block (32 bytes) would make if each round left one: the C
        // library's caches of freed blocks count as used, and fill up by chance.
        EXPECT_LE(mallinfo2().uordblks, heap + std::size_t{kRounds} * 16);
    }
}

// A thread that has been inside and lives on would pin the library by a thread_local's destructor.
TEST(Reload, UnloadsUnderThreadThatUsedIt)
{
    constexpr int kRounds = 20;
    Library library;
    bool used = false;
    std::barrier<> turn(2);
    const std::jthread user([&] {
        for (int round = 0; round < kRounds; ++round) {
            turn.arrive_and_wait(); // loaded
            used = UseMutex(library);
            turn.arrive_and_wait(); // done
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        library = Load(QV_LIBRARY);
        turn.arrive_and_wait();
        turn.arrive_and_wait();
        EXPECT_TRUE(used) << "round " << round;
        library.reset();
        EXPECT_EQ(MapLines("libqvcore6.so"), 0) << "round " << round;
    }
}

// A join that returned while the thread still had code of the library to run would let it crash.
TEST(Reload, UnloadsRightAfterJoins)
{
    for (int round = 0; round < 200; ++round) {
        const Library library = Load(QV_LIBRARY);
        const auto create = Get<decltype(QVThreadCreate)>(library, "QVThreadCreate");
        const auto join = Get<decltype(QVThreadJoin)>(library, "QVThreadJoin");
        QVThread threads[3] = {};
        for (QVThread& thread : threads) {
            uint32_t id = 0;
            ASSERT_EQ(create([](void*) { return 4u; }, nullptr, 0, 0, &thread, &id), S_OK);
        }
        for (const QVThread thread : threads) {
            uint32_t exitCode = 0;
            EXPECT_EQ(join(thread, &exitCode), S_OK);
        }
    }
    EXPECT_EQ(MapLines("libqvcore6.so"), 0);
}

// In a child, as the handle that nobody closes is a leak of the caller's.
TEST(Reload, LetsGoOfNamedObjects)
{
    const std::string name = qv::test::OwnName("unload");
    qv::test::Child unloading([&] {
        Library library = Load(QV_LIBRARY);
        const auto open = Get<decltype(QVNamedSemOpen)>(library, "QVNamedSemOpen");
        QVSemaphore semaphore = nullptr;
        const bool wasThere =
            open(name.c_str(), 1, &semaphore) == S_OK && MapLines("/dev/shm/") != 0;
        library.reset();
        return wasThere && MapLines("/dev/shm/") == 0 &&
               !std::filesystem::exists("/dev/shm/qvc.SEM:" + name);
    });
    EXPECT_TRUE(unloading.Succeeded());
}

// They are the host's then.
TEST(Reload, LeavesDetachedChildrenAlone)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    {
        const Library library = Load(QV_LIBRARY);
        QVHandle streams[3] = {ends[0], 1, 2}, child = QV_HANDLE_NONE;
        ASSERT_EQ(Get<decltype(QVProcessCreate)>(library, "QVProcessCreate")(
                      u"/usr/bin/cat", nullptr, nullptr, nullptr, 0, streams, &child),
                  S_OK);
        close(ends[0]);
        EXPECT_EQ(Get<decltype(QVProcessDetach)>(library, "QVProcessDetach")(child), S_OK);
    }
    EXPECT_EQ(MapLines("libqvcore6.so"), 0);
    close(ends[1]);
    int status = -1;
    EXPECT_GT(waitpid(-1, &status, 0), 0);
    EXPECT_EQ(status, 0);
}

// The later library aborts if its constructor or destructor is refused, at an unload and among the
// exit routines here.
TEST(Reload, ServesConstructorsAndDestructorsOfLaterLibraries)
{
    const pid_t child = fork();
    if (child == 0) {
        Load(QV_LATE_USER).reset();
        const bool isGone = MapLines("libqvcore6.so") == 0;
        std::exit(Load(QV_LATE_USER).release() != nullptr && isGone ? 7 : 8);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, W_EXITCODE(7, 0));
}

} // namespace
