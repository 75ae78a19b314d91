// The set of modules that count as initialised.
#pragma once

#include <cstdint>
#include <set>

#include "locks/lock_guard.h"

class CQVModuleManager
{
public:
    // Throws std::bad_alloc with the set as it was.
    void SetInitialized(std::uint32_t module, bool initialized);
    bool IsInitialized(std::uint32_t module) const;

    // Around a fork, by the thread that forks: the child finds the set whole and its lock free.
    void PrepareFork();
    void ParentAfterFork();
    void ChildAfterFork();

private:
    qv::core::OwnedMutex m_setLock{"CQVModuleManager::m_setLock", 0};
    std::set<std::uint32_t> m_modules; // under m_setLock
};
