// Holds the diagnostics' mutex for a scope, if there is one.
#pragma once

#include "frame/global_data.h"

namespace qv::core
{

// Before the start and after the stop there is none: diagnostics then go unlocked.
class DebugLock
{
public:
    DebugLock()
        : m_mutex(g_globalData.m_debugMutex != nullptr ? *g_globalData.m_debugMutex : QV_MUTEX_NONE)
    {
        if (m_mutex != QV_MUTEX_NONE) {
            QVMutexAcquire(m_mutex);
        }
    }
    ~DebugLock()
    {
        if (m_mutex != QV_MUTEX_NONE) {
            QVMutexRelease(m_mutex);
        }
    }
    DebugLock(const DebugLock&) = delete;
    DebugLock& operator=(const DebugLock&) = delete;

private:
    QVMutex m_mutex;
};

// In a forked child: a thread of the parent may have held the mutex, and a box may hold it for
// hours. It guards nothing that could be half done, so the child starts with a free one.
void FreeDebugLockInChild();

} // namespace qv::core
