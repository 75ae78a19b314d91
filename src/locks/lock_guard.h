// Holds a mutex from construction to the end of the scope.
#pragma once

#include <qvcore6/mutex.h>

#include <cstdint>

#include "frame/exception.h"

namespace qv::core
{

class LockGuard
{
public:
    // A table whose mutex could not be made at start has none: it refuses instead of racing.
    explicit LockGuard(QVMutex mutex) : m_mutex(mutex)
    {
        if (mutex == QV_MUTEX_NONE) {
            throw EQVCoreException(E_OUTOFMEMORY);
        }
        ThrowIfFailed(QVMutexAcquire(mutex));
    }
    ~LockGuard() { QVMutexRelease(m_mutex); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    QVMutex m_mutex;
};

// Owns a mutex of one of the library's tables. Without memory for it the handle stays none.
class OwnedMutex
{
public:
    OwnedMutex(const char* name, std::uint32_t flags) { QVMutexCreate(name, flags, &m_mutex); }
    ~OwnedMutex()
    {
        if (m_mutex != QV_MUTEX_NONE) {
            QVMutexDestroy(m_mutex);
        }
    }
    OwnedMutex(const OwnedMutex&) = delete;
    OwnedMutex& operator=(const OwnedMutex&) = delete;

    QVMutex Get() const { return m_mutex; }

    // Around a fork, where a table without its mutex has nothing to keep still.
    void HoldIfMade() const
    {
        if (m_mutex != QV_MUTEX_NONE) {
            QVMutexAcquire(m_mutex);
        }
    }
    void ReleaseIfMade() const
    {
        if (m_mutex != QV_MUTEX_NONE) {
            QVMutexRelease(m_mutex);
        }
    }

private:
    QVMutex m_mutex = QV_MUTEX_NONE;
};

} // namespace qv::core
