// A controlled clock for tests. Linking this (by naming FakeClock) replaces
// clock_gettime(CLOCK_MONOTONIC) and time() in the whole test process, the
// library included; while no FakeClock is alive both read the real clocks.
#pragma once

#include <atomic>
#include <cstdint>

namespace ku_test {

inline std::atomic<bool> fake_active{false};
inline std::atomic<int64_t> fake_monotonic_sec{0}, fake_utc{0};
inline std::atomic<long> fake_monotonic_nsec{0};

struct FakeClock {
    FakeClock();
    ~FakeClock() { fake_active.store(false); }
    // What clock_gettime(CLOCK_MONOTONIC) and time() report from now on.
    void set_monotonic(int64_t seconds, long nanoseconds)
    {
        fake_monotonic_sec.store(seconds);
        fake_monotonic_nsec.store(nanoseconds);
    }
    void set_ms(int64_t ms) { set_monotonic(ms / 1000, static_cast<long>(ms % 1000) * 1000000); }
    void set_utc(int64_t seconds) { fake_utc.store(seconds); }
};

}  // namespace ku_test
