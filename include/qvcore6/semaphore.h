/*
 * Semaphores: a count of up to 32767 that posts raise and waits lower, within a process or, named,
 * between processes.
 *
 * A wait takes 1 from the count, and waits while that is 0. Whoever is there first when the count
 * rises takes it: who has waited longest has no right to it.
 *
 * A named semaphore is one object for all processes that open its name. The first that does sets
 * the count and who may open it: every authenticated user. It goes with the last process that has
 * it open, however that one ends. It has no owner: a thread that takes the last unit and waits
 * again blocks itself, and a process that ends with a unit taken does not give it back.
 *
 * Guaranteed: data written before a post are seen after the wait that takes it. Whoever has passed
 * an unnamed semaphore may destroy it at once, also while the post's call has not yet returned. A
 * post that finds nobody and a wait that passes make no system call.
 *
 *     QVSemaphore slots;
 *     if (QVSemaphoreCreate(4, "slots", 0, &slots) < 0) {
 *         return;
 *     }
 *     QVSemaphoreWait(slots);              (at most four threads are here at a time)
 *     QVSemaphorePost(slots);
 *     QVSemaphoreDestroy(slots);
 *
 * The QVNamedSem functions do the same as their QVSemaphore counterparts, and take the handles of
 * either. No function tests its handle: a handle that is not live is undefined behaviour. Any
 * thread may call any function. A forked child may go on with an unnamed semaphore, which is then
 * its own; a named one it shares with its parent, and holds as its parent does. A wait is no
 * cancellation point.
 */
#ifndef QVCORE6_SEMAPHORE_H
#define QVCORE6_SEMAPHORE_H

#include <qvcore6/base.h>

/* A semaphore; QV_SEMAPHORE_NONE (all bits set) stands for none. */
typedef struct QVSemaphoreTag* QVSemaphore;
#define QV_SEMAPHORE_NONE QV_NO_HANDLE_(QVSemaphore)

/* Creation flag: opens the semaphore of that name. Other bits have no effect. */
#define QV_SEMAPHORE_NAMED 0x2u

QV_BEGIN_DECLS

/*
 * Makes a semaphore, or with QV_SEMAPHORE_NAMED opens the one of that name. The count is 0 to
 * 32767; for a named semaphore that exists already it is not looked at beyond that. A null name
 * counts as the empty one, which is a name like any other. The name of an unnamed semaphore has any
 * length and is for the reader alone. *handleOut is QV_SEMAPHORE_NONE after a failure.
 * S_OK; E_OUTOFMEMORY; E_FAIL for a count outside its range. Named ones also: E_ACCESSDENIED if the
 * semaphore belongs to somebody who does not share it, or a process that has stopped in the middle
 * of opening it keeps it for ten seconds; E_HANDLE if the name is that of another kind of object;
 * E_FAIL or QV_E_FILE_NOT_FOUND for a name that cannot be one (over 256 UTF-16 units, or with a
 * backslash), and if the system refuses.
 */
QV_EXPORT QVRESULT QVSemaphoreCreate(int32_t initialCount, const char* name, uint32_t flags,
                                     QVSemaphore* handleOut);

/*
 * Gives up the handle, for which nobody waits; an unnamed semaphore ends with it. Null is allowed
 * and QV_SEMAPHORE_NONE is not. S_OK.
 */
QV_EXPORT QVRESULT QVSemaphoreDestroy(QVSemaphore semaphore);

/* Adds 1 to the count. S_OK; E_FAIL if it is 32767, and nothing changes. */
QV_EXPORT QVRESULT QVSemaphorePost(QVSemaphore semaphore);

/* Waits without a limit, and takes 1 from the count. S_OK. */
QV_EXPORT QVRESULT QVSemaphoreWait(QVSemaphore semaphore);

/* S_OK if 1 was taken from the count, E_FAIL if that is 0. Never waits. */
QV_EXPORT QVRESULT QVSemaphoreTryWait(QVSemaphore semaphore);

/* *valueOut is -1: nobody may rely on a count that others change. S_OK. */
QV_EXPORT QVRESULT QVSemaphoreGetValue(QVSemaphore semaphore, int32_t* valueOut);

/* QVSemaphoreCreate with QV_SEMAPHORE_NAMED, but E_INVALIDARG for a null name. */
QV_EXPORT QVRESULT QVNamedSemOpen(const char* name, int32_t initialCount, QVSemaphore* handleOut);

/* QVSemaphoreDestroy. Other processes keep the semaphore. */
QV_EXPORT QVRESULT QVNamedSemClose(QVSemaphore semaphore);

/* QVSemaphorePost. */
QV_EXPORT QVRESULT QVNamedSemPost(QVSemaphore semaphore);

/* QVSemaphoreWait. */
QV_EXPORT QVRESULT QVNamedSemWait(QVSemaphore semaphore);

/* QVSemaphoreTryWait. */
QV_EXPORT QVRESULT QVNamedSemTryWait(QVSemaphore semaphore);

/* QVSemaphoreGetValue. */
QV_EXPORT QVRESULT QVNamedSemGetValue(QVSemaphore semaphore, int32_t* valueOut);

QV_END_DECLS

#endif
