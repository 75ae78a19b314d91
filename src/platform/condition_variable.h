// Condition variables for critical sections. A wake-up frees the thread that has waited longest,
// never one that began to wait after it.
#pragma once

#include <atomic>

#include "platform/critical_section.h"
#include "platform/wait_queue.h"

namespace qv::platform
{

struct CONDITION_VARIABLE
{
    CRITICAL_SECTION lock; // of the queue; innermost
    WaitQueue queue;
    std::atomic<DWORD> waiters; // in the queue; read without the lock
};

extern "C"
{
    void InitializeConditionVariable(CONDITION_VARIABLE* condition);
    // With or without the section.
    void WakeConditionVariable(CONDITION_VARIABLE* condition);
    void WakeAllConditionVariable(CONDITION_VARIABLE* condition);
    // Gives the section up, however often it is held, sleeps, and holds it as often again. kFalse
    // with error 1460 if the time ran out without a wake-up.
    BOOL SleepConditionVariableCS(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section,
                                  DWORD milliseconds);
}

} // namespace qv::platform
