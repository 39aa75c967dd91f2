// Inputs and consumptions on a reassembly cache against the byte model and
// the grow-and-trim rule; ASan sees any access past a grown or trimmed block.
#include "fuzz_support.h"
#include "ku/dynamic_mem.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const int32_t growth = in.byte() % 64 + 1;
    const auto limit = static_cast<int32_t>(in.number(2) % 1024 + 1);
    ku_dynamic_mem *mem = dynamic_mem_init(growth, limit);
    ByteModel model;
    int32_t capacity = 0;  // 0 until the first input makes a buffer
    for (uint8_t op = in.byte(); in.size > 0; op = in.byte()) {
        const int32_t n = op & 2 ? in.byte() * 4 : in.byte();
        if (op & 1) {  // input; one that reaches the limit clears the cache first
            const std::string bytes = model.fresh(static_cast<size_t>(n));
            fail_unless(dynamic_mem_input(mem, bytes.data(), n) == mem);
            const bool clears = capacity == 0 || std::ssize(model.held) + n >= limit;
            model.held = clears ? bytes : model.held + bytes;
            const auto need = static_cast<int32_t>(model.held.size());
            capacity = clears ? growth : capacity;
            if (need >= capacity || need + growth < capacity) capacity = need + growth;
        } else {  // consume up to a point before, in or past the content
            const uintptr_t end = reinterpret_cast<uintptr_t>(mem->buffer) + n - 8;
            fail_unless(dynamic_mem_process(mem, reinterpret_cast<void *>(end)) == mem);
            if (capacity > 0 && n > 8) model.held.erase(0, static_cast<size_t>(n - 8));
        }
        fail_unless(mem->capacity == capacity && mem->used == std::ssize(model.held));
        fail_unless(std::string(mem->buffer ? mem->buffer : "", mem->used) == model.held);
    }
    dynamic_mem_free(mem);
    return 0;
}
