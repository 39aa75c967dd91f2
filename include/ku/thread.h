/* Threads with a minimum stack size, real-time priority, recursive locks.
 *
 * Every thread made here gets at least 0x40000 bytes (256 KiB) of stack; a
 * larger default stays. A thread handle is the thread's pthread_t, and 0
 * stands for "no thread". A lock is a recursive pthread mutex in a heap block
 * of its own, owned by the caller from kulock_init to kulock_deinit.
 *
 * Threads: every function may be called from any thread, and nothing here
 * keeps shared state. The thread that holds a lock may enter it again without
 * blocking; the lock is free once it has left as often as it entered. No libku
 * function takes one of these locks: they are for applications. */
#ifndef KU_THREAD_H
#define KU_THREAD_H

#include <pthread.h>
#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* Starts start_routine(arg) on a new joinable thread with a stack of at least
 * 0x40000 bytes. The handle, or 0 with an error line in the log. */
KU_API pthread_t ku_thread_create(void *(*start_routine)(void *), void *arg) KU_NOEXCEPT;

/* Waits for the thread to end. The result of pthread_join; the thread's own
 * return value is dropped. */
KU_API int ku_thread_join(pthread_t thread) KU_NOEXCEPT;

/* Detaches the thread; 0 means the calling thread. The result of
 * pthread_detach. */
KU_API int ku_thread_detach(pthread_t thread) KU_NOEXCEPT;

/* Moves the calling thread to SCHED_FIFO at `priority`, whatever its policy
 * was; the value is passed on without a range test. The result is that of
 * reading the parameters back afterwards, not of the change: a thread that
 * may not use SCHED_FIFO, or an out-of-range priority, keeps its old policy
 * and still gets 0. */
KU_API int ku_set_thread_priority(int32_t priority) KU_NOEXCEPT;

/* A new unlocked recursive mutex on the heap; null when the block cannot be
 * allocated or the mutex cannot be initialised. */
KU_API pthread_mutex_t *kulock_init(void) KU_NOEXCEPT;

/* Destroys and frees the lock, which must not be held. A null lock is
 * ignored. */
KU_API void kulock_deinit(pthread_mutex_t *lock) KU_NOEXCEPT;

/* Takes the lock, blocking; the holder may take it again and must leave it
 * as often as it entered. The result of pthread_mutex_lock. */
KU_API int kulock_enter(pthread_mutex_t *lock) KU_NOEXCEPT;

/* Leaves the lock once. The result of pthread_mutex_unlock. */
KU_API int kulock_leave(pthread_mutex_t *lock) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_THREAD_H */
