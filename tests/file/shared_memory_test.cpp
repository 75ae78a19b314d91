// Shared memory between real processes.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <qvcore6/process.h>
#include <qvcore6/result.h>
#include <qvcore6/sharedmem.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/shared_names.h"

using namespace qv::test;
namespace fs = std::filesystem;

namespace
{

constexpr uint32_t kBoth = QV_FILE_READ | QV_FILE_WRITE;
constexpr uint32_t kSize = 5000;

using Words = std::atomic<int>;

std::string FileOf(const std::string& name)
{
    return "/dev/shm/qvc.SHM:" + name;
}

QVRESULT Open(const std::string& name, uint32_t flags, QVHandle* handle, uint32_t size = kSize)
{
    return QVSharedMemOpen(name.c_str(), flags, 0, size, handle);
}

// A view without its handle; null if there is no such section.
Words* View(const std::string& name, uint32_t flags = QV_FILE_CREATE, QVRESULT* result = nullptr)
{
    QVHandle handle;
    void* view = nullptr;
    const QVRESULT opened = Open(name, flags, &handle);
    if (opened >= 0) {
        QVSharedMemAttach(handle, (flags & QV_FILE_READ) != 0 ? QV_FILE_READ : kBoth, &view);
        QVSharedMemClose(handle);
    }
    if (result != nullptr) {
        *result = opened;
    }
    return static_cast<Words*>(view);
}

QVRESULT Probe(const std::string& name, uint32_t flags = 0)
{
    QVHandle handle;
    const QVRESULT result = Open(name, flags, &handle);
    EXPECT_EQ(result < 0, handle == QV_HANDLE_NONE);
    QVSharedMemClose(handle);
    return result;
}

using SharedMemory = SharedNames;

TEST_F(SharedMemory, IsOpenedAndCreatedByItsFlags)
{
    constexpr uint32_t kExclusive = QV_FILE_CREATE | QV_FILE_EXCLUSIVE;
    const struct
    {
        uint32_t flags;
        QVRESULT missing;
        QVRESULT existing;
        QVRESULT toWrite; // of a view
    } rows[] = {
        {0, QV_E_FILE_NOT_FOUND, QV_S_CREATED, E_ACCESSDENIED},
        {QV_FILE_READ, QV_E_FILE_NOT_FOUND, QV_S_CREATED, E_ACCESSDENIED},
        {QV_FILE_WRITE, QV_E_FILE_NOT_FOUND, QV_S_CREATED, S_OK},
        {kBoth | QV_FILE_TRUNCATE, QV_E_FILE_NOT_FOUND, QV_S_CREATED, S_OK},
        {QV_FILE_CREATE | QV_FILE_READ, QV_S_CREATED, S_OK, S_OK},
        {QV_FILE_EXCLUSIVE, QV_S_CREATED, S_OK, S_OK},
        {kExclusive, QV_S_CREATED, E_FAIL, E_HANDLE},
    };
    const std::string name = OwnName("flags");
    for (const auto& row : rows) {
        EXPECT_EQ(row.missing, Probe(name, row.flags)) << row.flags;
        Words* const holder = View(name, kExclusive);
        EXPECT_EQ(S_OK, Probe(name, QV_FILE_CREATE)); // whose mark is none of the next one's
        QVHandle handle;
        EXPECT_EQ(row.existing, Open(name, row.flags, &handle, 9 * kSize)) << row.flags;
        void* view = nullptr;
        EXPECT_EQ(row.toWrite, QVSharedMemAttach(handle, QV_FILE_WRITE, &view)) << row.flags;
        EXPECT_EQ(row.toWrite == S_OK ? S_OK : E_FAIL, QVSharedMemDetach(view));
        QVSharedMemClose(handle);
        QVSharedMemDetach(holder);
    }
    QVHandle none;
    EXPECT_EQ(E_FAIL, Open(name, QV_FILE_CREATE, &none, 0));
    EXPECT_EQ(E_INVALIDARG, QVSharedMemOpen(nullptr, QV_FILE_CREATE, 0, 1, &none));
    // What else names have in common is tested with semaphores.
    for (const std::size_t units : {256u, 257u, 508u, 5000u}) { // with "SHM:" 260 and more
        const std::string padded = OwnName(std::string(units - OwnName("").size(), 'x'));
        EXPECT_EQ(units == 256 ? QV_S_CREATED : E_FAIL, Probe(padded, QV_FILE_CREATE)) << units;
    }
}

TEST_F(SharedMemory, IsOneMemoryInAllViews)
{
    const std::string name = OwnName("views");
    QVHandle handle;
    ASSERT_EQ(QV_S_CREATED, Open(name, QV_FILE_CREATE, &handle));
    void* views[3];
    const uint32_t flags[] = {kBoth, QV_FILE_WRITE, QV_FILE_READ};
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(S_OK, QVSharedMemAttach(handle, flags[i], &views[i]));
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(views[i]) % 4096);
    }
    EXPECT_EQ(0, static_cast<char*>(views[2])[kSize - 1]);
    static_cast<char*>(views[0])[kSize - 1] = 7;
    EXPECT_EQ(7, static_cast<char*>(views[2])[kSize - 1]);
    EXPECT_EQ(kSize + 4096, fs::file_size(FileOf(name))); // its own, with the head
    Child faulting([&] {
        signal(SIGSEGV, SIG_DFL);
        static_cast<Words*>(views[2])->store(1);
        return true;
    });
    EXPECT_EQ(-1, faulting.Status());
    int status = 0;
    void* untouched = &status;
    for (const uint32_t wrong : {0u, kBoth | QV_FILE_CREATE, QV_FILE_READ | 1u}) {
        EXPECT_EQ(E_FAIL, QVSharedMemAttach(handle, wrong, &untouched));
    }
    const int foreign = open("/dev/zero", O_RDWR | O_CLOEXEC);
    for (const QVHandle wrong : {QV_HANDLE_NONE, foreign, foreign + 1, 0x7FFFFFFF}) {
        EXPECT_EQ(E_HANDLE, QVSharedMemAttach(wrong, QV_FILE_READ, &untouched));
    }
    close(foreign);
    EXPECT_EQ(&status, untouched);
    EXPECT_EQ(E_FAIL, QVSharedMemDetach(static_cast<char*>(views[0]) + 4096));
    for (void* const view : views) {
        EXPECT_EQ(S_OK, QVSharedMemDetach(view));
        EXPECT_EQ(E_FAIL, QVSharedMemDetach(view));
    }
    QVSharedMemClose(handle);
    // A number that the host closed by itself and that has become another file's.
    Words* const other = View(name);
    ASSERT_EQ(S_OK, Open(name, QV_FILE_CREATE, &handle));
    close(handle);
    const int again = open("/dev/zero", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(handle, again);
    EXPECT_EQ(E_HANDLE, QVSharedMemAttach(again, QV_FILE_READ, &untouched));
    EXPECT_EQ(S_OK, QVSharedMemClose(again));
    EXPECT_EQ(QV_S_CREATED, Probe(name));
    QVSharedMemDetach(other);
}

