// Inserts, deletes and assigns on a membuffer against a model string: the
// content, the room, the terminator behind written content; ASan watches the
// block. Written bytes count up, so a lost, doubled or reordered byte shows.
#include "fuzz_support.h"
#include "ku/membuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    std::string model;
    uint8_t next = 0;
    membuffer m;
    membuffer_init(&m);
    for (uint8_t op = in.byte() % 3; in.size > 0; op = in.byte() % 3) {
        const size_t length = model.size();
        const size_t n = in.number(2) % 1024;
        const size_t index = in.byte();  // an insert past the end is refused
        std::string bytes(n, '\0');
        for (char &c : bytes) c = static_cast<char>(++next);
        bool wrote = n > 0;
        if (op == 0) {
            fail_unless(membuffer_insert(&m, bytes.data(), n, index) == (index > length ? -1 : 0));
            wrote = wrote && index <= length;
            if (wrote) model.insert(index, bytes);
        } else if (op == 1) {  // the count running past the end or not
            membuffer_delete(&m, std::min(index, length), n);
            model.erase(std::min(index, length), n);
            wrote = length > 0;
        } else {  // an empty assign writes nothing
            fail_unless(membuffer_assign(&m, bytes.data(), n) == 0);
            model = bytes;
        }
        fail_unless(m.length <= m.capacity && m.growth_step == 5 && (m.data || m.capacity == 0));
        fail_unless(std::string(m.data ? m.data : "", m.length) == model);
        fail_unless(!wrote || m.data[m.length] == '\0');
    }
    membuffer_destroy(&m);
    return 0;
}
