#include <qvcore6/condition.h>

#include <string>

#include "frame/boundary.h"
#include "locks/wait_record.h"
#include "platform/condition_variable.h"
#include "platform/critical_section.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

struct ConditionRecord
{
    ConditionRecord(const char* name, std::uint32_t flags)
        : m_name(name != nullptr ? name : ""), m_flags(flags)
    {
        InitializeCriticalSection(&m_criticalSection);
        InitializeConditionVariable(&m_conditionVariable);
    }
    ~ConditionRecord() { DeleteCriticalSection(&m_criticalSection); }
    ConditionRecord(const ConditionRecord&) = delete;
    ConditionRecord& operator=(const ConditionRecord&) = delete;

    std::string m_name;
    std::uint32_t m_flags;
    CRITICAL_SECTION m_criticalSection;
    CONDITION_VARIABLE m_conditionVariable;
};

ConditionRecord* FromHandle(QVCondition condition)
{
    return reinterpret_cast<ConditionRecord*>(condition);
}

BOOL Sleep(QVCondition condition, DWORD milliseconds)
{
    ConditionRecord* const record = FromHandle(condition);
    return SleepConditionVariableCS(&record->m_conditionVariable, &record->m_criticalSection,
                                    milliseconds);
}

} // namespace

QVRESULT QVConditionCreate(const char* name, uint32_t flags, QVCondition* handleOut)
{
    *handleOut = QV_CONDITION_NONE;
    return Boundary(
        [&] { *handleOut = reinterpret_cast<QVCondition>(new ConditionRecord(name, flags)); });
}

QVRESULT QVConditionDestroy(QVCondition condition)
{
    delete FromHandle(condition);
    return S_OK;
}

QVRESULT QVConditionAcquire(QVCondition condition)
{
    EnterCriticalSection(&FromHandle(condition)->m_criticalSection);
    return S_OK;
}

QVRESULT QVConditionRelease(QVCondition condition)
{
    LeaveCriticalSection(&FromHandle(condition)->m_criticalSection);
    return S_OK;
}

QVRESULT QVConditionSignal(QVCondition condition)
{
    WakeConditionVariable(&FromHandle(condition)->m_conditionVariable);
    return S_OK;
}

QVRESULT QVConditionBroadcast(QVCondition condition)
{
    WakeAllConditionVariable(&FromHandle(condition)->m_conditionVariable);
    return S_OK;
}

QVRESULT QVConditionWait(QVCondition condition)
{
    return ResultOfCall(Sleep(condition, INFINITE));
}

QVRESULT QVConditionTimedWait(QVCondition condition, uint32_t timeoutMs)
{
    const BOOL woken = Sleep(condition, timeoutMs);
    // Of the two numbers for a time-out this is the one that the fixed table does not know.
    return woken == kFalse && GetLastError() == ERROR_TIMEOUT ? QV_E_TIMEOUT : ResultOfCall(woken);
}
