/* Reassembly cache for stream input: append what arrived, parse whole
 * messages straight out of `buffer`, then hand back how far the parse got and
 * the rest moves to the front.
 *
 * There are no accessors: callers read `buffer` and `used` from the record.
 * The cache grows by `growth`, trims itself in the same reallocation when
 * more than a growth step would stay free, and drops everything it holds
 * (error line "dynamic_mem_input overrun, clean cache") when an input would
 * bring `used` to `limit` or beyond; the caller should then reset any parser
 * position it holds. `buffer` may move at every dynamic_mem_input.
 *
 * Defined answers where the contract is silent:
 * - growth or limit below 1: dynamic_mem_init gives null; a growth field set
 *   below 1 later is used as 1;
 * - a negative length, or a null source with a positive length: the input is
 *   ignored and the record is unchanged;
 * - the fresh buffer of a clearing input cannot be allocated: the cache is
 *   left empty (buffer null, capacity and used 0) and the input is dropped;
 * - a reallocation fails: the old block is freed, buffer is null, capacity 0,
 *   and used still grows by the length (the content is lost); the next input
 *   starts a fresh buffer.
 * One thread at a time. */
#ifndef KU_DYNAMIC_MEM_H
#define KU_DYNAMIC_MEM_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

typedef struct ku_dynamic_mem {
    int32_t capacity; /* bytes allocated at buffer */
    int32_t used;     /* bytes of content from buffer on */
    int32_t growth;   /* size of a new buffer, and slack added on reallocation */
    int32_t limit;    /* an input bringing used to this or beyond clears first */
    char *buffer;     /* the content; null until the first input */
} ku_dynamic_mem;

/* New empty cache (capacity 0, used 0, buffer null); nothing is allocated for
 * content yet. Null when the record cannot be allocated or growth or limit is
 * below 1. Release with dynamic_mem_free. */
KU_API ku_dynamic_mem *dynamic_mem_init(int32_t growth, int32_t limit) KU_NOEXCEPT;
/* Appends length bytes of src, clearing the cache first when used + length
 * reaches limit (an input longer than limit is still stored whole, and the
 * input after it clears again). Afterwards used < capacity: at least one byte
 * of room follows the content. Gives mem (null for a null mem). */
KU_API ku_dynamic_mem *dynamic_mem_input(ku_dynamic_mem *mem, const void *src, int32_t length) KU_NOEXCEPT;
/* Consumes the content up to end, a pointer into buffer: the bytes from end
 * on move to the front (the bytes behind the new end keep their old values).
 * end at or past buffer + used empties the cache and zeroes all capacity
 * bytes; end at or below buffer, or no buffer, changes nothing. buffer never
 * moves here. Gives mem. */
KU_API ku_dynamic_mem *dynamic_mem_process(ku_dynamic_mem *mem, const void *end) KU_NOEXCEPT;
/* Frees buffer and the record. A null mem is ignored. */
KU_API void dynamic_mem_free(ku_dynamic_mem *mem) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_DYNAMIC_MEM_H */
