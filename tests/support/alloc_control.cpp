// This file defines libc functions under their own names: with 64-bit file
// offsets (or time) on a 32-bit target the headers would rename open to
// open64 and fopen to fopen64, and both wrappers would define one symbol.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "support/alloc_control.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/socket.h>

namespace {

using malloc_fn = void *(*)(size_t);
using calloc_fn = void *(*)(size_t, size_t);
using realloc_fn = void *(*)(void *, size_t);

malloc_fn real_malloc;
calloc_fn real_calloc;
realloc_fn real_realloc;

struct Plan {
    unsigned calls = 0;
    long skip = 0;
    long fail = 0;
    unsigned failed = 0;
    long counts[ku_test::kAllocCallKinds] = {};
};

thread_local Plan plan;
thread_local bool resolving = false;

// The code ranges of only_callers_in; written while no plan is armed.
struct Range {
    uintptr_t begin;
    uintptr_t end;
};
constexpr int kMaxRanges = 32;
Range ranges[kMaxRanges];
std::atomic<int> range_count{-1};  // -1: every caller is in scope

// dlsym may allocate while we look the real functions up: those few
// allocations are served from a static arena and never freed.
alignas(16) unsigned char bootstrap[4096];
size_t bootstrap_used = 0;

void *bootstrap_alloc(size_t size)
{
    size = (size + 15) & ~size_t{15};
    if (bootstrap_used + size > sizeof bootstrap) {
        return nullptr;
    }
    void *block = bootstrap + bootstrap_used;
    bootstrap_used += size;
    return block;
}

void resolve()
{
    if (real_malloc != nullptr || resolving) {
        return;
    }
    resolving = true;
    real_calloc = reinterpret_cast<calloc_fn>(dlsym(RTLD_NEXT, "calloc"));
    real_realloc = reinterpret_cast<realloc_fn>(dlsym(RTLD_NEXT, "realloc"));
    real_malloc = reinterpret_cast<malloc_fn>(dlsym(RTLD_NEXT, "malloc"));
    resolving = false;
}

// The next definition of `name` behind this executable, looked up once.
template <typename Fn>
Fn next(Fn &slot, const char *name)
{
    if (slot == nullptr) {
        resolve();
        slot = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
    }
    return slot;
}

int index_of(unsigned call)
{
    int index = 0;
    while ((call >>= 1) != 0) {
        index++;
    }
    return index;
}

bool in_scope(const void *caller)
{
    const int count = range_count.load(std::memory_order_acquire);
    if (count < 0) {
        return true;
    }
    const auto address = reinterpret_cast<uintptr_t>(caller);
    for (int i = 0; i < count; i++) {
        if (address >= ranges[i].begin && address < ranges[i].end) {
            return true;
        }
    }
    return false;
}

// Counts the call and says whether the plan makes it fail.
bool planned_failure(unsigned call, const void *caller)
{
    if (!in_scope(caller)) {
        return false;
    }
    plan.counts[index_of(call)]++;
    if ((plan.calls & call) == 0) {
        return false;
    }
    if (plan.skip > 0) {
        plan.skip--;
        return false;
    }
    if (plan.fail == 0) {
        return false;
    }
    if (plan.fail > 0) {
        plan.fail--;
    }
    plan.failed = call;
    return true;
}

mode_t mode_argument(int flags, va_list args)
{
    const bool takes_mode = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return takes_mode ? static_cast<mode_t>(va_arg(args, int)) : 0;
}

using open_fn = int (*)(const char *, int, ...);
using fopen_fn = FILE *(*)(const char *, const char *);
using strdup_fn = char *(*)(const char *);
using socket_fn = int (*)(int, int, int);
using thread_fn = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
open_fn real_open, real_open64;
fopen_fn real_fopen, real_fopen64;
strdup_fn real_strdup;
socket_fn real_socket;
thread_fn real_pthread_create;

}  // namespace

