/*
 * Reader-writer locks that nest and upgrade.
 */
#ifndef QVCORE6_RWLOCK_H
#define QVCORE6_RWLOCK_H

#include <qvcore6/base.h>

/* A reader-writer lock; QV_RWLOCK_NONE (all bits set) stands for none. */
typedef struct QVRWLockTag* QVRWLock;
#define QV_RWLOCK_NONE QV_NO_HANDLE_(QVRWLock)

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVRWLockCreate(const char* name, uint32_t flags, QVRWLock* handleOut);
QV_EXPORT QVRESULT QVRWLockDestroy(QVRWLock lock);
QV_EXPORT QVRESULT QVRWLockAcquireRead(QVRWLock lock);
QV_EXPORT QVRESULT QVRWLockAcquireWrite(QVRWLock lock);
QV_EXPORT QVRESULT QVRWLockReleaseRead(QVRWLock lock);
QV_EXPORT QVRESULT QVRWLockReleaseWrite(QVRWLock lock);
QV_EXPORT QVRESULT QVRWLockTryAcquireRead(QVRWLock lock);
QV_EXPORT QVRESULT QVRWLockTryAcquireWrite(QVRWLock lock);

QV_END_DECLS

#endif
