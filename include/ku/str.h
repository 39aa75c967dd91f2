/* String helpers: ASCII case conversion and blank trimming in place, and a
 * short token from the nanosecond clock. No function looks at a locale.
 *
 * Threads: no shared state: every function may run on several threads at once,
 * but two threads must not pass the same text to strupr, strlwr or
 * ku_string_trim at once. */
#ifndef KU_STR_H
#define KU_STR_H

#include "ku/export.h"

KU_BEGIN_DECLS

/* Turns a..z into A..Z in place; every other byte (0x80 and above too) stays.
 * Returns str; a null str is returned as null. */
KU_API char *strupr(char *str) KU_NOEXCEPT;
/* Turns A..Z into a..z in place; every other byte stays. Returns str; a null
 * str is returned as null. */
KU_API char *strlwr(char *str) KU_NOEXCEPT;

/* Removes blanks (0x20 only) at both ends of str in place, moving the rest to
 * the start. Tabs, CR and LF are not blanks here: a trailing "\n" keeps the
 * blanks before it. Bytes behind the new terminator keep their old values.
 * str must not be null. */
KU_API void ku_string_trim(char *str) KU_NOEXCEPT;

/* ku_ns_ticks() as lower-case hex without prefix or leading zeros (at most 16
 * characters), in a 64-byte malloc block that the caller frees. Not random:
 * two calls give the same text when the clock has not moved. Null when the
 * allocation fails. */
KU_API char *ku_string_random(void) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_STR_H */
