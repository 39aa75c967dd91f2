// Byte ring shared between threads: all-or-nothing transfers under a mutex
// that lives in the handle, not in the state record, so that the record and
// the storage can be plain caller memory that outlives any one handle.
#include "ku/circle_buf.h"

#include <pthread.h>

#include "containers/locked_internal.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

struct ku_circle_buf {
    ku_circle_buf_state *state;
    unsigned char *data;
    uint32_t owned;  // 1: state and data came from circle_buf_init and are ours to free
    pthread_mutex_t mutex;
};

namespace {

using ku::containers::Locked;

// A record supplied by the caller is taken on trust; one that could send a
// copy outside the storage is refused instead of followed.
bool usable(const ku_circle_buf_state *state) noexcept
{
    return state != nullptr && state->capacity > 0 && state->readable >= 0 &&
           state->readable <= state->capacity && state->read_pos >= 0 &&
           state->read_pos < state->capacity && state->write_pos >= 0 &&
           state->write_pos < state->capacity;
}

// Copies `length` bytes out from read_pos in stream order, leaving the
// counters alone. Wraps only when the tail is strictly shorter: a transfer
// that ends exactly at the end of the storage is a single copy.
void copy_out(const ku_circle_buf *cb, unsigned char *dst, int32_t length) noexcept
{
    const ku_circle_buf_state *state = cb->state;
    const int32_t tail = state->capacity - state->read_pos;
    if (tail < length) {
        memcpy(dst, cb->data + state->read_pos, static_cast<size_t>(tail));
        memcpy(dst + tail, cb->data, static_cast<size_t>(length - tail));
    } else {
        memcpy(dst, cb->data + state->read_pos, static_cast<size_t>(length));
    }
}

enum class Take { Copy, Peek, Skip };

int32_t take(ku_circle_buf *cb, unsigned char *dst, int32_t length, Take mode) noexcept
{
    if (cb == nullptr) {
        return 0;
    }
    Locked lock(&cb->mutex, ku::containers::kRingLockSpins);
    ku_circle_buf_state *state = cb->state;
    if (!lock.held || !usable(state) || length <= 0 || state->readable < length) {
        return 0;
    }
    if (mode == Take::Peek) {
        copy_out(cb, dst, length);
        return length;
    }
    if (mode == Take::Skip) {
        // read_pos + length modulo capacity, without the division and without
        // a sum that could pass INT32_MAX.
        const int32_t tail = state->capacity - state->read_pos;
        state->read_pos = length >= tail ? length - tail : state->read_pos + length;
        state->readable -= length;
        return length;
    }

    int32_t remaining = length;
    const int32_t tail = state->capacity - state->read_pos;
    // >=, not >: a read that ends exactly at the end of the storage goes
    // through here so read_pos comes back as 0, never as capacity.
    if (remaining >= tail) {
        memcpy(dst, cb->data + state->read_pos, static_cast<size_t>(tail));
        state->read_pos = 0;
        state->readable -= tail;
        dst += tail;
        remaining -= tail;
    }
    if (remaining != 0) {
        memcpy(dst, cb->data + state->read_pos, static_cast<size_t>(remaining));
        state->read_pos += remaining;
        state->readable -= remaining;
    }
    return length;
}

}  // namespace

