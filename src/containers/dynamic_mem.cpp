// Stream reassembly cache. One realloc per input both grows and trims, so a
// cache that once held a burst gives the memory back on the next input; the
// limit is checked before storing, so a stream that never completes a message
// is dropped instead of taking memory without end.
#include "ku/dynamic_mem.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ku/log.h"

namespace {

constexpr const char *kOverrun = "dynamic_mem_input overrun, clean cache\n";

void drop_buffer(ku_dynamic_mem *mem) noexcept
{
    free(mem->buffer);
    mem->buffer = nullptr;
    mem->capacity = 0;
}

// Replaces the content by a fresh zeroed buffer of one growth step.
bool start_fresh(ku_dynamic_mem *mem, int32_t step, int64_t reach) noexcept
{
    drop_buffer(mem);
    if (reach >= mem->limit) {
        ku_err("%s", kOverrun);
    }
    mem->used = 0;
    mem->buffer = static_cast<char *>(calloc(static_cast<size_t>(step), 1));
    if (mem->buffer == nullptr) {
        return false;
    }
    mem->capacity = step;
    return true;
}

}  // namespace

extern "C" {

KU_API ku_dynamic_mem *dynamic_mem_init(int32_t growth, int32_t limit) noexcept
{
    if (growth < 1 || limit < 1) {
        return nullptr;
    }
    auto *mem = static_cast<ku_dynamic_mem *>(malloc(sizeof(ku_dynamic_mem)));
    if (mem == nullptr) {
        return nullptr;
    }
    mem->capacity = 0;
    mem->used = 0;
    mem->growth = growth;
    mem->limit = limit;
    mem->buffer = nullptr;
    return mem;
}

KU_API ku_dynamic_mem *dynamic_mem_input(ku_dynamic_mem *mem, const void *src, int32_t length) noexcept
{
    if (mem == nullptr || length < 0 || (src == nullptr && length > 0)) {
        return mem;
    }
    const int32_t step = std::max<int32_t>(mem->growth, 1);
    // 64-bit sums: used + length + growth may pass INT32_MAX.
    const int64_t reach = static_cast<int64_t>(mem->used) + length;
    if (mem->buffer == nullptr || reach >= mem->limit) {
        if (!start_fresh(mem, step, reach)) {
            return mem;
        }
    }

    const int64_t need = static_cast<int64_t>(mem->used) + length;
    // Grow when no spare byte would stay behind the content; trim when more
    // than a step would: both land on need + growth.
    if (need >= mem->capacity || need + step < mem->capacity) {
        const int64_t wanted = need + step;
        char *block = wanted > INT32_MAX ? nullptr
                                         : static_cast<char *>(realloc(mem->buffer, static_cast<size_t>(wanted)));
        if (block == nullptr) {
            drop_buffer(mem);
            mem->used = static_cast<int32_t>(std::min<int64_t>(need, INT32_MAX));
            return mem;
        }
        mem->buffer = block;
        mem->capacity = static_cast<int32_t>(wanted);
    }
    if (length > 0) {
        memcpy(mem->buffer + mem->used, src, static_cast<size_t>(length));
    }
    mem->used = static_cast<int32_t>(need);
    return mem;
}

KU_API ku_dynamic_mem *dynamic_mem_process(ku_dynamic_mem *mem, const void *end) noexcept
{
    if (mem == nullptr || mem->buffer == nullptr) {
        return mem;
    }
    // Compared as addresses: end may lie outside the block altogether.
    const auto start = reinterpret_cast<uintptr_t>(mem->buffer);
    const auto stop = reinterpret_cast<uintptr_t>(end);
    if (stop <= start) {
        return mem;
    }
    const uintptr_t consumed = stop - start;
    if (consumed < static_cast<uintptr_t>(mem->used)) {
        memmove(mem->buffer, mem->buffer + consumed, static_cast<size_t>(mem->used) - consumed);
        mem->used -= static_cast<int32_t>(consumed);
    } else {
        mem->used = 0;
        memset(mem->buffer, 0, static_cast<size_t>(mem->capacity));
    }
    return mem;
}

KU_API void dynamic_mem_free(ku_dynamic_mem *mem) noexcept
{
    if (mem == nullptr) {
        return;
    }
    free(mem->buffer);
    free(mem);
}

}  // extern "C"
