// Time with the system's clock and zone replaced.
#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/time.h>

#include <algorithm>
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

using namespace qv::platform;

namespace
{

constinit std::optional<timespec> g_now; // the real clock without one

struct ZoneAnswer
{
    DWORD part;
    DWORD error;
    TIME_ZONE_INFORMATION zone;
};
constinit const ZoneAnswer* g_zoneAnswer = nullptr;

} // namespace

extern "C"
{
    decltype(clock_gettime) __real_clock_gettime;
    decltype(GetTimeZoneInformation) __real_GetTimeZoneInformation;

    int __wrap_clock_gettime(clockid_t clock, timespec* now)
    {
        if (clock == CLOCK_REALTIME && g_now) {
            *now = *g_now;
            return 0;
        }
        return __real_clock_gettime(clock, now);
    }

    DWORD __wrap_GetTimeZoneInformation(TIME_ZONE_INFORMATION* zone)
    {
        if (g_zoneAnswer == nullptr) {
            return __real_GetTimeZoneInformation(zone);
        }
        *zone = g_zoneAnswer->zone;
        SetLastError(g_zoneAnswer->error);
        return g_zoneAnswer->part;
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
        g_zoneAnswer = nullptr;
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

// What the record would be in seconds if it were UTC.
std::int64_t AsUtc(const QVTime& time)
{
    using namespace std::chrono;
    const sys_days day = year{time.year} / time.month / time.day;
    return day.time_since_epoch() / seconds{1} + time.hour * 3600 + time.minute * 60 + time.second;
}

TEST_F(Time, ClockCountsFromTheEpochInStepsAndNeverGivesZero)
{
    const struct
    {
        timespec now;
        std::uint64_t stamp;
    } rows[] = {
        {{-11644473600, 0}, 1},
        {{-1, 999'999'999}, 1},
        {{0, 0}, 1},
        {{0, 99}, 1},
        {{0, 100}, 100},
        {{0, 299}, 200},
        {{1, 999'999'999}, 1'999'999'900},
        {{4'102'444'800, 1}, 4'102'444'800'000'000'000},
    };
    const auto clock = qv::core::s_getPreciseTime;
    for (const bool found : {true, false}) {
        qv::core::s_getPreciseTime = found ? clock : nullptr;
        for (const auto& row : rows) {
            g_now = row.now;
            std::uint64_t stamp = 0;
            QVTimeOfDay day = {};
            EXPECT_EQ(QVTimeGetPreciseTimestamp(&stamp), S_OK);
            EXPECT_EQ(stamp, row.stamp);
            EXPECT_EQ(QVTimeGetTimeOfDay(&day), S_OK);
            EXPECT_EQ(day.seconds, static_cast<std::int64_t>(row.stamp / 1'000'000'000));
            EXPECT_EQ(day.nanoseconds, static_cast<std::int64_t>(row.stamp % 1'000'000'000));
        }
    }
    qv::core::s_getPreciseTime = clock;
}

TEST_F(Time, CalendarOfNow)
{
    const struct
    {
        timespec now;
        const char* utc;
        const char* kolkata;
    } rows[] = {
        {{0, 0}, "1970-01-01/4 00:00:00.000", "1970-01-01/4 05:30:00.000"},
        {{1709251199, 999'999'999}, "2024-02-29/4 23:59:59.999", "2024-03-01/5 05:29:59.999"},
        {{4107542400, 1'000'000}, "2100-03-01/1 00:00:00.001", "2100-03-01/1 05:30:00.001"},
    };
    for (const auto& row : rows) {
        g_now = row.now;
        QVTime time = {};
        EXPECT_EQ(QVTimeGetSystem(&time), S_OK);
        EXPECT_EQ(Text(time), row.utc);
        Zone("Asia/Kolkata");
        EXPECT_EQ(QVTimeGetLocal(&time), S_OK);
        EXPECT_EQ(Text(time), row.kolkata) << "the zone that TZ says now";
        Zone("UTC");
        QVTimeGetLocal(&time);
        EXPECT_EQ(Text(time), row.utc);
    }
}

// January and July 15, 2026, at noon UTC.
constexpr std::int32_t kJanuary = 1768478400;
constexpr std::int32_t kJuly = 1784116800;

TEST_F(Time, ZonesOfManyKinds)
{
    const struct
    {
        const char* zone;
        std::int32_t january, july; // bias
        int daylightMonth;          // 1, 7 or 0
        const char16_t *standard, *daylight;
    } rows[] = {
        {"UTC", 0, 0, 0, u"UTC", u"UTC"},
        {"America/New_York", 18000, 14400, 7, u"EST", u"EDT"},
        {"Europe/Berlin", -3600, -7200, 7, u"CET", u"CEST"},
        {"Australia/Sydney", -39600, -36000, 1, u"AEST", u"AEDT"},
        {"Asia/Kolkata", -19800, -19800, 0, u"IST", u"IST"},
        {"Asia/Tokyo", -32400, -32400, 0, u"JST", u"JST"},
        {"Australia/Lord_Howe", -39600, -37800, 1, u"+1030", u"+11"},
        {"America/St_Johns", 12600, 9000, 7, u"NST", u"NDT"},
        {"Europe/Dublin", 0, -3600, 1, u"IST", u"GMT"}, // winter counts as daylight time there
        {"AAA4BBB,M3.2.0,M11.1.0", 14400, 10800, 7, u"AAA", u"BBB"},
        {"<NameOfAZoneThatIsTooLongByAFewUnits>0", 0, 0, 0, u"NameOfAZoneThatIsTooLongByAFewU",
         u"NameOfAZoneThatIsTooLongByAFewU"},
    };
    for (const auto& row : rows) {
        Zone(row.zone);
        for (const std::int32_t now : {kJanuary, kJuly}) {
            SCOPED_TRACE(std::string(row.zone) + (now == kJuly ? " in July" : " in January"));
            g_now = timespec{now, 0};
            QVTimeZone zone;
            std::memset(&zone, 0xFF, sizeof zone);
            ASSERT_EQ(QVTimeGetZone(&zone), S_OK);
            EXPECT_EQ(zone.biasSeconds, now == kJuly ? row.july : row.january);
            EXPECT_EQ(zone.isDaylight, row.daylightMonth == (now == kJuly ? 7 : 1) ? 1 : 0);
            EXPECT_EQ(std::u16string(zone.standardName), row.standard);
            EXPECT_EQ(std::u16string(zone.daylightName), row.daylight);
        }
    }
}

// While it is that moment, the record comes back as the moment, and local time plus bias is UTC.
TEST_F(Time, HoursAroundChanges)
{
    const struct
    {
        const char* zone;
        std::int32_t change; // of 2026
        const char *before, *at;
    } rows[] = {
        {"America/New_York", 1772953200, "2026-03-08/0 01:59:59.000", "2026-03-08/0 03:00:00.000"},
        {"America/New_York", 1793512800, "2026-11-01/0 01:59:59.000", "2026-11-01/0 01:00:00.000"},
        {"Europe/Berlin", 1774746000, "2026-03-29/0 01:59:59.000", "2026-03-29/0 03:00:00.000"},
        {"Europe/Berlin", 1792890000, "2026-10-25/0 02:59:59.000", "2026-10-25/0 02:00:00.000"},
        {"Europe/Dublin", 1792890000, "2026-10-25/0 01:59:59.000", "2026-10-25/0 01:00:00.000"},
        {"Australia/Sydney", 1775318400, "2026-04-05/0 02:59:59.000", "2026-04-05/0 02:00:00.000"},
        {"Australia/Lord_Howe", 1775314800, "2026-04-05/0 01:59:59.000",
         "2026-04-05/0 01:30:00.000"},
        {"Australia/Lord_Howe", 1791041400, "2026-10-04/0 01:59:59.000",
         "2026-10-04/0 02:30:00.000"},
        {"Asia/Kolkata", kJuly, "2026-07-15/3 17:29:59.000", "2026-07-15/3 17:30:00.000"},
        {"UTC", kJuly, "2026-07-15/3 11:59:59.000", "2026-07-15/3 12:00:00.000"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + row.before);
        Zone(row.zone);
        QVTime time;
        QVTimeFromPosix(row.change - 1, &time);
        EXPECT_EQ(Text(time), row.before);
        QVTimeFromPosix(row.change, &time);
        EXPECT_EQ(Text(time), row.at);
        for (std::int32_t away = -10800; away <= 10800; away += 899) {
            const std::int32_t moment = row.change + away;
            g_now = timespec{moment, 0};
            QVTimeZone zone;
            std::int32_t back = 0;
            ASSERT_EQ(QVTimeFromPosix(moment, &time), S_OK);
            ASSERT_EQ(QVTimeGetZone(&zone), S_OK);
            EXPECT_EQ(AsUtc(time) + zone.biasSeconds, moment) << away;
            EXPECT_EQ(QVTimeToPosix(&time, &back), S_OK);
            EXPECT_EQ(back, moment) << away;
        }
    }
}

// The zone's state now is what counts, not that of the date.
TEST_F(Time, RecordsOfTheOtherHalfYearComeBackByTheShiftOff)
{
    const struct
    {
        const char* zone;
        std::int32_t now, moment, off;
    } rows[] = {
        {"Europe/Berlin", kJuly, kJanuary, -3600},
        {"Europe/Berlin", kJanuary, kJuly, 3600},
        {"Australia/Lord_Howe", kJanuary, kJuly, -1800},
        {"Asia/Tokyo", kJuly, kJanuary, 0},
    };
    for (const auto& row : rows) {
        Zone(row.zone);
        g_now = timespec{row.now, 0};
        QVTime time;
        std::int32_t back = 0;
        QVTimeFromPosix(row.moment, &time);
        EXPECT_EQ(QVTimeToPosix(&time, &back), S_OK);
        EXPECT_EQ(back, row.moment + row.off) << row.zone << row.now;
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
        {"UTC", {1970, 0, 0, 32, 0, 0, 0, 0}, 0},
        {"UTC", {2000, 14, 9, 30, 25, 61, 61, 0}, 983584921},
        {"UTC", {0, 0, 0, 0, 0, 0, 0, 0}, -1},
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
    g_now = timespec{kJuly, 0};
    Zone("Europe/Berlin");
    EXPECT_EQ(QVTimeToTM(&time, &back), S_OK);
    EXPECT_EQ(back.tm_isdst, 1);
    EXPECT_EQ(back.tm_yday, 0x55555555);
    record.tm_isdst = back.tm_isdst, record.tm_yday = back.tm_yday;
    EXPECT_EQ(std::memcmp(&record, &back, offsetof(std::tm, tm_isdst) + sizeof(int)), 0);

    record.tm_year = INT_MAX, record.tm_mon = INT_MAX, record.tm_sec = -1; // cut, not judged
    QVTimeFromTM(&record, &time);
    EXPECT_EQ(Text(time), "1899-00-15/3 12:34:65535.000");
}

TEST_F(Time, AnswersOfTheZoneQuery)
{
    TIME_ZONE_INFORMATION eastern = {};
    eastern.Bias = 300;
    eastern.StandardBias = 7;
    eastern.DaylightBias = -60;
    const struct
    {
        ZoneAnswer answer;
        QVRESULT result;
        std::int32_t bias;
        int daylight;
    } rows[] = {
        {{TIME_ZONE_ID_DAYLIGHT, 0, eastern}, S_OK, 14400, 1},
        {{TIME_ZONE_ID_STANDARD, 0, eastern}, S_OK, 18420, 0},
        {{TIME_ZONE_ID_UNKNOWN, 0, eastern}, S_OK, 18000, 0},
        {{TIME_ZONE_ID_INVALID, ERROR_OUTOFMEMORY, eastern}, E_OUTOFMEMORY, 0, 0},
        {{TIME_ZONE_ID_INVALID, ERROR_GEN_FAILURE, eastern}, E_FAIL, 0, 0},
    };
    for (const auto& row : rows) {
        ZoneAnswer answer = row.answer;
        std::fill(std::begin(answer.zone.StandardName), std::end(answer.zone.StandardName), u'S');
        std::fill(std::begin(answer.zone.DaylightName), std::end(answer.zone.DaylightName), u'D');
        g_zoneAnswer = &answer;
        QVTimeZone zone;
        std::memset(&zone, 0xFF, sizeof zone);
        EXPECT_EQ(QVTimeGetZone(&zone), row.result);
        EXPECT_EQ(zone.biasSeconds, row.bias);
        EXPECT_EQ(zone.isDaylight, row.daylight);
        const std::size_t length = row.result == S_OK ? 31 : 0;
        EXPECT_EQ(std::u16string(zone.standardName), std::u16string(length, u'S'));
        EXPECT_EQ(std::u16string(zone.daylightName), std::u16string(length, u'D'));
        std::tm record = {};
        const QVTime time = {2026, 7, 3, 15, 12, 0, 0, 0};
        record.tm_isdst = 5;
        EXPECT_EQ(QVTimeToTM(&time, &record), S_OK);
        EXPECT_EQ(record.tm_isdst, row.daylight);
    }
}

TEST_F(Time, ThreadsDoNotMeet)
{
    Zone("Europe/Berlin");
    std::vector<std::jthread> threads;
    for (std::int32_t number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            for (std::int32_t round = 0; round < 300; ++round) {
                const std::int32_t moment = kJuly + number * 1'000'000 + round;
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
}

} // namespace
