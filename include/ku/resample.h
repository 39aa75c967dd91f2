/* libresample's floating-point resampler, offered to applications of libku.
 *
 * libku.so exports these ten functions itself, so a program linked with -lku
 * alone can call them; each hands its arguments unchanged to libresample.so
 * (LGPL), which libku.so needs at run time, and no libku function calls them.
 * A static link of libku takes libresample's own copies (ku.pc's
 * Libs.private, ku::ku_static).
 *
 * The declarations are libresample's own, so libresample.h may be included
 * too. Its helpers lrs* have no public header of libresample's: the
 * prototypes below are those of its library (BOOL is char, UWORD unsigned).
 *
 * Samples are float, one channel; factor is the output rate divided by the
 * input rate. Not to be confused with the integer miniresample_* family.
 *
 * Threads: libku adds no lock around these. A handle is used by one thread at
 * a time; separate handles keep separate state and may run on different
 * threads at once. */
#ifndef KU_RESAMPLE_H
#define KU_RESAMPLE_H

#include "ku/export.h"

KU_BEGIN_DECLS

/* A converter for factors between minFactor and maxFactor; highQuality
 * non-zero picks the longer filter. Returns null on bad factors or no memory.
 * Release with resample_close. */
void *resample_open(int highQuality, double minFactor, double maxFactor);

/* A copy of a converter, state and buffered input included; null on failure. */
void *resample_dup(const void *handle);

/* The filter's width in input samples: the latency of the converter. */
int resample_get_filter_width(const void *handle);

/* Converts up to inBufferLen samples at this factor into at most
 * outBufferLen samples; *inBufferUsed receives the samples consumed.
 * lastFlag non-zero flushes the end of the stream. Returns the number of
 * samples written, or -1 on a factor outside the range given at open. */
int resample_process(void *handle, double factor, float *inBuffer, int inBufferLen, int lastFlag,
                     int *inBufferUsed, float *outBuffer, int outBufferLen);

/* Frees a converter. */
void resample_close(void *handle);

/* Kaiser-windowed low-pass filter: N coefficients into c for cut-off frq
 * (a fraction of the sample rate), window Beta, Num samples a zero crossing. */
void lrsLpFilter(double c[], int N, double frq, double Beta, int Num);

/* One filter tap sum at phase Ph, walking Xp by Inc: for up-sampling, and for
 * any factor with the step dhb. Interp non-zero interpolates the table. */
float lrsFilterUp(float Imp[], float ImpD[], unsigned int Nwing, char Interp, float *Xp, double Ph,
                  int Inc);
float lrsFilterUD(float Imp[], float ImpD[], unsigned int Nwing, char Interp, float *Xp, double Ph,
                  int Inc, double dhb);

/* Resamples Nx samples of X into Y at factor, *Time the position in X;
 * returns the samples written. lrsSrcUD also filters for down-sampling. */
int lrsSrcUp(float X[], float Y[], double factor, double *Time, unsigned int Nx, unsigned int Nwing,
             float LpScl, float Imp[], float ImpD[], char Interp);
int lrsSrcUD(float X[], float Y[], double factor, double *Time, double dhb, unsigned int Nx,
             unsigned int Nwing, float LpScl, float Imp[], float ImpD[], char Interp);

KU_END_DECLS

#endif /* KU_RESAMPLE_H */
