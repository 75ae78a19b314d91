/*
 * Time: the calendar, POSIX seconds, struct tm, a clock in nanoseconds, the time zone.
 *
 * A QVTime is a moment as a calendar shows it, without saying where: local time unless a function
 * says UTC. The local zone is that of the environment variable TZ, or else the system's; a change
 * of either counts from the next call on. Conversions know years up to 2038, as their seconds have
 * 32 bits; the clock in nanoseconds goes on until 2554.
 *
 *     QVTime now;
 *     uint64_t begin, end;
 *     QVTimeGetPreciseTimestamp(&begin);
 *     QVTimeGetLocal(&now);
 *     QVTimeGetPreciseTimestamp(&end);
 *     printf("%02u:%02u, found in %u ns\n", (unsigned)now.hour, (unsigned)now.minute,
 *            (unsigned)(end - begin));
 *
 * Any thread may call any function at any time. Null arguments are undefined behaviour. A program
 * that changes TZ while other threads ask for local time has the race that setenv always has.
 */
#ifndef QVCORE6_TIME_H
#define QVCORE6_TIME_H

#include <qvcore6/base.h>
#include <time.h>

/* The calendar record. */
typedef struct QVTime
{
    uint16_t year;
    uint16_t month;     /* January is 1 */
    uint16_t dayOfWeek; /* Sunday is 0 */
    uint16_t day;       /* from 1 */
    uint16_t hour;
    uint16_t minute;
    uint16_t second;
    uint16_t milliseconds; /* 0 in what comes from POSIX seconds or a struct tm */
} QVTime;

/* Since 1970-01-01 00:00:00 UTC. */
typedef struct QVTimeOfDay
{
    int64_t seconds;
    int64_t nanoseconds; /* within the second */
} QVTimeOfDay;

/* The zone as it is now. Names are at most 31 units; without daylight rules both are the same. */
typedef struct QVTimeZone
{
    int32_t
        biasSeconds;    /* UTC = local time + bias: positive west of Greenwich; daylight included */
    int16_t isDaylight; /* 1 while daylight time is in force, else 0 */
    QVWChar standardName[32];
    QVWChar daylightName[32];
} QVTimeZone;

QV_BEGIN_DECLS

/* Now, in the local zone. S_OK. */
QV_EXPORT QVRESULT QVTimeGetLocal(QVTime* time);

/* Now, in UTC. S_OK. */
QV_EXPORT QVRESULT QVTimeGetSystem(QVTime* time);

/*
 * Nanoseconds since 1970-01-01 00:00:00 UTC, in steps of 100. 1 for a clock that stands at that
 * moment or before, so never 0. The clock is the system's: somebody may set it. For measuring, the
 * counters in memory.h never go back. S_OK.
 */
QV_EXPORT QVRESULT QVTimeGetPreciseTimestamp(uint64_t* nanoseconds);

/* The same moment in two parts. S_OK. */
QV_EXPORT QVRESULT QVTimeGetTimeOfDay(QVTimeOfDay* timeOfDay);

/*
 * A zone counts as one with daylight time if it has had or will have some within a year of now.
 * S_OK; the code of the system's failure with the record all zero, which does not happen on Linux.
 */
QV_EXPORT QVRESULT QVTimeGetZone(QVTimeZone* zone);

/*
 * POSIX seconds to local time. S_OK; E_FAIL with the record all zero for a negative time and for
 * one after 2038-01-18 23:59:59 UTC.
 */
QV_EXPORT QVRESULT QVTimeFromPosix(int32_t posixTime, QVTime* time);

/* Copies the fields, each cut to 16 bits, and tests none. S_OK. */
QV_EXPORT QVRESULT QVTimeFromTM(const struct tm* source, QVTime* time);

/*
 * Local time to POSIX seconds. Fields out of their ranges count on: the 32nd of May is the first
 * of June. Milliseconds and dayOfWeek do not matter.
 *
 * Whether daylight time is in force is taken from the zone as it is now, not from the date: a
 * summer's record that is converted in winter, or the other way round, comes out by the shift off.
 *
 * S_OK; E_FAIL with -1 for moments before 1970 or after 2038-01-18 23:59:59 UTC.
 */
QV_EXPORT QVRESULT QVTimeToPosix(const QVTime* time, int32_t* posixTime);

/*
 * Copies the fields to their places. tm_isdst says whether daylight time is in force now, whatever
 * the date; tm_yday, tm_gmtoff and tm_zone are left as they are. S_OK.
 */
QV_EXPORT QVRESULT QVTimeToTM(const QVTime* time, struct tm* result);

QV_END_DECLS

#endif
