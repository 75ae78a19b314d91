/*
 * Mutexes: named, recursive, process-local locks that one thread holds at a time.
 *
 * A mutex belongs to the thread that acquired it; that thread releases it as often as it acquired
 * it. The name serves GetName and the lock statistics; two mutexes may share one. A free plain
 * mutex costs one atomic exchange each way; a taken one waits in the kernel.
 *
 * Guaranteed: data written before a release are seen after the next acquire. A mutex that the
 * forking thread holds is still its own in the child. Not guaranteed: fairness.
 *
 *     QVMutex mutex;
 *     if (QVMutexCreate("orders", 0, &mutex) < 0) {
 *         return;
 *     }
 *     QVMutexAcquire(mutex);
 *     QVMutexRelease(mutex);
 *     QVMutexDestroy(mutex);
 *
 * No function tests its handle: a handle that is not live is undefined behaviour. Any thread may
 * call any function, except that only the holder releases and nobody uses a destroyed mutex.
 */
#ifndef QVCORE6_MUTEX_H
#define QVCORE6_MUTEX_H

#include <qvcore6/base.h>

/* A mutex; QV_MUTEX_NONE (all bits set) stands for none. */
typedef struct QVMutexTag* QVMutex;
#define QV_MUTEX_NONE QV_NO_HANDLE_(QVMutex)

/* Creation flags. A bit that is not listed has no effect. */

/* Cancels QV_MUTEX_STATS. */
#define QV_MUTEX_UNTRACKED 0x00000010u
/* Spins up to 4000 rounds before it waits in the kernel (not on a machine with one processor). */
#define QV_MUTEX_SPIN 0x00010000u
/* With QV_MUTEX_CHECKED: a second acquire by the holder is a fault. Alone it has no effect. */
#define QV_MUTEX_NON_RECURSIVE 0x00020000u
/* Keeps statistics: see lockstats.h. The mutex outlives its destruction in their table. */
#define QV_MUTEX_STATS 0x00040000u
/*
 * Checks ownership on acquire and release. A failed check raises an alert (QVErrorAlert, by the
 * process's method) and answers E_FAIL with the mutex as it was.
 */
#define QV_MUTEX_CHECKED 0x80000000u

QV_BEGIN_DECLS

/*
 * Makes a mutex with no holder. A null name counts as the empty one; names have any length.
 * *handleOut is QV_MUTEX_NONE after a failure.
 * A mutex with QV_MUTEX_STATS that finds no memory for its row in the statistics works without one.
 * S_OK; E_OUTOFMEMORY; E_FAIL if the library could not start in this process, or has stopped.
 */
QV_EXPORT QVRESULT QVMutexCreate(const char* name, uint32_t flags, QVMutex* handleOut);

/* Destroys a mutex that nobody holds or waits for. S_OK. */
QV_EXPORT QVRESULT QVMutexDestroy(QVMutex mutex);

/*
 * Waits until the calling thread holds the mutex; a holder goes one level deeper. S_OK; E_FAIL
 * for the holder of a mutex with QV_MUTEX_CHECKED and QV_MUTEX_NON_RECURSIVE, and for level 65536
 * of one that checks or counts.
 */
QV_EXPORT QVRESULT QVMutexAcquire(QVMutex mutex);

/*
 * S_OK if the calling thread now holds the mutex, E_FAIL if another thread does or for the reasons
 * of QVMutexAcquire. Never waits.
 */
QV_EXPORT QVRESULT QVMutexTryAcquire(QVMutex mutex);

/*
 * Gives one level back. S_OK; E_FAIL from a mutex with QV_MUTEX_CHECKED that the calling thread
 * does not hold. Without that flag such a release is undefined and not reported.
 */
QV_EXPORT QVRESULT QVMutexRelease(QVMutex mutex);

/*
 * Non-zero if the calling thread's ownership is as expected (expectOwned: non-zero for held).
 * Raises no alert. A mutex without QV_MUTEX_CHECKED does not keep track: always 1.
 */
QV_EXPORT int32_t QVMutexAssertOwnership(QVMutex mutex, int16_t expectOwned);

/* The address of the platform's lock inside the mutex; valid as long as the mutex. */
QV_EXPORT void* QVMutexGetOSMutex(QVMutex mutex);

QV_END_DECLS

#endif
