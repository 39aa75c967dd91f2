#include "ku/clock.h"

#include <gtest/gtest.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <tuple>

#include "support/fake_clock.h"

// Only milliseconds round, and seconds widen before they are scaled. Local
// time is single precision at every step: float(1795390927) is 1795390976, a
// multiple of 128; the shift is added and rounded again.
TEST(Clock, RoundsTicksAndLocalTimeAsDocumentedAndCountsFullYearsAndMonthsFromOne)
{
    const std::tuple<int64_t, long, int64_t, int64_t, int64_t, int64_t> ticks[] = {
        {0, 499999, 0, 0, 499, 499999}, {0, 500000, 0, 1, 500, 500000},
        {7, 999600000, 7, 8000, 7999600, 7999600000},  // the next second, early
        {2147483647, 999999999, 2147483647, 2147483648000, 2147483647999999, 2147483647999999999},
    };
    const std::tuple<int64_t, float, int64_t> local[] = {
        {1795390927, 0.0f, 1795390976}, {1795390927, 5.5f, 1795410816},
        {1795390927, 24.0f, 1795390976 + 86400}, {1795390927, -24.0f, 1795390976 - 86400},
        {INT64_MAX, 0.0f, -1}, {INT64_MIN, 0.0f, INT64_MIN},  // INT64_MAX rounds to 2^63: too far
    };
    ku_test::FakeClock clock;
    for (const auto &[sec, nsec, s, ms, us, ns] : ticks) {
        clock.set_monotonic(sec, nsec);
        EXPECT_EQ(std::make_tuple(ku_second_ticks(), ku_ms_ticks(), ku_us_ticks(), ku_ns_ticks()),
                  std::make_tuple(s, ms, us, ns));
    }
    for (const auto &[utc, zone_hours, expected] : local) {
        clock.set_utc(utc);
        EXPECT_EQ(ku_utc_time(), utc);
        EXPECT_EQ(ku_local_time(zone_hours), expected) << utc << " " << zone_hours;
    }
    for (const float zone_hours : {std::nextafter(24.0f, 25.0f), -25.0f, INFINITY, -INFINITY, NAN})
        EXPECT_EQ(ku_local_time(zone_hours), -1) << zone_hours;
    // The calendar both ways: full years, months from 1. The zone stays: no
    // other case reads it.
    setenv("TZ", "UTC", 1);
    tzset();
    const std::pair<time_t, const char *> rows[] = {
        {-1, "1969-12-31 23:59:59 wday 3 yday 364 GMT+0"},
        {1795390927, "2026-11-22 23:42:07 wday 0 yday 325 GMT+0"},
        {2147483648, "2038-01-19 03:14:08 wday 2 yday 18 GMT+0"},
    };
    for (const auto &[when, text] : rows) {
        ku_tm tm;
        EXPECT_EQ(ku_gm_time(&when, &tm), &tm);
        char got[80];
        std::snprintf(got, sizeof got, "%d-%02d-%02d %02d:%02d:%02d wday %d yday %d %s+%ld",
                      tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                      tm.tm_wday, tm.tm_yday, tm.tm_zone, tm.tm_gmtoff);
        EXPECT_STREQ(got, text);
        EXPECT_EQ(ku_mktime(tm), when) << text;
    }
    ku_tm tm{};
    tm.tm_year = 2026;  // month 0: December of the year before
    tm.tm_mday = 1;
    EXPECT_EQ(ku_mktime(tm), 1764547200);
    setenv("TZ", "EST5", 1);  // the record is read as local time
    tzset();
    EXPECT_EQ(ku_mktime(tm), 1764547200 + 5 * 3600);
}
