// Loading and unloading the library in a process that is not linked with it.
#include <gtest/gtest.h>

#include <qvcore6/mutex.h>
#include <qvcore6/result.h>

#include <dirent.h>
#include <dlfcn.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <barrier>
#include <fstream>
#include <string>
#include <thread>

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kCountsMemory = false; // the sanitizers keep books of their own about each load
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

int OpenDescriptors()
{
    DIR* folder = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(folder) != nullptr) {
        ++count;
    }
    closedir(folder);
    return count;
}

class Library
{
public:
    explicit Library(const char* path) : m_handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
    ~Library()
    {
        if (m_handle != nullptr) {
            dlclose(m_handle);
        }
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    explicit operator bool() const { return m_handle != nullptr; }
    template <class Function> Function* Get(const char* name) const
    {
        return reinterpret_cast<Function*>(dlsym(m_handle, name));
    }

private:
    void* m_handle;
};

// One life of a mutex by the library's exports; false if anything is not as it should be.
bool UseMutex(const Library& library)
{
    auto* create = library.Get<decltype(QVMutexCreate)>("QVMutexCreate");
    auto* acquire = library.Get<decltype(QVMutexAcquire)>("QVMutexAcquire");
    auto* release = library.Get<decltype(QVMutexRelease)>("QVMutexRelease");
    auto* destroy = library.Get<decltype(QVMutexDestroy)>("QVMutexDestroy");
    if (create == nullptr || acquire == nullptr || release == nullptr || destroy == nullptr) {
        return false;
    }
    QVMutex mutex = QV_MUTEX_NONE;
    return create("reload", QV_MUTEX_SPIN, &mutex) == S_OK && mutex != QV_MUTEX_NONE &&
           acquire(mutex) == S_OK && release(mutex) == S_OK && destroy(mutex) == S_OK;
}

TEST(Reload, ThousandTimesLeavesNothingBehind)
{
    struct Count
    {
        int maps;
        int descriptors;
        std::size_t heap;
    };
    Count before{};
    // What the dependencies keep after their first load is not growth.
    constexpr int kWarmUp = 20;
    constexpr int kRounds = 1000;
    for (int round = 0; round < kWarmUp + kRounds; ++round) {
        if (round == kWarmUp) {
            before = {MapLines(), OpenDescriptors(), mallinfo2().uordblks};
        }
        {
            const Library library(QV_LIBRARY);
            ASSERT_TRUE(library) << "round " << round << ": " << dlerror();
            ASSERT_TRUE(UseMutex(library)) << "round " << round;
        }
        ASSERT_EQ(MapLines("libqvcore6.so"), 0) << "still mapped after round " << round;
    }
    EXPECT_EQ(OpenDescriptors(), before.descriptors);
    if (kCountsMemory) { // the sanitizers map memory of their own for each library
        EXPECT_LE(MapLines(), before.maps + 4);
        EXPECT_LE(mallinfo2().uordblks, before.heap + 4096);
    }
}

// A thread that has been inside and lives on would pin the library by a thread_local's destructor.
TEST(Reload, UnloadsUnderThreadThatUsedIt)
{
    constexpr int kRounds = 20;
    const Library* current = nullptr;
    bool used = false;
    std::barrier<> turn(2);
    std::thread user([&] {
        for (int round = 0; round < kRounds; ++round) {
            turn.arrive_and_wait(); // loaded
            used = UseMutex(*current);
            turn.arrive_and_wait(); // done
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        {
            const Library library(QV_LIBRARY);
            EXPECT_TRUE(library);
            current = &library;
            turn.arrive_and_wait();
            turn.arrive_and_wait();
            EXPECT_TRUE(used) << "round " << round;
        }
        EXPECT_EQ(MapLines("libqvcore6.so"), 0) << "round " << round;
    }
    user.join();
}

TEST(Reload, ServesConstructorsAndDestructorsOfLaterLibraries)
{
    {
        const Library user(QV_LATE_USER);
        ASSERT_TRUE(user) << dlerror();
        auto* isUp = user.Get<int()>("LateUserIsUp");
        ASSERT_NE(isUp, nullptr);
        EXPECT_NE(isUp(), 0);
    }
    EXPECT_EQ(MapLines("libqvcore6.so"), 0);
}

// The later library's destructor runs among the exit routines here; it aborts if it is refused.
TEST(Reload, ServesDestructorsAtTheEndOfTheProcess)
{
    const pid_t child = fork();
    if (child == 0) {
        void* user = dlopen(QV_LATE_USER, RTLD_NOW | RTLD_LOCAL);
        std::exit(user != nullptr ? 7 : 8);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

} // namespace
