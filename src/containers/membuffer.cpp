// Growable byte buffer, text slices and counted string copies.
// All allocation goes through set_size(), whose additive rule (measured from
// length, with one retry at the exact size) decides when realloc is called.
#include "ku/membuffer.h"

#include <errno.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

constexpr size_t kGrowthStep = 5;
constexpr const char *kSource = "membuffer";
constexpr const char *kNullRecord = "m != ((void *)0)";
constexpr const char *kSizeOverflow = "alloc_len >= new_length";

// Stops the process with the message of a failed assert(), as glibc words
// it, naming `function`. Written out here rather than through assert(),
// which NDEBUG would remove from release builds, or through libc's private
// __assert_fail, whose declaration differs between C libraries and breaks
// the link against musl and uClibc-ng.
[[noreturn]] void stop(const char *assertion, unsigned int line, const char *function) noexcept
{
    // program_invocation_short_name: GNU, also in musl and uClibc-ng.
    const char *program = program_invocation_short_name;
    fprintf(stderr, "%s%s%s:%u: %s: Assertion `%s' failed.\n", program, program[0] != '\0' ? ": " : "",
            kSource, line, function, assertion);
    fflush(stderr);
    abort();
}

#define KU_REQUIRE(condition, text, function)          \
    do {                                               \
        if (!(condition)) {                            \
            stop((text), __LINE__, (function));        \
        }                                              \
    } while (0)

#define KU_REQUIRE_RECORD(m, function) KU_REQUIRE((m) != nullptr, kNullRecord, (function))

void reset(membuffer *m) noexcept
{
    m->data = nullptr;
    m->length = 0;
    m->capacity = 0;
    m->growth_step = kGrowthStep;
}

void release(membuffer *m) noexcept
{
    free(m->data);
    reset(m);
}

// realloc for `length` bytes of content plus the terminator; a length whose
// block size would wrap is treated like an allocator refusal.
char *resize_block(char *data, size_t length) noexcept
{
    if (length == SIZE_MAX) {
        return nullptr;
    }
    return static_cast<char *>(realloc(data, length + 1));
}

int set_size(membuffer *m, size_t new_length) noexcept
{
    size_t alloc_len;
    if (new_length >= m->length) {
        if (new_length <= m->capacity) {
            return 0;
        }
        // Measured from length, not capacity: a buffer with slack grows by
        // the full distance asked for, on top of the slack it already has.
        alloc_len = m->capacity + std::max(m->growth_step, new_length - m->length);
    } else {
        if (m->capacity - new_length <= m->growth_step) {
            return 0;
        }
        alloc_len = new_length + m->growth_step;
    }
    KU_REQUIRE(alloc_len >= new_length, kSizeOverflow, "membuffer_set_size");

    char *block = resize_block(m->data, alloc_len);
    if (block == nullptr) {
        alloc_len = new_length;
        block = resize_block(m->data, alloc_len);
        if (block == nullptr) {
            return -1;
        }
    }
    m->data = block;
    m->capacity = alloc_len;
    return 0;
}

int assign(membuffer *m, const void *src, size_t src_len) noexcept
{
    KU_REQUIRE_RECORD(m, "membuffer_assign");
    if (src == nullptr) {
        release(m);
        return 0;
    }
    if (set_size(m, src_len) != 0) {
        return -1;
    }
    // Length 0 leaves the block's bytes alone, data[0] included.
    if (src_len != 0) {
        memcpy(m->data, src, src_len);
        m->data[src_len] = '\0';
    }
    m->length = src_len;
    return 0;
}

int insert(membuffer *m, const void *src, size_t src_len, size_t index) noexcept
{
    // The index test comes before the source test: a bad index is an error
    // even when there is nothing to insert.
    if (index > m->length) {
        return -1;
    }
    if (src == nullptr || src_len == 0) {
        return 0;
    }
    if (src_len > SIZE_MAX - m->length) {
        return -1;
    }
    if (set_size(m, m->length + src_len) != 0) {
        return -1;
    }
    memmove(m->data + index + src_len, m->data + index, m->length - index);
    memcpy(m->data + index, src, src_len);
    m->length += src_len;
    m->data[m->length] = '\0';
    return 0;
}

