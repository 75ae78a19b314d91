#include "frame/child_mutex.h"

#include "platform/critical_section.h"

namespace qv::core
{

void FreeMutexInChild(QVMutex mutex)
{
    if (QVMutexTryAcquire(mutex) >= 0) {
        QVMutexRelease(mutex); // free, or the forking thread's own
        return;
    }
    platform::InitializeCriticalSection(
        static_cast<platform::CRITICAL_SECTION*>(QVMutexGetOSMutex(mutex)));
}

} // namespace qv::core
