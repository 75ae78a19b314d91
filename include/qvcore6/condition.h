/*
 * Conditions: a recursive lock and the wait for a change of what it guards.
 */
#ifndef QVCORE6_CONDITION_H
#define QVCORE6_CONDITION_H

#include <qvcore6/base.h>

/* A condition; QV_CONDITION_NONE (all bits set) stands for none. */
typedef struct QVConditionTag* QVCondition;
#define QV_CONDITION_NONE QV_NO_HANDLE_(QVCondition)

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVConditionCreate(const char* name, uint32_t flags, QVCondition* handleOut);
QV_EXPORT QVRESULT QVConditionDestroy(QVCondition condition);
QV_EXPORT QVRESULT QVConditionAcquire(QVCondition condition);
QV_EXPORT QVRESULT QVConditionRelease(QVCondition condition);
QV_EXPORT QVRESULT QVConditionSignal(QVCondition condition);
QV_EXPORT QVRESULT QVConditionBroadcast(QVCondition condition);
QV_EXPORT QVRESULT QVConditionWait(QVCondition condition);
QV_EXPORT QVRESULT QVConditionTimedWait(QVCondition condition, uint32_t timeoutMs);

QV_END_DECLS

#endif
