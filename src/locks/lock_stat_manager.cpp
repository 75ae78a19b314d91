#include "locks/lock_stat_manager.h"

#include "frame/boundary.h"
#include "locks/lock_stat_dump.h"
#include "platform/section_hold.h"

using qv::core::Boundary;
using qv::core::kDestroyedMutex;
using qv::core::LockGuard;
using qv::core::LockKey;
using qv::core::LockTable;
using qv::platform::SectionHold;

namespace
{

LockKey KeyOf(std::int32_t type, const IMutex* mutex)
{
    return {type, reinterpret_cast<std::uintptr_t>(mutex)};
}

// Takes the row out and gives its reference back. Gives the row behind it.
LockTable::iterator Drop(LockTable& table, LockTable::iterator row)
{
    IMutex* const mutex = row->second;
    const auto next = table.erase(row);
    if (mutex->LowerCount() == 0) {
        delete mutex;
    }
    return next;
}

} // namespace

CQVLockStatManager::~CQVLockStatManager()
{
    while (!m_lockTable.empty()) {
        Drop(m_lockTable, m_lockTable.begin());
    }
}

void CQVLockStatManager::AddLock(std::int32_t type, IMutex* mutex)
{
    Boundary([&] {
        const LockGuard lock(m_mutex.Get());
        const SectionHold changing(&m_changing);
        m_lockTable.insert_or_assign(KeyOf(type, mutex), mutex);
    });
}

// In one hold: between two, a reset could free the mutex and leave its old row behind. A row that
// is there moves without an allocation, so that no destroyed mutex is ever lost.
bool CQVLockStatManager::ChangeLockType(std::int32_t newType, std::int32_t oldType, IMutex* mutex)
{
    return Boundary([&] {
               const LockGuard lock(m_mutex.Get());
               const SectionHold changing(&m_changing);
               LockTable::node_type row = m_lockTable.extract(KeyOf(oldType, mutex));
               if (row.empty()) {
                   m_lockTable.insert_or_assign(KeyOf(newType, mutex), mutex);
               } else {
                   row.key() = KeyOf(newType, mutex);
                   m_lockTable.insert(std::move(row));
               }
           }) >= 0;
}

void CQVLockStatManager::ResetAll()
{
    const LockGuard lock(m_mutex.Get());
    const SectionHold changing(&m_changing);
    for (auto row = m_lockTable.begin(); row != m_lockTable.end();) {
        if (row->first.first == kDestroyedMutex) {
            row = Drop(m_lockTable, row);
        } else {
            row->second->ResetStats();
            ++row;
        }
    }
}

void CQVLockStatManager::Dump(const char* name, const char16_t* file) const
{
    const LockGuard lock(m_mutex.Get());
    qv::core::DumpLockTable(m_lockTable, name, file);
}

void CQVLockStatManager::PrepareFork()
{
    qv::platform::EnterCriticalSection(&m_changing);
}

void CQVLockStatManager::ParentAfterFork()
{
    qv::platform::LeaveCriticalSection(&m_changing);
}

void CQVLockStatManager::ChildAfterFork()
{
    qv::platform::LeaveCriticalSection(&m_changing);
    // Whoever held the table's mutex is gone, and had not begun to change anything.
    if (m_mutex.Get() != QV_MUTEX_NONE) {
        qv::platform::InitializeCriticalSection(
            static_cast<qv::platform::CRITICAL_SECTION*>(QVMutexGetOSMutex(m_mutex.Get())));
    }
}
