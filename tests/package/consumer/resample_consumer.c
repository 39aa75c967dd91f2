/* Calls libresample's ten functions naming only libku (<ku.h>, -lku, ku.pc or
 * the ku package) and compares each result with the one libresample.so gives
 * for the same arguments: a missing export fails the link, an argument passed
 * wrongly on the way the comparison. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <ku.h>

enum { crossing = 4096, wing = crossing * 6, samples = 256, room = 1024 };
static double coefficients[wing], their_coefficients[wing];
static float impulse[wing], step[wing], input[samples], ours[room], theirs[room];
static void *libresample;

/* libresample's own definition of `name`, with libku's declaration. */
#define DIRECT(name) ((__typeof__(&name))dlsym(libresample, #name))
/* The same call through libku and directly gives the same result. */
#define SAME(name, ...) (name(__VA_ARGS__) == DIRECT(name)(__VA_ARGS__))
#define SRC_UP(src, out, time) src(input, out, 2.0, time, 150, wing, 0.9f, impulse, step, 1)
#define SRC_UD(src, out, time) src(input, out, .5, time, 2048., 100, wing, .45f, impulse, step, 1)

int main(void)
{
    double our_time = 30.0, their_time = 30.0;
    int our_used = 0, their_used = 0, i, ok, written;
    void *handle, *copy;
    libresample = dlopen("libresample.so.1", RTLD_NOW);
    if (libresample == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    lrsLpFilter(coefficients, wing, 0.45, 6.0, crossing);
    DIRECT(lrsLpFilter)(their_coefficients, wing, 0.45, 6.0, crossing);
    /* The ideal low-pass response at 0 is twice the cut-off frequency. */
    ok = !memcmp(coefficients, their_coefficients, sizeof coefficients) && coefficients[0] == 0.9;
    for (i = 0; i < wing; i++) {
        impulse[i] = (float)coefficients[i];
        step[i] = (i + 1 < wing ? (float)coefficients[i + 1] : 0.0f) - impulse[i];
        input[i % samples] = (float)(i % samples % 17 - 8) / 8.0f;
    }
    ok = ok && SAME(lrsFilterUp, impulse, step, wing, 1, &input[100], 0.3, 1) &&
         SAME(lrsFilterUp, impulse, step, wing, 0, &input[100], 0.3, -1) &&
         SAME(lrsFilterUD, impulse, step, wing, 1, &input[100], 0.3, 1, 2048.0);
    ok = ok && SRC_UP(lrsSrcUp, ours, &our_time) > 250 &&
         SRC_UD(lrsSrcUD, ours + 512, &our_time) > 40;
    SRC_UP(DIRECT(lrsSrcUp), theirs, &their_time);
    SRC_UD(DIRECT(lrsSrcUD), theirs + 512, &their_time);
    ok = ok && our_time == their_time && !memcmp(ours, theirs, sizeof ours);
    /* The copy, fed through libresample directly, converts exactly like the
     * original fed through libku. */
    handle = resample_open(1, 0.5, 2.0);
    copy = resample_dup(handle);
    written = resample_process(handle, 2.0, input, samples, 1, &our_used, ours, room);
    ok = ok && handle && copy && resample_get_filter_width(handle) > 0 &&
         SAME(resample_get_filter_width, copy) && written > samples && our_used == samples &&
         written == DIRECT(resample_process)(copy, 2.0, input, samples, 1, &their_used, theirs,
                                             room) &&
         their_used == samples && !memcmp(ours, theirs, sizeof ours);
    resample_close(handle);
    DIRECT(resample_close)(copy);
    if (!ok) {
        fprintf(stderr, "a libresample function gave another result through libku\n");
        return 1;
    }
    printf("ku consumer ok (resample)\n");
    return 0;
}
