#include <qvcore6/rwlock.h>

#include "frame/boundary.h"
#include "locks/rw_lock.h"

using qv::core::Boundary;

namespace
{

CQVRWLockImpl* FromHandle(QVRWLock lock)
{
    return reinterpret_cast<CQVRWLockImpl*>(lock);
}

} // namespace

QVRESULT QVRWLockCreate(const char* name, uint32_t flags, QVRWLock* handleOut)
{
    *handleOut = QV_RWLOCK_NONE;
    return Boundary([&] {
        *handleOut =
            reinterpret_cast<QVRWLock>(new CQVRWLockImpl(name != nullptr ? name : "", flags));
    });
}

QVRESULT QVRWLockDestroy(QVRWLock lock)
{
    delete FromHandle(lock);
    return S_OK;
}

QVRESULT QVRWLockAcquireRead(QVRWLock lock)
{
    return Boundary([lock] { return FromHandle(lock)->AcquireRead(); });
}

QVRESULT QVRWLockAcquireWrite(QVRWLock lock)
{
    return Boundary([lock] { return FromHandle(lock)->AcquireWrite(); });
}

QVRESULT QVRWLockReleaseRead(QVRWLock lock)
{
    return Boundary([lock] { return FromHandle(lock)->ReleaseRead(); });
}

QVRESULT QVRWLockReleaseWrite(QVRWLock lock)
{
    return Boundary([lock] { return FromHandle(lock)->ReleaseWrite(); });
}

QVRESULT QVRWLockTryAcquireRead(QVRWLock lock)
{
    return Boundary([lock] { return FromHandle(lock)->TryAcquireRead(); });
}

QVRESULT QVRWLockTryAcquireWrite(QVRWLock lock)
{
    return Boundary([lock] { return FromHandle(lock)->TryAcquireWrite(); });
}
