// Failure on demand and counting of the calls that can fail for want of a
// resource: memory (malloc, calloc, realloc, strdup), files (fopen, open),
// sockets and threads. Linking this (by naming AllocControl) replaces those
// functions in the test process with wrappers that forward to the real ones
// (or the sanitizer's). Plans and counters are per thread: only the thread
// that set a plan sees it.
#pragma once

#include <vector>

namespace ku_test {

enum AllocCall : unsigned {
    kMalloc = 1u << 0,
    kCalloc = 1u << 1,
    kRealloc = 1u << 2,
    kStrdup = 1u << 3,
    kFopen = 1u << 4,   // fopen, fopen64
    kOpen = 1u << 5,    // open, open64
    kSocket = 1u << 6,
    kThread = 1u << 7,  // pthread_create
    kAnyAlloc = kMalloc | kCalloc | kRealloc,
    kAnyFallible = kAnyAlloc | kStrdup | kFopen | kOpen | kSocket | kThread,
};
constexpr int kAllocCallKinds = 8;

class AllocControl {
public:
    AllocControl();   // resets this thread's counters and plan
    ~AllocControl();  // lifts any plan
    AllocControl(const AllocControl &) = delete;
    AllocControl &operator=(const AllocControl &) = delete;

    // Of the calls matching `calls` on this thread, let the next `skip`
    // succeed, then fail the following `fail` calls; a negative `fail` fails
    // all of them. A failed call gives what libc gives when the resource is
    // out: null with ENOMEM, -1 with EMFILE, or EAGAIN from pthread_create.
    void fail(unsigned calls, long skip = 0, long fail = 1);
    // Stop failing.
    void allow();
    // Calls matching `calls` on this thread since construction or reset().
    long count(unsigned calls) const;
    // The kind of the last call a plan failed on this thread, or 0.
    unsigned last_failed() const;
    void reset();

    // Only calls made directly from code of the loaded objects whose file
    // name contains one of `objects` (such as "libku.so") are counted and
    // may fail, for every thread, until the next call; an empty list counts
    // every call again. Calls libc makes inside another wrapped call (the
    // malloc behind fopen) are then out of scope too.
    static void only_callers_in(const std::vector<const char *> &objects);

    // False when something above us replaced the allocator (valgrind does):
    // then plans have no effect and a test that needs one should skip.
    static bool effective();
};

// Skips the current test when allocation control cannot work here.
#define KU_REQUIRE_ALLOC_CONTROL()                                              \
    do {                                                                        \
        if (!::ku_test::AllocControl::effective()) {                            \
            GTEST_SKIP() << "the allocator is replaced (valgrind): no failure injection"; \
        }                                                                       \
    } while (0)

}  // namespace ku_test
