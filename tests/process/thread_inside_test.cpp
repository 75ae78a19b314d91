// Threads with each allocation and each platform call failing, and the table beneath the exports.
#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <qvcore6/thread.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <iterator>

#include "platform/error.h"
#include "platform/thread.h"
#include "process/managers.h"
#include "process/thread_manager.h"
#include "support/alloc_faults.h"

using namespace qv::platform;

namespace
{

enum class Call
{
    None,
    BeginThread,
    PthreadCreate,
    CreateSemaphore,
    Post,
    Wait,
    Close,
    ExitCode,
    Affinity,
};

struct Fault
{
    Call call = Call::None;
    DWORD error = 0;
    bool isOnce = false;
};

std::atomic<Call> g_call{Call::None};
std::atomic<DWORD> g_error{0};
std::atomic<bool> g_isOnce{false};
std::atomic<int> g_hits{0};
std::atomic<long> g_openHandles{0};

void Set(const Fault& fault)
{
    g_hits = 0;
    g_error = fault.error;
    g_isOnce = fault.isOnce;
    g_call = fault.call;
}

bool Fails(Call call)
{
    if (call != g_call || (g_hits.fetch_add(1) > 0 && g_isOnce)) {
        return false;
    }
    SetLastError(g_error);
    return true;
}

} // namespace

extern "C"
{
    decltype(_beginthreadex) __real__beginthreadex;
    decltype(pthread_create) __real_pthread_create;
    decltype(CreateSemaphoreA) __real_CreateSemaphoreA;
    decltype(QVSemaphorePost) __real_QVSemaphorePost;
    decltype(WaitForSingleObject) __real_WaitForSingleObject;
    decltype(CloseHandle) __real_CloseHandle;
    decltype(GetExitCodeThread) __real_GetExitCodeThread;
    decltype(SetThreadAffinityMask) __real_SetThreadAffinityMask;

    std::uintptr_t __wrap__beginthreadex(void* security, unsigned stackSize,
                                         unsigned (*routine)(void*), void* argument, unsigned flags,
                                         unsigned* id)
    {
        EXPECT_EQ(security, nullptr);
        EXPECT_EQ(flags, 0u);
        const std::uintptr_t handle =
            Fails(Call::BeginThread)
                ? 0
                : __real__beginthreadex(security, stackSize, routine, argument, flags, id);
        g_openHandles += handle != 0;
        return handle;
    }
    int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*routine)(void*), void* argument)
    {
        return Fails(Call::PthreadCreate)
                   ? static_cast<int>(g_error)
                   : __real_pthread_create(thread, attributes, routine, argument);
    }
    HANDLE __wrap_CreateSemaphoreA(const SECURITY_ATTRIBUTES* attributes, LONG initialCount,
                                   LONG maximumCount, const char* name)
    {
        const HANDLE handle =
            Fails(Call::CreateSemaphore)
                ? nullptr
                : __real_CreateSemaphoreA(attributes, initialCount, maximumCount, name);
        g_openHandles += handle != nullptr;
        return handle;
    }
    QVRESULT __wrap_QVSemaphorePost(QVSemaphore semaphore)
    {
        return Fails(Call::Post) ? QVResultFromNative(g_error) : __real_QVSemaphorePost(semaphore);
    }
    DWORD __wrap_WaitForSingleObject(HANDLE object, DWORD milliseconds)
    {
        return Fails(Call::Wait) ? WAIT_FAILED : __real_WaitForSingleObject(object, milliseconds);
    }
    // Closes even when it is to fail: the handle is gone either way.
    BOOL __wrap_CloseHandle(HANDLE object)
    {
        g_openHandles -= object != GetCurrentThread();
        const BOOL closed = __real_CloseHandle(object);
        return Fails(Call::Close) ? kFalse : closed;
    }
    BOOL __wrap_GetExitCodeThread(HANDLE thread, DWORD* exitCode)
    {
        return Fails(Call::ExitCode) ? kFalse : __real_GetExitCodeThread(thread, exitCode);
    }
    std::uintptr_t __wrap_SetThreadAffinityMask(HANDLE thread, std::uintptr_t mask)
    {
        return Fails(Call::Affinity) ? 0 : __real_SetThreadAffinityMask(thread, mask);
    }
}

