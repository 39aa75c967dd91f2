// Diagnostic log: format on the stack, gate on a per-slot millisecond stamp,
// write the whole line with one fprintf so the stream lock keeps lines whole.
// The slot table is deliberately unsynchronised (64-bit atomics would need
// libatomic on MIPS32): a race costs at most one line too many or too few.
#include "ku/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "ku/clock.h"

namespace {

constexpr const char *kErrPrefix = "ERR: ";
constexpr const char *kDebugPrefix = "DBG: ";
constexpr const char *kTracePrefix = " ";

constexpr const char *kFailVsnprintf = "!!!!! ku log, vsnprintf failed";
constexpr const char *kFailTooLong = "!!!!! ku log, too long log";
constexpr const char *kFailAlloc = "!!!!! ku log, alloc failed";

// Messages up to this length never touch the heap.
constexpr int kStackMessage = 256;
// n + kHeapSlack is allocated for a longer message; from n + kHeapSlack ==
// kMaxBlock on the message is refused (longest kept message: 8127).
constexpr int kHeapSlack = 64;
constexpr int kMaxBlock = 8192;

int64_t ku_log_slots[KU_LOG_SLOTS];

// The slot accesses are the one intended data race of the library.
__attribute__((no_sanitize("thread"))) int64_t slot_stamp(uint32_t slot) noexcept
{
    return ku_log_slots[slot];
}

__attribute__((no_sanitize("thread"))) void set_slot_stamp(uint32_t slot, int64_t now) noexcept
{
    ku_log_slots[slot] = now;
}

// A slot's stamp is two 32-bit stores on a 32-bit CPU: two threads stamping
// one slot as the tick crosses a 2^32 boundary can leave a value about 2^32 ms
// (49.7 days) ahead of the clock. A whole stamp is ahead of `now` only by
// the time this thread spent between reading the clock and the slot while
// another one stamped it: milliseconds, seconds if it was preempted. A stamp
// further ahead than this can only be torn and counts as stale: one line too
// many instead of weeks of silence.
constexpr uint64_t kTornStampMs = 60 * 1000;

// Unsigned difference: exact for any two ticks, with no signed overflow.
bool is_torn(int64_t stamp, int64_t now) noexcept
{
    return stamp > now && static_cast<uint64_t>(stamp) - static_cast<uint64_t>(now) > kTornStampMs;
}

void ku_log_emit(uint32_t slot, int32_t interval_ms, const char *prefix, const char *message) noexcept
{
    const int64_t now = ku_ms_ticks();
    if (slot < KU_LOG_SLOTS && interval_ms != 0) {
        const int64_t stamp = slot_stamp(slot);
        if (!is_torn(stamp, now) && now < stamp + static_cast<int64_t>(interval_ms)) {
            return;
        }
    }

    const time_t seconds = static_cast<time_t>(ku_utc_time());
    ku_tm tm;
    ku_gm_time(&seconds, &tm);
    // One fprintf for the whole line: the stream's lock keeps it in one piece
    // when several threads log at once.
    fprintf(stderr, "[%02d-%02d-%02d#%02d:%02d:%02d#%lld]%s %s", tm.tm_year, tm.tm_mon, tm.tm_mday,
            tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<long long>(now), prefix, message);

    if (slot < KU_LOG_SLOTS) {
        set_slot_stamp(slot, now);
    }
}

// Owns the heap block of a long message for the duration of one call.
struct HeapMessage {
    char *text = nullptr;
    ~HeapMessage() { free(text); }
};

// Formats fmt/args and hands the finished text to ku_log_emit. `args` is
// consumed by the first vsnprintf; `again` is a copy for the second pass.
void format_and_emit(uint32_t slot, int32_t interval_ms, const char *prefix, const char *fmt,
                     va_list args, va_list again) noexcept
{
    char local[kStackMessage + 1];
    const int length = vsnprintf(local, sizeof local, fmt, args);
    if (length < 0) {
        puts(kFailVsnprintf);
        return;
    }
    if (length <= kStackMessage) {
        ku_log_emit(slot, interval_ms, prefix, local);
        return;
    }
    if (length + kHeapSlack >= kMaxBlock) {
        puts(kFailTooLong);
        return;
    }
    HeapMessage block;
    block.text = static_cast<char *>(malloc(static_cast<size_t>(length) + kHeapSlack));
    if (block.text == nullptr) {
        puts(kFailAlloc);
        return;
    }
    vsnprintf(block.text, static_cast<size_t>(length) + kHeapSlack - 1, fmt, again);
    ku_log_emit(slot, interval_ms, prefix, block.text);
}

}  // namespace

// One macro body for the four entry points: each needs its own va_list pair.
#define KU_LOG_FORWARD(slot, interval_ms, prefix, fmt)                  \
    do {                                                                \
        va_list args;                                                   \
        va_list again;                                                  \
        va_start(args, fmt);                                            \
        va_copy(again, args);                                           \
        format_and_emit((slot), (interval_ms), (prefix), fmt, args, again); \
        va_end(again);                                                  \
        va_end(args);                                                   \
    } while (0)

extern "C" {

KU_API void ku_err(const char *fmt, ...) noexcept
{
    KU_LOG_FORWARD(0, 0, kErrPrefix, fmt);
}

KU_API void ku_debug(const char *fmt, ...) noexcept
{
    KU_LOG_FORWARD(0, 0, kDebugPrefix, fmt);
}

KU_API void ku_trace(const char *fmt, ...) noexcept
{
    KU_LOG_FORWARD(0, 0, kTracePrefix, fmt);
}

KU_API void ku_loop_trace(uint32_t slot, int32_t interval_ms, const char *fmt, ...) noexcept
{
    KU_LOG_FORWARD(slot, interval_ms, kTracePrefix, fmt);
}

}  // extern "C"
