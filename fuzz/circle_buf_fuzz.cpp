// Transfers on a ring over an exact-sized heap block of ours (ASan sees a copy
// that strays) against the byte model: all or nothing, bytes in stream order.
#include "fuzz_support.h"
#include "ku/circle_buf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const int32_t capacity = in.byte() % 64 + 1;
    ku_circle_buf_state state{0, 0, 0, capacity, 0};
    char *storage = static_cast<char *>(malloc(static_cast<size_t>(capacity)));
    ku_circle_buf *cb = circle_buf_init_from_mem(&state, storage);
    ByteModel model;
    for (uint8_t op = in.byte() % 4; in.size > 0; op = in.byte() % 4) {
        const int32_t n = in.byte() % (capacity + 2);  // up to one past the whole ring
        std::string bytes = model.fresh(static_cast<size_t>(n));
        const auto held = static_cast<int32_t>(model.held.size());
        const bool fits = n > 0 && (op == 0 ? held + n <= capacity : n <= held);
        const int32_t got = op == 0   ? circle_buf_write(cb, bytes.data(), n)
                            : op == 1 ? circle_buf_read(cb, bytes.data(), n)
                            : op == 2 ? circle_buf_peek(cb, bytes.data(), n)
                                      : circle_buf_skip(cb, n);
        fail_unless(got == (fits ? n : 0));
        if (fits && op == 0) model.held += bytes;
        if (fits && (op == 1 || op == 2)) fail_unless(bytes == model.held.substr(0, bytes.size()));
        if (fits && op % 2 == 1) model.held.erase(0, bytes.size());  // read or skip
        fail_unless(circle_buf_readable(cb) == state.readable);
        fail_unless(state.readable == std::ssize(model.held));
        fail_unless(state.write_pos == (state.read_pos + state.readable) % capacity);
    }
    circle_buf_free(cb);
    free(storage);
    return 0;
}
