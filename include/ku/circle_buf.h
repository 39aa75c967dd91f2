/* Fixed-capacity byte ring for passing bytes between threads.
 *
 * Every transfer is all-or-nothing: it moves exactly the requested number of
 * bytes or none, and never waits (a full or empty ring refuses at once with
 * 0). Each handle holds its own non-recursive mutex over the whole operation,
 * copies included, so any number of threads may share one handle.
 *
 * The handle, the state record and the storage lie apart. The state record
 * and the storage may be caller memory (circle_buf_init_from_mem); they then
 * outlive the handle, and a new handle over them goes on where the last one
 * stopped. Two handles over the same memory do not exclude each other.
 *
 * A result of 0 cannot tell a refusal from a null handle or a request of
 * length 0. Defined answers where callers step outside the contract:
 * - a negative length, or one larger than the room or the content, is
 *   refused with 0;
 * - a state record that is not usable (capacity 0 or less, counters outside
 *   0..capacity, positions outside 0..capacity-1) refuses every transfer and
 *   reports 0 readable and 0 writable; circle_buf_reset still clears it;
 * - a mutex that cannot be locked refuses the call with 0 (and
 *   circle_buf_reset then does nothing);
 * - circle_buf_init(0) gives a handle on which every transfer is refused. */
#ifndef KU_CIRCLE_BUF_H
#define KU_CIRCLE_BUF_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

typedef struct ku_circle_buf ku_circle_buf;

/* The counters: five 32-bit words in native byte order. Callers of
 * circle_buf_init_from_mem supply and fill this record themselves. Invariant:
 * write_pos == (read_pos + readable) % capacity; all capacity bytes are
 * usable, and full and empty are told apart by readable alone. */
typedef struct ku_circle_buf_state {
    int32_t readable;  /* bytes stored now */
    int32_t read_pos;  /* index of the next byte to read, 0..capacity-1 */
    int32_t write_pos; /* index of the next byte to write, 0..capacity-1 */
    int32_t capacity;  /* size of the storage in bytes */
    uint32_t reserved; /* never read or written */
} ku_circle_buf_state;

/* New ring of `size` bytes with its own state record and storage (the
 * storage is not cleared). Null when an allocation or the mutex set-up fails
 * (nothing stays allocated), or when size is above INT32_MAX. Release with
 * circle_buf_free. */
KU_API ku_circle_buf *circle_buf_init(uint32_t size) KU_NOEXCEPT;
/* New handle over the caller's state record and storage of state->capacity
 * bytes, taken as they are: neither is read, written or tested for null
 * here. Null when the handle cannot be allocated; the caller's memory is then
 * untouched. circle_buf_free leaves both memories to the caller. */
KU_API ku_circle_buf *circle_buf_init_from_mem(ku_circle_buf_state *state, void *data) KU_NOEXCEPT;

/* Stores `length` bytes of src. length, or 0 when there is not room for all
 * of them (nothing stored) or cb is null. */
KU_API int32_t circle_buf_write(ku_circle_buf *cb, const void *src, int32_t length) KU_NOEXCEPT;
/* Takes `length` bytes into dst. length, or 0 when fewer are stored (nothing
 * taken) or cb is null. */
KU_API int32_t circle_buf_read(ku_circle_buf *cb, void *dst, int32_t length) KU_NOEXCEPT;
/* As circle_buf_read, but the bytes stay stored. */
KU_API int32_t circle_buf_peek(ku_circle_buf *cb, void *dst, int32_t length) KU_NOEXCEPT;
/* Drops `length` stored bytes without copying. length, or 0 when fewer are
 * stored or cb is null. */
KU_API int32_t circle_buf_skip(ku_circle_buf *cb, int32_t length) KU_NOEXCEPT;
/* Bytes stored now; 0 for a null handle. A momentary value. */
KU_API int32_t circle_buf_readable(ku_circle_buf *cb) KU_NOEXCEPT;
/* Free room (capacity - readable); 0 for a null handle. A momentary value. */
KU_API int32_t circle_buf_writable(ku_circle_buf *cb) KU_NOEXCEPT;
/* Empties the ring: both positions and readable to 0; capacity and the stored
 * bytes stay. Nothing happens for a null handle or a null state record. */
KU_API void circle_buf_reset(ku_circle_buf *cb) KU_NOEXCEPT;
/* Ends the handle: frees its own state and storage (circle_buf_init), or
 * leaves the caller's exactly as the last operation put them
 * (circle_buf_init_from_mem). Takes no lock: no other thread may be in the
 * handle. A null handle is ignored. */
KU_API void circle_buf_free(ku_circle_buf *cb) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_CIRCLE_BUF_H */
