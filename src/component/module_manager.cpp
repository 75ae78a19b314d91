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
    if (m_setLock.Get() != QV_MUTEX_NONE) {
        QVMutexAcquire(m_setLock.Get());
    }
}

void CQVModuleManager::ParentAfterFork()
{
    if (m_setLock.Get() != QV_MUTEX_NONE) {
        QVMutexRelease(m_setLock.Get());
    }
}

void CQVModuleManager::ChildAfterFork()
{
    ParentAfterFork();
}