namespace
{

std::atomic<int> g_ran{0};

uint32_t CountRun(void*)
{
    ++g_ran;
    return 7;
}

#ifdef __SANITIZE_THREAD__ // has a thread of its own, and knows no timed joins
constexpr int kOwnThreads = 2;
constexpr DWORD kShort = 0;
constexpr DWORD kLong = INFINITE;
#else
constexpr int kOwnThreads = 1;
constexpr DWORD kShort = 1;
constexpr DWORD kLong = 60000;
#endif

// A thread that has been joined may stay visible for a moment.
bool IsAlone()
{
    const auto count = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    for (int attempt = 0; attempt < 5000 && count() > kOwnThreads; ++attempt) {
        Sleep(1);
    }
    return count() <= kOwnThreads;
}

class ThreadFaults : public testing::Test
{
protected:
    void SetUp() override
    {
        g_ran = 0;
        g_openHandles = 0;
        m_blocks = qv::test::LiveBlocks();
    }
    void TearDown() override { Set({}); }

    QVRESULT Create()
    {
        m_blocks = qv::test::LiveBlocks();
        return QVThreadCreate(CountRun, nullptr, 0, 0, &m_thread, &m_id);
    }
    void ExpectNothingLeft() const
    {
        EXPECT_TRUE(IsAlone());
        EXPECT_EQ(g_openHandles, 0);
        EXPECT_EQ(qv::test::LiveBlocks(), m_blocks);
    }
    void ExpectNoThread() const
    {
        EXPECT_EQ(m_thread, QV_THREAD_NONE);
        EXPECT_EQ(m_id, 0u);
        EXPECT_EQ(g_ran, 0);
        ExpectNothingLeft();
    }

    QVThread m_thread = 9;
    uint32_t m_id = 9;
    long m_blocks = 0;
};

TEST_F(ThreadFaults, CreationSurvivesEveryFailedAllocation)
{
    QVRESULT result = S_OK;
    const long failures =
        qv::test::SweepAllocations([&] { result = Create(); },
                                   [&](long n, bool failed) {
                                       EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << n;
                                       if (failed) {
                                           ExpectNoThread();
                                       } else {
                                           EXPECT_EQ(QVThreadJoin(m_thread, nullptr), S_OK);
                                           ExpectNothingLeft();
                                       }
                                   });
    EXPECT_GE(failures, 6) << "start record, semaphore and its object, thread, record and its node";
}

TEST_F(ThreadFaults, CreationSurvivesEveryFailedCall)
{
    struct Row
    {
        Fault fault;
        QVRESULT result;
    };
    const Row rows[] = {
        {{Call::CreateSemaphore, ERROR_OUTOFMEMORY}, E_OUTOFMEMORY},
        {{Call::BeginThread, ERROR_NOT_ENOUGH_MEMORY}, E_FAIL},
        {{Call::BeginThread, ERROR_ACCESS_DENIED}, E_ACCESSDENIED},
        {{Call::PthreadCreate, EAGAIN}, E_FAIL},
        {{Call::PthreadCreate, ENOMEM}, E_OUTOFMEMORY},
        {{Call::PthreadCreate, EPERM}, E_ACCESSDENIED},
        {{Call::Post, ERROR_INVALID_HANDLE, true}, E_HANDLE},
        {{Call::Post, ERROR_TOO_MANY_POSTS}, E_FAIL},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        Set(row.fault);
        EXPECT_EQ(Create(), row.result);
        Set({});
        ExpectNoThread();
    }
    // The handshake only becomes slower when it cannot be waited for.
    for (const bool isOnce : {true, false}) {
        Set({Call::Wait, ERROR_INVALID_HANDLE, isOnce});
        EXPECT_EQ(Create(), S_OK);
        for (int attempt = 0; attempt < 5000 && g_ran == 0; ++attempt) {
            Sleep(1);
        }
        EXPECT_EQ(g_ran.exchange(0), 1);
        EXPECT_GE(g_hits, 1);
        Set({});
        EXPECT_EQ(QVThreadJoin(m_thread, nullptr), S_OK);
        ExpectNothingLeft();
    }
}

TEST_F(ThreadFaults, JoinAndDetachSurviveEveryFailedCall)
{
    struct Row
    {
        Fault fault;
        bool joins;
        QVRESULT result;
        uint32_t exitCode;
        bool stays;
    };
    const Row rows[] = {
        {{Call::Wait, ERROR_ACCESS_DENIED}, true, E_ACCESSDENIED, 0, true},
        {{Call::ExitCode, ERROR_ACCESS_DENIED}, true, S_OK, 0, false},
        {{Call::Close, ERROR_ACCESS_DENIED}, true, E_ACCESSDENIED, 7, false},
        {{Call::Close, ERROR_INVALID_PARAMETER}, false, E_FAIL, 1, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        ASSERT_EQ(Create(), S_OK);
        EXPECT_TRUE(IsAlone()); // it has ended
        uint32_t exitCode = 1;
        Set(row.fault);
        EXPECT_EQ(row.joins ? QVThreadJoin(m_thread, &exitCode) : QVThreadDetach(m_thread),
                  row.result);
        Set({});
        EXPECT_EQ(exitCode, row.exitCode);
        EXPECT_EQ(QVThreadIsFinished(m_thread), row.stays ? 0 : 1);
        EXPECT_EQ(QVThreadJoin(m_thread, nullptr), row.stays ? S_OK : E_HANDLE);
        ExpectNothingLeft();
    }
}

TEST_F(ThreadFaults, AffinityTellsTheSystemsRefusal)
{
    Set({Call::Affinity, ERROR_ACCESS_DENIED});
    const uint32_t mask = 1;
    uint32_t previous = 1;
    EXPECT_EQ(QVSetCpuAffinity(&mask), E_ACCESSDENIED);
    EXPECT_EQ(QVGetSetCpuAffinity(&previous, &mask), E_ACCESSDENIED);
    EXPECT_EQ(previous, 0u);
}

HANDLE Begin(unsigned (*routine)(void*), void* argument)
{
    unsigned id = 0;
    return reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, routine, argument, 0, &id));
}

