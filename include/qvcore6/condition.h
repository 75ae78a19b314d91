/*
 * Conditions: a recursive lock and the wait for a change of what it guards.
 *
 * Acquire the condition, look at what it guards, and wait while that is not yet as wanted; whoever
 * changes it does so with the condition acquired, and signals. A wait gives the lock up, however
 * often the thread holds it, and holds it as often again when it returns, after a time-out too. A
 * signal is for those who wait at that moment and is lost without them.
 *
 * Guaranteed: a signal frees a thread that was waiting before it, the one that has waited longest;
 * a broadcast frees all of these. Neither needs the lock, and both cost a look at one word when
 * nobody waits. A wait may also end without a signal, so the look belongs in a loop. Whoever was
 * freed last may destroy the condition, also while the signal's call has not yet returned.
 *
 *     QVCondition jobs;
 *     if (QVConditionCreate("jobs", 0, &jobs) < 0) {
 *         return;
 *     }
 *     QVConditionAcquire(jobs);            (who adds)
 *     ++waitingJobs;
 *     QVConditionRelease(jobs);
 *     QVConditionSignal(jobs);
 *
 *     QVConditionAcquire(jobs);            (who takes)
 *     while (waitingJobs == 0) {
 *         QVConditionWait(jobs);
 *     }
 *     --waitingJobs;
 *     QVConditionRelease(jobs);
 *     QVConditionDestroy(jobs);
 *
 * No function tests its handle, nor whether the caller holds the lock where it must: either is
 * undefined behaviour. Any thread may call any function. Conditions belong to one process; a forked
 * child makes its own instead of using one that another thread was using. A wait is no cancellation
 * point.
 */
#ifndef QVCORE6_CONDITION_H
#define QVCORE6_CONDITION_H

#include <qvcore6/base.h>

/* A condition; QV_CONDITION_NONE (all bits set) stands for none. */
typedef struct QVConditionTag* QVCondition;
#define QV_CONDITION_NONE QV_NO_HANDLE_(QVCondition)

QV_BEGIN_DECLS

/*
 * Makes a condition whose lock is free. A null name counts as the empty one; names have any length,
 * are for the reader alone, and two conditions may share one. No flag has a meaning: pass 0.
 * *handleOut is QV_CONDITION_NONE after a failure.
 * S_OK; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVConditionCreate(const char* name, uint32_t flags, QVCondition* handleOut);

/*
 * Destroys a condition that nobody holds or waits for; null is allowed and QV_CONDITION_NONE is
 * not. S_OK.
 */
QV_EXPORT QVRESULT QVConditionDestroy(QVCondition condition);

/* Waits until the calling thread holds the lock; a holder goes one level deeper. S_OK. */
QV_EXPORT QVRESULT QVConditionAcquire(QVCondition condition);

/* Gives one level back; only the holder may. S_OK. */
QV_EXPORT QVRESULT QVConditionRelease(QVCondition condition);

/* Frees one waiting thread, with or without the lock. S_OK. */
QV_EXPORT QVRESULT QVConditionSignal(QVCondition condition);

/* Frees all waiting threads, with or without the lock. S_OK. */
QV_EXPORT QVRESULT QVConditionBroadcast(QVCondition condition);

/* Waits without a limit; the caller holds the lock, before and after. S_OK. */
QV_EXPORT QVRESULT QVConditionWait(QVCondition condition);

/*
 * Waits at most timeoutMs milliseconds of the monotonic clock, and then until the lock is free: 0
 * only lets others have the lock for a moment, 0xFFFFFFFF has no limit. Signals to the thread
 * neither shorten nor prolong it. The caller holds the lock, before and after.
 * S_OK; QV_E_TIMEOUT.
 */
QV_EXPORT QVRESULT QVConditionTimedWait(QVCondition condition, uint32_t timeoutMs);

QV_END_DECLS

#endif
