// Threads and recursive locks over POSIX threads.
// The stack size is a floor, not a fixed size: a default above it (a large
// RLIMIT_STACK, say) is kept, so applications never get less than they would
// from plain pthread_create.
#include "ku/thread.h"

#include <cstdlib>

#include "ku/log.h"

namespace {

constexpr size_t kMinStack = 0x40000;

constexpr const char *kAttrInitFailed = "pthread_attr_init failed\n";
constexpr const char *kCreateFailed = "pthread_create failed\n";

struct MutexAttrGuard {
    pthread_mutexattr_t *attr;
    ~MutexAttrGuard() { pthread_mutexattr_destroy(attr); }
};

}  // namespace

extern "C" {

KU_API pthread_t ku_thread_create(void *(*start_routine)(void *), void *arg) noexcept
{
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) {
        ku_err(kAttrInitFailed);
        return 0;
    }
    size_t stack = 0;
    // A failed read leaves 0 and so sets the floor.
    pthread_attr_getstacksize(&attr, &stack);
    if (stack < kMinStack) {
        pthread_attr_setstacksize(&attr, kMinStack);
    }
    pthread_t thread = 0;
    const int created = pthread_create(&thread, &attr, start_routine, arg);
    // Nothing between init and here can leave early, so the attributes are
    // released by hand, before the message, on both outcomes.
    pthread_attr_destroy(&attr);
    if (created != 0) {
        ku_err(kCreateFailed);
        return 0;
    }
    return thread;
}

KU_API int ku_thread_join(pthread_t thread) noexcept
{
    return pthread_join(thread, nullptr);
}

KU_API int ku_thread_detach(pthread_t thread) noexcept
{
    return pthread_detach(thread == 0 ? pthread_self() : thread);
}

KU_API int ku_set_thread_priority(int32_t priority) noexcept
{
    const pthread_t self = pthread_self();
    int policy = 0;
    sched_param param{};
    pthread_getschedparam(self, &policy, &param);
    param.sched_priority = priority;
    // Refused without real-time rights; the caller only hears of the read below.
    pthread_setschedparam(self, SCHED_FIFO, &param);
    return pthread_getschedparam(self, &policy, &param);
}

KU_API pthread_mutex_t *kulock_init(void) noexcept
{
    auto *lock = static_cast<pthread_mutex_t *>(malloc(sizeof(pthread_mutex_t)));
    if (lock == nullptr) {
        return nullptr;
    }
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) {
        free(lock);
        return nullptr;
    }
    const MutexAttrGuard guard{&attr};
    if (pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) != 0 ||
        pthread_mutex_init(lock, &attr) != 0) {
        free(lock);
        return nullptr;
    }
    return lock;
}

KU_API void kulock_deinit(pthread_mutex_t *lock) noexcept
{
    if (lock == nullptr) {
        return;
    }
    pthread_mutex_destroy(lock);
    free(lock);
}

KU_API int kulock_enter(pthread_mutex_t *lock) noexcept
{
    return pthread_mutex_lock(lock);
}

KU_API int kulock_leave(pthread_mutex_t *lock) noexcept
{
    return pthread_mutex_unlock(lock);
}

}  // extern "C"
