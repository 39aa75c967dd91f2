// Tick rounding, calendar conversions and the single-precision local time.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include "ku/clock.h"
#include "support/fake_clock.h"

using ku_test::FakeClock;

TEST(Ticks, HalfMillisecondRoundsUpOnlyForMilliseconds)
{
    FakeClock clock;
    clock.set_monotonic(0, 499999);
    EXPECT_EQ(ku_ms_ticks(), 0);
    EXPECT_EQ(ku_us_ticks(), 499);
    EXPECT_EQ(ku_second_ticks(), 0);
    clock.set_monotonic(0, 500000);
    EXPECT_EQ(ku_ms_ticks(), 1);
    EXPECT_EQ(ku_us_ticks(), 500);
    EXPECT_EQ(ku_second_ticks(), 0);
}

TEST(Ticks, LastHalfMillisecondShowsNextSecond)
{
    FakeClock clock;
    clock.set_monotonic(7, 999600000);
    EXPECT_EQ(ku_ms_ticks(), 8000);
    EXPECT_EQ(ku_us_ticks(), 7999600);
    EXPECT_EQ(ku_second_ticks(), 7);
    EXPECT_EQ(ku_ns_ticks(), 7999600000LL);
}

TEST(Ticks, ProductsDoNotOverflow32Bits)
{
    FakeClock clock;
    clock.set_monotonic(3000000, 123456789);  // about 35 days of uptime
    EXPECT_EQ(ku_ms_ticks(), 3000000123LL);
    EXPECT_EQ(ku_us_ticks(), 3000000123456LL);
    EXPECT_EQ(ku_ns_ticks(), 3000000123456789LL);
}

TEST(Ticks, LastSecondOf32BitTimeIsWidenedBeforeScaling)
{
    FakeClock clock;
    clock.set_monotonic(2147483647, 999999999);
    EXPECT_EQ(ku_second_ticks(), 2147483647LL);
    EXPECT_EQ(ku_ms_ticks(), 2147483648000LL);
    EXPECT_EQ(ku_us_ticks(), 2147483647999999LL);
    EXPECT_EQ(ku_ns_ticks(), 2147483647999999999LL);
}

TEST(Ticks, RealClockIsMonotonic)
{
    const int64_t first = ku_ns_ticks();
    const int64_t second = ku_ns_ticks();
    EXPECT_GT(first, 0);
    EXPECT_GE(second, first);
}

TEST(Calendar, UtcTimeIsTimeAlsoAfter2038)
{
    FakeClock clock;
    for (const int64_t utc : {1795390927LL, 2147483648LL, 4102444800LL}) {
        clock.set_utc(utc);
        EXPECT_EQ(ku_utc_time(), utc);
    }
}

TEST(Calendar, GmTimeOfZeroIs1970January1st)
{
    ku_tm tm;
    const time_t zero = 0;
    EXPECT_EQ(ku_gm_time(&zero, &tm), &tm);
    EXPECT_EQ(tm.tm_year, 1970);
    EXPECT_EQ(tm.tm_mon, 1);
    EXPECT_EQ(tm.tm_mday, 1);
    EXPECT_EQ(tm.tm_hour, 0);
    EXPECT_EQ(tm.tm_wday, 4);  // a Thursday
    EXPECT_EQ(tm.tm_yday, 0);
    EXPECT_EQ(tm.tm_gmtoff, 0);
}

TEST(Calendar, GmTimeFillsEveryField)
{
    ku_tm tm;
    const time_t when = 1795390927;  // 2026-11-22 23:42:07 UTC, a Sunday
    ku_gm_time(&when, &tm);
    EXPECT_EQ(tm.tm_year, 2026);
    EXPECT_EQ(tm.tm_mon, 11);
    EXPECT_EQ(tm.tm_mday, 22);
    EXPECT_EQ(tm.tm_hour, 23);
    EXPECT_EQ(tm.tm_min, 42);
    EXPECT_EQ(tm.tm_sec, 7);
    EXPECT_EQ(tm.tm_wday, 0);
    EXPECT_EQ(tm.tm_yday, 325);
    ASSERT_NE(tm.tm_zone, nullptr);
    EXPECT_STREQ(tm.tm_zone, "GMT");
}