TEST_F(SharedMemory, LivesAsLongAsItsLastHandleAndView)
{
    const std::string name = OwnName("life");
    // The handles of a fork, and one who is killed.
    QVHandle handle;
    ASSERT_EQ(QV_S_CREATED, Open(name, QV_FILE_CREATE, &handle));
    Child killed([&] { return pause() == 0; });
    QVSharedMemClose(handle);
    EXPECT_EQ(QV_S_CREATED, Probe(name));
    killed.Kill();
    EXPECT_EQ(QV_E_FILE_NOT_FOUND, Probe(name));
    // Another's left-over is no memory of the next one's.
    Child leaving([&] { return ++*View(name) == 1; });
    EXPECT_TRUE(leaving.Succeeded());
    QVRESULT result;
    Words* const fresh = View(name, QV_FILE_CREATE, &result);
    EXPECT_EQ(QV_S_CREATED, result);
    EXPECT_EQ(0, *fresh);
    QVSharedMemDetach(fresh);
}

// By whoever creates a section of any name.
TEST_F(SharedMemory, IsFreedAfterAKill)
{
    const std::string name = OwnName("left");
    for (const uid_t user : {0u, 1000u}) {
        Child leaving([&] { return ++*View(name) == 1; });
        EXPECT_TRUE(leaving.Succeeded());
        Probe(OwnName("other"), QV_FILE_CREATE);
        EXPECT_TRUE(fs::exists(FileOf(name))) << "a young one may be wanted";
        const timespec longAgo[2] = {};
        utimensat(AT_FDCWD, FileOf(name).c_str(), longAgo, 0);
        const auto isFreed = [&] {
            Probe(OwnName("other"), QV_FILE_CREATE);
            struct stat status = {};
            const bool isGone = stat(FileOf(name).c_str(), &status) != 0;
            return isGone || (user != 0 && status.st_blocks == 0); // another's must stay
        };
        Child sweeping([&] { return (user == 0 || setuid(user) == 0) && Becomes(isFreed); });
        EXPECT_TRUE(sweeping.Succeeded() || getuid() != 0);
        EXPECT_EQ(QV_S_CREATED, Probe(name, QV_FILE_CREATE));
    }
}