// The system gives an id out again: the entry under it is the new thread's.
TEST_F(ThreadFaults, AnIdThatComesBackStandsForTheNewThread)
{
    constexpr uint32_t id = 0x7FFFFFF0;
    const auto ends = [](void* code) {
        return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(code));
    };
    CQVThreadManager& manager = qv::core::ThreadManager();
    // Of a thread that nobody joined.
    manager.Add(id, Begin(ends, reinterpret_cast<void*>(1)));
    manager.MarkFinished(id);
    manager.Add(id, Begin(ends, reinterpret_cast<void*>(2)));
    EXPECT_EQ(g_openHandles, 1) << "nobody could have closed the other";
    EXPECT_EQ(QVThreadIsFinished(id), 0);
    {
        // In the middle of a join, when the thread has gone and its id has come back.
        const CQVThreadManager::Record joined = manager.BeginUse(id);
        EXPECT_EQ(WaitForSingleObject(joined->m_handle, INFINITE), WAIT_OBJECT_0);
        manager.MarkFinished(id);
        manager.Add(id, Begin(ends, reinterpret_cast<void*>(3)));
        EXPECT_EQ(manager.EndUse(*joined.Get(), true), S_OK);
        manager.MarkDetached(id, *joined.Get());
    }
    manager.MarkFinished(id);
    EXPECT_EQ(g_openHandles, 1);
    uint32_t exitCode = 0;
    EXPECT_EQ(QVThreadJoin(id, &exitCode), S_OK);
    EXPECT_EQ(exitCode, 3u);
    EXPECT_EQ(QVThreadIsFinished(id), 1);
    ExpectNothingLeft();
}

TEST(ThreadHandle, WaitsAndExitCode)
{
    const HANDLE gate = CreateSemaphoreA(nullptr, 0, 1, nullptr);
    const auto waits = [](void* semaphore) {
        WaitForSingleObject(static_cast<HANDLE>(semaphore), INFINITE);
        return 5u;
    };
    const HANDLE thread = Begin(waits, gate);
    DWORD exitCode = 0;
    SetLastError(99);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(thread, 20), WAIT_TIMEOUT);
    EXPECT_NE(GetExitCodeThread(thread, &exitCode), kFalse);
    EXPECT_EQ(exitCode, STILL_ACTIVE);
    EXPECT_EQ(GetLastError(), 99u);
    EXPECT_EQ(GetExitCodeThread(gate, &exitCode), kFalse);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    // Waiters of every kind beside each other; the one that joins for all may be a timed one.
    std::atomic<int> passed{0};
    struct Waiter
    {
        HANDLE thread;
        DWORD milliseconds;
        std::atomic<int>& passed;
    };
    Waiter waiters[] = {
        {thread, kShort, passed}, {thread, INFINITE, passed}, {thread, kLong, passed}};
    HANDLE handles[3];
    for (int i = 0; i < 3; ++i) {
        const auto wait = [](void* argument) {
            const auto& waiter = *static_cast<Waiter*>(argument);
            while (WaitForSingleObject(waiter.thread, waiter.milliseconds) != WAIT_OBJECT_0) {
            }
            ++waiter.passed;
            return 0u;
        };
        handles[i] = Begin(wait, &waiters[i]);
    }
    Sleep(10);
    EXPECT_EQ(passed, 0);
    ReleaseSemaphore(gate, 1, nullptr);
    for (const HANDLE handle : handles) {
        EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
        CloseHandle(handle);
    }
    EXPECT_EQ(passed, 3);
    EXPECT_NE(GetExitCodeThread(thread, &exitCode), kFalse);
    EXPECT_EQ(exitCode, 5u);
    CloseHandle(thread);
    CloseHandle(gate);
}

} // namespace
