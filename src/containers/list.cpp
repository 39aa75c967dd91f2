// Locked FIFO of opaque pointers. Nodes are allocated before the mutex is
// taken, so the critical section is a few pointer writes; the size word is
// written under the lock but read without it, as one 32-bit load.
#include "ku/list.h"

#include <pthread.h>

#include "containers/locked_internal.h"

#include <cstdint>
#include <cstdlib>

struct ku_list_node {
    void *element;
    ku_list_node *next;
};

struct ku_list {
    ku_list_node *head;
    ku_list_node *tail;
    uint32_t size;
    pthread_mutex_t mutex;
};

namespace {

using ku::containers::Locked;

// ku_list_size reads the count without the lock: relaxed atomics keep that
// a plain 32-bit load and store on every target while telling the race
// detector it is intended.
void set_size(ku_list *list, uint32_t size) noexcept
{
    __atomic_store_n(&list->size, size, __ATOMIC_RELAXED);
}

}  // namespace

extern "C" {

KU_API ku_list *ku_list_init(void) noexcept
{
    auto *list = static_cast<ku_list *>(malloc(sizeof(ku_list)));
    if (list == nullptr) {
        return nullptr;
    }
    if (pthread_mutex_init(&list->mutex, nullptr) != 0) {
        free(list);
        return nullptr;
    }
    list->head = nullptr;
    list->tail = nullptr;
    list->size = 0;
    return list;
}

KU_API int ku_list_append(ku_list *list, void *element) noexcept
{
    // The result is 0 on every path, so there is no failure to report: an
    // element that cannot be queued (no list, no memory, no lock) is dropped.
    if (list == nullptr) {
        return 0;
    }
    auto *node = static_cast<ku_list_node *>(malloc(sizeof(ku_list_node)));
    if (node == nullptr) {
        return 0;
    }
    node->element = element;
    node->next = nullptr;

    Locked lock(&list->mutex, ku::containers::kListLockSpins);
    if (!lock.held) {
        free(node);
        return 0;
    }
    if (list->head == nullptr) {
        list->head = node;
    } else {
        list->tail->next = node;
    }
    list->tail = node;
    set_size(list, list->size + 1);
    return 0;
}

KU_API void *ku_list_pop(ku_list *list) noexcept
{
    if (list == nullptr) {
        return nullptr;
    }
    Locked lock(&list->mutex, ku::containers::kListLockSpins);
    ku_list_node *node = list->head;
    if (!lock.held || node == nullptr) {
        return nullptr;
    }
    void *element = node->element;
    list->head = node->next;
    if (list->head == nullptr) {
        list->tail = nullptr;
    }
    free(node);
    set_size(list, list->size - 1);
    return element;
}

KU_API void *ku_list_peek_head(ku_list *list) noexcept
{
    if (list == nullptr) {
        return nullptr;
    }
    Locked lock(&list->mutex, ku::containers::kListLockSpins);
    return !lock.held || list->head == nullptr ? nullptr : list->head->element;
}

KU_API void *ku_list_peek_tail(ku_list *list) noexcept
{
    if (list == nullptr) {
        return nullptr;
    }
    Locked lock(&list->mutex, ku::containers::kListLockSpins);
    return !lock.held || list->tail == nullptr ? nullptr : list->tail->element;
}

KU_API uint32_t ku_list_size(ku_list *list) noexcept
{
    if (list == nullptr) {
        return 0;
    }
    return __atomic_load_n(&list->size, __ATOMIC_RELAXED);
}

KU_API void ku_list_deinit(ku_list *list) noexcept
{
    if (list == nullptr) {
        return;
    }
    {
        Locked lock(&list->mutex, ku::containers::kListLockSpins);
        ku_list_node *node = list->head;
        while (node != nullptr) {
            ku_list_node *next = node->next;
            free(node);
            node = next;
        }
        list->head = nullptr;
        list->tail = nullptr;
        set_size(list, 0);
    }
    pthread_mutex_destroy(&list->mutex);
    free(list);
}

}  // extern "C"
