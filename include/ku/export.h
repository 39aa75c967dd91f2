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
