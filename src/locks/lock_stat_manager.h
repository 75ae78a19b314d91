// Keeps the table of mutexes with statistics.
#pragma once

#include "locks/lock_guard.h"
#include "locks/lock_stat_table.h"
#include "platform/critical_section.h"

class CQVLockStatManager
{
public:
    CQVLockStatManager() = default;
    // Live mutexes end here too.
    ~CQVLockStatManager();
    CQVLockStatManager(const CQVLockStatManager&) = delete;
    CQVLockStatManager& operator=(const CQVLockStatManager&) = delete;

    // Without memory the mutex is not in the table, and works all the same.
    void AddLock(std::int32_t type, IMutex* mutex);
    // False if the mutex was not in the table and could not be entered: it is the caller's.
    bool ChangeLockType(std::int32_t newType, std::int32_t oldType, IMutex* mutex);

    // Zeroes the numbers of live mutexes and frees the destroyed ones.
    void ResetAll();
    void Dump(const char* name, const char16_t* file) const;

    // Around a fork, by the thread that forks: the child finds the table whole and its lock free.
    void PrepareFork();
    void ParentAfterFork();
    void ChildAfterFork();

private:
    qv::core::OwnedMutex m_mutex{"CQVLockStatManager::m_mutex", QV_MUTEX_UNTRACKED};
    // Held for moments, inside m_mutex, while the table changes. A fork waits for this one alone:
    // a dump may take as long as its file takes, but changes nothing.
    qv::platform::CRITICAL_SECTION m_changing{};
    qv::core::LockTable m_lockTable; // under m_mutex
};
