// The records of waits when memory runs out or their platform object is gone, and the platform's
// calls where the exported functions do not reach.
#include <gtest/gtest.h>
#include <qvcore6/condition.h>
#include <qvcore6/event.h>
#include <qvcore6/gate.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <utility>

#include "locks/wait_record.h"
#include "platform/error.h"
#include "platform/wait.h"
#include "support/alloc_faults.h"
#include "support/sleepers.h"

using namespace qv::platform;
using Record = qv::core::WaitRecord;

namespace
{

QVRESULT CreateSemaphoreOfOne(const char* name, uint32_t flags, QVSemaphore* out)
{
    return QVSemaphoreCreate(1, name, flags, out);
}

// The create function under every failing allocation, then a look at what it made.
template <class Handle> void SweepCreation(QVRESULT (*create)(const char*, uint32_t, Handle*),
                                           QVRESULT (*destroy)(Handle), void (*look)(Handle))
{
    const std::string name(200, 'n');
    long before = 0;
    Handle handle = nullptr;
    QVRESULT result = S_OK;
    const long failures = qv::test::SweepAllocations(
        [&] {
            before = qv::test::LiveBlocks();
            result = create(name.c_str(), 0x8001, &handle);
        },
        [&](long n, bool failed) {
            EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << n;
            EXPECT_EQ(handle == QV_NO_HANDLE_(Handle), failed) << n;
            if (!failed) {
                look(handle);
                destroy(handle);
            }
            EXPECT_EQ(qv::test::LiveBlocks(), before) << n;
        });
    EXPECT_GE(failures, 2) << "the record and its name";
}

template <class Handle> Record& RecordOf(Handle handle)
{
    return *reinterpret_cast<Record*>(handle);
}

template <class Handle> void LookAtRecord(Handle handle)
{
    static_assert(offsetof(Record, m_handle) == 0);
    static_assert(offsetof(Record, m_name) == sizeof(HANDLE));
    static_assert(offsetof(Record, m_flags) == sizeof(HANDLE) + sizeof(std::string));
    EXPECT_EQ(RecordOf(handle).m_name, std::string(200, 'n'));
    EXPECT_EQ(RecordOf(handle).m_flags, 0x8001u);
}

TEST(WaitRecords, CreationSurvivesEveryFailure)
{
    SweepCreation<QVEvent>(QVEventCreate, QVEventDestroy, LookAtRecord);
    SweepCreation<QVGate>(QVGateCreate, QVGateDestroy, LookAtRecord);
    SweepCreation<QVSemaphore>(CreateSemaphoreOfOne, QVSemaphoreDestroy, LookAtRecord);
    SweepCreation<QVCondition>(QVConditionCreate, QVConditionDestroy, [](QVCondition) {});
}

// The answer of the platform, which has no other failure, comes through.
TEST(WaitRecords, WithoutAnObjectEveryCallFails)
{
    QVEvent event = nullptr;
    QVGate gate = nullptr;
    QVSemaphore semaphore = nullptr;
    ASSERT_EQ(QVEventCreate("", 0, &event), S_OK);
    ASSERT_EQ(QVGateCreate("", 0, &gate), S_OK);
    ASSERT_EQ(QVSemaphoreCreate(0, "", 0, &semaphore), S_OK);
    for (Record* const record : {&RecordOf(event), &RecordOf(gate), &RecordOf(semaphore)}) {
        EXPECT_EQ(CloseHandle(std::exchange(record->m_handle, nullptr)), kTrue);
    }
    for (const QVRESULT result :
         {QVEventSignal(event), QVEventReset(event), QVEventWait(event), QVEventTimedWait(event, 1),
          QVGateOpen(gate), QVGateClose(gate), QVGateWait(gate), QVGateTimedWait(gate, 1),
          QVGateTryWait(gate), QVSemaphorePost(semaphore), QVSemaphoreWait(semaphore),
          QVSemaphoreTryWait(semaphore)}) {
        EXPECT_EQ(result, E_HANDLE);
    }
    EXPECT_EQ(QVEventDestroy(event), S_OK);
    EXPECT_EQ(QVGateDestroy(gate), S_OK);
    EXPECT_EQ(QVSemaphoreDestroy(semaphore), S_OK);
}

TEST(Waits, TellWhatIsNoObjectOrOfAnotherKind)
{
    const HANDLE event = CreateEventA(nullptr, kFalse, kTrue, nullptr);
    const HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 5, nullptr);
    const auto expectRefused = [](BOOL answer) {
        EXPECT_EQ(answer, kFalse);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        SetLastError(0);
    };
    for (const HANDLE neither : {HANDLE{}, GetCurrentProcess(), GetCurrentThread()}) {
        expectRefused(SetEvent(neither));
        expectRefused(ResetEvent(neither));
        expectRefused(ReleaseSemaphore(neither, 1, nullptr));
    }
    expectRefused(SetEvent(semaphore));
    expectRefused(ReleaseSemaphore(event, 1, nullptr));
    expectRefused(CloseHandle(nullptr));
    for (const HANDLE pseudo : {GetCurrentProcess(), GetCurrentThread()}) {
        EXPECT_EQ(WaitForSingleObject(pseudo, 5), WAIT_TIMEOUT);
        EXPECT_EQ(CloseHandle(pseudo), kTrue);
    }
    EXPECT_EQ(GetLastError(), 0u) << "a time-out is no error";
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0) << "signalled from the start";
    CloseHandle(event);
    CloseHandle(semaphore);
}

TEST(Waits, SemaphoresCountToTheirOwnMaximumAndFreeAsManyAsArePosted)
{
    for (const auto& [initial, maximum] : {std::pair{-1, 5}, {0, 0}, {0, -1}, {6, 5}}) {
        EXPECT_EQ(CreateSemaphoreA(nullptr, initial, maximum, nullptr), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    const HANDLE semaphore = CreateSemaphoreA(nullptr, 0, INT32_MAX, nullptr);
    LONG previous = -1;
    const auto errorOf = [&](LONG count) {
        const BOOL done = ReleaseSemaphore(semaphore, count, &previous);
        return done != kFalse ? ERROR_SUCCESS : GetLastError();
    };
    std::deque<qv::test::Sleeper> sleepers;
    for (int count = 0; count < 3; ++count) {
        sleepers.emplace_back([&] { WaitForSingleObject(semaphore, INFINITE); });
        sleepers.back().AwaitAsleep();
    }
    EXPECT_EQ(errorOf(3), ERROR_SUCCESS);
    sleepers.clear();
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_TIMEOUT);
    EXPECT_EQ(errorOf(INT32_MAX - 1), ERROR_SUCCESS);
    EXPECT_EQ(previous, 0);
    EXPECT_EQ(errorOf(2), ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(errorOf(INT32_MAX), ERROR_TOO_MANY_POSTS);
    for (const LONG count : {0, -1, INT32_MIN}) {
        EXPECT_EQ(errorOf(count), ERROR_INVALID_PARAMETER) << count;
    }
    EXPECT_EQ(errorOf(1), ERROR_SUCCESS);
    EXPECT_EQ(errorOf(1), ERROR_TOO_MANY_POSTS);
    CloseHandle(semaphore);
}

} // namespace
