// Threads with each allocation and each platform call failing, and the table beneath the exports.
#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <qvcore6/thread.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <tuple>

#include "platform/error.h"
#include "platform/thread.h"
#include "process/managers.h"
#include "process/thread_manager.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"

using namespace qv::platform;
using qv::core::ThreadManager;
using qv::test::Becomes;
using qv::test::LiveBlocks;

namespace
{

enum class Call
{
    None,
    PthreadCreate,
    Post,
    Wait,
    Close,
};

std::atomic<Call> g_failing{Call::None};

bool Fails(Call call)
{
    if (g_failing == call) {
        SetLastError(ERROR_ACCESS_DENIED);
    }
    return g_failing == call;
}

} // namespace

extern "C"
{
    decltype(pthread_create) __real_pthread_create;
    decltype(QVSemaphorePost) __real_QVSemaphorePost;
    decltype(WaitForSingleObject) __real_WaitForSingleObject;
    decltype(CloseHandle) __real_CloseHandle;

    int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*routine)(void*), void* argument)
    {
        return Fails(Call::PthreadCreate)
                   ? EAGAIN
                   : __real_pthread_create(thread, attributes, routine, argument);
    }
    QVRESULT __wrap_QVSemaphorePost(QVSemaphore semaphore)
    {
        return Fails(Call::Post) ? E_ACCESSDENIED : __real_QVSemaphorePost(semaphore);
    }
    DWORD __wrap_WaitForSingleObject(HANDLE object, DWORD milliseconds)
    {
        return Fails(Call::Wait) ? WAIT_FAILED : __real_WaitForSingleObject(object, milliseconds);
    }
    // Closes even when it is to fail: the handle is gone either way.
    BOOL __wrap_CloseHandle(HANDLE object)
    {
        __real_CloseHandle(object);
        return Fails(Call::Close) ? kFalse : kTrue;
    }
}

namespace
{

class ThreadFaults : public testing::Test
{
protected:
    void Create()
    {
        const auto run = [](void* ran) -> uint32_t {
            ++*static_cast<std::atomic<int>*>(ran);
            return 7;
        };
        m_blocks = LiveBlocks();
        m_result = QVThreadCreate(run, &m_ran, 0, 0, &m_thread, &m_id);
    }
    // It has run if, and only if, it was created, and nothing of it stays.
    void ExpectCreation(QVRESULT expected)
    {
        EXPECT_EQ(m_result, expected);
        while (m_result >= 0 && m_ran == 0) {
            Sleep(1);
        }
        g_failing = Call::None;
        EXPECT_EQ(m_thread == QV_THREAD_NONE && m_id == 0, m_result < 0);
        EXPECT_EQ(QVThreadJoin(m_thread, nullptr), m_result >= 0 ? S_OK : E_HANDLE);
        ExpectNothingLeft();
        EXPECT_EQ(m_ran.exchange(0), m_result >= 0 ? 1 : 0);
    }
    void ExpectNothingLeft() const
    {
        EXPECT_TRUE(Becomes([this] { return LiveBlocks() == m_blocks; }));
    }

    std::atomic<int> m_ran{0};
    long m_blocks = LiveBlocks();
    QVRESULT m_result = S_OK;
    QVThread m_thread = 9;
    uint32_t m_id = 9;
};

TEST_F(ThreadFaults, CreationSurvivesEveryFailure)
{
    const long failures = qv::test::SweepAllocations(
        [&] { Create(); },
        [&](long, bool failed) { ExpectCreation(failed ? E_OUTOFMEMORY : S_OK); });
    EXPECT_GE(failures, 6) << "start record, semaphore and its object, thread, record and its node";
    const std::pair<Call, QVRESULT> rows[] = {
        {Call::PthreadCreate, E_FAIL},
        {Call::Post, E_ACCESSDENIED},
        {Call::Wait, S_OK}, // the handshake only becomes slower when it cannot be waited for
    };
    for (const auto& [call, result] : rows) {
        SCOPED_TRACE(static_cast<int>(call));
        g_failing = call;
        Create();
        ExpectCreation(result);
    }
}

TEST_F(ThreadFaults, JoinAndDetachSurviveEveryFailedCall)
{
    const std::tuple<Call, bool, uint32_t> rows[] = {
        {Call::Wait, true, 0}, {Call::Close, true, 7}, {Call::Close, false, 1}};
    for (const auto& [call, joins, expectedCode] : rows) {
        SCOPED_TRACE(static_cast<int>(call));
        Create();
        EXPECT_TRUE(Becomes([this] { return ThreadManager().Find(m_thread)->m_finished.load(); }));
        EXPECT_EQ(QVThreadIsFinished(m_thread), 0) << "nobody has given it up";
        uint32_t exitCode = 1;
        g_failing = call;
        EXPECT_EQ(joins ? QVThreadJoin(m_thread, &exitCode) : QVThreadDetach(m_thread),
                  E_ACCESSDENIED);
        g_failing = Call::None;
        EXPECT_EQ(exitCode, expectedCode);
        EXPECT_EQ(QVThreadJoin(m_thread, nullptr), call == Call::Wait ? S_OK : E_HANDLE);
        EXPECT_EQ(QVThreadIsFinished(m_thread), 1);
        ExpectNothingLeft();
    }
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
    CQVThreadManager& manager = ThreadManager();
    const auto add = [&](std::uintptr_t code) {
        const auto end = [](void* value) {
            return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(value));
        };
        manager.Add(id, Begin(end, reinterpret_cast<void*>(code)));
    };
    add(1); // which nobody joins
    manager.MarkFinished(id);
    add(2);
    EXPECT_EQ(QVThreadIsFinished(id), 0);
    {
        // In the middle of a join, when the thread has gone and its id has come back.
        const CQVThreadManager::Record joined = manager.BeginUse(id);
        EXPECT_EQ(WaitForSingleObject(joined->m_handle, INFINITE), WAIT_OBJECT_0);
        manager.MarkFinished(id);
        add(3);
        EXPECT_EQ(manager.EndUse(*joined.Get(), true), S_OK);
        manager.MarkDetached(id, *joined.Get());
    }
    manager.MarkFinished(id);
    uint32_t exitCode = 0;
    EXPECT_EQ(QVThreadJoin(id, &exitCode), S_OK);
    EXPECT_EQ(exitCode, 3u);
    EXPECT_EQ(QVThreadIsFinished(id), 1);
    ExpectNothingLeft();
}

#ifndef __SANITIZE_THREAD__ // which knows no timed joins
// Waiters of every kind beside each other; the one that joins for all may be a timed one.
TEST_F(ThreadFaults, OneWaiterJoinsForAll)
{
    const HANDLE gate = CreateSemaphoreA(nullptr, 0, 1, nullptr);
    const auto pass = [](void* semaphore) {
        return 5u + WaitForSingleObject(static_cast<HANDLE>(semaphore), INFINITE);
    };
    const HANDLE thread = Begin(pass, gate);
    const auto wait = [=](DWORD milliseconds) {
        while (WaitForSingleObject(thread, milliseconds) != WAIT_OBJECT_0) {
        }
    };
    {
        const std::jthread shortly(wait, 1);
        const std::jthread forever(wait, INFINITE);
        Sleep(10);
        ReleaseSemaphore(gate, 1, nullptr);
        wait(60000);
    }
    DWORD exitCode = 0;
    EXPECT_NE(GetExitCodeThread(thread, &exitCode), kFalse);
    EXPECT_EQ(exitCode, 5u);
    CloseHandle(thread);
    CloseHandle(gate);
    ExpectNothingLeft();
}
#endif

} // namespace
