#include <qvcore6/mutex.h>

#include "frame/boundary.h"
#include "frame/global_data.h"
#include "locks/lock_stat_manager.h"
#include "locks/mutex.h"

namespace
{

IMutex* FromHandle(QVMutex mutex)
{
    return reinterpret_cast<IMutex*>(mutex);
}

QVMutex ToHandle(IMutex* mutex)
{
    return reinterpret_cast<QVMutex>(mutex);
}

bool HasStats(IMutex& mutex)
{
    return (mutex.GetFlags() & QV_MUTEX_STATS) != 0;
}

// True if the table keeps the mutex for its numbers, and with it the reference of the handle.
bool KeepForNumbers(IMutex& mutex)
{
    return HasStats(mutex) && g_globalData.m_lockStatManager != nullptr &&
           g_globalData.m_lockStatManager->ChangeLockType(qv::core::kDestroyedMutex,
                                                          qv::core::kLiveMutex, &mutex);
}

} // namespace

QVRESULT QVMutexCreate(const char* name, uint32_t flags, QVMutex* handleOut)
{
    *handleOut = QV_MUTEX_NONE;
    return qv::core::Boundary([&]() -> QVRESULT {
        // A library whose start ran out of memory stays loaded without a provider.
        if (g_globalData.m_mutexProvider == nullptr) {
            return E_FAIL;
        }
        IMutex* mutex = nullptr;
        const QVRESULT result =
            g_globalData.m_mutexProvider->CreateMutex(name != nullptr ? name : "", flags, &mutex);
        if (result < 0) {
            return result;
        }
        if (HasStats(*mutex) && g_globalData.m_lockStatManager != nullptr) {
            g_globalData.m_lockStatManager->AddLock(qv::core::kLiveMutex, mutex);
        }
        *handleOut = ToHandle(mutex);
        return result;
    });
}

QVRESULT QVMutexDestroy(QVMutex mutex)
{
    return qv::core::Boundary([&] {
        IMutex* const object = FromHandle(mutex);
        if (KeepForNumbers(*object)) {
            return S_OK;
        }
        const QVRESULT count = object->LowerCount();
        if (count == 0) {
            delete object;
        }
        return count;
    });
}

QVRESULT QVMutexAcquire(QVMutex mutex)
{
    return FromHandle(mutex)->Acquire();
}

QVRESULT QVMutexTryAcquire(QVMutex mutex)
{
    return FromHandle(mutex)->TryAcquire();
}

QVRESULT QVMutexRelease(QVMutex mutex)
{
    return FromHandle(mutex)->Release();
}

int32_t QVMutexAssertOwnership(QVMutex mutex, int16_t expectOwned)
{
    return FromHandle(mutex)->AssertOwnership(expectOwned);
}

void* QVMutexGetOSMutex(QVMutex mutex)
{
    return FromHandle(mutex)->GetOSMutex();
}
