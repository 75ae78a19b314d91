// A library that uses the exported functions from its own constructor and destructor.
#include <qvcore6/mutex.h>
#include <qvcore6/result.h>

#include <cstdlib>

namespace
{

QVMutex g_mutex = QV_MUTEX_NONE;

__attribute__((constructor)) void Arrive()
{
    if (QVMutexCreate("late user", 0, &g_mutex) < 0 || QVMutexAcquire(g_mutex) < 0) {
        std::abort();
    }
}

__attribute__((destructor)) void Leave()
{
    if (QVMutexRelease(g_mutex) < 0 || QVMutexDestroy(g_mutex) < 0 ||
        QVMutexCreate("later still", 0, &g_mutex) < 0 || QVMutexDestroy(g_mutex) < 0) {
        std::abort();
    }
}

} // namespace

// True if the constructor got its mutex, and the mutex is still held by the loading thread.
extern "C" QV_EXPORT int LateUserIsUp()
{
    return g_mutex != QV_MUTEX_NONE && QVMutexTryAcquire(g_mutex) >= 0 &&
           QVMutexRelease(g_mutex) == S_OK;
}