extern "C" {

KU_API ku_circle_buf *circle_buf_init(uint32_t size) noexcept
{
    if (size > static_cast<uint32_t>(INT32_MAX)) {
        return nullptr;
    }
    auto *cb = static_cast<ku_circle_buf *>(malloc(sizeof(ku_circle_buf)));
    if (cb == nullptr) {
        return nullptr;
    }
    cb->owned = 1;
    cb->state = static_cast<ku_circle_buf_state *>(malloc(sizeof(ku_circle_buf_state)));
    // One byte at least, so that a ring of 0 is not told from a failure by
    // whether malloc(0) happens to give null.
    cb->data = static_cast<unsigned char *>(malloc(size == 0 ? 1 : size));
    if (cb->state == nullptr || cb->data == nullptr || pthread_mutex_init(&cb->mutex, nullptr) != 0) {
        free(cb->data);
        free(cb->state);
        free(cb);
        return nullptr;
    }
    cb->state->capacity = static_cast<int32_t>(size);
    cb->state->readable = 0;
    cb->state->read_pos = 0;
    cb->state->write_pos = 0;
    return cb;
}

KU_API ku_circle_buf *circle_buf_init_from_mem(ku_circle_buf_state *state, void *data) noexcept
{
    auto *cb = static_cast<ku_circle_buf *>(malloc(sizeof(ku_circle_buf)));
    if (cb == nullptr) {
        return nullptr;
    }
    if (pthread_mutex_init(&cb->mutex, nullptr) != 0) {
        free(cb);
        return nullptr;
    }
    cb->state = state;
    cb->data = static_cast<unsigned char *>(data);
    cb->owned = 0;
    return cb;
}

KU_API int32_t circle_buf_write(ku_circle_buf *cb, const void *src, int32_t length) noexcept
{
    if (cb == nullptr) {
        return 0;
    }
    Locked lock(&cb->mutex, ku::containers::kRingLockSpins);
    ku_circle_buf_state *state = cb->state;
    // Room compared as a difference: readable + length could pass INT32_MAX.
    if (!lock.held || !usable(state) || length < 0 || state->capacity - state->readable < length) {
        return 0;
    }
    const auto *from = static_cast<const unsigned char *>(src);
    int32_t remaining = length;
    const int32_t tail = state->capacity - state->write_pos;
    // >=, not >: a write that fills the storage to its end leaves write_pos
    // at 0, so it never equals capacity.
    if (remaining >= tail) {
        memcpy(cb->data + state->write_pos, from, static_cast<size_t>(tail));
        state->write_pos = 0;
        state->readable += tail;
        from += tail;
        remaining -= tail;
    }
    if (remaining != 0) {
        memcpy(cb->data + state->write_pos, from, static_cast<size_t>(remaining));
        state->write_pos += remaining;
        state->readable += remaining;
    }
    return length;
}

KU_API int32_t circle_buf_read(ku_circle_buf *cb, void *dst, int32_t length) noexcept
{
    return take(cb, static_cast<unsigned char *>(dst), length, Take::Copy);
}

KU_API int32_t circle_buf_peek(ku_circle_buf *cb, void *dst, int32_t length) noexcept
{
    return take(cb, static_cast<unsigned char *>(dst), length, Take::Peek);
}

KU_API int32_t circle_buf_skip(ku_circle_buf *cb, int32_t length) noexcept
{
    return take(cb, nullptr, length, Take::Skip);
}

KU_API int32_t circle_buf_readable(ku_circle_buf *cb) noexcept
{
    if (cb == nullptr) {
        return 0;
    }
    Locked lock(&cb->mutex, ku::containers::kRingLockSpins);
    if (!lock.held || !usable(cb->state)) {
        return 0;
    }
    return cb->state->readable;
}

KU_API int32_t circle_buf_writable(ku_circle_buf *cb) noexcept
{
    if (cb == nullptr) {
        return 0;
    }
    Locked lock(&cb->mutex, ku::containers::kRingLockSpins);
    if (!lock.held || !usable(cb->state)) {
        return 0;
    }
    return cb->state->capacity - cb->state->readable;
}

KU_API void circle_buf_reset(ku_circle_buf *cb) noexcept
{
    if (cb == nullptr || cb->state == nullptr) {
        return;
    }
    Locked lock(&cb->mutex, ku::containers::kRingLockSpins);
    if (!lock.held) {
        return;
    }
    cb->state->write_pos = 0;
    cb->state->read_pos = 0;
    cb->state->readable = 0;
}

KU_API void circle_buf_free(ku_circle_buf *cb) noexcept
{
    if (cb == nullptr) {
        return;
    }
    if (cb->owned != 0) {
        free(cb->state);
        free(cb->data);
    }
    pthread_mutex_destroy(&cb->mutex);
    free(cb);
}

}  // extern "C"
