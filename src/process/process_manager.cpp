#include "process/process_manager.h"

#include <algorithm>
#include <utility>

#include "frame/exception.h"
#include "platform/error.h"
#include "platform/process.h"
#include "platform/section_hold.h"
#include "platform/thread.h"

using namespace qv::core;
using namespace qv::platform;

// Drops the uses of the handles, not the array.
class CQVProcessManager::Scratch
{
public:
    explicit Scratch(CQVProcessManager& manager) : m_manager(manager) {}
    ~Scratch()
    {
        std::for_each_n(m_manager.m_waitHandles.get(), m_manager.m_waitCapacity,
                        [](HeldProcess& process) { HeldProcess(std::move(process)); });
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

private:
    CQVProcessManager& m_manager;
};

CQVProcessManager::CQVProcessManager()
{
    m_setMutex.emplace("CQVProcessManager::m_setMutex", 0);
}

CQVProcessManager::Node CQVProcessManager::MakeNode() const
{
    if (m_setMutex->Get() == QV_MUTEX_NONE) {
        throw EQVCoreException(E_OUTOFMEMORY);
    }
    Set spare{QV_HANDLE_NONE};
    return spare.extract(spare.begin());
}

void CQVProcessManager::Add(Node node, QVHandle process)
{
    node.value() = process;
    const LockGuard lock(m_setMutex->Get());
    const SectionHold change(&m_changes);
    m_set.insert(std::move(node));
}

void CQVProcessManager::Erase(QVHandle process)
{
    const LockGuard lock(m_setMutex->Get());
    Node erased; // freed after the change
    const SectionHold change(&m_changes);
    erased = m_set.extract(process);
}

// The handle stays in use until its entry is gone: before that, no new child can have its number.
void CQVProcessManager::Detach(QVHandle process)
{
    HeldProcess held(process);
    if (CloseHandle(held) == kFalse) {
        ThrowLastError();
    }
    if (held.IsKnown()) {
        Erase(process);
    }
}

bool CQVProcessManager::TryReap(HeldProcess& process, std::uint32_t& exitCode)
{
    if (GetExitCodeProcess(process, &exitCode) != kFalse) {
        if (exitCode == STILL_ACTIVE) {
            throw EQVCoreException(E_FAIL);
        }
        if (CloseHandle(process) != kFalse) {
            if (process.IsKnown()) {
                Erase(process.Number());
            }
            return true;
        }
    }
    if (GetLastError() != ERROR_INVALID_HANDLE) {
        ThrowLastError();
    }
    return false;
}

std::uint32_t CQVProcessManager::ReapHeld(HeldProcess& process)
{
    std::uint32_t exitCode = 0;
    if (!TryReap(process, exitCode)) {
        throw EQVCoreException(E_HANDLE);
    }
    return exitCode;
}

std::uint32_t CQVProcessManager::Reap(QVHandle process)
{
    HeldProcess held(process);
    return ReapHeld(held);
}

std::uint32_t CQVProcessManager::Join(QVHandle process)
{
    HeldProcess held(process);
    if (WaitForSingleObject(held) == WAIT_FAILED) {
        ThrowLastError();
    }
    return ReapHeld(held);
}

// Uses of the handles of all children. An entry whose handle the host has closed by other means is
// dropped: the number may be anything's by now.
std::size_t CQVProcessManager::HoldAll()
{
    if (m_waitCapacity < m_set.size()) {
        m_waitHandles.reset();
        m_waitCapacity = 0;
        m_waitHandles = std::make_unique<HeldProcess[]>(2 * m_set.size());
        m_waitCapacity = 2 * m_set.size();
    }
    std::size_t count = 0;
    for (auto entry = m_set.begin(); entry != m_set.end();) {
        const QVHandle process = *entry++;
        HeldProcess held(process);
        if (held.IsChild()) {
            m_waitHandles[count++] = std::move(held);
        } else {
            Erase(process);
        }
    }
    return count;
}

std::uint32_t CQVProcessManager::JoinChild(QVHandle& process)
{
    const LockGuard lock(m_setMutex->Get());
    for (;;) {
        process = QV_HANDLE_NONE;
        const Scratch uses(*this);
        const std::size_t count = HoldAll();
        const DWORD first = WaitForMultipleObjects(static_cast<DWORD>(count), m_waitHandles.get());
        if (first == WAIT_FAILED) {
            ThrowLastError();
        }
        process = m_waitHandles[first].Number();
        std::uint32_t exitCode = 0;
        if (TryReap(m_waitHandles[first], exitCode)) {
            return exitCode;
        }
        // Another thread was faster, or it is a child no more: then the wait is for the others.
        Erase(process);
    }
}

void CQVProcessManager::PrepareFork()
{
    EnterCriticalSection(&m_changes);
}

void CQVProcessManager::ParentAfterFork()
{
    LeaveCriticalSection(&m_changes);
}

void CQVProcessManager::ChildAfterFork()
{
    m_set.clear();
    if (m_setMutex->Get() != QV_MUTEX_NONE) {
        if (QVMutexTryAcquire(m_setMutex->Get()) == S_OK) {
            QVMutexRelease(m_setMutex->Get());
        } else {
            m_setMutex.emplace("CQVProcessManager::m_setMutex", 0); // its holder is not here
            // What a join was about to do with them, nobody knows.
            m_waitHandles.release();
            m_waitCapacity = 0;
        }
    }
    LeaveCriticalSection(&m_changes);
}
