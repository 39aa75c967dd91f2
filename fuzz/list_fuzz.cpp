// Operation sequences on one FIFO list against a std::deque of the same
// elements (null among them). Model and list must agree after every step on
// the size, both ends and every popped element; the nodes left at the end
// are freed by ku_list_deinit, which the leak check watches.
#include <cstdint>
#include <cstdlib>
#include <deque>

#include "fuzz_support.h"
#include "ku/list.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ku_list *list = ku_list_init();
    fail_unless(list != nullptr);
    std::deque<void *> model;
    uintptr_t next = 1;
    for (size_t i = 0; i < size; ++i) {
        const uint8_t op = data[i];
        switch (op % 4) {
        case 0:
        case 1: {  // append a run of elements; one in eight is null
            for (int k = 0; k <= op >> 5; ++k) {
                void *element = (op >> 2 & 7) == 0 && k == 0 ? nullptr : reinterpret_cast<void *>(next++);
                fail_unless(ku_list_append(list, element) == 0);
                model.push_back(element);
            }
            break;
        }
        case 2: {  // pop a run, beyond the end too
            for (int k = 0; k <= op >> 5; ++k) {
                void *element = ku_list_pop(list);
                if (model.empty()) {
                    fail_unless(element == nullptr);
                } else {
                    fail_unless(element == model.front());
                    model.pop_front();
                }
            }
            break;
        }
        case 3:  // peeks take nothing
            fail_unless(ku_list_peek_head(list) == (model.empty() ? nullptr : model.front()));
            fail_unless(ku_list_peek_tail(list) == (model.empty() ? nullptr : model.back()));
            break;
        }
        fail_unless(ku_list_size(list) == model.size());
    }
    // A null list is an empty list that refuses appends.
    fail_unless(ku_list_append(nullptr, &next) == 0);
    fail_unless(ku_list_pop(nullptr) == nullptr && ku_list_size(nullptr) == 0);
    ku_list_deinit(list);
    return 0;
}
