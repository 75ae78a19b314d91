#include "frame/debug_lock.h"

#include "platform/critical_section.h"

namespace qv::core
{

void FreeDebugLockInChild()
{
    if (g_globalData.m_debugMutex == nullptr) {
        return;
    }
    const QVMutex mutex = *g_globalData.m_debugMutex;
    if (QVMutexTryAcquire(mutex) >= 0) {
        QVMutexRelease(mutex); // free, or the forking thread's own
        return;
    }
    platform::InitializeCriticalSection(
        static_cast<platform::CRITICAL_SECTION*>(QVMutexGetOSMutex(mutex)));
}

} // namespace qv::core
