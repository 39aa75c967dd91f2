// Failure on demand and counting of the calls that can fail for want of a
// resource. Linking this (by naming AllocControl) replaces those functions in
// the test process with wrappers that forward to the real ones (or the
// sanitizer's). Plans and counters are per thread.
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
    AllocControl() { reset(); }
    ~AllocControl() { allow(); }

    // Of the calls matching `calls`, let the next `skip` succeed, then fail
    // `fail` calls (negative: all) the way libc does when the resource is
    // out: null with ENOMEM, -1 with EMFILE, EAGAIN from pthread_create.
    void fail(unsigned calls, long skip = 0, long fail = 1);
    void allow() { fail(0, 0, 0); }
    // Calls matching `calls` since construction or reset().
    long count(unsigned calls) const;
    unsigned last_failed() const;  // the kind of the last failed call, or 0
    void reset();  // forgets this thread's counts and plan
    // Only calls made directly from code of the loaded objects whose file
    // name contains one of `objects` (such as "libku.so") count and may fail,
    // on every thread; an empty list counts every call again.
    static void only_callers_in(const std::vector<const char *> &objects);
    // False when something above us replaced the allocator (valgrind does).
    static bool effective();
};

// The empty branch keeps a caller's own `else` from binding to this `if`.
#define KU_REQUIRE_ALLOC_CONTROL()                                                        \
    if (::ku_test::AllocControl::effective()) {                                           \
    } else                                                                                \
        GTEST_SKIP() << "the allocator is replaced (valgrind): no failure injection"

}  // namespace ku_test