TEST_F(SharedMemory, GoesWithAnEndingProcess)
{
    const std::string name = OwnName("exit");
    const bool isPlain = ResidentPages() != 0; // sanitizers take long to end, and need descriptors
    for (int round = 0; round < (isPlain ? 40 : 4); ++round) {
        Words* const holder = round % 2 != 0 ? View(name) : nullptr;
        Child ending([&] {
            QVHandle handle;
            Open(name, QV_FILE_CREATE, &handle);
            if (round % 4 < 2) {
                Child shares([&] { return true; }); // so that the handle is given up from outside
                shares.Succeeded();
            }
            std::thread([view = View(name)] {
                for (;;) {
                    ++*view; // to the last moment
                }
            }).detach();
            std::thread([&, handle] {
                for (void* view = nullptr;; QVSharedMemDetach(view)) {
                    QVSharedMemAttach(handle, kBoth, &view);
                }
            }).detach();
            std::thread([&] {
                for (;;) {
                    QVSharedMemDetach(View(name));
                }
            }).detach();
            std::this_thread::sleep_for(std::chrono::microseconds(150 * round));
            std::exit(0);
            return false;
        });
        EXPECT_TRUE(ending.Succeeded());
        EXPECT_EQ(holder != nullptr, fs::exists(FileOf(name)));
        QVSharedMemDetach(holder);
    }
    Child full([&] {
        QVHandle handle;
        Open(name, QV_FILE_CREATE, &handle);
        while (isPlain && dup(0) >= 0) {
        }
        std::exit(0);
        return false;
    });
    EXPECT_TRUE(full.Succeeded());
    EXPECT_FALSE(fs::exists(FileOf(name)));
    Child unloading([&] {
        const fs::path copy = fs::path(QV_TEST_FOLDER) / "unloaded_sharedmem.so";
        fs::copy_file(QV_TEST_LIBRARY, copy, fs::copy_options::overwrite_existing);
        void* const library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
        const auto openIn =
            reinterpret_cast<decltype(&QVSharedMemOpen)>(dlsym(library, "QVSharedMemOpen"));
        const auto attachIn =
            reinterpret_cast<decltype(&QVSharedMemAttach)>(dlsym(library, "QVSharedMemAttach"));
        QVHandle handle;
        void* view = nullptr;
        const bool isOpen = openIn(name.c_str(), QV_FILE_CREATE, 0, 1, &handle) == QV_S_CREATED &&
                            attachIn(handle, kBoth, &view) == S_OK && Probe(name) == QV_S_CREATED;
        dlclose(library);
        *static_cast<char*>(view) = 1;
        return isOpen && dlopen(copy.c_str(), RTLD_NOW | RTLD_NOLOAD) == nullptr &&
               !fs::exists(FileOf(name));
    });
    EXPECT_TRUE(unloading.Succeeded());
}

// Anybody may write to the file.
TEST_F(SharedMemory, SurvivesAHostileHead)
{
    const std::string name = OwnName("hostile");
    QVHandle handle;
    ASSERT_EQ(QV_S_CREATED, Open(name, QV_FILE_CREATE, &handle, 4096));
    constexpr off_t kDataSize = 536;
    const int file = open(FileOf(name).c_str(), O_RDWR | O_CLOEXEC);
    for (const std::uint64_t size : {4097ull, ~0ull, ~0ull - 4095, 1ull << 62, 4096ull}) {
        EXPECT_EQ(8, pwrite(file, &size, sizeof size, kDataSize));
        EXPECT_EQ(size == 4096 ? S_OK : E_HANDLE, Probe(name, QV_FILE_CREATE)) << size;
    }
    close(file);
    void* view;
    EXPECT_EQ(S_OK, QVSharedMemAttach(handle, kBoth, &view));
    EXPECT_EQ(0, truncate(FileOf(name).c_str(), 4096 + 4095));
    void* none;
    EXPECT_EQ(E_HANDLE, QVSharedMemAttach(handle, QV_FILE_READ, &none));
    QVSharedMemDetach(view);
    QVSharedMemClose(handle);
}

TEST_F(SharedMemory, IsForEveryUserAndWithinTheLimits)
{
    const std::string name = OwnName("users");
    const mode_t before = umask(077);
    Words* const view = View(name);
    umask(before);
    struct stat status = {};
    stat(FileOf(name).c_str(), &status);
    EXPECT_EQ(0666u, status.st_mode & 07777);
    auto& told = MakeShared<std::atomic<int>>();
    Child other([&] {
        QVSharedMemDetach(view);
        Words* const own = getuid() != 0 || setuid(1000) == 0 ? View(name) : nullptr;
        ++*own;
        told = 1;
        return Becomes([&] { return told == 2; }) && QVSharedMemDetach(own) == S_OK;
    });
    EXPECT_TRUE(Becomes([&] { return told == 1; }));
    EXPECT_EQ(1, *view);
    QVSharedMemDetach(view);
    told = 2;
    EXPECT_TRUE(other.Succeeded());
    // Who may not remove it frees its memory.
    EXPECT_TRUE(stat(FileOf(name).c_str(), &status) != 0 || status.st_blocks == 0);
    Probe(name, QV_FILE_CREATE);
    Child limited([&] {
        const rlimit low = {16, 16};
        setrlimit(RLIMIT_NOFILE, &low);
        std::vector<QVHandle> open(1);
        while (Open(name, QV_FILE_CREATE, &open.back()) >= 0) {
            open.push_back(QV_HANDLE_NONE);
        }
        for (const QVHandle handle : open) {
            QVSharedMemClose(handle);
        }
        const rlimit small = {4096, 4096}; // a write beyond it would end the process
        setrlimit(RLIMIT_FSIZE, &small);
        return open.size() > 5 && CountDescriptors() == m_descriptors &&
               Probe(name, QV_FILE_CREATE) == E_FAIL && !fs::exists(FileOf(name));
    });
    EXPECT_TRUE(limited.Succeeded());
}

