#include "support/fake_clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <dlfcn.h>
#include <limits>

namespace {

std::atomic<bool> fake_active{false};
std::atomic<int64_t> fake_mono_sec{0};
std::atomic<long> fake_mono_nsec{0};
std::atomic<int64_t> fake_utc{0};

// A second count that time_t cannot hold (32 bits on the device) would be
// cut silently and make a test check something else than it says.
void check_fits_time_t(int64_t seconds)
{
    if (seconds < std::numeric_limits<time_t>::min() || seconds > std::numeric_limits<time_t>::max()) {
        ADD_FAILURE() << "FakeClock: " << seconds << " s does not fit the " << sizeof(time_t) * 8
                      << "-bit time_t of this machine";
    }
}

// With a 64-bit time_t on a 32-bit target, glibc's headers rename the
// functions below (and so the definitions in this file) to their 64-bit
// entry points: the real ones must be looked up by those names too.
#if defined(__USE_TIME_BITS64) && __TIMESIZE == 32
constexpr const char *clock_gettime_name = "__clock_gettime64";
constexpr const char *time_name = "__time64";
#else
constexpr const char *clock_gettime_name = "clock_gettime";
constexpr const char *time_name = "time";
#endif

using clock_gettime_fn = int (*)(clockid_t, timespec *);
using time_fn = time_t (*)(time_t *);

clock_gettime_fn real_clock_gettime()
{
    static clock_gettime_fn real =
        reinterpret_cast<clock_gettime_fn>(dlsym(RTLD_NEXT, clock_gettime_name));
    return real;
}

time_fn real_time()
{
    static time_fn real = reinterpret_cast<time_fn>(dlsym(RTLD_NEXT, time_name));
    return real;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now)
{
    if (clock == CLOCK_MONOTONIC && fake_active.load()) {
        now->tv_sec = static_cast<time_t>(fake_mono_sec.load());
        now->tv_nsec = fake_mono_nsec.load();
        return 0;
    }
    return real_clock_gettime()(clock, now);
}

extern "C" time_t time(time_t *out)
{
    if (fake_active.load()) {
        const time_t now = static_cast<time_t>(fake_utc.load());
        if (out != nullptr) {
            *out = now;
        }
        return now;
    }
    return real_time()(out);
}

namespace ku_test {

FakeClock::FakeClock()
{
    // Resolve the real functions before faking, so later calls never race
    // on the first dlsym.
    real_clock_gettime();
    real_time();
    fake_active.store(true);
}

FakeClock::~FakeClock()
{
    fake_active.store(false);
}

void FakeClock::set_monotonic(int64_t seconds, long nanoseconds)
{
    check_fits_time_t(seconds);
    fake_mono_sec.store(seconds);
    fake_mono_nsec.store(nanoseconds);
}

void FakeClock::set_ms(int64_t ms)
{
    set_monotonic(ms / 1000, static_cast<long>(ms % 1000) * 1000000L);
}

void FakeClock::set_utc(int64_t seconds)
{
    check_fits_time_t(seconds);
    fake_utc.store(seconds);
}

}  // namespace ku_test
