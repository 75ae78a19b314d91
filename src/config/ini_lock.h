// The one lock of ini files, across threads and processes.
#pragma once

#include <qvcore6/semaphore.h>

#include "frame/exception.h"
#include "platform/wait.h"

namespace qv::core
{

// The named semaphore "QVCore_IniFileLock", which a process takes for a whole cycle of reading and
// writing. A semaphore does not know who has taken it. So a named mutex is taken before it: if a
// process is killed with both, the next one finds that the mutex was abandoned, and gives the unit
// back in the dead one's stead.
class IniLock
{
public:
    // Throws EQVCoreException.
    IniLock();
    ~IniLock();
    IniLock(const IniLock&) = delete;
    IniLock& operator=(const IniLock&) = delete;

    // Throws EQVCoreException. It does not nest.
    void Acquire();
    QVRESULT Release();

private:
    QVRESULT WaitInPlaceOfDead();

    QVSemaphore m_semaphore = QV_SEMAPHORE_NONE;
    platform::HANDLE m_owner = nullptr;
};

// Holds the lock for a scope. The end of a scope that is not left by an exception comes after
// Release(), which tells of failures.
class IniLockHold
{
public:
    explicit IniLockHold(IniLock& lock) : m_lock(&lock) { lock.Acquire(); }
    // By an exception, which says more than a failing release.
    ~IniLockHold()
    {
        if (m_lock != nullptr) {
            m_lock->Release();
        }
    }
    IniLockHold(const IniLockHold&) = delete;
    IniLockHold& operator=(const IniLockHold&) = delete;

    void Release()
    {
        IniLock* const lock = m_lock;
        m_lock = nullptr;
        ThrowIfFailed(lock->Release());
    }

private:
    IniLock* m_lock;
};

} // namespace qv::core
