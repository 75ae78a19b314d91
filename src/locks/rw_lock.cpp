#include "locks/rw_lock.h"

#include <qvcore6/result.h>

#include <memory>

#include "frame/exception.h"
#include "platform/section_hold.h"
#include "platform/thread.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

CRITICAL_SECTION* SectionOf(QVMutex mutex)
{
    return static_cast<CRITICAL_SECTION*>(QVMutexGetOSMutex(mutex));
}

} // namespace

CQVRWLockImpl::CQVRWLockImpl(const char* name, std::uint32_t flags) : m_name(name), m_flags(flags)
{
    const std::string gateName = m_name + "::CQVRWLockImpl::m_writerGate";
    const std::string lockName = m_name + "::CQVRWLockImpl::m_lock";
    const std::string arrayName = m_name + "::CQVRWLockImpl::m_arrayLock";
    auto gate = std::make_unique<qv::core::Gate>(gateName.c_str(), 0);
    ThrowIfFailed(gate->Open());
    m_writerGate = gate.release()->ToHandle();
    QVMutexCreate(lockName.c_str(), 0, &m_lock);
    QVMutexCreate(arrayName.c_str(), 0, &m_arrayLock);
    if (m_lock != QV_MUTEX_NONE && m_arrayLock != QV_MUTEX_NONE) {
        m_lockSection = SectionOf(m_lock);
        m_arraySection = SectionOf(m_arrayLock);
    }
}

CQVRWLockImpl::~CQVRWLockImpl()
{
    for (const QVMutex mutex : {m_arrayLock, m_lock}) {
        if (mutex != QV_MUTEX_NONE) {
            QVMutexDestroy(mutex);
        }
    }
    QVGateDestroy(m_writerGate);
}

QVRESULT CQVRWLockImpl::AddReader(std::uint32_t thread)
{
    // Only the writer itself gets here while it writes. Its read has no entry until the writing
    // ends; then there is room for one, as nobody else has any.
    if (IsWriting()) {
        ++m_savedReadCount;
        return S_OK;
    }
    m_readers.MakeRoom();
    if (AddToHoldCount(1) == 1) {
        const QVRESULT closed = Gate().Close();
        if (closed < 0) {
            AddToHoldCount(-1);
            return closed;
        }
    }
    m_readers.Append(thread, 1);
    return S_OK;
}

QVRESULT CQVRWLockImpl::DropRead(std::uint32_t thread)
{
    RWLockReaders::Entry* const entry = m_readers.Find(thread);
    if (entry == nullptr) {
        return E_FAIL;
    }
    const std::size_t index = m_readers.IndexOf(entry);
    const bool isLast = --entry->count == 0;
    if (isLast) {
        m_readers.Remove(index);
    }
    const std::int32_t left = AddToHoldCount(-1);
    // What is left may be the reads of the one that waits to write.
    if (left != 0 && !m_readers.IsOnlyReader(m_waitingWriter.load(std::memory_order_relaxed))) {
        return S_OK;
    }
    const QVRESULT opened = Gate().Open();
    if (opened < 0) {
        // Whoever waits at the gate would wait for ever: the read stays, to be released again.
        AddToHoldCount(1);
        if (isLast) {
            m_readers.PutBack(index, thread);
        } else {
            ++entry->count;
        }
    }
    return opened;
}

QVRESULT CQVRWLockImpl::AcquireFirstRead(std::uint32_t thread)
{
    const SectionHold lock(m_lockSection);
    const SectionHold array(m_arraySection);
    return AddReader(thread);
}

QVRESULT CQVRWLockImpl::TryAcquireRead()
{
    if (!IsWhole()) {
        return E_OUTOFMEMORY;
    }
    const std::uint32_t self = GetCurrentThreadId();
    {
        const SectionHold array = SectionHold::Try(m_arraySection);
        if (!array) {
            return E_FAIL;
        }
        if (NestRead(self)) {
            return S_OK;
        }
    }
    const SectionHold lock = SectionHold::Try(m_lockSection);
    if (!lock) {
        return E_FAIL;
    }
    const SectionHold array = SectionHold::Try(m_arraySection);
    return array ? AddReader(self) : E_FAIL;
}

