/*
 * Lock statistics: how often, and for how long, mutexes were waited for and held.
 *
 * A mutex that was created with QV_MUTEX_STATS counts, at the price of three looks at the clock for
 * an acquire and a release. All such mutexes of the process stand in one table. A destroyed one
 * stays there with its last numbers, and in memory, until the next reset.
 *
 *     QVMutex mutex;
 *     if (QVMutexCreate("orders", QV_MUTEX_STATS, &mutex) >= 0) {
 *         QVMutexAcquire(mutex);
 *         QVMutexRelease(mutex);
 *         QVDumpLockStats("after one order", u"/tmp/locks.csv");
 *         QVMutexDestroy(mutex);
 *         QVResetLockStats();
 *     }
 *
 * Any thread may call any function. Nobody who acquires or releases a mutex ever waits for these
 * functions, nor they for a mutex: the numbers of a mutex in use are each right, but not of one
 * moment, and a count that falls together with a reset may survive it.
 */
#ifndef QVCORE6_LOCKSTATS_H
#define QVCORE6_LOCKSTATS_H

#include <qvcore6/base.h>
#include <qvcore6/mutex.h>

/* Since the mutex was created or last reset. Times are in microseconds. */
typedef struct QVLockStats
{
    int64_t maxAcquireTime;   /* longest wait of one acquire */
    int64_t totalAcquireTime; /* a nested acquire and a try wait for nothing */
    int64_t acquireCount;     /* successful acquires and tries, nested ones too */
    int64_t maxHeldTime;      /* from an outermost acquire to its release */
    int64_t totalHeldTime;
    int64_t heldCount;       /* releases, nested ones too */
    int64_t contentionCount; /* entries that had to sleep for the lock */
} QVLockStats;

QV_BEGIN_DECLS

/*
 * S_OK; E_NOTIMPL, with the record untouched, for a mutex that is neither checked nor counting.
 * All numbers but contentionCount are 0 for one that only checks.
 */
QV_EXPORT QVRESULT QVGetLockStats(QVMutex mutex, QVLockStats* stats);

/*
 * Zeroes the numbers of all live mutexes and frees the destroyed ones. A hold that is going on
 * counts in full when it ends.
 * S_OK; E_OUTOFMEMORY or E_FAIL if the library could not make the table at its start.
 */
QV_EXPORT QVRESULT QVResetLockStats(void);

/*
 * Appends one block of comma-separated lines to a file, which is made if it is missing: a line with
 * the name and the local time, one with the unit of time, the column heads, a row for each mutex
 * (live ones first, then destroyed ones, each by address), a line with the time at the end, and two
 * empty lines. A null name counts as "LockStatsDump", a null file as "qvlockstats.csv" in the
 * current directory. Names of mutexes are written as they are: commas are not quoted.
 *
 * Each line is written at once, so that blocks of several processes may interleave but lines do
 * not break. Creating and destroying mutexes with statistics waits meanwhile.
 *
 * S_OK; E_FAIL if the file cannot be opened (as a pipe that nobody reads), written or closed, with
 * the lines so far in it; a limit that the process has for files raises no signal. E_OUTOFMEMORY.
 * E_FAIL too if the library did not start.
 */
QV_EXPORT QVRESULT QVDumpLockStats(const char* name, const QVWChar* file);

QV_END_DECLS

#endif
