// What the records of waits keep, what their functions make of failing platform calls, and the
// platform's calls where the exported functions do not reach.
#include <gtest/gtest.h>
#include <qvcore6/condition.h>
#include <qvcore6/event.h>
#include <qvcore6/gate.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "locks/wait_record.h"
#include "platform/condition_variable.h"
#include "platform/error.h"
#include "platform/wait.h"
#include "support/alloc_faults.h"
#include "support/sleepers.h"

using namespace qv::platform;

namespace
{

// The error that replaced calls fail with, and the answer of the replaced wait.
constinit DWORD g_error = 0;
constinit std::optional<DWORD> g_answer;

} // namespace

namespace qv::platform
{

extern "C"
{
    HANDLE __real_CreateEventA(const SECURITY_ATTRIBUTES*, BOOL, BOOL, const char*);
    HANDLE __real_CreateSemaphoreA(const SECURITY_ATTRIBUTES*, LONG, LONG, const char*);
    DWORD __real_WaitForSingleObject(HANDLE, DWORD);
    BOOL __real_SleepConditionVariableCS(CONDITION_VARIABLE*, CRITICAL_SECTION*, DWORD);

    HANDLE __wrap_CreateEventA(const SECURITY_ATTRIBUTES* attributes, BOOL manual, BOOL initial,
                               const char* name)
    {
        SetLastError(g_error);
        return g_error != 0 ? nullptr : __real_CreateEventA(attributes, manual, initial, name);
    }
    HANDLE __wrap_CreateSemaphoreA(const SECURITY_ATTRIBUTES* attributes, LONG initial,
                                   LONG maximum, const char* name)
    {
        SetLastError(g_error);
        return g_error != 0 ? nullptr : __real_CreateSemaphoreA(attributes, initial, maximum, name);
    }
    DWORD __wrap_WaitForSingleObject(HANDLE object, DWORD milliseconds)
    {
        SetLastError(g_error);
        return g_answer ? *g_answer : __real_WaitForSingleObject(object, milliseconds);
    }
    BOOL __wrap_SleepConditionVariableCS(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section,
                                         DWORD milliseconds)
    {
        SetLastError(g_error);
        return g_error != 0 ? kFalse
                            : __real_SleepConditionVariableCS(condition, section, milliseconds);
    }
}

} // namespace qv::platform