QVRESULT CQVRWLockImpl::ReleaseRead() noexcept
{
    // A thread that holds a read sees true only if it is the writer. One that holds nothing must
    // not give the writer's reads back.
    if (IsWriting()) {
        if (!HoldsCriticalSection(*m_lockSection) || m_savedReadCount <= 0) {
            return E_FAIL;
        }
        --m_savedReadCount;
        return S_OK;
    }
    if (!IsWhole()) {
        return E_FAIL;
    }
    const SectionHold array(m_arraySection);
    return DropRead(GetCurrentThreadId());
}

bool CQVRWLockImpl::IsOnlyReader(std::uint32_t thread)
{
    const SectionHold array(m_arraySection);
    return m_readers.IsOnlyReader(thread);
}

void CQVRWLockImpl::StopWaiting()
{
    const SectionHold array(m_arraySection);
    m_waitingWriter.store(0, std::memory_order_relaxed);
    // Somebody may have opened the gate for this thread, which still reads.
    if (m_holdCount.load(std::memory_order_relaxed) != 0) {
        Gate().Close();
    }
}

bool CQVRWLockImpl::CanWriteAtOnce(std::uint32_t thread)
{
    bool isOnlyReader = false;
    {
        const SectionHold array = SectionHold::Try(m_arraySection);
        if (!array) {
            return false;
        }
        isOnlyReader = m_readers.IsOnlyReader(thread);
    }
    return isOnlyReader || Gate().TryWait() >= 0;
}

void CQVRWLockImpl::BeginWriting()
{
    // What is left are the reads of the thread that begins to write.
    m_savedReadCount = m_holdCount.load(std::memory_order_relaxed);
    m_holdCount.store(1, std::memory_order_relaxed);
    m_waitingWriter.store(0, std::memory_order_relaxed);
    m_writing.store(true, std::memory_order_relaxed);
}

QVRESULT CQVRWLockImpl::AcquireFirstWrite() noexcept
{
    const std::uint32_t self = GetCurrentThreadId();
    // Before the table is looked at: a reader that leaves after that look finds who is waiting.
    m_waitingWriter.store(self, std::memory_order_relaxed);
    if (!IsOnlyReader(self)) {
        const QVRESULT passed = Gate().Wait();
        if (passed < 0) {
            StopWaiting();
            LeaveCriticalSection(m_lockSection);
            return passed;
        }
    }
    BeginWriting();
    return S_OK;
}

QVRESULT CQVRWLockImpl::TryAcquireWrite() noexcept
{
    if (!IsWhole()) {
        return E_OUTOFMEMORY;
    }
    SectionHold lock = SectionHold::Try(m_lockSection);
    if (!lock) {
        return E_FAIL;
    }
    if (IsWriting()) {
        AddToHoldCount(1);
        lock.Keep();
        return S_OK;
    }
    // Does not say that it waits: a reader that leaves would open the gate for a thread that gives
    // up meanwhile, and leave it open beside the reads which that thread keeps.
    if (!CanWriteAtOnce(GetCurrentThreadId())) {
        return E_FAIL;
    }
    BeginWriting();
    lock.Keep();
    return S_OK;
}

QVRESULT CQVRWLockImpl::ReleaseLastWrite() noexcept
{
    // A wait for other readers has left the gate open, and reads taken while writing have not
    // closed it: the next writer would walk in beside the reads that stay. Closed before anything
    // changes, so that a failure leaves a write hold that can be released again.
    if (m_savedReadCount != 0) {
        const QVRESULT closed = Gate().Close();
        if (closed < 0) {
            return closed;
        }
    }
    m_holdCount.store(m_savedReadCount, std::memory_order_relaxed);
    {
        const SectionHold array(m_arraySection);
        m_readers.SetOnly(GetCurrentThreadId(), m_savedReadCount);
    }
    m_savedReadCount = 0;
    m_writing.store(false, std::memory_order_relaxed);
    LeaveCriticalSection(m_lockSection);
    return S_OK;
}
