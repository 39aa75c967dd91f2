/* A user program that sees only the installed headers and library. */
#include <stdio.h>

#include <ku.h>

int main(void)
{
    ku_tm tm;
    time_t zero = 0;
    ku_gm_time(&zero, &tm);
    if (tm.tm_year != 1970 || ku_ms_ticks() <= 0) {
        return 1;
    }
    printf("ku consumer ok (C)\n");
    return 0;
}
