/* Growable heap byte string, borrowed text slices and counted string copies.
 *
 * A membuffer keeps a zero byte behind its content (data[length]), so the
 * content may hold any bytes and still reads as text. Growth is additive, by
 * the larger of growth_step and the distance asked for; it never doubles.
 * membuffer_set_size is the only call that allocates, and the block always
 * comes from malloc/realloc, so membuffer_detach hands out a block for free().
 *
 * A null membuffer pointer is a broken precondition: the functions marked
 * "checks m" stop the process with a failed assertion naming the function
 * ("m != ((void *)0)", source "membuffer"), in every build type.
 *
 * `src` of the copying calls must not point into the buffer's own block: the
 * block may move before the source is read. One thread at a time. */
#ifndef KU_MEMBUFFER_H
#define KU_MEMBUFFER_H

#include <stddef.h>

#include "ku/export.h"

KU_BEGIN_DECLS

typedef struct membuffer {
    char *data;         /* heap block, null until memory was needed */
    size_t length;      /* bytes of content */
    size_t capacity;    /* content room in the block; the block is capacity + 1 bytes */
    size_t growth_step; /* smallest growth, and the slack a shrink leaves alone (5) */
} membuffer;

/* A slice of someone else's text; need not be zero-terminated. */
typedef struct memptr {
    const char *data; /* first byte of the slice */
    size_t length;    /* bytes in the slice */
} memptr;

/* Heap copy of exactly len bytes of s (zero bytes included) plus a zero byte
 * at index len (s may be null when len is 0). Null when malloc fails. The
 * caller frees it with free(). */
KU_API char *str_alloc(const char *s, size_t len) KU_NOEXCEPT;

/* strncmp of the slice against s over the slice's length; a non-zero result
 * comes back as strncmp gave it. When equal so far, a slice that is a proper
 * prefix of s gives -1, else 0. A zero byte inside the slice ends the
 * comparison, so "ab\0cd" (length 5) equals "ab". */
KU_API int memptr_cmp(const memptr *p, const char *s) KU_NOEXCEPT;
/* As memptr_cmp, with strncasecmp (ASCII case ignored). */
KU_API int memptr_cmp_nocase(const memptr *p, const char *s) KU_NOEXCEPT;

/* Empty buffer: data null, length and capacity 0, growth_step 5. Frees
 * nothing: on a buffer holding a block, the block is lost. Checks m. */
KU_API void membuffer_init(membuffer *m) KU_NOEXCEPT;
/* Frees the block and re-initialises the record (growth_step back to 5);
 * the record stays usable. A null m is ignored. */
KU_API void membuffer_destroy(membuffer *m) KU_NOEXCEPT;
/* Makes room for new_length bytes plus the terminator; changes only data and
 * capacity, never length, and writes no terminator. Growing past capacity
 * reallocates to capacity + max(growth_step, new_length - length); shrinking
 * reallocates to new_length + growth_step once capacity - new_length exceeds
 * growth_step; anything else is a no-op (new_length == length never
 * reallocates). If that realloc fails, the exact new_length is tried once.
 * 0 on success (data may still be null for a size of 0), -1 when both fail,
 * with the buffer untouched. Does not check m. Aborts ("alloc_len >=
 * new_length") when the sizes overflow size_t. */
KU_API int membuffer_set_size(membuffer *m, size_t new_length) KU_NOEXCEPT;
/* Replaces the content with src_len bytes of src. A null src empties the
 * buffer like membuffer_destroy and returns 0 (src_len is ignored). With
 * src_len 0 nothing is written: the old bytes, data[0] included, stay in the
 * block and only length becomes 0. 0, or -1 out of memory (unchanged).
 * Checks m. */
KU_API int membuffer_assign(membuffer *m, const void *src, size_t src_len) KU_NOEXCEPT;
/* membuffer_assign of strlen(s) bytes; s must not be null. */
KU_API int membuffer_assign_str(membuffer *m, const char *s) KU_NOEXCEPT;
/* Inserts src_len bytes of src before content byte `index` (index == length
 * appends). -1 when index > length (tested first, also for a null src) or
 * out of memory; a null src or src_len 0 at a valid index returns 0 and
 * changes nothing. A length + src_len that overflows size_t counts as out of
 * memory. Checks m. */
KU_API int membuffer_insert(membuffer *m, const void *src, size_t src_len, size_t index) KU_NOEXCEPT;
/* membuffer_insert at index = length. */
KU_API int membuffer_append(membuffer *m, const void *src, size_t src_len) KU_NOEXCEPT;
/* Appends strlen(s) bytes; s must not be null. Does not check m. */
KU_API int membuffer_append_str(membuffer *m, const char *s) KU_NOEXCEPT;
/* Removes up to count bytes from index; a count running past the end cuts the
 * content at index. Nothing happens on an empty buffer. Shrinks the block by
 * the rule of membuffer_set_size. Cannot fail: when the shrinking realloc
 * fails, the old (larger) block is kept and the content is still cut.
 * An index beyond length is ignored (no change). Checks m. */
KU_API void membuffer_delete(membuffer *m, size_t index, size_t count) KU_NOEXCEPT;
/* Hands the block (or null when there is none) to the caller, who frees it
 * with free(); read length first, it is not returned. data, length and
 * capacity are cleared, growth_step stays; the record is usable at once.
 * Checks m. */
KU_API char *membuffer_detach(membuffer *m) KU_NOEXCEPT;
/* Frees the current block (growth_step back to 5), then takes ownership of
 * block with length = capacity = block_len. The block must come from malloc
 * and hold block_len + 1 bytes; nothing is written to it, so no terminator is
 * added. A null block leaves the buffer empty. Checks m. */
KU_API void membuffer_attach(membuffer *m, char *block, size_t block_len) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_MEMBUFFER_H */
