/* Unbounded first-in, first-out queue of opaque pointers, one mutex per list,
 * for handing items from thread to thread.
 *
 * It never waits: taking from an empty list gives null at once. The list owns
 * its nodes, never the items: elements are stored and handed back, never
 * dereferenced or freed. Null is a valid element, so a null from ku_list_pop
 * or a peek is told from an empty list only by ku_list_size.
 *
 * Any number of threads may append, pop and peek at once; ku_list_deinit must
 * not run while another thread is in or waiting for the list.
 *
 * Out of memory: ku_list_init gives null, and ku_list_append still gives 0
 * but the element is not queued (watch ku_list_size if that matters). Every
 * call takes a null list (such as a failed ku_list_init) as an empty list
 * that refuses appends. A mutex that cannot be locked is treated the same way
 * for that call. */
#ifndef KU_LIST_H
#define KU_LIST_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

typedef struct ku_list ku_list;

/* New empty list, or null when memory runs out. End it with ku_list_deinit. */
KU_API ku_list *ku_list_init(void) KU_NOEXCEPT;
/* Queues element (null included) at the tail. Always 0: when the node cannot
 * be allocated or list is null, the element is dropped and nothing queued. */
KU_API int ku_list_append(ku_list *list, void *element) KU_NOEXCEPT;
/* Removes and gives the oldest element; null when the list is empty. */
KU_API void *ku_list_pop(ku_list *list) KU_NOEXCEPT;
/* The oldest element, left in the list (another thread may pop it at once);
 * null when empty. */
KU_API void *ku_list_peek_head(ku_list *list) KU_NOEXCEPT;
/* The newest element, left in the list; null when empty. */
KU_API void *ku_list_peek_tail(ku_list *list) KU_NOEXCEPT;
/* Number of queued elements: a momentary value, read without the lock. */
KU_API uint32_t ku_list_size(ku_list *list) KU_NOEXCEPT;
/* Frees the nodes and the list. Elements still queued are not freed: drain
 * with ku_list_pop first when they need releasing. A null list is ignored. */
KU_API void ku_list_deinit(ku_list *list) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_LIST_H */
