/*
 * Gates: open or closed, and everybody who waits passes an open one.
 *
 * A gate is closed at first. Passing does not change it.
 *
 * Guaranteed: data written before a gate is opened are seen by all who pass. Opening frees all who
 * wait at that moment, even if the gate is closed again at once. Whoever has passed may destroy the
 * gate, also while the call that opened it has not yet returned. Opening a gate at which nobody
 * waits, closing one, and passing an open one make no system call.
 *
 *     QVGate started;
 *     if (QVGateCreate("started", 0, &started) < 0) {
 *         return;
 *     }
 *     QVGateOpen(started);         (the thread that starts the service)
 *     QVGateWait(started);         (each thread that needs it)
 *     QVGateDestroy(started);
 *
 * No function tests its handle: a handle that is not live is undefined behaviour. Any thread may
 * call any function. Gates belong to one process; a forked child makes its own instead of using one
 * that another thread waited at during the fork. A wait is no cancellation point.
 */
#ifndef QVCORE6_GATE_H
#define QVCORE6_GATE_H

#include <qvcore6/base.h>

/* A gate; QV_GATE_NONE (all bits set) stands for none. */
typedef struct QVGateTag* QVGate;
#define QV_GATE_NONE QV_NO_HANDLE_(QVGate)

QV_BEGIN_DECLS

/*
 * Makes a closed gate. A null name counts as the empty one; names have any length, are for the
 * reader alone, and two gates may share one. No flag has a meaning: pass 0. *handleOut is
 * QV_GATE_NONE after a failure.
 * S_OK; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVGateCreate(const char* name, uint32_t flags, QVGate* handleOut);

/* Destroys a gate that nobody waits at; null is allowed and QV_GATE_NONE is not. S_OK. */
QV_EXPORT QVRESULT QVGateDestroy(QVGate gate);

/* S_OK. */
QV_EXPORT QVRESULT QVGateOpen(QVGate gate);

/* S_OK. */
QV_EXPORT QVRESULT QVGateClose(QVGate gate);

/* Waits without a limit until the gate opens. S_OK. */
QV_EXPORT QVRESULT QVGateWait(QVGate gate);

/*
 * Waits at most timeoutMs milliseconds of the monotonic clock: 0 does not wait, 0xFFFFFFFF has no
 * limit. Signals to the thread neither shorten nor prolong it.
 * S_OK; QV_E_TIMEOUT.
 */
QV_EXPORT QVRESULT QVGateTimedWait(QVGate gate, uint32_t timeoutMs);

/* S_OK if the gate is open, E_FAIL if it is closed. Never waits. */
QV_EXPORT QVRESULT QVGateTryWait(QVGate gate);

QV_END_DECLS

#endif
