// Inserts, deletes and assigns on a membuffer against the byte model: the
// content, the room, the terminator behind written content; ASan watches the
// block.
#include "fuzz_support.h"
#include "ku/membuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    ByteModel model;
    membuffer m;
    membuffer_init(&m);
    for (uint8_t op = in.byte() % 3; in.size > 0; op = in.byte() % 3) {
        const size_t length = model.held.size();
        const size_t n = in.number(2) % 1024;
        const size_t index = in.byte();  // an insert past the end is refused
        const std::string bytes = model.fresh(n);
        bool wrote = n > 0;
        if (op == 0) {
            fail_unless(membuffer_insert(&m, bytes.data(), n, index) == (index > length ? -1 : 0));
            wrote = wrote && index <= length;
            if (wrote) model.held.insert(index, bytes);
        } else if (op == 1) {  // the count running past the end or not
            membuffer_delete(&m, std::min(index, length), n);
            model.held.erase(std::min(index, length), n);
            wrote = length > 0;
        } else {  // an empty assign writes nothing
            fail_unless(membuffer_assign(&m, bytes.data(), n) == 0);
            model.held = bytes;
        }
        fail_unless(m.length <= m.capacity && m.growth_step == 5 && (m.data || m.capacity == 0));
        fail_unless(std::string(m.data ? m.data : "", m.length) == model.held);
        fail_unless(!wrote || m.data[m.length] == '\0');
    }
    membuffer_destroy(&m);
    return 0;
}