// strncmp or strncasecmp over the slice; when equal so far, a slice that is
// a proper prefix of s sorts first.
template <int (*compare)(const char *, const char *, size_t)>
int compare_slice(const memptr *p, const char *s) noexcept
{
    if (p->length != 0) {
        const int order = compare(p->data, s, p->length);
        if (order != 0) {
            return order;
        }
    }
    return strnlen(s, p->length + 1) > p->length ? -1 : 0;
}

}  // namespace

extern "C" {

KU_API char *str_alloc(const char *s, size_t len) noexcept
{
    if (len == SIZE_MAX) {
        return nullptr;
    }
    char *block = static_cast<char *>(malloc(len + 1));
    if (block == nullptr) {
        return nullptr;
    }
    if (len != 0) {
        memcpy(block, s, len);
    }
    block[len] = '\0';
    return block;
}

KU_API int memptr_cmp(const memptr *p, const char *s) noexcept
{
    return compare_slice<strncmp>(p, s);
}

KU_API int memptr_cmp_nocase(const memptr *p, const char *s) noexcept
{
    return compare_slice<strncasecmp>(p, s);
}

KU_API void membuffer_init(membuffer *m) noexcept
{
    KU_REQUIRE_RECORD(m, "membuffer_init");
    reset(m);
}

KU_API void membuffer_destroy(membuffer *m) noexcept
{
    if (m == nullptr) {
        return;
    }
    release(m);
}

KU_API int membuffer_set_size(membuffer *m, size_t new_length) noexcept
{
    return set_size(m, new_length);
}

KU_API int membuffer_assign(membuffer *m, const void *src, size_t src_len) noexcept
{
    return assign(m, src, src_len);
}

KU_API int membuffer_assign_str(membuffer *m, const char *s) noexcept
{
    return assign(m, s, strlen(s));
}

KU_API int membuffer_insert(membuffer *m, const void *src, size_t src_len, size_t index) noexcept
{
    KU_REQUIRE_RECORD(m, "membuffer_insert");
    return insert(m, src, src_len, index);
}

KU_API int membuffer_append(membuffer *m, const void *src, size_t src_len) noexcept
{
    KU_REQUIRE_RECORD(m, "membuffer_append");
    return insert(m, src, src_len, m->length);
}

KU_API int membuffer_append_str(membuffer *m, const char *s) noexcept
{
    return insert(m, s, strlen(s), m->length);
}

KU_API void membuffer_delete(membuffer *m, size_t index, size_t count) noexcept
{
    KU_REQUIRE_RECORD(m, "membuffer_delete");
    if (m->length == 0 || index > m->length) {
        return;
    }
    // Compared as a remainder so that index + count cannot wrap.
    size_t to_move = 0;
    if (count > m->length - index) {
        count = m->length - index;
    } else {
        to_move = m->length - index - count;
    }
    memmove(m->data + index, m->data + index + count, to_move);

    // Shrinking while length still holds the old value applies the slack
    // rule. A refused shrink keeps the old block, which is large enough, so
    // the cut stands either way.
    const size_t new_length = m->length - count;
    (void)set_size(m, new_length);
    m->length = new_length;
    m->data[new_length] = '\0';
}

KU_API char *membuffer_detach(membuffer *m) noexcept
{
    KU_REQUIRE_RECORD(m, "membuffer_detach");
    char *block = m->data;
    m->data = nullptr;
    m->length = 0;
    m->capacity = 0;
    return block;
}

KU_API void membuffer_attach(membuffer *m, char *block, size_t block_len) noexcept
{
    KU_REQUIRE_RECORD(m, "membuffer_attach");
    release(m);
    if (block == nullptr) {
        return;
    }
    m->data = block;
    m->length = block_len;
    m->capacity = block_len;
}

}  // extern "C"
