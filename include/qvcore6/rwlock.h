/*
 * Reader-writer locks that nest and upgrade: many threads read, or one thread writes.
 *
 * On one thread all four kinds of nesting work: read in read, write in write, read in write, and
 * write in read, the upgrade. Holds are released as often as they were taken, the two kinds in any
 * order. Reads that a thread keeps when its last write hold ends go on as reads. A hold belongs to
 * the thread that took it.
 *
 *     QVRWLock lock;
 *     if (QVRWLockCreate("prices", 0, &lock) < 0) {
 *         return;
 *     }
 *     if (QVRWLockAcquireRead(lock) >= 0) {
 *         QVRWLockReleaseRead(lock);
 *     }
 *     QVRWLockDestroy(lock);
 *
 * Guaranteed: what was written under a write hold is seen under every later hold. A writer that
 * waits keeps new readers out, so readers that come and go cannot starve it; a thread that already
 * reads takes further reads all the same. A call that fails leaves the lock as it was.
 *
 * Not guaranteed: an order among those who wait. Not detected, and a deadlock: a thread that holds
 * a read asks for write while another thread is on its way to write; each then waits for the other.
 * So among threads that may read at the same time at most one upgrades; others release their read
 * first, or try. A read that a thread holds when it forks cannot be released in the child. One that
 * it holds when it ends stays, for a later thread to which the system gives the same id.
 *
 * The lock is local to the process. No function tests its handle; any thread may call any function
 * on a live one. A free lock costs a few atomic operations each way and no system call.
 */
#ifndef QVCORE6_RWLOCK_H
#define QVCORE6_RWLOCK_H

#include <qvcore6/base.h>

/* A reader-writer lock; QV_RWLOCK_NONE (all bits set) stands for none. */
typedef struct QVRWLockTag* QVRWLock;
#define QV_RWLOCK_NONE QV_NO_HANDLE_(QVRWLock)

QV_BEGIN_DECLS

/*
 * Makes a free lock. The name, of which null counts as the empty one, is for its owner; no flag has
 * an effect. *handleOut is QV_RWLOCK_NONE after a failure.
 * S_OK; E_OUTOFMEMORY. S_OK too without the lock's inner mutexes, for which there was no memory or
 * no started library: such a lock refuses every hold.
 */
QV_EXPORT QVRESULT QVRWLockCreate(const char* name, uint32_t flags, QVRWLock* handleOut);

/* Destroys a free lock that nobody waits for; null is accepted. S_OK. */
QV_EXPORT QVRESULT QVRWLockDestroy(QVRWLock lock);

/*
 * Waits, without limit, until the calling thread holds a read. A thread that already reads or
 * writes never waits. S_OK; E_OUTOFMEMORY if there was no memory to note a further reading thread,
 * or the lock was made without its mutexes.
 */
QV_EXPORT QVRESULT QVRWLockAcquireRead(QVRWLock lock);

/*
 * Waits, without limit, until the calling thread writes and no other thread reads. The only reader
 * that upgrades, and the writer itself, never wait.
 * S_OK; E_OUTOFMEMORY for a lock without its mutexes.
 */
QV_EXPORT QVRESULT QVRWLockAcquireWrite(QVRWLock lock);

/* Gives one read back. S_OK; E_FAIL if the calling thread holds none. */
QV_EXPORT QVRESULT QVRWLockReleaseRead(QVRWLock lock);

/*
 * Gives one write hold back. S_OK; E_FAIL if nobody writes. A release by another thread than the
 * writer is undefined and not reported.
 */
QV_EXPORT QVRESULT QVRWLockReleaseWrite(QVRWLock lock);

/*
 * The same as the two acquires, but never wait for a lock to become free: E_FAIL if the hold was
 * not to be had at once. Under contention that may be said of a hold that could have been had.
 */
QV_EXPORT QVRESULT QVRWLockTryAcquireRead(QVRWLock lock);
QV_EXPORT QVRESULT QVRWLockTryAcquireWrite(QVRWLock lock);

QV_END_DECLS

#endif