namespace {

// The broken-down UTC of `when` as "year-month-day hour:min:sec weekday".
std::string gm_time_text(time_t when)
{
    ku_tm tm;
    ku_gm_time(&when, &tm);
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d wday %d", tm.tm_year, tm.tm_mon,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, tm.tm_wday);
    return text;
}

// A ku_tm with only the date and time of day set, as a caller fills one.
ku_tm calendar(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    ku_tm tm{};
    tm.tm_year = year;
    tm.tm_mon = month;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return tm;
}

}  // namespace

TEST(Calendar, GmTimeAcrossTheEndOf32BitTime)
{
    EXPECT_EQ(gm_time_text(2147483647), "2038-01-19 03:14:07 wday 2");  // a Tuesday
    EXPECT_EQ(gm_time_text(2147483648), "2038-01-19 03:14:08 wday 2");
}

TEST(Calendar, GmTimeBeforeTheEpoch)
{
    EXPECT_EQ(gm_time_text(-1), "1969-12-31 23:59:59 wday 3");  // a Wednesday
}

class LocalZone : public ::testing::Test {
protected:
    void use_zone(const char *zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
    void TearDown() override
    {
        if (saved_.empty()) {
            unsetenv("TZ");
        } else {
            setenv("TZ", saved_.c_str(), 1);
        }
        tzset();
    }
    std::string saved_ = getenv("TZ") ? getenv("TZ") : "";
};

TEST_F(LocalZone, MktimeRoundTripsUnderUtc)
{
    use_zone("UTC");
    ku_tm tm;
    const time_t when = 1795390927;
    ku_gm_time(&when, &tm);
    const ku_tm copy = tm;
    EXPECT_EQ(ku_mktime(tm), 1795390927);
    EXPECT_EQ(tm.tm_year, copy.tm_year);  // passed by value, untouched
}

TEST_F(LocalZone, MktimeReadsTheRecordAsLocalTime)
{
    use_zone("EST5");  // UTC-5, no daylight saving
    ku_tm tm;
    const time_t when = 1795390927;
    ku_gm_time(&when, &tm);
    EXPECT_EQ(ku_mktime(tm), 1795390927 + 5 * 3600);
}

TEST_F(LocalZone, MktimeMonthZeroIsDecemberOfYearBefore)
{
    use_zone("UTC");
    EXPECT_EQ(ku_mktime(calendar(2026, 0, 1)), 1764547200);  // 2025-12-01 00:00:00 UTC
}

TEST_F(LocalZone, MktimeAtTheEndOf32BitTime)
{
    use_zone("UTC");
    EXPECT_EQ(ku_mktime(calendar(2038, 1, 19, 3, 14, 7)), 2147483647LL);
    EXPECT_EQ(ku_mktime(calendar(2038, 1, 19, 3, 14, 8)), 2147483648LL);
}

TEST(LocalTime, ZeroZoneIsUtcRoundedToMultipleOf128)
{
    FakeClock clock;
    clock.set_utc(1795390927);  // 49 below 14026492 * 128: rounds up
    EXPECT_EQ(ku_local_time(0.0f), 1795390976);
}

TEST(LocalTime, HalfHourZoneShiftsBeforeRounding)
{
    FakeClock clock;
    clock.set_utc(1795390927);
    // float(1795390927) is 1795390976; +-19800 s, then rounded again.
    EXPECT_EQ(ku_local_time(5.5f), 1795410816);
    EXPECT_EQ(ku_local_time(-5.5f), 1795371136);
}

// No zone lies beyond a day from UTC: such a value, NaN or infinity, gives
// -1 instead of an undefined float conversion; the bounds themselves count.
TEST(LocalTime, ZoneBeyondADayOrNotANumberGivesMinusOne)
{
    FakeClock clock;
    clock.set_utc(1795390927);
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        float zone_hours;
        int64_t expected;
    } rows[] = {
        {24.0f, 1795390976 + 86400}, {-24.0f, 1795390976 - 86400}, {std::nextafter(24.0f, 25.0f), -1},
        {-25.0f, -1},                {1e30f, -1},                  {inf, -1},
        {-inf, -1},                  {std::nanf(""), -1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ku_local_time(row.zone_hours), row.expected) << row.zone_hours;
    }
}

TEST(LocalTime, StepIs128Seconds)
{
    FakeClock clock;
    clock.set_utc(1795390976);
    const int64_t base = ku_local_time(0.0f);
    clock.set_utc(1795390976 + 63);
    EXPECT_EQ(ku_local_time(0.0f), base);
    clock.set_utc(1795390976 + 65);
    EXPECT_EQ(ku_local_time(0.0f), base + 128);
}
