// Scoped lock on the mutex of a ring buffer or list handle, shared by the two
// container families that threads may use at once. Never installed.
#pragma once

#include <pthread.h>
#include <unistd.h>

namespace ku::containers {

// A ring transfer holds its mutex for one copy of up to a few KiB, so a
// contended ring is usually free again within a microsecond: retrying for
// about that long spares the futex sleep and wake-up, which would cost more
// than the copy on every hand-over between a producer and a consumer. The
// pause between attempts doubles (up to kMaxPause) so that the waiter does
// not keep pulling the lock's cache line away from the holder; 16 attempts
// bound the spin to a few hundred pauses before the thread sleeps. The list's
// few pointer writes gain nothing from it (measured), so it locks plainly.
// On a single CPU the holder cannot run while the waiter spins: there every
// lock blocks at once.
inline constexpr int kRingLockSpins = 16;
inline constexpr int kListLockSpins = 0;
inline constexpr int kMaxPause = 32;

inline void cpu_relax() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#else
    // No portable pause on MIPS32: keep the wait loop from being folded away.
    __asm__ __volatile__("" ::: "memory");
#endif
}

// CPUs online, asked once per process (the device does not hot-plug them):
// sysconf reads a file, far dearer than the spin it would decide on. A plain
// int with relaxed atomics, which MIPS32 has without libatomic.
inline int online_cpus() noexcept
{
    static int cached = 0;
    int cpus = __atomic_load_n(&cached, __ATOMIC_RELAXED);
    if (cpus == 0) {
        const long online = sysconf(_SC_NPROCESSORS_ONLN);
        cpus = online > 1 ? 2 : 1;  // only "more than one" matters
        __atomic_store_n(&cached, cpus, __ATOMIC_RELAXED);
    }
    return cpus;
}

inline bool lock_mutex(pthread_mutex_t *mutex, int spins) noexcept
{
    if (spins > 0 && online_cpus() < 2) {
        spins = 0;
    }
    int pause = 1;
    for (int spin = 0; spin < spins; spin++) {
        if (pthread_mutex_trylock(mutex) == 0) {
            return true;
        }
        for (int i = 0; i < pause; i++) {
            cpu_relax();
        }
        if (pause < kMaxPause) {
            pause *= 2;
        }
    }
    return pthread_mutex_lock(mutex) == 0;
}

// Holds the mutex for one operation; `held` is false when it could not be
// taken, and the operation then refuses instead of running unguarded.
struct Locked {
    Locked(pthread_mutex_t *mutex, int spins) noexcept : mutex(mutex), held(lock_mutex(mutex, spins)) {}
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
