// The reader-writer lock, for nesting of every kind on one thread.
//
//   m_lock         held by a writer from its first write hold to its last; new readers pass through
//   m_writerGate   closed by the first reader, opened by the last: a writer waits here, with m_lock
//                  held, for the readers that are inside
//   m_readers      tells a thread that reads already from a new one: it neither waits behind a
//                  writer nor, when it upgrades, for itself
//
//   State           m_writing  m_holdCount     m_savedReadCount   m_readers           Gate
//   free            false      0               0                  empty               either
//   read            false      all reads       0                  every reader        closed
//   writer waits    false      all reads       0                  every reader        closed until
//                                                                 the others have left
//   write           true       write holds     the writer's reads empty or the writer's  ignored
//
// Lock order: m_lock, m_arrayLock. The gate is awaited with m_lock held, never with m_arrayLock.
// Invariants: m_writing and m_savedReadCount change only under m_lock. While somebody writes, the
// writer holds m_lock m_holdCount times and no other thread holds a read; else m_holdCount is the
// sum of the counts in m_readers, and the gate is closed as long as that is not 0 unless the one
// reader that is left waits to write.
#pragma once

#include <qvcore6/gate.h>
#include <qvcore6/mutex.h>
#include <qvcore6/result.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "locks/gate.h"
#include "locks/rw_lock_readers.h"
#include "platform/critical_section.h"
#include "platform/section_hold.h"
#include "platform/thread.h"

class CQVRWLockImpl
{
public:
    // Throws what the gate's calls answer, and without memory for the table or the names.
    CQVRWLockImpl(const char* name, std::uint32_t flags);
    ~CQVRWLockImpl();
    CQVRWLockImpl(const CQVRWLockImpl&) = delete;
    CQVRWLockImpl& operator=(const CQVRWLockImpl&) = delete;

    // All answer the code of a failing gate call or exhausted memory with everything as it was.
    QVRESULT AcquireRead();
    QVRESULT AcquireWrite() noexcept;
    QVRESULT ReleaseRead() noexcept;
    QVRESULT ReleaseWrite() noexcept;
    QVRESULT TryAcquireRead();
    QVRESULT TryAcquireWrite() noexcept;

private:
    friend class RWLockInspector; // looks, in tests

    qv::core::Gate& Gate() { return *qv::core::Gate::FromHandle(m_writerGate); }
    bool IsWhole() const { return m_arraySection != nullptr; }
    std::int32_t AddToHoldCount(std::int32_t difference)
    {
        return m_holdCount.fetch_add(difference) + difference;
    }
    bool IsWriting() const { return m_writing.load(std::memory_order_relaxed); }

    // With m_arrayLock held.
    bool NestRead(std::uint32_t thread);
    QVRESULT AddReader(std::uint32_t thread);
    QVRESULT DropRead(std::uint32_t thread);

    // With neither held.
    QVRESULT AcquireFirstRead(std::uint32_t thread);

    // With m_lock held.
    QVRESULT AcquireFirstWrite() noexcept; // leaves m_lock if it fails
    QVRESULT ReleaseLastWrite() noexcept;
    bool IsOnlyReader(std::uint32_t thread);
    bool CanWriteAtOnce(std::uint32_t thread);
    void BeginWriting();
    void StopWaiting();

    QVMutex m_lock = QV_MUTEX_NONE;
    QVGate m_writerGate = QV_GATE_NONE;
    std::atomic<std::int32_t> m_holdCount{0};
    std::int32_t m_savedReadCount = 0;
    qv::core::RWLockReaders m_readers;
    std::atomic<std::uint32_t> m_waitingWriter{0};
    QVMutex m_arrayLock = QV_MUTEX_NONE;
    std::atomic<bool> m_writing{false};
    std::string m_name;
    std::uint32_t m_flags;

    // The locks inside the two mutexes, entered without a detour. Both null if a mutex is missing:
    // such a lock refuses every hold, as one that excluded nobody would be worse than none.
    qv::platform::CRITICAL_SECTION* m_lockSection = nullptr;
    qv::platform::CRITICAL_SECTION* m_arraySection = nullptr;
};

// Nested holds pass here without a call.

inline bool CQVRWLockImpl::NestRead(std::uint32_t thread)
{
    qv::core::RWLockReaders::Entry* const entry = m_readers.Find(thread);
    if (entry == nullptr) {
        return false;
    }
    if (IsWriting()) {
        ++m_savedReadCount;
    } else {
        AddToHoldCount(1);
        ++entry->count;
    }
    return true;
}

inline QVRESULT CQVRWLockImpl::AcquireRead()
{
    if (!IsWhole()) {
        return E_OUTOFMEMORY;
    }
    const std::uint32_t self = qv::platform::GetCurrentThreadId();
    {
        const qv::platform::SectionHold array(m_arraySection);
        if (NestRead(self)) {
            return S_OK;
        }
    }
    return AcquireFirstRead(self);
}

inline QVRESULT CQVRWLockImpl::AcquireWrite() noexcept
{
    if (!IsWhole()) {
        return E_OUTOFMEMORY;
    }
    qv::platform::EnterCriticalSection(m_lockSection);
    if (!IsWriting()) {
        return AcquireFirstWrite();
    }
    AddToHoldCount(1);
    return S_OK;
}

inline QVRESULT CQVRWLockImpl::ReleaseWrite() noexcept
{
    if (!IsWriting()) {
        return E_FAIL;
    }
    if (m_holdCount.load(std::memory_order_relaxed) == 1) {
        return ReleaseLastWrite();
    }
    AddToHoldCount(-1);
    qv::platform::LeaveCriticalSection(m_lockSection);
    return S_OK;
}