namespace
{

struct Creation
{
    const char* name;
    std::function<QVRESULT(const char*, void**)> create;
    std::function<void(void*)> destroy;
};

template <class Handle, auto Create, auto Destroy> Creation CreationOf(const char* name)
{
    return {name,
            [](const char* objectName, void** out) {
                Handle handle = nullptr;
                const QVRESULT result = Create(objectName, 0x8001, &handle);
                *out = handle;
                return result;
            },
            [](void* object) { Destroy(static_cast<Handle>(object)); }};
}

QVRESULT CreateSemaphoreOfOne(const char* name, uint32_t flags, QVSemaphore* out)
{
    return QVSemaphoreCreate(1, name, flags, out);
}

const std::vector<Creation>& Creations()
{
    static const std::vector<Creation> creations = {
        CreationOf<QVEvent, QVEventCreate, QVEventDestroy>("event"),
        CreationOf<QVGate, QVGateCreate, QVGateDestroy>("gate"),
        CreationOf<QVSemaphore, CreateSemaphoreOfOne, QVSemaphoreDestroy>("semaphore"),
        CreationOf<QVCondition, QVConditionCreate, QVConditionDestroy>("condition"),
    };
    return creations;
}

bool IsNone(const void* handle)
{
    return handle == QV_NO_HANDLE_(const void*);
}

qv::core::WaitRecord& RecordOf(void* handle)
{
    return *static_cast<qv::core::WaitRecord*>(handle);
}

TEST(WaitRecords, KeepNameAndFlagsBehindThePlatformHandle)
{
    using Record = qv::core::WaitRecord;
    static_assert(offsetof(Record, m_handle) == 0);
    static_assert(offsetof(Record, m_name) == sizeof(HANDLE));
    static_assert(offsetof(Record, m_flags) == sizeof(HANDLE) + sizeof(std::string));
    for (std::size_t kind = 0; kind < 3; ++kind) {
        void* object = nullptr;
        ASSERT_EQ(Creations()[kind].create("a name", &object), S_OK);
        EXPECT_NE(RecordOf(object).m_handle, nullptr);
        EXPECT_EQ(RecordOf(object).m_name, "a name");
        EXPECT_EQ(RecordOf(object).m_flags, 0x8001u);
        Creations()[kind].destroy(object);
    }
}

TEST(WaitRecords, CreationSurvivesEveryFailure)
{
    const std::string name(200, 'n');
    for (const Creation& creation : Creations()) {
        SCOPED_TRACE(creation.name);
        long before = 0;
        void* object = nullptr;
        QVRESULT result = S_OK;
        const long failures = qv::test::SweepAllocations(
            [&] {
                before = qv::test::LiveBlocks();
                result = creation.create(name.c_str(), &object);
            },
            [&](long n, bool failed) {
                EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << n;
                EXPECT_EQ(IsNone(object), failed) << n;
                if (!failed) {
                    creation.destroy(object);
                }
                EXPECT_EQ(qv::test::LiveBlocks(), before) << n;
            });
        EXPECT_GE(failures, 2) << "the record and its name";
    }
}

TEST(WaitRecords, FailuresOfThePlatformAreTranslated)
{
    struct Row
    {
        DWORD error;
        QVRESULT result;
    };
    const Row rows[] = {
        {ERROR_ACCESS_DENIED, E_ACCESSDENIED}, {ERROR_INVALID_HANDLE, E_HANDLE},
        {ERROR_OUTOFMEMORY, E_OUTOFMEMORY},    {ERROR_NO_SYSTEM_RESOURCES, E_FAIL},
        {ERROR_TOO_MANY_POSTS, E_FAIL},
    };
    QVEvent event = nullptr;
    QVGate gate = nullptr;
    QVSemaphore semaphore = nullptr;
    QVCondition condition = nullptr;
    ASSERT_EQ(QVEventCreate("", 0, &event), S_OK);
    ASSERT_EQ(QVGateCreate("", 0, &gate), S_OK);
    ASSERT_EQ(QVSemaphoreCreate(0, "", 0, &semaphore), S_OK);
    ASSERT_EQ(QVConditionCreate("", 0, &condition), S_OK);
    const long before = qv::test::LiveBlocks();
    for (const Row& row : rows) {
        g_error = row.error;
        g_answer = WAIT_FAILED;
        for (std::size_t kind = 0; kind < 3; ++kind) {
            void* object = nullptr;
            EXPECT_EQ(Creations()[kind].create("", &object), row.result) << row.error;
            EXPECT_TRUE(IsNone(object)) << row.error;
        }
        for (const QVRESULT result :
             {QVEventWait(event), QVEventTimedWait(event, 5), QVGateWait(gate),
              QVGateTimedWait(gate, 5), QVGateTryWait(gate), QVSemaphoreWait(semaphore),
              QVSemaphoreTryWait(semaphore), QVConditionWait(condition),
              QVConditionTimedWait(condition, 5)}) {
            EXPECT_EQ(result, row.result) << row.error;
        }
    }
    // One number of its own for a wait that ran out of time, which the others do not have.
    g_error = ERROR_TIMEOUT;
    EXPECT_EQ(QVConditionTimedWait(condition, 5), QV_E_TIMEOUT);
    EXPECT_EQ(QVConditionWait(condition), E_FAIL);
    g_error = 0;
    for (const DWORD answer : {WAIT_TIMEOUT, DWORD{0x80}}) {
        g_answer = answer;
        EXPECT_EQ(QVEventTimedWait(event, 5), QV_E_TIMEOUT);
        EXPECT_EQ(QVGateTimedWait(gate, 5), QV_E_TIMEOUT);
        EXPECT_EQ(QVGateTryWait(gate), E_FAIL);
        EXPECT_EQ(QVSemaphoreTryWait(semaphore), E_FAIL);
    }
    g_answer.reset();
    EXPECT_EQ(qv::test::LiveBlocks(), before);
    QVEventDestroy(event);
    QVGateDestroy(gate);
    QVSemaphoreDestroy(semaphore);
    QVConditionDestroy(condition);
}

// A record whose platform object is gone: the platform's answer comes through.
TEST(WaitRecords, WithoutAnObjectEveryCallFails)
{
    QVEvent event = nullptr;
    QVGate gate = nullptr;
    QVSemaphore semaphore = nullptr;
    ASSERT_EQ(QVEventCreate("", 0, &event), S_OK);
    ASSERT_EQ(QVGateCreate("", 0, &gate), S_OK);
    ASSERT_EQ(QVSemaphoreCreate(0, "", 0, &semaphore), S_OK);
    for (void* const object :
         {static_cast<void*>(event), static_cast<void*>(gate), static_cast<void*>(semaphore)}) {
        EXPECT_EQ(CloseHandle(std::exchange(RecordOf(object).m_handle, nullptr)), kTrue);
    }
    for (const QVRESULT result :
         {QVEventSignal(event), QVEventReset(event), QVEventWait(event), QVEventTimedWait(event, 1),
          QVGateOpen(gate), QVGateClose(gate), QVGateWait(gate), QVGateTryWait(gate),
          QVSemaphorePost(semaphore), QVSemaphoreWait(semaphore), QVSemaphoreTryWait(semaphore)}) {
        EXPECT_EQ(result, E_HANDLE);
    }
    EXPECT_EQ(QVEventDestroy(event), S_OK);
    EXPECT_EQ(QVGateDestroy(gate), S_OK);
    EXPECT_EQ(QVSemaphoreDestroy(semaphore), S_OK);
}

template <class Call> DWORD ErrorOf(Call call)
{
    SetLastError(4711);
    EXPECT_EQ(call(), decltype(call())(0));
    return GetLastError();
}

TEST(Waits, HandlesThatAreNoObjectOrOfAnotherKind)
{
    const HANDLE event = CreateEventA(nullptr, kFalse, kTrue, nullptr);
    const HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 5, nullptr);
    for (const HANDLE noEvent : {HANDLE{}, GetCurrentProcess(), GetCurrentThread(), semaphore}) {
        EXPECT_EQ(ErrorOf([&] { return SetEvent(noEvent); }), ERROR_INVALID_HANDLE);
        EXPECT_EQ(ErrorOf([&] { return ResetEvent(noEvent); }), ERROR_INVALID_HANDLE);
    }
    for (const HANDLE noSemaphore : {HANDLE{}, GetCurrentProcess(), GetCurrentThread(), event}) {
        EXPECT_EQ(ErrorOf([&] { return ReleaseSemaphore(noSemaphore, 1, nullptr); }),
                  ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(ErrorOf([] { return CloseHandle(nullptr); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    SetLastError(0);
    for (const HANDLE pseudo : {GetCurrentProcess(), GetCurrentThread()}) {
        EXPECT_EQ(WaitForSingleObject(pseudo, 0), WAIT_TIMEOUT);
        EXPECT_EQ(WaitForSingleObject(pseudo, 5), WAIT_TIMEOUT);
        EXPECT_EQ(CloseHandle(pseudo), kTrue);
    }
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0) << "signalled from the start";
    EXPECT_EQ(WaitForSingleObject(event, 5), WAIT_TIMEOUT);
    EXPECT_EQ(GetLastError(), 0u) << "a time-out is no error";
    EXPECT_EQ(CloseHandle(event), kTrue);
    EXPECT_EQ(CloseHandle(semaphore), kTrue);
}

TEST(Waits, SemaphoresCountToTheirOwnMaximum)
{
    const std::pair<LONG, LONG> refused[] = {{-1, 5}, {0, 0}, {0, -1}, {6, 5}};
    for (const auto& counts : refused) {
        EXPECT_EQ(ErrorOf([&] {
                      return CreateSemaphoreA(nullptr, counts.first, counts.second, nullptr);
                  }),
                  ERROR_INVALID_PARAMETER);
    }
    const HANDLE semaphore = CreateSemaphoreA(nullptr, 1, INT32_MAX, nullptr);
    LONG previous = -1;
    EXPECT_EQ(ReleaseSemaphore(semaphore, INT32_MAX - 1, &previous), kTrue);
    EXPECT_EQ(previous, 1);
    EXPECT_EQ(ErrorOf([&] { return ReleaseSemaphore(semaphore, 1, &previous); }),
              ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_OBJECT_0);
    EXPECT_EQ(ErrorOf([&] { return ReleaseSemaphore(semaphore, 2, &previous); }),
              ERROR_TOO_MANY_POSTS);
    for (const LONG count : {0, -1, INT32_MIN}) {
        EXPECT_EQ(ErrorOf([&] { return ReleaseSemaphore(semaphore, count, &previous); }),
                  ERROR_INVALID_PARAMETER);
    }
    EXPECT_EQ(previous, 1) << "failures report nothing";
    EXPECT_EQ(ReleaseSemaphore(semaphore, 1, &previous), kTrue);
    EXPECT_EQ(previous, INT32_MAX - 1);
    CloseHandle(semaphore);
}

// All who sleep are woken by one call.
TEST(Waits, SemaphoresFreeAsManyAsArePosted)
{
    const HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 100, nullptr);
    std::deque<qv::test::Sleeper> sleepers;
    for (int count = 0; count < 3; ++count) {
        sleepers.emplace_back([&] { WaitForSingleObject(semaphore, INFINITE); });
        sleepers.back().AwaitAsleep();
    }
    EXPECT_EQ(ReleaseSemaphore(semaphore, 3, nullptr), kTrue);
    sleepers.clear();
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_TIMEOUT);
    CloseHandle(semaphore);
}

} // namespace
