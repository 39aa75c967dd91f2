// Allocation failure on demand and allocation counting. Linking this (by
// naming AllocControl) replaces malloc, calloc and realloc in the test process
// with wrappers that forward to the real allocator (or the sanitizer's).
// Plans and counters are per thread: only the thread that set a plan sees it.
#pragma once

namespace ku_test {

enum AllocCall : unsigned {
    kMalloc = 1u << 0,
    kCalloc = 1u << 1,
    kRealloc = 1u << 2,
    kAnyAlloc = kMalloc | kCalloc | kRealloc,
};

class AllocControl {
public:
    AllocControl();   // resets this thread's counters and plan
    ~AllocControl();  // lifts any plan
    AllocControl(const AllocControl &) = delete;
    AllocControl &operator=(const AllocControl &) = delete;

    // Of the calls matching `calls` on this thread, let the next `skip`
    // succeed, then fail (return null, errno ENOMEM) the following `fail`
    // calls; a negative `fail` fails all of them.
    void fail(unsigned calls, long skip = 0, long fail = 1);
    // Stop failing.
    void allow();
    // Calls matching `calls` on this thread since construction or reset().
    long count(unsigned calls) const;
    void reset();

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
