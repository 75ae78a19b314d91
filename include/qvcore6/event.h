/*
 * Events: a signal that waits for its waiter.
 *
 * An event is signalled or not, and is not at first. One with QV_EVENT_MANUAL_RESET frees every
 * wait from its signal until its reset. One without frees a single wait for each signal and is not
 * signalled afterwards; a signal that nobody waits for stays, and a second one then adds nothing.
 *
 * Guaranteed: data written before a signal are seen after the wait that it frees. As many signals
 * as threads wait free them all, in the order in which they came; a reset right behind a signal
 * holds back nobody who waited for that signal. Whoever has passed may destroy the event at once,
 * also while the signal's call has not yet returned. A signal that finds nobody, a reset and a wait
 * that passes make no system call.
 *
 *     QVEvent ready;
 *     if (QVEventCreate("ready", 0, &ready) < 0) {
 *         return;
 *     }
 *     QVEventSignal(ready);                              (any thread)
 *     if (QVEventTimedWait(ready, 500) == QV_E_TIMEOUT) {
 *         ...                                            (half a second has passed)
 *     }
 *     QVEventDestroy(ready);
 *
 * No function tests its handle: a handle that is not live is undefined behaviour. Any thread may
 * call any function. Events belong to one process; a forked child makes its own instead of using
 * one that another thread waited for at the fork. A wait is no cancellation point.
 */
#ifndef QVCORE6_EVENT_H
#define QVCORE6_EVENT_H

#include <qvcore6/base.h>

/* An event; QV_EVENT_NONE (all bits set) stands for none. */
typedef struct QVEventTag* QVEvent;
#define QV_EVENT_NONE QV_NO_HANDLE_(QVEvent)

/* Creation flag: the event stays signalled until QVEventReset. Other bits have no effect. */
#define QV_EVENT_MANUAL_RESET 0x2u

QV_BEGIN_DECLS

/*
 * Makes an event that is not signalled. A null name counts as the empty one; names have any length,
 * are for the reader alone, and two events may share one. *handleOut is QV_EVENT_NONE after a
 * failure.
 * S_OK; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVEventCreate(const char* name, uint32_t flags, QVEvent* handleOut);

/* Destroys an event that nobody waits for; null is allowed and QV_EVENT_NONE is not. S_OK. */
QV_EXPORT QVRESULT QVEventDestroy(QVEvent event);

/* S_OK. */
QV_EXPORT QVRESULT QVEventSignal(QVEvent event);

/* Makes the event not signalled, of either kind; who already waits goes on waiting. S_OK. */
QV_EXPORT QVRESULT QVEventReset(QVEvent event);

/* Waits without a limit. S_OK. */
QV_EXPORT QVRESULT QVEventWait(QVEvent event);

/*
 * Waits at most timeoutMs milliseconds of the monotonic clock: 0 does not wait, 0xFFFFFFFF has no
 * limit. Signals to the thread neither shorten nor prolong it.
 * S_OK; QV_E_TIMEOUT.
 */
QV_EXPORT QVRESULT QVEventTimedWait(QVEvent event, uint32_t timeoutMs);

QV_END_DECLS

#endif
