// This file defines libc functions under their own names: with 64-bit file
// offsets (or time) on a 32-bit target the headers would rename open to
// open64 and fopen to fopen64, and both wrappers would define one symbol.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "support/alloc_control.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>

namespace {

struct Plan {
    unsigned calls = 0;
    long skip = 0, fail = 0;
    unsigned failed = 0;
    long counts[ku_test::kAllocCallKinds] = {};
};
thread_local Plan plan;
thread_local bool resolving = false;
// The objects of only_callers_in, set while no plan is armed; null: all.
std::atomic<const std::vector<const char *> *> scope{nullptr};

// dlsym may allocate while it looks the allocator up: from a static arena,
// never freed.
alignas(16) unsigned char arena[4096];
size_t arena_used = 0;

void *arena_alloc(size_t size)
{
    const size_t start = arena_used;
    arena_used += (size + 15) & ~size_t{15};
    return arena_used <= sizeof arena ? arena + start : nullptr;
}

// The next definition of `name` (libc's or the sanitizer's); null while one
// is being looked up on this thread.
template <typename Fn>
Fn next(Fn &slot, const char *name)
{
    if (slot == nullptr && !resolving) {
        resolving = true;
        slot = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
        resolving = false;
    }
    return slot;
}

// Counts the call and says whether the plan makes it fail.
bool planned_failure(unsigned call, const void *caller)
{
    const std::vector<const char *> *objects = scope.load();
    Dl_info info;
    if (objects != nullptr &&
        (dladdr(caller, &info) == 0 || info.dli_fname == nullptr ||
         std::none_of(objects->begin(), objects->end(),
                      [&info](const char *object) { return strstr(info.dli_fname, object); }))) {
        return false;
    }
    plan.counts[__builtin_ctz(call)]++;
    // Past the first `skip` matching calls, skip stays below 0.
    if ((plan.calls & call) == 0 || plan.fail == 0 || plan.skip-- > 0) {
        return false;
    }
    plan.fail -= plan.fail > 0 ? 1 : 0;
    plan.failed = call;
    return true;
}

}  // namespace

// Every wrapper counts the call, fails it when planned, else forwards it.
#define KU_WRAP(kind, error, result, type, name, params, prologue, ...)        \
    extern "C" type name params                                                \
    {                                                                          \
        static type(*real) params = nullptr;                                   \
        prologue;                                                              \
        if (planned_failure(ku_test::kind, __builtin_return_address(0))) {     \
            errno = error;                                                     \
            return result;                                                     \
        }                                                                      \
        return next(real, #name)(__VA_ARGS__);                                 \
    }
// open and open64 pass a mode on only when the flags say there is one.
#define KU_OPEN_MODE                                                           \
    va_list args;                                                              \
    va_start(args, flags);                                                     \
    const bool moded = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;  \
    const int mode = moded ? va_arg(args, int) : 0;                            \
    va_end(args)
#define KU_ARENA(bytes)                                                        \
    if (next(real, __func__) == nullptr) {                                     \
        return arena_alloc(bytes);                                             \
    }

KU_WRAP(kMalloc, ENOMEM, nullptr, void *, malloc, (size_t size), KU_ARENA(size), size)
KU_WRAP(kCalloc, ENOMEM, nullptr, void *, calloc, (size_t count, size_t size),
        KU_ARENA(count * size), count, size)
KU_WRAP(kRealloc, ENOMEM, nullptr, void *, realloc, (void *block, size_t size), , block, size)
KU_WRAP(kStrdup, ENOMEM, nullptr, char *, strdup, (const char *text), , text)
KU_WRAP(kFopen, EMFILE, nullptr, FILE *, fopen, (const char *path, const char *mode), , path, mode)
KU_WRAP(kFopen, EMFILE, nullptr, FILE *, fopen64, (const char *path, const char *mode), , path,
        mode)
KU_WRAP(kOpen, EMFILE, -1, int, open, (const char *path, int flags, ...), KU_OPEN_MODE, path, flags,
        mode)
KU_WRAP(kOpen, EMFILE, -1, int, open64, (const char *path, int flags, ...), KU_OPEN_MODE, path,
        flags, mode)
KU_WRAP(kSocket, EMFILE, -1, int, socket, (int domain, int type, int protocol), , domain, type,
        protocol)
KU_WRAP(kThread, EAGAIN, EAGAIN, int, pthread_create,
        (pthread_t * thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg), ,
        thread, attr, start, arg)

namespace ku_test {

void AllocControl::fail(unsigned calls, long skip, long fail)
{
    plan.calls = calls;
    plan.skip = skip;
    plan.fail = fail;
}

long AllocControl::count(unsigned calls) const
{
    long total = 0;
    for (int index = 0; index < kAllocCallKinds; index++) {
        total += (calls >> index & 1) != 0 ? plan.counts[index] : 0;
    }
    return total;
}

unsigned AllocControl::last_failed() const
{
    return plan.failed;
}

void AllocControl::reset()
{
    plan = {};
}

void AllocControl::only_callers_in(const std::vector<const char *> &objects)
{
    static std::vector<const char *> kept;
    scope = nullptr;
    kept = objects;
    scope = objects.empty() ? nullptr : &kept;
}

bool AllocControl::effective()
{
    // With a plan armed, a malloc through the real symbol must fail: under
    // valgrind the call never reaches our wrapper.
    static const bool works = [] {
        const Plan saved = plan;
        const auto *objects = scope.exchange(nullptr);
        plan = {kMalloc, 0, 1};
        void *(*volatile call)(size_t) = &malloc;
        void *probe = call(1);
        free(probe);
        plan = saved;
        scope = objects;
        return probe == nullptr;
    }();
    return works;
}

}  // namespace ku_test
