/*
 * Gates: open or closed, and everybody who waits passes an open one.
 */
#ifndef QVCORE6_GATE_H
#define QVCORE6_GATE_H

#include <qvcore6/base.h>

/* A gate; QV_GATE_NONE (all bits set) stands for none. */
typedef struct QVGateTag* QVGate;
#define QV_GATE_NONE QV_NO_HANDLE_(QVGate)

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVGateCreate(const char* name, uint32_t flags, QVGate* handleOut);
QV_EXPORT QVRESULT QVGateDestroy(QVGate gate);
QV_EXPORT QVRESULT QVGateOpen(QVGate gate);
QV_EXPORT QVRESULT QVGateClose(QVGate gate);
QV_EXPORT QVRESULT QVGateWait(QVGate gate);
QV_EXPORT QVRESULT QVGateTimedWait(QVGate gate, uint32_t timeoutMs);
QV_EXPORT QVRESULT QVGateTryWait(QVGate gate);

QV_END_DECLS

#endif
