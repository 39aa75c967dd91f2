// Operation sequences on one ring against a model of the counters and of the
// whole storage. The ring runs over a state record and an exact-sized heap
// block of our own (circle_buf_init_from_mem), so the model can check every
// counter and every stored byte after each step, and ASan sees a transfer
// that strays past the storage. Handles are dropped and made anew over the
// same memory mid-sequence, which must go on where the last one stopped. A
// first byte of 0 starts from a record with fuzzed counters instead: an
// unusable record must refuse everything. One input in eight uses a ring of
// circle_buf_init (capacity 0 included), checked through its results only.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <vector>

#include "fuzz_support.h"
#include "ku/circle_buf.h"

namespace {

int32_t word(Input &in)
{
    return static_cast<int32_t>(static_cast<uint32_t>(in.number(4)));
}

struct Model {
    explicit Model(int32_t size) : capacity(size) {}
    int32_t capacity;
    int32_t readable = 0;
    int32_t read_pos = 0;
    int32_t write_pos = 0;
    std::vector<uint8_t> storage;  // meaningful only when the storage is ours
    std::deque<uint8_t> content;

    // Lengths a caller may ask for; a few beyond the room, some negative.
    int32_t length(Input &in) const
    {
        const uint8_t b = in.byte();
        if (b == 0xFF) return -static_cast<int32_t>(in.byte()) - 1;
        if (b >= 0xF8) return capacity + (b - 0xF8);
        return capacity == 0 ? b : b % (capacity + 2);
    }

    void store(const uint8_t *src, int32_t n)
    {
        for (int32_t i = 0; i < n; ++i) {
            storage[static_cast<size_t>((write_pos + i) % capacity)] = src[i];
            content.push_back(src[i]);
        }
        write_pos = (write_pos + n) % capacity;
        readable += n;
    }

