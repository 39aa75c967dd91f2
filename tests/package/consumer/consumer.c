/* A user program, in C and (consumer.cpp) C++, that sees only the installed
 * headers and library. */
#include <stdio.h>

#include <ku.h>

#if !KU_CHECK_VERSION(1, 0, 0) || !KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR, 0) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR, KU_VERSION_PATCH + 1) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR + 1, 0) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR + 1, 0, 0)
#error "KU_CHECK_VERSION compares wrongly"
#endif

int main(void)
{
    ku_tm tm;
    time_t zero = 0;
    ku_gm_time(&zero, &tm);
    if (tm.tm_year != 1970 || tm.tm_mon != 1 || ku_ms_ticks() <= 0 || ku_ns_ticks() <= 0) {
        return 1;
    }
    printf("ku consumer ok\n");
    return 0;
}
