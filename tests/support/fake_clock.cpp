#include "support/fake_clock.h"

#include <dlfcn.h>
#include <ctime>

// With a 64-bit time_t on a 32-bit target the headers name this definition
// __clock_gettime64 (and time's __time64), and libc's own is found under it.
extern "C" int clock_gettime(clockid_t clock, timespec *now)
{
    static const auto real = reinterpret_cast<int (*)(clockid_t, timespec *)>(dlsym(
        RTLD_NEXT, sizeof(time_t) > sizeof(long) ? "__clock_gettime64" : "clock_gettime"));
    if (clock != CLOCK_MONOTONIC || !ku_test::fake_active.load())
        return real(clock, now);
    now->tv_sec = static_cast<time_t>(ku_test::fake_monotonic_sec.load());
    now->tv_nsec = ku_test::fake_monotonic_nsec.load();
    return 0;
}

extern "C" time_t time(time_t *out)
{
    timespec now{static_cast<time_t>(ku_test::fake_utc.load()), 0};
    if (!ku_test::fake_active.load())
        clock_gettime(CLOCK_REALTIME_COARSE, &now);  // what libc's time() reads
    if (out != nullptr)
        *out = now.tv_sec;
    return now.tv_sec;
}

ku_test::FakeClock::FakeClock()
{
    ku_test::fake_active.store(true);
}
