/* libresample's floating-point resampler, offered to applications of libku.
 *
 * libku does not implement these functions and no libku function calls them:
 * they are libresample's own (LGPL), and libresample is a public dependency.
 * Linking libku through its pkg-config file (ku.pc, "Libs: -lku -lresample")
 * or its CMake package (ku::ku, ku::ku_static) links libresample too, so an
 * application that names only libku can call them. Linking with a bare -lku
 * instead needs -lresample added by hand.
 *
 * The declarations are libresample.h's own, so the two headers may be
 * included together. libresample also exports the helpers lrsSrcUp, lrsSrcUD,
 * lrsFilterUp, lrsFilterUD and lrsLpFilter, which link the same way; it
 * publishes no prototypes for them, so they are not declared here.
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

KU_END_DECLS

#endif /* KU_RESAMPLE_H */