extern "C" void *malloc(size_t size)
{
    resolve();
    if (real_malloc == nullptr) {
        return bootstrap_alloc(size);
    }
    if (planned_failure(ku_test::kMalloc, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return real_malloc(size);
}

extern "C" void *calloc(size_t count, size_t size)
{
    resolve();
    if (real_calloc == nullptr) {
        return bootstrap_alloc(count * size);  // the arena is zero-filled
    }
    if (planned_failure(ku_test::kCalloc, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return real_calloc(count, size);
}

extern "C" void *realloc(void *block, size_t size)
{
    resolve();
    if (planned_failure(ku_test::kRealloc, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return real_realloc(block, size);
}

extern "C" char *strdup(const char *text)
{
    if (planned_failure(ku_test::kStrdup, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return next(real_strdup, "strdup")(text);
}

extern "C" FILE *fopen(const char *path, const char *mode)
{
    if (planned_failure(ku_test::kFopen, __builtin_return_address(0))) {
        errno = EMFILE;
        return nullptr;
    }
    return next(real_fopen, "fopen")(path, mode);
}

extern "C" FILE *fopen64(const char *path, const char *mode)
{
    if (planned_failure(ku_test::kFopen, __builtin_return_address(0))) {
        errno = EMFILE;
        return nullptr;
    }
    return next(real_fopen64, "fopen64")(path, mode);
}

extern "C" int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = mode_argument(flags, args);
    va_end(args);
    if (planned_failure(ku_test::kOpen, __builtin_return_address(0))) {
        errno = EMFILE;
        return -1;
    }
    return next(real_open, "open")(path, flags, mode);
}

extern "C" int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = mode_argument(flags, args);
    va_end(args);
    if (planned_failure(ku_test::kOpen, __builtin_return_address(0))) {
        errno = EMFILE;
        return -1;
    }
    return next(real_open64, "open64")(path, flags, mode);
}

extern "C" int socket(int domain, int type, int protocol)
{
    if (planned_failure(ku_test::kSocket, __builtin_return_address(0))) {
        errno = EMFILE;
        return -1;
    }
    return next(real_socket, "socket")(domain, type, protocol);
}

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attr,
                              void *(*start)(void *), void *arg)
{
    if (planned_failure(ku_test::kThread, __builtin_return_address(0))) {
        return EAGAIN;
    }
    return next(real_pthread_create, "pthread_create")(thread, attr, start, arg);
}

namespace ku_test {

AllocControl::AllocControl()
{
    resolve();
    reset();
    allow();
}

AllocControl::~AllocControl()
{
    allow();
}

void AllocControl::fail(unsigned calls, long skip, long fail)
{
    plan.calls = calls;
    plan.skip = skip;
    plan.fail = fail;
}

void AllocControl::allow()
{
    plan.calls = 0;
    plan.skip = 0;
    plan.fail = 0;
}

long AllocControl::count(unsigned calls) const
{
    long total = 0;
    for (int index = 0; index < kAllocCallKinds; index++) {
        if ((calls & (1u << index)) != 0) {
            total += plan.counts[index];
        }
    }
    return total;
}

unsigned AllocControl::last_failed() const
{
    return plan.failed;
}

void AllocControl::reset()
{
    plan.failed = 0;
    for (long &count : plan.counts) {
        count = 0;
    }
}

void AllocControl::only_callers_in(const std::vector<const char *> &objects)
{
    range_count.store(-1, std::memory_order_release);
    if (objects.empty()) {
        return;
    }
    struct Search {
        const std::vector<const char *> &objects;
        int found = 0;
    } search{objects};
    dl_iterate_phdr(
        [](dl_phdr_info *info, size_t, void *data) {
            auto &search = *static_cast<Search *>(data);
            const char *name = info->dlpi_name != nullptr ? info->dlpi_name : "";
            bool wanted = false;
            for (const char *object : search.objects) {
                wanted = wanted || std::strstr(name, object) != nullptr;
            }
            for (int i = 0; wanted && i < info->dlpi_phnum; i++) {
                const ElfW(Phdr) &segment = info->dlpi_phdr[i];
                if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 &&
                    search.found < kMaxRanges) {
                    const uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
                    ranges[search.found++] = {begin, begin + segment.p_memsz};
                }
            }
            return 0;
        },
        &search);
    range_count.store(search.found, std::memory_order_release);
}

bool AllocControl::effective()
{
    // Probe once: with a plan armed, a malloc through the real symbol must
    // fail. Under valgrind the call never reaches our wrapper.
    static const bool works = [] {
        const Plan saved = plan;
        const int scope = range_count.exchange(-1);
        plan.calls = kMalloc;
        plan.skip = 0;
        plan.fail = 1;
        void *(*volatile call)(size_t) = &malloc;
        void *probe = call(1);
        const bool failed = probe == nullptr;
        free(probe);
        plan = saved;
        range_count.store(scope);
        return failed;
    }();
    return works;
}

}  // namespace ku_test
