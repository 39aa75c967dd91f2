/* Diagnostic log: one time-stamped line per call on the standard error stream.
 *
 * Line format: "[YYYY-MM-DD#hh:mm:ss#TICK]PREFIX MESSAGE" with UTC date and
 * time and the monotonic millisecond tick. Nothing is appended, so the caller's
 * format carries its own newline. Messages of 8128 characters or more are lost
 * whole; the log's own failures are reported on standard output with puts().
 *
 * Threads: any thread may call any function at any time. Each line goes out in
 * one fprintf call, so lines from different threads never mix. The rate slots
 * of ku_loop_trace have no lock: two threads on one slot can both pass its
 * gate, which costs a line too many or too few, never a blocked thread. */
#ifndef KU_LOG_H
#define KU_LOG_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* Number of rate slots usable with ku_loop_trace (0 .. KU_LOG_SLOTS - 1). */
#define KU_LOG_SLOTS 128

/* Error line, prefix "ERR: ". Stamps rate slot 0. */
KU_API void ku_err(const char *fmt, ...) KU_NOEXCEPT KU_PRINTF(1, 2);
/* Debug line, prefix "DBG: ". Stamps rate slot 0. */
KU_API void ku_debug(const char *fmt, ...) KU_NOEXCEPT KU_PRINTF(1, 2);
/* Trace line, prefix " " (one blank). Stamps rate slot 0. */
KU_API void ku_trace(const char *fmt, ...) KU_NOEXCEPT KU_PRINTF(1, 2);
/* Rate-limited trace line. Written only when the millisecond tick has reached
 * the slot's last stamp plus interval_ms; a written line stamps the slot.
 * A slot of 128 or more is never gated and never stamped; interval_ms 0 is
 * never gated. Slot 0 is shared with ku_err, ku_debug and ku_trace. The
 * message is formatted before the gate, so a held-back line still costs its
 * vsnprintf. */
KU_API void ku_loop_trace(uint32_t slot, int32_t interval_ms, const char *fmt, ...)
    KU_NOEXCEPT KU_PRINTF(3, 4);

KU_END_DECLS

#endif /* KU_LOG_H */
