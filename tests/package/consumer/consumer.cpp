// A C++ user program that sees only the installed headers and library.
#include <cstdio>

#include <ku.h>

int main()
{
    ku_tm tm{};
    const time_t zero = 0;
    ku_gm_time(&zero, &tm);
    if (tm.tm_mon != 1 || ku_ns_ticks() <= 0) {
        return 1;
    }
    std::printf("ku consumer ok (C++)\n");
    return 0;
}
