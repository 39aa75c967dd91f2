// Operation sequences on one membuffer against a model: a std::string for the
// content and the additive growth rule for the capacity. Model and library
// must agree after every step, and the terminator must stand where the
// contract puts one.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "ku/membuffer.h"

namespace {

// A length below 1024 from two bytes.
size_t small(Input &in)
{
    return static_cast<size_t>(in.byte()) << 2 | (in.byte() & 3);
}

struct Model {
    std::string content;
    size_t capacity = 0;
    bool has_block = false;

    // Capacity after membuffer_set_size(new_length) with growth step 5.
    void set_size(size_t new_length)
    {
        const size_t length = content.size();
        if (new_length >= length) {
            if (new_length <= capacity) return;
            capacity = capacity + std::max<size_t>(5, new_length - length);
        } else {
            if (capacity - new_length <= 5) return;
            capacity = new_length + 5;
        }
        has_block = true;
    }
};

void check(const membuffer &m, const Model &model, bool terminated)
{
    fail_unless(m.length == model.content.size());
    fail_unless(m.capacity == model.capacity);
    fail_unless(m.growth_step == 5);
    fail_unless(m.length <= m.capacity);
    if (m.data == nullptr) {
        fail_unless(m.length == 0 && m.capacity == 0);
        return;
    }
    fail_unless(std::memcmp(m.data, model.content.data(), m.length) == 0);
    if (terminated) fail_unless(m.data[m.length] == '\0');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    membuffer m;
    membuffer_init(&m);
    Model model;
    char chunk[1040];  // small(in) < 1024, plus the offsets below
    for (size_t i = 0; i < sizeof chunk; ++i) chunk[i] = static_cast<char>('a' + i % 26);

    while (in.size > 0) {
        const uint8_t op = in.byte() % 8;
        bool terminated = false;
        switch (op) {
        case 0: {  // append
            const size_t n = small(in);
            fail_unless(membuffer_append(&m, chunk, n) == 0);
            if (n > 0) {
                model.set_size(model.content.size() + n);
                model.content.append(chunk, n);
                terminated = true;
            }
            break;
        }
        case 1: {  // insert, sometimes at a bad index
            const size_t n = small(in);
            const size_t index = small(in);
            const int result = membuffer_insert(&m, chunk + 7, n, index);
            if (index > model.content.size()) {
                fail_unless(result == -1);
            } else {
                fail_unless(result == 0);
                if (n > 0) {
                    model.set_size(model.content.size() + n);
                    model.content.insert(index, chunk + 7, n);
                    terminated = true;
                }
            }
            break;
        }
        case 2: {  // delete from a valid index
            if (model.content.empty()) {
                membuffer_delete(&m, small(in), small(in));
                break;
            }
            const size_t index = small(in) % (model.content.size() + 1);
            const size_t count = small(in);
            const size_t cut = std::min(count, model.content.size() - index);
            const size_t new_length = model.content.size() - cut;
            membuffer_delete(&m, index, count);
            model.set_size(new_length);
            model.content.erase(index, cut);
            terminated = true;
            break;
        }
        case 3: {  // assign
            const size_t n = small(in);
            fail_unless(membuffer_assign(&m, chunk + 3, n) == 0);
            model.set_size(n);
            model.content.assign(chunk + 3, n);
            terminated = n > 0;
            break;
        }
        case 4:  // assign null empties and frees
            fail_unless(membuffer_assign(&m, nullptr, small(in)) == 0);
            model = Model{};
            fail_unless(m.data == nullptr);
            break;
        case 5: {  // set_size changes the block only (below length it would
                   // break length <= capacity: the caller's to avoid)
            const size_t n = model.content.size() + small(in);
            const size_t before = m.length;
            fail_unless(membuffer_set_size(&m, n) == 0);
            model.set_size(n);
            fail_unless(m.length == before);
            break;
        }
        case 6: {  // detach, then the record is fresh
            const size_t length = m.length;
            char *block = membuffer_detach(&m);
            fail_unless((block == nullptr) == !model.has_block);
            if (block != nullptr) {
                fail_unless(std::memcmp(block, model.content.data(), length) == 0);
            }
            free(block);
            model = Model{};
            break;
        }
        case 7: {  // attach a block of our own (room for the terminator)
            const size_t n = small(in);
            char *block = static_cast<char *>(malloc(n + 1));
            std::memcpy(block, chunk + 11, n);
            membuffer_attach(&m, block, n);
            model = Model{};
            model.content.assign(chunk + 11, n);
            model.capacity = n;
            model.has_block = true;
            break;
        }
        }
        check(m, model, terminated);
    }
    membuffer_destroy(&m);
    return 0;
}
