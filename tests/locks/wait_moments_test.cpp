// The moments of a wait in which a signal could get lost, each brought about on purpose.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "platform/condition_variable.h"
#include "platform/futex.h"
#include "platform/wait.h"

using namespace qv::platform;

namespace
{

// In a thread that has one: what happens instead of its sleep, which then runs out of time.
thread_local const std::function<void()>* t_atDeadline = nullptr;
// And what happens as it lets a section go that others want.
thread_local const std::function<void()>* t_atRelease = nullptr;
std::atomic<int> g_wakes{0};

} // namespace

// The replaced functions and their replacements, under the names that the linker gives them.
bool RealFutexWaitUntil(const std::atomic<std::uint32_t>&, std::uint32_t, const Deadline&) __asm__(
    "__real__ZN2qv8platform14FutexWaitUntilERKSt6atomicIjEjRKNS0_8DeadlineE");
bool FutexWaitUntilOrHook(
    const std::atomic<std::uint32_t>&, std::uint32_t,
    const Deadline&) __asm__("__wrap__ZN2qv8platform14FutexWaitUntilERKSt6atomicIjEjRKNS0_"
                             "8DeadlineE");
void RealFutexWake(const std::atomic<std::uint32_t>*,
                   int) __asm__("__real__ZN2qv8platform9FutexWakeEPKSt6atomicIjEi");
void CountedFutexWake(const std::atomic<std::uint32_t>*,
                      int) __asm__("__wrap__ZN2qv8platform9FutexWakeEPKSt6atomicIjEi");
extern "C" void __real_WakeCriticalSection(CRITICAL_SECTION*);

bool FutexWaitUntilOrHook(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                          const Deadline& deadline)
{
    if (t_atDeadline == nullptr || deadline.IsForever()) {
        return RealFutexWaitUntil(word, expected, deadline);
    }
    (*t_atDeadline)();
    return false;
}

void CountedFutexWake(const std::atomic<std::uint32_t>* word, int count)
{
    ++g_wakes;
    RealFutexWake(word, count);
}

extern "C" void __wrap_WakeCriticalSection(CRITICAL_SECTION* section)
{
    __real_WakeCriticalSection(section);
    if (t_atRelease != nullptr) {
        (*t_atRelease)();
    }
}

namespace
{

// Sees a change at once if both threads run, and leaves the processor if they cannot.
void AwaitAtLeast(const std::atomic<int>& value, int least)
{
    for (int look = 0; value < least; ++look) {
        if (look % 10000 == 9999) {
            std::this_thread::yield();
        }
    }
}

// Where a signal and the end of the time fall together, it is taken once or stays, never neither.
TEST(WaitMoments, SignalsAtTheDeadlineAreTakenOrStay)
{
    const HANDLE objects[] = {CreateEventA(nullptr, kFalse, kFalse, nullptr),
                              CreateSemaphoreA(nullptr, 0, 1, nullptr)};
    for (const HANDLE object : objects) {
        constexpr int kRounds = 4096;
        std::atomic<int> begun{0};
        std::atomic<int> signalled{0};
        std::jthread signaller([&] {
            for (int round = 1; round <= kRounds; ++round) {
                AwaitAtLeast(begun, round);
                if (object == objects[0]) {
                    SetEvent(object);
                } else {
                    ReleaseSemaphore(object, 1, nullptr);
                }
                signalled = round;
            }
        });
        int lost = 0;
        for (int round = 1; round <= kRounds; ++round) {
            const std::function<void()> atDeadline = [&] {
                begun = round;
                for (int pause = 0; pause < round % 1024; ++pause) {
                    g_wakes.load();
                }
            };
            t_atDeadline = &atDeadline;
            const bool taken = WaitForSingleObject(object, 60000) == WAIT_OBJECT_0;
            t_atDeadline = nullptr;
            AwaitAtLeast(signalled, round);
            lost += taken == (WaitForSingleObject(object, 0) == WAIT_OBJECT_0);
        }
        EXPECT_EQ(lost, 0);
        CloseHandle(object);
    }
}

// A signal right behind the release of the section, before the waiter sleeps, frees it.
TEST(WaitMoments, ConditionsKnowTheirWaiterBeforeTheyLetTheSectionGo)
{
    CONDITION_VARIABLE condition;
    CRITICAL_SECTION section;
    InitializeConditionVariable(&condition);
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    std::atomic<bool> signalled{false};
    const std::jthread signaller([&] {
        EnterCriticalSection(&section);
        LeaveCriticalSection(&section);
        WakeConditionVariable(&condition);
        signalled = true;
    });
    while (section.DebugInfo->ContentionCount == 0) {
        std::this_thread::yield();
    }
    const std::function<void()> untilSignalled = [&] {
        while (!signalled) {
            std::this_thread::yield();
        }
    };
    t_atRelease = &untilSignalled;
    EXPECT_EQ(SleepConditionVariableCS(&condition, &section, 1000), kTrue);
    t_atRelease = nullptr;
    LeaveCriticalSection(&section);
}

// Waiters that have given up cost a signal nothing.
TEST(WaitMoments, NobodyIsWokenWhenNobodyWaits)
{
    const HANDLE events[] = {CreateEventA(nullptr, kFalse, kFalse, nullptr),
                             CreateEventA(nullptr, kTrue, kFalse, nullptr)};
    const HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 5, nullptr);
    CONDITION_VARIABLE condition;
    CRITICAL_SECTION section;
    InitializeConditionVariable(&condition);
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EXPECT_EQ(SleepConditionVariableCS(&condition, &section, 1), kFalse);
    LeaveCriticalSection(&section);
    for (const HANDLE object : {events[0], events[1], semaphore}) {
        EXPECT_EQ(WaitForSingleObject(object, 1), WAIT_TIMEOUT);
    }
    g_wakes = 0;
    SetEvent(events[0]);
    SetEvent(events[1]);
    ReleaseSemaphore(semaphore, 1, nullptr);
    WakeConditionVariable(&condition);
    WakeAllConditionVariable(&condition);
    EXPECT_EQ(g_wakes, 0);
    for (const HANDLE object : {events[0], events[1], semaphore}) {
        EXPECT_EQ(WaitForSingleObject(object, 0), WAIT_OBJECT_0);
        CloseHandle(object);
    }
}

} // namespace
