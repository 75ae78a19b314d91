// Time with the system's clock and zone replaced.
#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "frame/facts.h"
#include "platform/error.h"
#include "platform/time_zone.h"
#include "support/child_process.h"

using namespace qv::platform;

namespace
{

constinit std::optional<timespec> g_now;   // the real clock without one
constinit std::optional<DWORD> g_zonePart; // the answer of the zone query; else the real one's

} // namespace

extern "C"
{
    decltype(clock_gettime) __real_clock_gettime;
    decltype(GetTimeZoneInformation) __real_GetTimeZoneInformation;

    int __wrap_clock_gettime(clockid_t clock, timespec* now)
    {
        if (clock != CLOCK_REALTIME || !g_now) {
            return __real_clock_gettime(clock, now);
        }
        *now = *g_now;
        return 0;
    }

    DWORD __wrap_GetTimeZoneInformation(TIME_ZONE_INFORMATION* zone)
    {
        if (!g_zonePart) {
            return __real_GetTimeZoneInformation(zone);
        }
        zone->Bias = 300;
        zone->StandardBias = 7;
        zone->DaylightBias = -60;
        std::fill(std::begin(zone->StandardName), std::end(zone->StandardName), u'S');
        std::fill(std::begin(zone->DaylightName), std::end(zone->DaylightName), u'D');
        SetLastError(ERROR_OUTOFMEMORY);
        return *g_zonePart;
    }
}

namespace
{

class Time : public testing::Test
{
protected:
    void SetUp() override { Zone("UTC"); }
    void TearDown() override
    {
        g_now.reset();
        g_zonePart.reset();
        unsetenv("TZ");
    }
    static void Zone(const char* name) { setenv("TZ", name, 1); }
};

std::string Text(const QVTime& time)
{
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u/%u %02u:%02u:%02u.%03u", time.year, time.month,
                  time.day, time.dayOfWeek, time.hour, time.minute, time.second, time.milliseconds);
    return text;
}

// There and back.
std::int32_t Returned(std::int32_t moment)
{
    QVTime time;
    std::int32_t back = 0;
    EXPECT_EQ(QVTimeFromPosix(moment, &time), S_OK);
    EXPECT_EQ(QVTimeToPosix(&time, &back), S_OK);
    return back;
}

// What the record would be in seconds if it were UTC.
std::int64_t AsUtc(const QVTime& time)
{
    using namespace std::chrono;
    const sys_days day = year{time.year} / time.month / time.day;
    return day.time_since_epoch() / seconds{1} + time.hour * 3600 + time.minute * 60 + time.second;
}

