/* libresample's ten functions, exported by libku.so so that a program linked
 * with -lku alone can call them. Each passes its arguments unchanged to
 * libresample.so, which libku.so needs: Debian's libresample.a is not
 * position-independent on every architecture (x86-64's is not), so its code
 * cannot be copied into a shared library, and the wrapper keeps
 * libresample's ABI and its updates. Written in C because the declarations
 * must match libresample.h's, which has no noexcept. */
#include <dlfcn.h>
#include <stddef.h>

#include "ku/resample.h"

#define KU_FORWARD __attribute__((visibility("default")))

/* libku.so defines the same names, so a plain call would come back here:
 * libresample's own definitions are the next ones after libku in the load
 * order. They are looked up once, while the loader sets libku up, before any
 * thread of the program can call; were libresample missing, each function
 * would give its failure result (null, -1 or 0) instead of a crash. */
static struct {
    void *(*open)(int, double, double);
    void *(*dup)(const void *);
    int (*get_filter_width)(const void *);
    int (*process)(void *, double, float *, int, int, int *, float *, int);
    void (*close)(void *);
    int (*src_up)(float *, float *, double, double *, unsigned int, unsigned int, float, float *,
                  float *, char);
    int (*src_ud)(float *, float *, double, double *, double, unsigned int, unsigned int, float,
                  float *, float *, char);
    float (*filter_up)(float *, float *, unsigned int, char, float *, double, int);
    float (*filter_ud)(float *, float *, unsigned int, char, float *, double, int, double);
    void (*lp_filter)(double *, int, double, double, int);
} libresample;

#define KU_FIND(field, name) *(void **)&libresample.field = dlsym(RTLD_NEXT, name)

__attribute__((constructor)) static void find_libresample(void)
{
    KU_FIND(open, "resample_open");
    KU_FIND(dup, "resample_dup");
    KU_FIND(get_filter_width, "resample_get_filter_width");
    KU_FIND(process, "resample_process");
    KU_FIND(close, "resample_close");
    KU_FIND(src_up, "lrsSrcUp");
    KU_FIND(src_ud, "lrsSrcUD");
    KU_FIND(filter_up, "lrsFilterUp");
    KU_FIND(filter_ud, "lrsFilterUD");
    KU_FIND(lp_filter, "lrsLpFilter");
}

KU_FORWARD void *resample_open(int highQuality, double minFactor, double maxFactor)
{
    return libresample.open ? libresample.open(highQuality, minFactor, maxFactor) : NULL;
}

KU_FORWARD void *resample_dup(const void *handle)
{
    return libresample.dup ? libresample.dup(handle) : NULL;
}

KU_FORWARD int resample_get_filter_width(const void *handle)
{
    return libresample.get_filter_width ? libresample.get_filter_width(handle) : 0;
}

KU_FORWARD int resample_process(void *handle, double factor, float *inBuffer, int inBufferLen,
                                int lastFlag, int *inBufferUsed, float *outBuffer, int outBufferLen)
{
    if (!libresample.process) {
        return -1;
    }
    return libresample.process(handle, factor, inBuffer, inBufferLen, lastFlag, inBufferUsed,
                               outBuffer, outBufferLen);
}

KU_FORWARD void resample_close(void *handle)
{
    if (libresample.close) {
        libresample.close(handle);
    }
}

KU_FORWARD void lrsLpFilter(double c[], int N, double frq, double Beta, int Num)
{
    if (libresample.lp_filter) {
        libresample.lp_filter(c, N, frq, Beta, Num);
    }
}

KU_FORWARD float lrsFilterUp(float Imp[], float ImpD[], unsigned int Nwing, char Interp, float *Xp,
                             double Ph, int Inc)
{
    return libresample.filter_up ? libresample.filter_up(Imp, ImpD, Nwing, Interp, Xp, Ph, Inc) : 0.0f;
}

KU_FORWARD float lrsFilterUD(float Imp[], float ImpD[], unsigned int Nwing, char Interp, float *Xp,
                             double Ph, int Inc, double dhb)
{
    if (!libresample.filter_ud) {
        return 0.0f;
    }
    return libresample.filter_ud(Imp, ImpD, Nwing, Interp, Xp, Ph, Inc, dhb);
}

KU_FORWARD int lrsSrcUp(float X[], float Y[], double factor, double *Time, unsigned int Nx,
                        unsigned int Nwing, float LpScl, float Imp[], float ImpD[], char Interp)
{
    if (!libresample.src_up) {
        return 0;
    }
    return libresample.src_up(X, Y, factor, Time, Nx, Nwing, LpScl, Imp, ImpD, Interp);
}

KU_FORWARD int lrsSrcUD(float X[], float Y[], double factor, double *Time, double dhb,
                        unsigned int Nx, unsigned int Nwing, float LpScl, float Imp[], float ImpD[],
                        char Interp)
{
    if (!libresample.src_ud) {
        return 0;
    }
    return libresample.src_ud(X, Y, factor, Time, dhb, Nx, Nwing, LpScl, Imp, ImpD, Interp);
}
