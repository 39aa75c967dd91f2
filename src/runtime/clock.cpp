// Tick clocks and calendar time.
// Every count is signed 64-bit on every target: on a 32-bit machine time_t and
// long are narrower, so each product is widened before it is formed.
#include "ku/clock.h"

#include <cstddef>
#include <cstring>
#include <ctime>

namespace {

// ku_tm must stay a drop-in view of struct tm, field by field.
static_assert(sizeof(ku_tm) == sizeof(struct tm));
static_assert(offsetof(ku_tm, tm_sec) == offsetof(struct tm, tm_sec));
static_assert(offsetof(ku_tm, tm_mon) == offsetof(struct tm, tm_mon));
static_assert(offsetof(ku_tm, tm_year) == offsetof(struct tm, tm_year));
static_assert(offsetof(ku_tm, tm_isdst) == offsetof(struct tm, tm_isdst));
static_assert(offsetof(ku_tm, tm_gmtoff) == offsetof(struct tm, tm_gmtoff));
static_assert(offsetof(ku_tm, tm_zone) == offsetof(struct tm, tm_zone));

timespec monotonic_now() noexcept
{
    timespec now{};
    // The result is not tested: CLOCK_MONOTONIC cannot fail on Linux with a
    // valid address.
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

}  // namespace

extern "C" {

KU_API int64_t ku_second_ticks(void) noexcept
{
    return static_cast<int64_t>(monotonic_now().tv_sec);
}

KU_API int64_t ku_ms_ticks(void) noexcept
{
    const timespec now = monotonic_now();
    return static_cast<int64_t>(now.tv_sec) * 1000 +
           (static_cast<int64_t>(now.tv_nsec) + 500000) / 1000000;
}

KU_API int64_t ku_us_ticks(void) noexcept
{
    const timespec now = monotonic_now();
    return static_cast<int64_t>(now.tv_sec) * 1000000 + static_cast<int64_t>(now.tv_nsec) / 1000;
}

KU_API int64_t ku_ns_ticks(void) noexcept
{
    const timespec now = monotonic_now();
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + static_cast<int64_t>(now.tv_nsec);
}

KU_API int64_t ku_utc_time(void) noexcept
{
    time_t now = 0;
    time(&now);
    return static_cast<int64_t>(now);
}

KU_API int64_t ku_local_time(float zone_hours) noexcept
{
    // No zone lies further than a day from UTC. The test is written so that
    // NaN fails it too: converting NaN, infinity or a float beyond the
    // int64_t range is undefined behaviour, not merely a wrong hour.
    constexpr float kMaxZoneHours = 24.0f;
    constexpr float kInt64Limit = 9223372036854775808.0f;  // 2^63
    if (!(zone_hours >= -kMaxZoneHours && zone_hours <= kMaxZoneHours)) {
        return -1;
    }
    // Single precision on purpose at every step: callers rely on the result
    // being exactly what this float arithmetic gives.
    const float utc = static_cast<float>(ku_utc_time());
    const float shift = zone_hours * 3600.0f;
    const float local = utc + shift;
    if (!(local >= -kInt64Limit && local < kInt64Limit)) {
        return -1;
    }
    return static_cast<int64_t>(local);
}

KU_API int64_t ku_mktime(ku_tm tm) noexcept
{
    struct tm libc_tm;
    std::memcpy(&libc_tm, &tm, sizeof libc_tm);
    libc_tm.tm_year -= 1900;
    libc_tm.tm_mon -= 1;
    return static_cast<int64_t>(mktime(&libc_tm));
}

KU_API ku_tm *ku_gm_time(const time_t *timer, ku_tm *tm) noexcept
{
    // gmtime_r: every thread that logs converts the time, so the process-wide
    // record of gmtime() is out of the question.
    struct tm libc_tm{};
    gmtime_r(timer, &libc_tm);
    libc_tm.tm_year += 1900;
    libc_tm.tm_mon += 1;
    std::memcpy(tm, &libc_tm, sizeof libc_tm);
    return tm;
}

}  // extern "C"