TEST_F(Time, ClockAndCalendarOfNow)
{
    const struct
    {
        timespec now;
        std::uint64_t stamp;
        const char* utc;
    } rows[] = {
        {{-11644473600, 0}, 1, "1601-01-01/1 00:00:00.000"},
        {{-1, 999'999'999}, 1, "1969-12-31/3 23:59:59.999"},
        {{0, 0}, 1, "1970-01-01/4 00:00:00.000"},
        {{0, 100}, 100, "1970-01-01/4 00:00:00.000"},
        {{1709251199, 999'999'999}, 1'709'251'199'999'999'900, "2024-02-29/4 23:59:59.999"},
        {{4107542400, 1'000'299}, 4'107'542'400'001'000'200, "2100-03-01/1 00:00:00.001"},
    };
    const auto clock = qv::core::s_getPreciseTime;
    for (const bool found : {true, false}) {
        qv::core::s_getPreciseTime = found ? clock : nullptr;
        for (const auto& row : rows) {
            g_now = row.now;
            std::uint64_t stamp = 0;
            QVTimeOfDay day = {};
            QVTime utc;
            EXPECT_EQ(QVTimeGetPreciseTimestamp(&stamp), S_OK);
            EXPECT_EQ(stamp, row.stamp);
            EXPECT_EQ(QVTimeGetTimeOfDay(&day), S_OK);
            EXPECT_EQ(day.seconds, static_cast<std::int64_t>(row.stamp / 1'000'000'000));
            EXPECT_EQ(day.nanoseconds, static_cast<std::int64_t>(row.stamp % 1'000'000'000));
            EXPECT_EQ(QVTimeGetSystem(&utc), S_OK);
            EXPECT_EQ(Text(utc), row.utc);
        }
    }
    qv::core::s_getPreciseTime = clock;
}

// January and July 15, 2026, at noon UTC.
constexpr std::int32_t kJanuary = 1768478400;
constexpr std::int32_t kJuly = 1784116800;

// While it is that moment, local time plus bias is UTC, and a record comes back as the moment.
QVTimeZone ZoneAt(std::int32_t now)
{
    g_now = timespec{now, 0};
    QVTime local;
    QVTimeZone zone;
    std::memset(&zone, 0xFF, sizeof zone);
    EXPECT_EQ(QVTimeGetLocal(&local), S_OK);
    EXPECT_EQ(QVTimeGetZone(&zone), S_OK);
    EXPECT_EQ(AsUtc(local) + zone.biasSeconds, now);
    EXPECT_EQ(Returned(now), now);
    return zone;
}

TEST_F(Time, ZonesOfManyKinds)
{
    const struct
    {
        const char* zone;
        std::int32_t january, july; // bias
        int daylightMonth;          // 1, 7 or 0
        const char16_t *standard, *daylight;
        std::int32_t change; // of 2026
        const char *before, *at;
    } rows[] = {
        {"UTC", 0, 0, 0, u"UTC", u"UTC", kJuly, "11:59:59", "12:00:00"},
        {"America/New_York", 18000, 14400, 7, u"EST", u"EDT", 1772953200, "01:59:59", "03:00:00"},
        {"Europe/Berlin", -3600, -7200, 7, u"CET", u"CEST", 1792890000, "02:59:59", "02:00:00"},
        {"Australia/Sydney", -39600, -36000, 1, u"AEST", u"AEDT", 1775318400, "02:59:59",
         "02:00:00"},
        {"Asia/Kolkata", -19800, -19800, 0, u"IST", u"IST", kJuly, "17:29:59", "17:30:00"},
        // Had daylight time long ago.
        {"Asia/Tokyo", -32400, -32400, 0, u"JST", u"JST", kJuly, "20:59:59", "21:00:00"},
        {"Australia/Lord_Howe", -39600, -37800, 1, u"+1030", u"+11", 1791041400, "01:59:59",
         "02:30:00"},
        // Winter counts as daylight time there.
        {"Europe/Dublin", 0, -3600, 1, u"IST", u"GMT", 1792890000, "01:59:59", "01:00:00"},
        {"<NameOfAZoneThatIsTooLongByAFewUnits>4BBB,M3.2.0,M11.1.0", 14400, 10800, 7,
         u"NameOfAZoneThatIsTooLongByAFewU", u"BBB", 1772949600, "01:59:59", "03:00:00"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.zone);
        Zone(row.zone);
        for (const std::int32_t now : {kJanuary, kJuly}) {
            const QVTimeZone zone = ZoneAt(now);
            EXPECT_EQ(zone.biasSeconds, now == kJuly ? row.july : row.january);
            EXPECT_EQ(zone.isDaylight, row.daylightMonth == (now == kJuly ? 7 : 1) ? 1 : 0);
            EXPECT_EQ(std::u16string(zone.standardName), row.standard);
            EXPECT_EQ(std::u16string(zone.daylightName), row.daylight);
            // The zone's state now is what counts for a record, not that of its date.
            const std::int32_t shift = row.july - row.january;
            EXPECT_EQ(now == kJuly ? Returned(kJanuary) - kJanuary : kJuly - Returned(kJuly),
                      shift);
        }
        QVTime time;
        QVTimeFromPosix(row.change - 1, &time);
        EXPECT_EQ(Text(time).substr(13, 8), row.before);
        QVTimeFromPosix(row.change, &time);
        EXPECT_EQ(Text(time).substr(13, 8), row.at);
        for (std::int32_t away = -10800; away <= 10800; away += 899) {
            ZoneAt(row.change + away);
        }
    }
}

TEST_F(Time, EndsOfTheRange)
{
    for (const std::int32_t posix : {-1, INT32_MIN, 0x7FFFD280, INT32_MAX}) {
        QVTime time;
        std::memset(&time, 0xFF, sizeof time);
        EXPECT_EQ(QVTimeFromPosix(posix, &time), E_FAIL) << posix;
        EXPECT_EQ(Text(time), "0000-00-00/0 00:00:00.000") << posix;
    }
    const struct
    {
        const char* zone;
        QVTime time;
        std::int32_t posix;
    } rows[] = {
        {"UTC", {1970, 1, 0, 1, 0, 0, 0, 999}, 0},
        {"UTC", {1969, 12, 0, 31, 23, 59, 59, 0}, -1},
        {"UTC", {2038, 1, 0, 18, 23, 59, 59, 0}, 0x7FFFD27F},
        {"UTC", {2038, 1, 0, 19, 0, 0, 0, 0}, -1},
        {"UTC", {2000, 14, 9, 30, 25, 61, 61, 0}, 983584921},
        {"UTC", {0, 0, 0, 0, 0, 0, 0, 0}, -1},
        {"UTC", {1601, 1, 1, 1, 0, 0, 0, 0}, -1},
        {"UTC", {30827, 12, 0, 31, 23, 59, 59, 999}, -1},
        {"UTC", {2037, 65535, 65535, 65535, 65535, 65535, 65535, 65535}, -1},
        {"UTC", {65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535}, -1},
        {"Europe/Berlin", {1970, 1, 0, 1, 0, 59, 59, 0}, -1},
        {"Europe/Berlin", {1970, 1, 0, 1, 1, 0, 0, 0}, 0},
        {"America/New_York", {1969, 12, 0, 31, 19, 0, 0, 0}, 0},
    };
    g_now = timespec{kJanuary, 0};
    for (const auto& row : rows) {
        Zone(row.zone);
        std::int32_t posix = 7;
        EXPECT_EQ(QVTimeToPosix(&row.time, &posix), row.posix == -1 ? E_FAIL : S_OK);
        EXPECT_EQ(posix, row.posix) << row.zone << Text(row.time);
    }
}

TEST_F(Time, RecordsOfTheCLibrary)
{
    std::tm record = {};
    record.tm_year = 126, record.tm_mon = 6, record.tm_mday = 15, record.tm_wday = 3;
    record.tm_hour = 12, record.tm_min = 34, record.tm_sec = 56;
    QVTime time;
    std::memset(&time, 0xFF, sizeof time);
    EXPECT_EQ(QVTimeFromTM(&record, &time), S_OK);
    EXPECT_EQ(Text(time), "2026-07-15/3 12:34:56.000");

    std::tm back;
    std::memset(&back, 0x55, sizeof back);
    record.tm_yday = back.tm_yday; // not written
    EXPECT_EQ(QVTimeToTM(&time, &back), S_OK);
    EXPECT_EQ(std::memcmp(&record, &back, offsetof(std::tm, tm_isdst) + sizeof(int)), 0);

    record.tm_year = INT_MAX, record.tm_mon = INT_MAX, record.tm_sec = -1; // cut, not judged
    QVTimeFromTM(&record, &time);
    EXPECT_EQ(Text(time), "1899-00-15/3 12:34:65535.000");
}

TEST_F(Time, AnswersOfTheZoneQuery)
{
    const struct
    {
        DWORD part;
        QVRESULT result;
        std::int32_t bias;
    } rows[] = {
        {TIME_ZONE_ID_DAYLIGHT, S_OK, 14400},
        {TIME_ZONE_ID_STANDARD, S_OK, 18420},
        {TIME_ZONE_ID_UNKNOWN, S_OK, 18000},
        {TIME_ZONE_ID_INVALID, E_OUTOFMEMORY, 0},
    };
    for (const auto& row : rows) {
        g_zonePart = row.part;
        QVTimeZone zone;
        std::memset(&zone, 0xFF, sizeof zone);
        EXPECT_EQ(QVTimeGetZone(&zone), row.result);
        EXPECT_EQ(zone.biasSeconds, row.bias);
        EXPECT_EQ(zone.isDaylight, row.part == TIME_ZONE_ID_DAYLIGHT ? 1 : 0);
        const std::size_t length = row.result == S_OK ? 31 : 0;
        EXPECT_EQ(std::u16string(zone.standardName), std::u16string(length, u'S'));
        EXPECT_EQ(std::u16string(zone.daylightName), std::u16string(length, u'D'));
        std::tm record = {};
        record.tm_isdst = 5;
        const QVTime time = {2026, 7, 3, 15, 12, 0, 0, 0};
        EXPECT_EQ(QVTimeToTM(&time, &record), S_OK);
        EXPECT_EQ(record.tm_isdst, zone.isDaylight);
    }
}

// Nor do children that are forked beside them find the zone locked.
TEST_F(Time, ThreadsDoNotMeet)
{
    Zone("Europe/Berlin");
    std::atomic<bool> isEnough{false};
    std::vector<std::jthread> threads;
    for (std::int32_t number = 0; number < 4; ++number) {
        threads.emplace_back([number, &isEnough] {
            for (std::int32_t moment = kJuly + number * 1'000'000; !isEnough; ++moment) {
                QVTime time;
                QVTimeZone zone;
                errno = 77;
                QVTimeFromPosix(moment, &time);
                QVTimeGetZone(&zone);
                EXPECT_EQ(AsUtc(time) - 7200, moment);
                EXPECT_EQ(errno, 77);
            }
        });
    }
    for (int round = 0; round < 20; ++round) {
        qv::test::Child child([] {
            alarm(30);
            Returned(kJuly);
            return true;
        });
        EXPECT_TRUE(child.Succeeded());
    }
    isEnough = true;
}

} // namespace
