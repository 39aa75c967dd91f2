// Inputs and consumptions on one reassembly cache against a model of the
// record (capacity by the grow-and-trim rule, the clearing at the limit) and
// of every byte of the block whose value the contract fixes: the content,
// the zeroes of a fresh or emptied block, and the old bytes behind a moved
// tail. Model and library must agree after every step; ASan sees any access
// past a grown or trimmed block.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "ku/dynamic_mem.h"

namespace {

// The model's loops stay out of the coverage feedback: they only slow the
// search down.
#define KU_NO_COVERAGE __attribute__((no_sanitize("coverage")))

constexpr int kUnknown = -1;  // new room of a reallocation is not cleared

struct Model {
    Model(int32_t step, int32_t most) : growth(step), limit(most) {}
    int32_t growth;
    int32_t limit;
    int32_t capacity = 0;
    int32_t used = 0;
    bool has_buffer = false;
    std::vector<int> bytes;  // capacity entries: a known value or kUnknown

    KU_NO_COVERAGE void input(const uint8_t *src, int32_t length)
    {
        if (length < 0 || (src == nullptr && length > 0)) return;
        if (!has_buffer || used + length >= limit) {
            has_buffer = true;
            bytes.assign(static_cast<size_t>(growth), 0);
            capacity = growth;
            used = 0;
        }
        const int32_t need = used + length;
        if (need >= capacity || need + growth < capacity) {
            capacity = need + growth;
            bytes.resize(static_cast<size_t>(capacity), kUnknown);
        }
        for (int32_t i = 0; i < length; ++i) bytes[static_cast<size_t>(used + i)] = src[i];
        used = need;
    }

    KU_NO_COVERAGE void process(int64_t offset)
    {
        if (!has_buffer || offset <= 0) return;
        if (offset < used) {
            const auto consumed = static_cast<size_t>(offset);
            for (size_t i = 0; i + consumed < static_cast<size_t>(used); ++i) bytes[i] = bytes[i + consumed];
            used -= static_cast<int32_t>(offset);
        } else {
            used = 0;
            bytes.assign(static_cast<size_t>(capacity), 0);
        }
    }
};

KU_NO_COVERAGE void check(const ku_dynamic_mem &mem, const Model &model)
{
    fail_unless(mem.capacity == model.capacity);
    fail_unless(mem.used == model.used);
    fail_unless(mem.growth == model.growth && mem.limit == model.limit);
    fail_unless((mem.buffer != nullptr) == model.has_buffer);
    if (mem.buffer == nullptr) return;
    fail_unless(mem.used < mem.capacity);
    for (int32_t i = 0; i < mem.capacity; ++i) {
        const int expected = model.bytes[static_cast<size_t>(i)];
        if (expected != kUnknown) fail_unless(static_cast<uint8_t>(mem.buffer[i]) == expected);
    }
}

}  // namespace

extern "C" KU_NO_COVERAGE int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const int32_t growth = in.byte() % 64 + 1;
    const int32_t limit = (in.byte() << 2 | (in.byte() & 3)) + 1;  // 1..1024
    ku_dynamic_mem *mem = dynamic_mem_init(growth, limit);
    fail_unless(mem != nullptr);
    Model model{growth, limit};
    check(*mem, model);

    uint8_t next = 1;  // input bytes count up, so a moved tail shows
    std::vector<uint8_t> chunk;
    while (in.size > 0) {
        const uint8_t op = in.byte();
        switch (op % 4) {
        case 0:
        case 1: {  // input: short, long, empty, negative or from a null source
            const uint8_t kind = in.byte();
            int32_t length = in.byte();
            if (kind % 8 == 0) length *= 4;
            if (kind % 16 == 1) length = -length - 1;
            chunk.resize(length > 0 ? static_cast<size_t>(length) : 0);
            for (uint8_t &b : chunk) b = next++;
            const uint8_t *src = kind % 16 == 2 ? nullptr : chunk.data();
            if (src == nullptr && length == 0) src = chunk.data();
            fail_unless(dynamic_mem_input(mem, src, length) == mem);
            model.input(src, length);
            break;
        }
        case 2: {  // consume up to an offset around the content
            const int64_t offset = static_cast<int64_t>(in.byte()) - 8;
            // Arithmetic on the address only: end may lie outside the block.
            const auto end = reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(mem->buffer) +
                                                            static_cast<uintptr_t>(offset));
            fail_unless(dynamic_mem_process(mem, end) == mem);
            model.process(offset);
            break;
        }
        case 3: {  // consume up to the content's end or a little behind it
            const int64_t offset = static_cast<int64_t>(mem->used) + (op >> 2) % 3;
            const auto end = mem->buffer == nullptr
                                 ? nullptr
                                 : reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(mem->buffer) +
                                                                  static_cast<uintptr_t>(offset));
            fail_unless(dynamic_mem_process(mem, end) == mem);
            model.process(offset);
            break;
        }
        }
        check(*mem, model);
    }
    dynamic_mem_free(mem);
    return 0;
}
