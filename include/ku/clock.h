/* Monotonic tick clocks and calendar time.
 *
 * Every tick and second count is signed 64-bit, also where time_t is narrower.
 * ku_tm is struct tm with a full calendar year (2026, not 126) and a month
 * running 1..12; it has struct tm's fields, in its order and of its types.
 *
 * Threads: every function may run on several threads at once. The tick clocks,
 * ku_utc_time, ku_local_time and ku_mktime hold no state, and ku_gm_time
 * converts re-entrantly into the caller's record (every thread that logs calls
 * it). */
#ifndef KU_CLOCK_H
#define KU_CLOCK_H

#include <stdint.h>
#include <time.h>

#include "ku/export.h"

KU_BEGIN_DECLS

typedef struct ku_tm {
    int tm_sec;          /* seconds, as in struct tm */
    int tm_min;          /* minutes */
    int tm_hour;         /* hours */
    int tm_mday;         /* day of the month */
    int tm_mon;          /* month 1..12 (January is 1) */
    int tm_year;         /* full calendar year */
    int tm_wday;         /* day of the week, 0 = Sunday */
    int tm_yday;         /* day of the year, 0..365 */
    int tm_isdst;        /* daylight saving flag */
    long tm_gmtoff;      /* offset from UTC in seconds */
    const char *tm_zone; /* zone name, owned by libc */
} ku_tm;

/* Monotonic seconds, fraction dropped. */
KU_API int64_t ku_second_ticks(void) KU_NOEXCEPT;
/* Monotonic milliseconds, rounded to nearest (a half rounds up): the value
 * changes half a millisecond early. */
KU_API int64_t ku_ms_ticks(void) KU_NOEXCEPT;
/* Monotonic microseconds, fraction dropped. */
KU_API int64_t ku_us_ticks(void) KU_NOEXCEPT;
/* Monotonic nanoseconds. */
KU_API int64_t ku_ns_ticks(void) KU_NOEXCEPT;

/* Seconds since the epoch from time(). */
KU_API int64_t ku_utc_time(void) KU_NOEXCEPT;
/* ku_utc_time() shifted by zone_hours, computed in single precision at every
 * step: between 2004 and 2038 the result moves in steps of 128 seconds.
 * zone_hours must lie between -24 and 24, both included: a value outside,
 * NaN or an infinity gives -1, as does a sum beyond the int64_t range. */
KU_API int64_t ku_local_time(float zone_hours) KU_NOEXCEPT;
/* mktime() of tm taken as local time (year and month converted back first).
 * The caller's record is not changed. Returns -1 where mktime() does. */
KU_API int64_t ku_mktime(ku_tm tm) KU_NOEXCEPT;
/* Broken-down UTC of *timer into *tm (re-entrant). Returns tm. */
KU_API ku_tm *ku_gm_time(const time_t *timer, ku_tm *tm) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_CLOCK_H */
