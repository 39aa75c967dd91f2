/* Export and linkage macros shared by every public header of libku. */
#ifndef KU_EXPORT_H
#define KU_EXPORT_H

/* The library is built with hidden visibility; only what carries KU_API is
 * exported from libku.so. */
#if defined(__GNUC__)
#define KU_API __attribute__((visibility("default")))
#define KU_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define KU_API
#define KU_PRINTF(fmt_index, first_arg)
#endif

/* libku is built with a 64-bit time_t and off_t on every target, 32-bit ones
 * included (glibc's _TIME_BITS=64 and _FILE_OFFSET_BITS=64), and functions
 * such as ku_gm_time take a time_t by address: a program built with another
 * width would pass it the wrong size of value. ku.pc and the CMake package
 * give the flags; this stops a build that lacks them. */
#include <time.h>
#if defined(__GLIBC__) && defined(__TIMESIZE) && __TIMESIZE == 32 && !defined(__USE_TIME_BITS64)
#error "libku needs a 64-bit time_t: compile with -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64 (pkg-config --cflags ku, or link the CMake target ku::ku)"
#endif

#ifdef __cplusplus
#define KU_BEGIN_DECLS extern "C" {
#define KU_END_DECLS }
#define KU_NOEXCEPT noexcept
#else
#define KU_BEGIN_DECLS
#define KU_END_DECLS
#define KU_NOEXCEPT
#endif

#endif /* KU_EXPORT_H */
