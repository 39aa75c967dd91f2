#include "support/alloc_control.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <initializer_list>

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
    long counts[3] = {0, 0, 0};
};

thread_local Plan plan;
thread_local bool resolving = false;

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

int index_of(unsigned call)
{
    return call == ku_test::kMalloc ? 0 : call == ku_test::kCalloc ? 1 : 2;
}

// Counts the call and says whether the plan makes it fail.
bool planned_failure(unsigned call)
{
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
    errno = ENOMEM;
    return true;
}

}  // namespace

extern "C" void *malloc(size_t size)
{
    resolve();
    if (real_malloc == nullptr) {
        return bootstrap_alloc(size);
    }
    if (planned_failure(ku_test::kMalloc)) {
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
    if (planned_failure(ku_test::kCalloc)) {
        return nullptr;
    }
    return real_calloc(count, size);
}

extern "C" void *realloc(void *block, size_t size)
{
    resolve();
    if (planned_failure(ku_test::kRealloc)) {
        return nullptr;
    }
    return real_realloc(block, size);
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
    for (unsigned call : {kMalloc, kCalloc, kRealloc}) {
        if ((calls & call) != 0) {
            total += plan.counts[index_of(call)];
        }
    }
    return total;
}

bool AllocControl::effective()
{
    // Probe once: with a plan armed, a malloc through the real symbol must
    // fail. Under valgrind the call never reaches our wrapper.
    static const bool works = [] {
        const Plan saved = plan;
        plan.calls = kMalloc;
        plan.skip = 0;
        plan.fail = 1;
        void *(*volatile call)(size_t) = &malloc;
        void *probe = call(1);
        const bool failed = probe == nullptr;
        free(probe);
        plan = saved;
        return failed;
    }();
    return works;
}

void AllocControl::reset()
{
    plan.counts[0] = plan.counts[1] = plan.counts[2] = 0;
}

}  // namespace ku_test
