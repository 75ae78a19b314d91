/*
 * Semaphores: a count of up to 32767 posts that waits use up, within a process or, named, between
 * processes.
 */
#ifndef QVCORE6_SEMAPHORE_H
#define QVCORE6_SEMAPHORE_H

#include <qvcore6/base.h>

/* A semaphore; QV_SEMAPHORE_NONE (all bits set) stands for none. */
typedef struct QVSemaphoreTag* QVSemaphore;
#define QV_SEMAPHORE_NONE QV_NO_HANDLE_(QVSemaphore)

#define QV_SEMAPHORE_NAMED 0x2u

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVSemaphoreCreate(int32_t initialCount, const char* name, uint32_t flags,
                                     QVSemaphore* handleOut);
QV_EXPORT QVRESULT QVSemaphoreDestroy(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVSemaphorePost(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVSemaphoreWait(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVSemaphoreTryWait(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVSemaphoreGetValue(QVSemaphore semaphore, int32_t* valueOut);

QV_EXPORT QVRESULT QVNamedSemOpen(const char* name, int32_t initialCount, QVSemaphore* handleOut);
QV_EXPORT QVRESULT QVNamedSemClose(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVNamedSemPost(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVNamedSemWait(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVNamedSemTryWait(QVSemaphore semaphore);
QV_EXPORT QVRESULT QVNamedSemGetValue(QVSemaphore semaphore, int32_t* valueOut);

QV_END_DECLS

#endif
