/*
 * Threads: start, wait for, let go of.
 */
#ifndef QVCORE6_THREAD_H
#define QVCORE6_THREAD_H

#include <qvcore6/base.h>

/* A thread: the system's id of it; QV_THREAD_NONE stands for none. */
typedef uint32_t QVThread;
#define QV_THREAD_NONE 0xFFFFFFFFu

typedef uint32_t (*QVThreadEntry)(void* argument);

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVThreadCreate(QVThreadEntry entry, void* argument, uint32_t reserved,
                                  uint32_t stackSize, QVThread* threadOut, uint32_t* idOut);
QV_EXPORT QVRESULT QVThreadJoin(QVThread thread, uint32_t* exitCodeOut);
QV_EXPORT QVRESULT QVThreadDetach(QVThread thread);
QV_EXPORT int16_t QVThreadIsFinished(QVThread thread);
QV_EXPORT QVThread QVThreadGetID(void);
QV_EXPORT intptr_t QVThreadGetHandle(void);
QV_EXPORT QVRESULT QVThreadYield(void);
QV_EXPORT void QVSleep(uint32_t milliseconds);
QV_EXPORT QVRESULT QVSetCpuAffinity(const uint32_t* mask);
QV_EXPORT QVRESULT QVGetSetCpuAffinity(uint32_t* previousOut, const uint32_t* mask);

QV_END_DECLS

#endif
