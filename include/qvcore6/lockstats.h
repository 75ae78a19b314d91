/*
 * Lock statistics: the counters of mutexes created with QV_MUTEX_STATS.
 */
#ifndef QVCORE6_LOCKSTATS_H
#define QVCORE6_LOCKSTATS_H

#include <qvcore6/base.h>
#include <qvcore6/mutex.h>

typedef struct QVLockStats
{
    int64_t maxAcquireTime;
    int64_t totalAcquireTime;
    int64_t acquireCount;
    int64_t maxHeldTime;
    int64_t totalHeldTime;
    int64_t heldCount;
    int64_t contentionCount;
} QVLockStats;

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVGetLockStats(QVMutex mutex, QVLockStats* stats);
QV_EXPORT QVRESULT QVResetLockStats(void);
QV_EXPORT QVRESULT QVDumpLockStats(const char* name, const QVWChar* file);

QV_END_DECLS

#endif
