// Scoped lock on the mutex of a ring buffer or list handle, shared by the two
// container families that threads may use at once. Never installed.
#pragma once

#include <pthread.h>

namespace ku::containers {

// Critical sections here are one short copy or a few pointer writes, so a
// contended mutex is usually free again within a few hundred nanoseconds:
// retrying for about that long spares the futex sleep and wake-up, which
// would cost more than the work itself on every hand-over between threads.
inline constexpr int kLockSpins = 200;

inline void cpu_relax() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

inline bool lock_mutex(pthread_mutex_t *mutex) noexcept
{
    for (int spin = 0; spin < kLockSpins; spin++) {
        if (pthread_mutex_trylock(mutex) == 0) {
            return true;
        }
        cpu_relax();
    }
    return pthread_mutex_lock(mutex) == 0;
}

// Holds the mutex for one operation; `held` is false when it could not be
// taken, and the operation then refuses instead of running unguarded.
struct Locked {
    explicit Locked(pthread_mutex_t *mutex) noexcept : mutex(mutex), held(lock_mutex(mutex)) {}
    ~Locked()
    {
        if (held) {
            pthread_mutex_unlock(mutex);
        }
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

    pthread_mutex_t *mutex;
    bool held;
};

}  // namespace ku::containers
