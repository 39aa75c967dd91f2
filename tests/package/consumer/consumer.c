/* A user program, in C and (consumer.cpp) C++, that sees only the installed
 * headers and library. */
#include <stdio.h>

#include <ku.h>

int main(void)
{
    ku_tm tm;
    time_t zero = 0;
    ku_gm_time(&zero, &tm);
    if (tm.tm_year != 1970 || tm.tm_mon != 1 || ku_ms_ticks() <= 0 || ku_ns_ticks() <= 0) {
        return 1;
    }
#ifdef __cplusplus
    printf("ku consumer ok (C++)\n");
#else
    printf("ku consumer ok (C)\n");
#endif
    return 0;
}
