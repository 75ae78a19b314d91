/*
 * Time: calendar record, POSIX seconds, struct tm, nanosecond clock, time zone.
 */
#ifndef QVCORE6_TIME_H
#define QVCORE6_TIME_H

#include <qvcore6/base.h>
#include <time.h>

typedef struct QVTime
{
    uint16_t year;
    uint16_t month;
    uint16_t dayOfWeek;
    uint16_t day;
    uint16_t hour;
    uint16_t minute;
    uint16_t second;
    uint16_t milliseconds;
} QVTime;

typedef struct QVTimeOfDay
{
    int64_t seconds;
    int64_t nanoseconds;
} QVTimeOfDay;

typedef struct QVTimeZone
{
    int32_t biasSeconds;
    int16_t isDaylight;
    QVWChar standardName[32];
    QVWChar daylightName[32];
} QVTimeZone;

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVTimeGetLocal(QVTime* time);
QV_EXPORT QVRESULT QVTimeGetSystem(QVTime* time);
QV_EXPORT QVRESULT QVTimeGetPreciseTimestamp(uint64_t* nanoseconds);
QV_EXPORT QVRESULT QVTimeGetTimeOfDay(QVTimeOfDay* timeOfDay);
QV_EXPORT QVRESULT QVTimeGetZone(QVTimeZone* zone);
QV_EXPORT QVRESULT QVTimeFromPosix(int32_t posixTime, QVTime* time);
QV_EXPORT QVRESULT QVTimeFromTM(const struct tm* source, QVTime* time);
QV_EXPORT QVRESULT QVTimeToPosix(const QVTime* time, int32_t* posixTime);
QV_EXPORT QVRESULT QVTimeToTM(const QVTime* time, struct tm* result);

QV_END_DECLS

#endif
