/* A tour of libku for a first look: each section shows one family at work.
 * Log lines go to stderr, the narration to stdout. */
#include <stdio.h>
#include <time.h>

#include <ku.h>

static void show_log_and_clocks(void)
{
    printf("== log and clocks\n");
    ku_tm tm;
    const time_t now = (time_t)ku_utc_time();
    ku_gm_time(&now, &tm);
    printf("UTC now: %04d-%02d-%02d %02d:%02d:%02d\n", tm.tm_year, tm.tm_mon, tm.tm_mday,
           tm.tm_hour, tm.tm_min, tm.tm_sec);
    printf("monotonic: %lld s, %lld ms, %lld us\n", (long long)ku_second_ticks(),
           (long long)ku_ms_ticks(), (long long)ku_us_ticks());
    printf("UTC+5.5 in single precision: %lld\n", (long long)ku_local_time(5.5f));
    fflush(stdout);

    ku_err("an error line, code %d\n", 42);
    ku_debug("a debug line\n");
    ku_trace("a trace line\n");

    /* A busy loop of 300 ms that asks for a line every pass: slot 5 lets one
     * through every 100 ms, so only a handful come out. */
    const int64_t start = ku_ms_ticks();
    long passes = 0;
    while (ku_ms_ticks() - start < 300) {
        ++passes;
        ku_loop_trace(5, 100, "loop pass %ld\n", passes);
    }
    fflush(stderr);
    printf("the loop ran %ld passes; the rate gate let about 3 lines through\n", passes);
}

int main(void)
{
    show_log_and_clocks();
    return 0;
}
