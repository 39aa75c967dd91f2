// Appends, pops and peeks on one list against the byte model: element k is
// the pointer value k, so element 0 is a null. ku_list_deinit frees the nodes
// left at the end, which the leak check watches.
#include "fuzz_support.h"
#include "ku/list.h"

#define ELEMENT(k) reinterpret_cast<void *>(static_cast<uintptr_t>(static_cast<uint8_t>(k)))

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ku_list *list = ku_list_init();
    ByteModel model;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] % 4 == 0) {
            void *oldest = model.held.empty() ? nullptr : ELEMENT(model.take(1)[0]);
            fail_unless(ku_list_pop(list) == oldest);
        } else {
            fail_unless(ku_list_append(list, ELEMENT(data[i] >> 2)) == 0);
            model.held += static_cast<char>(data[i] >> 2);
        }
        const bool empty = model.held.empty();
        fail_unless(ku_list_peek_head(list) == (empty ? nullptr : ELEMENT(model.held.front())));
        fail_unless(ku_list_peek_tail(list) == (empty ? nullptr : ELEMENT(model.held.back())));
        fail_unless(ku_list_size(list) == model.held.size());
    }
    ku_list_deinit(list);
    return 0;
}
