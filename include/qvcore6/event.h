/*
 * Events: a signal that waits for its waiter.
 */
#ifndef QVCORE6_EVENT_H
#define QVCORE6_EVENT_H

#include <qvcore6/base.h>

/* An event; QV_EVENT_NONE (all bits set) stands for none. */
typedef struct QVEventTag* QVEvent;
#define QV_EVENT_NONE QV_NO_HANDLE_(QVEvent)

#define QV_EVENT_MANUAL_RESET 0x2u

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVEventCreate(const char* name, uint32_t flags, QVEvent* handleOut);
QV_EXPORT QVRESULT QVEventDestroy(QVEvent event);
QV_EXPORT QVRESULT QVEventSignal(QVEvent event);
QV_EXPORT QVRESULT QVEventReset(QVEvent event);
QV_EXPORT QVRESULT QVEventWait(QVEvent event);
QV_EXPORT QVRESULT QVEventTimedWait(QVEvent event, uint32_t timeoutMs);

QV_END_DECLS

#endif
