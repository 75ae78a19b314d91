#include "frame/debug_lock.h"

#include "frame/child_mutex.h"

namespace qv::core
{

void FreeDebugLockInChild()
{
    if (g_globalData.m_debugMutex != nullptr) {
        FreeMutexInChild(*g_globalData.m_debugMutex);
    }
}

} // namespace qv::core
