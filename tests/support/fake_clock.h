// A controlled clock for tests. Linking this (by naming FakeClock) replaces
// clock_gettime(CLOCK_MONOTONIC) and time() in the whole test process, the
// library included; while no FakeClock is alive both read the real clocks.
#pragma once

#include <cstdint>
#include <ctime>

namespace ku_test {

class FakeClock {
public:
    FakeClock();
    ~FakeClock();
    FakeClock(const FakeClock &) = delete;
    FakeClock &operator=(const FakeClock &) = delete;

    // What clock_gettime(CLOCK_MONOTONIC) reports from now on. Seconds that
    // time_t cannot hold (past 2^31 - 1 on a 32-bit machine) fail the test.
    void set_monotonic(int64_t seconds, long nanoseconds);
    // Shorthand: the monotonic clock at exactly `ms` milliseconds.
    void set_ms(int64_t ms);
    // What time() reports from now on; the same limit applies.
    void set_utc(int64_t seconds);
};

}  // namespace ku_test
