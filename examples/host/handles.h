// Owners of the library's handles: each ends what it holds, in the order of the scope.
#pragma once

#include <qvcore6/event.h>
#include <qvcore6/mutex.h>
#include <qvcore6/rwlock.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "store.h"

namespace host
{

inline void MustWork(QVRESULT result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + InWords(result));
    }
}

class Mutex
{
public:
    Mutex(const char* name, uint32_t flags)
    {
        MustWork(QVMutexCreate(name, flags, &m_handle), "no mutex can be made");
    }
    ~Mutex() { QVMutexDestroy(m_handle); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    QVMutex Handle() const { return m_handle; }

private:
    QVMutex m_handle = QV_MUTEX_NONE;
};

class MutexHold
{
public:
    explicit MutexHold(const Mutex& mutex) : m_mutex(mutex.Handle()) { QVMutexAcquire(m_mutex); }
    ~MutexHold() { QVMutexRelease(m_mutex); }
    MutexHold(const MutexHold&) = delete;
    MutexHold& operator=(const MutexHold&) = delete;

private:
    QVMutex m_mutex;
};

class RWLock
{
public:
    explicit RWLock(const char* name)
    {
        MustWork(QVRWLockCreate(name, 0, &m_handle), "no reader-writer lock can be made");
    }
    ~RWLock() { QVRWLockDestroy(m_handle); }
    RWLock(const RWLock&) = delete;
    RWLock& operator=(const RWLock&) = delete;
    QVRWLock Handle() const { return m_handle; }

private:
    QVRWLock m_handle = QV_RWLOCK_NONE;
};

class ReadHold
{
public:
    explicit ReadHold(const RWLock& lock) : m_lock(lock.Handle())
    {
        MustWork(QVRWLockAcquireRead(m_lock), "the result table cannot be read");
    }
    ~ReadHold() { QVRWLockReleaseRead(m_lock); }
    ReadHold(const ReadHold&) = delete;
    ReadHold& operator=(const ReadHold&) = delete;

private:
    QVRWLock m_lock;
};

class WriteHold
{
public:
    explicit WriteHold(const RWLock& lock) : m_lock(lock.Handle())
    {
        MustWork(QVRWLockAcquireWrite(m_lock), "the result table cannot be changed");
    }
    ~WriteHold() { QVRWLockReleaseWrite(m_lock); }
    WriteHold(const WriteHold&) = delete;
    WriteHold& operator=(const WriteHold&) = delete;

private:
    QVRWLock m_lock;
};

// An auto-reset event.
class Event
{
public:
    explicit Event(const char* name)
    {
        MustWork(QVEventCreate(name, 0, &m_handle), "no event can be made");
    }
    ~Event() { QVEventDestroy(m_handle); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    QVEvent Handle() const { return m_handle; }

private:
    QVEvent m_handle = QV_EVENT_NONE;
};

} // namespace host