    // A read or skip of n bytes; the positions are known only when the
    // storage is ours.
    void take(int32_t n, bool own_memory)
    {
        content.erase(content.begin(), content.begin() + n);
        if (own_memory) read_pos = (read_pos + n) % capacity;
        readable -= n;
    }
};

void check_state(const ku_circle_buf_state &state, const uint8_t *data, const Model &model)
{
    fail_unless(state.readable == model.readable);
    fail_unless(state.read_pos == model.read_pos);
    fail_unless(state.write_pos == model.write_pos);
    fail_unless(state.capacity == model.capacity);
    fail_unless(state.reserved == 0xA5A5A5A5u);
    fail_unless(std::memcmp(data, model.storage.data(), model.storage.size()) == 0);
}

// A handle over counters that break the invariants must refuse every
// transfer, report no room and no content, and leave the memory alone.
void run_unusable(Input &in)
{
    ku_circle_buf_state state{word(in), word(in), word(in), static_cast<int32_t>(in.byte() % 17), 0};
    if (in.byte() & 1) state.capacity = -state.capacity;
    const bool usable = state.capacity > 0 && state.readable >= 0 && state.readable <= state.capacity &&
                        state.read_pos >= 0 && state.read_pos < state.capacity && state.write_pos >= 0 &&
                        state.write_pos < state.capacity;
    if (usable) return;  // covered by the model run
    uint8_t data[16] = {};
    uint8_t out[64];
    ku_circle_buf *cb = circle_buf_init_from_mem(&state, data);
    fail_unless(cb != nullptr);
    const ku_circle_buf_state before = state;
    const int32_t n = static_cast<int32_t>(in.byte() % 20);
    fail_unless(circle_buf_write(cb, out, n) == 0);
    fail_unless(circle_buf_read(cb, out, n) == 0);
    fail_unless(circle_buf_peek(cb, out, n) == 0);
    fail_unless(circle_buf_skip(cb, n) == 0);
    fail_unless(circle_buf_readable(cb) == 0);
    fail_unless(circle_buf_writable(cb) == 0);
    fail_unless(std::memcmp(&state, &before, sizeof state) == 0);
    for (uint8_t byte : data) fail_unless(byte == 0);
    circle_buf_reset(cb);
    fail_unless(state.readable == 0 && state.read_pos == 0 && state.write_pos == 0);
    fail_unless(state.capacity == before.capacity);
    circle_buf_free(cb);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const uint8_t mode = in.byte();
    if (mode == 0) {
        run_unusable(in);
        return 0;
    }
    const bool own_memory = (mode & 7) != 7;
    Model model{static_cast<int32_t>(in.byte())};
    if (own_memory && model.capacity == 0) model.capacity = 1;

    ku_circle_buf_state state{0, 0, 0, model.capacity, 0xA5A5A5A5u};
    uint8_t *storage = nullptr;
    ku_circle_buf *cb = nullptr;
    if (own_memory) {
        storage = static_cast<uint8_t *>(malloc(static_cast<size_t>(model.capacity)));
        for (int32_t i = 0; i < model.capacity; ++i) storage[i] = static_cast<uint8_t>(i * 7);
        model.storage.assign(storage, storage + model.capacity);
        cb = circle_buf_init_from_mem(&state, storage);
    } else {
        cb = circle_buf_init(static_cast<uint32_t>(model.capacity));
    }
    fail_unless(cb != nullptr);

    uint8_t next = 0;  // bytes written count up, so reordering shows
    std::vector<uint8_t> buffer;
    while (in.size > 0) {
        const uint8_t op = in.byte() % 9;
        const int32_t n = model.length(in);
        const bool fits = n >= 0 && model.capacity > 0;
        buffer.assign(n > 0 ? static_cast<size_t>(n) : 0, 0);
        switch (op) {
        case 0:
        case 1: {  // write
            for (uint8_t &b : buffer) b = next++;
            const int32_t result = circle_buf_write(cb, buffer.data(), n);
            if (fits && n > 0 && model.readable + n <= model.capacity) {
                fail_unless(result == n);
                if (own_memory) {
                    model.store(buffer.data(), n);
                } else {
                    model.readable += n;
                    model.content.insert(model.content.end(), buffer.begin(), buffer.end());
                }
            } else {
                fail_unless(result == 0);
            }
            break;
        }
        case 2:
        case 3: {  // read, or peek
            const int32_t result =
                op == 2 ? circle_buf_read(cb, buffer.data(), n) : circle_buf_peek(cb, buffer.data(), n);
            if (fits && n > 0 && n <= model.readable) {
                fail_unless(result == n);
                for (int32_t i = 0; i < n; ++i) fail_unless(buffer[static_cast<size_t>(i)] == model.content[static_cast<size_t>(i)]);
                if (op == 2) model.take(n, own_memory);
            } else {
                fail_unless(result == 0);
            }
            break;
        }
        case 4: {  // skip
            const int32_t result = circle_buf_skip(cb, n);
            if (fits && n > 0 && n <= model.readable) {
                fail_unless(result == n);
                model.take(n, own_memory);
            } else {
                fail_unless(result == 0);
            }
            break;
        }
        case 5:  // reset: counters to 0, stored bytes untouched
            circle_buf_reset(cb);
            model.readable = model.read_pos = model.write_pos = 0;
            model.content.clear();
            break;
        case 6:  // a new handle over the same memory goes on where the old one stopped
            if (own_memory) {
                circle_buf_free(cb);
                cb = circle_buf_init_from_mem(&state, storage);
                fail_unless(cb != nullptr);
            }
            break;
        case 7:  // a null handle refuses everything
            fail_unless(circle_buf_write(nullptr, buffer.data(), n) == 0);
            fail_unless(circle_buf_read(nullptr, buffer.data(), n) == 0);
            fail_unless(circle_buf_skip(nullptr, n) == 0);
            fail_unless(circle_buf_readable(nullptr) == 0 && circle_buf_writable(nullptr) == 0);
            circle_buf_reset(nullptr);
            break;
        default:
            break;
        }
        fail_unless(circle_buf_readable(cb) == model.readable);
        fail_unless(circle_buf_writable(cb) == model.capacity - model.readable);
        fail_unless(static_cast<size_t>(model.readable) == model.content.size());
        if (own_memory) check_state(state, storage, model);
    }
    circle_buf_free(cb);
    if (own_memory) {
        check_state(state, storage, model);  // free leaves the caller's memory as it was
        free(storage);
    }
    return 0;
}
