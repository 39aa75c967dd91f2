/* A user program that calls libresample's ten functions while naming only
 * libku: it includes <ku.h> alone and links with -lku (or ku.pc, or the ku
 * CMake package). Each result must equal the one libresample.so gives for the
 * same arguments, which catches a missing export as a link error and an
 * argument passed wrongly on the way as a different result. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <ku.h>

enum { zero_crossing = 4096, wing = zero_crossing * 6, samples = 256, room = 1024 };

static double coefficients[wing];
static float impulse[wing];
static float impulse_step[wing];
static float input[samples];
static void *libresample;

static void *direct(const char *name)
{
    void *function = dlsym(libresample, name);
    if (function == NULL) {
        fprintf(stderr, "libresample has no %s\n", name);
    }
    return function;
}

static int filters_match(void)
{
    void (*lp_filter)(double *, int, double, double, int);
    float (*filter_up)(float *, float *, unsigned int, char, float *, double, int);
    float (*filter_ud)(float *, float *, unsigned int, char, float *, double, int, double);
    static double own[wing];
    int i;
    *(void **)&lp_filter = direct("lrsLpFilter");
    *(void **)&filter_up = direct("lrsFilterUp");
    *(void **)&filter_ud = direct("lrsFilterUD");
    if (lp_filter == NULL || filter_up == NULL || filter_ud == NULL) {
        return 0;
    }
    lrsLpFilter(coefficients, wing, 0.45, 6.0, zero_crossing);
    lp_filter(own, wing, 0.45, 6.0, zero_crossing);
    /* The ideal low-pass response at 0 is twice the cut-off frequency. */
    if (memcmp(coefficients, own, sizeof own) != 0 || coefficients[0] != 0.9) {
        return 0;
    }
    for (i = 0; i < wing; i++) {
        impulse[i] = (float)coefficients[i];
    }
    for (i = 0; i + 1 < wing; i++) {
        impulse_step[i] = impulse[i + 1] - impulse[i];
    }
    impulse_step[wing - 1] = -impulse[wing - 1];
    for (i = 0; i < samples; i++) {
        input[i] = (float)(i % 17 - 8) / 8.0f;
    }
    return lrsFilterUp(impulse, impulse_step, wing, 1, &input[100], 0.3, 1) ==
               filter_up(impulse, impulse_step, wing, 1, &input[100], 0.3, 1) &&
           lrsFilterUp(impulse, impulse_step, wing, 0, &input[100], 0.3, -1) ==
               filter_up(impulse, impulse_step, wing, 0, &input[100], 0.3, -1) &&
           lrsFilterUD(impulse, impulse_step, wing, 1, &input[100], 0.3, 1, 2048.0) ==
               filter_ud(impulse, impulse_step, wing, 1, &input[100], 0.3, 1, 2048.0);
}

static int sources_match(void)
{
    int (*src_up)(float *, float *, double, double *, unsigned int, unsigned int, float, float *,
                  float *, char);
    int (*src_ud)(float *, float *, double, double *, double, unsigned int, unsigned int, float,
                  float *, float *, char);
    static float ours[room];
    static float theirs[room];
    double our_time = 30.0;
    double their_time = 30.0;
    int ours_written;
    *(void **)&src_up = direct("lrsSrcUp");
    *(void **)&src_ud = direct("lrsSrcUD");
    if (src_up == NULL || src_ud == NULL) {
        return 0;
    }
    ours_written = lrsSrcUp(input, ours, 2.0, &our_time, 150, wing, 0.9f, impulse, impulse_step, 1);
    if (ours_written < 250 || ours_written != src_up(input, theirs, 2.0, &their_time, 150, wing, 0.9f,
                                                     impulse, impulse_step, 1) ||
        our_time != their_time || memcmp(ours, theirs, sizeof ours) != 0) {
        return 0;
    }
    ours_written = lrsSrcUD(input, ours, 0.5, &our_time, 2048.0, 100, wing, 0.45f, impulse,
                            impulse_step, 1);
    return ours_written > 40 &&
           ours_written == src_ud(input, theirs, 0.5, &their_time, 2048.0, 100, wing, 0.45f,
                                  impulse, impulse_step, 1) &&
           our_time == their_time && memcmp(ours, theirs, sizeof ours) == 0;
}

static int converters_match(void)
{
    int (*process)(void *, double, float *, int, int, int *, float *, int);
    static float ours[2 * samples + 64];
    static float theirs[2 * samples + 64];
    int our_used = 0;
    int their_used = 0;
    int written;
    void *handle = resample_open(1, 0.5, 2.0);
    void *copy = resample_dup(handle);
    *(void **)&process = direct("resample_process");
    if (handle == NULL || copy == NULL || process == NULL ||
        resample_get_filter_width(handle) <= 0 ||
        resample_get_filter_width(handle) != resample_get_filter_width(copy)) {
        return 0;
    }
    /* The copy, fed through libresample directly, must convert exactly like
     * the original fed through libku. */
    written = resample_process(handle, 2.0, input, samples, 1, &our_used, ours, 2 * samples + 64);
    resample_close(handle);
    if (written <= samples || our_used != samples ||
        written != process(copy, 2.0, input, samples, 1, &their_used, theirs, 2 * samples + 64) ||
        their_used != our_used || memcmp(ours, theirs, sizeof ours) != 0) {
        return 0;
    }
    resample_close(copy);
    return 1;
}

int main(void)
{
    libresample = dlopen("libresample.so.1", RTLD_NOW);
    if (libresample == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    if (!filters_match() || !sources_match() || !converters_match()) {
        fprintf(stderr, "a libresample function gave another result through libku\n");
        return 1;
    }
    printf("ku consumer ok (resample)\n");
    return 0;
}
