#include "component/module_manager.h"

using qv::core::LockGuard;

void CQVModuleManager::SetInitialized(std::uint32_t module, bool initialized)
{
    const LockGuard lock(m_setLock.Get());
    if (initialized) {
        m_modules.insert(module);
    } else {
        m_modules.erase(module);
    }
}

bool CQVModuleManager::IsInitialized(std::uint32_t module) const
{
    const LockGuard lock(m_setLock.Get());
    return m_modules.contains(module);
}

// Held only briefly by anyone, so it may be waited for.
void CQVModuleManager::PrepareFork()
{
    m_setLock.HoldIfMade();
}

void CQVModuleManager::ParentAfterFork()
{
    m_setLock.ReleaseIfMade();
}

void CQVModuleManager::ChildAfterFork()
{
    ParentAfterFork();
}