TEST_F(SharedMemory, TenThousandCyclesLeaveNothing)
{
    const auto run = [name = OwnName("cycles")](int cycles) {
        for (; cycles > 0; --cycles) {
            EXPECT_EQ(QVSharedMemDetach(View(name)), S_OK);
            EXPECT_EQ(Probe(name), QV_E_FILE_NOT_FOUND);
        }
        return ResidentPages();
    };
    const long before = run(100);
    EXPECT_LT(run(before != 0 ? 10'000 : 300), before + 64);
}

// Views go while programs start, whose processes have copies of the handles at first; then two
// threads close each handle.
TEST_F(SharedMemory, GoesBesideClosesAndStarts)
{
    const std::string name = OwnName("beside");
    std::atomic<int> closed = 0;
    int left = 0;
    std::atomic<bool> done = false;
    std::thread starter([&] {
        while (!done) {
            QVHandle process;
            QVProcessCreate(u"/bin/true", nullptr, nullptr, nullptr, 0, nullptr, &process);
            QVProcessJoin(process, nullptr);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(S_OK, QVSharedMemDetach(View(name)));
        ASSERT_FALSE(fs::exists(FileOf(name)));
    }
    done = true;
    starter.join();
    const auto await = [](auto test) {
        while (!test()) {
            std::this_thread::yield();
        }
    };
    std::atomic<QVHandle> shared = QV_HANDLE_NONE;
    std::atomic<int> ends = 0;
    std::jthread closer([&] {
        for (; ends < 5000; ++ends) {
            QVHandle handle;
            await([&] { return (handle = shared.exchange(QV_HANDLE_NONE)) != QV_HANDLE_NONE; });
            closed += QVSharedMemClose(handle) == S_OK;
        }
    });
    for (int i = 0; i < 5000; ++i) {
        QVHandle handle;
        EXPECT_EQ(QV_S_CREATED, Open(name, QV_FILE_CREATE, &handle));
        shared = handle;
        await([&] { return shared == QV_HANDLE_NONE; });
        closed += QVSharedMemClose(handle) == S_OK;
        await([&] { return ends > i; });
        left += fs::exists(FileOf(name));
    }
    EXPECT_EQ(5000, closed);
    EXPECT_EQ(0, left);
}

// Of several that create it at once: the name leads to the section of whoever holds one, and a new
// one is empty, and nobody else's.
TEST_F(SharedMemory, IsOneAndStartsAnewWhateverHolderIsKilled)
{
    const std::string name = OwnName("kills");
    auto& rounds = MakeShared<std::atomic<long>>();
    auto& failures = MakeShared<std::atomic<long>>();
    const auto use = [&] {
        for (;; ++rounds) {
            QVHandle handle;
            void* view = nullptr;
            struct stat held = {};
            struct stat found = {};
            const QVRESULT result = Open(name, QV_FILE_CREATE, &handle);
            const bool good =
                QVSharedMemAttach(handle, kBoth, &view) == S_OK && fstat(handle, &held) == 0 &&
                stat(FileOf(name).c_str(), &found) == 0 && held.st_ino == found.st_ino &&
                (result == S_OK || static_cast<Words*>(view)->exchange(1) == 0);
            failures += !good;
            QVSharedMemClose(handle);
            QVSharedMemDetach(view);
        }
        return false;
    };
    std::minstd_rand random(1);
    Child steady[] = {Child(use), Child(use)};
    long kills = 0;
    for (const auto end = StressEnd(); std::chrono::steady_clock::now() < end; ++kills) {
        Child victim(use);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    }
    EXPECT_EQ(0, failures);
    EXPECT_GT(rounds, 100);
    steady[0].Kill();
    steady[1].Kill();
    Probe(name, QV_FILE_CREATE); // what the killed have left
    RecordProperty("kills", std::to_string(kills));
}

} // namespace
