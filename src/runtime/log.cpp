// Diagnostic log: format on the stack, gate on a per-slot millisecond stamp,
// write the whole line with one fprintf so the stream lock keeps lines whole.
// The slot table is deliberately unsynchronised (64-bit atomics would need
// libatomic on MIPS32): a race costs at most one line too many or too few.
#include "ku/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

// Appends the decimal digits of `magnitude`, at least `min_digits` of them.
// Digits come in pairs from a table, and 64-bit division (a library call on
// 32-bit targets) is used only to split off nine digits at a time from a tick
// that no longer fits 32 bits.
char *put_digits(char *out, uint64_t magnitude, int min_digits) noexcept
{
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    // Filled from the end: `first` walks down to the highest digit.
    char digits[20];
    char *const end = digits + sizeof digits;
    char *first = end;
    const auto put_32 = [&](uint32_t value) {
        while (value >= 100) {
            first -= 2;
            memcpy(first, &kPairs[2 * (value % 100)], 2);
            value /= 100;
        }
        if (value >= 10) {
            first -= 2;
            memcpy(first, &kPairs[2 * value], 2);
        } else {
            *--first = static_cast<char>('0' + value);
        }
    };
    // At most two splits: 2^64 has 20 digits, 9 + 9 + 2.
    for (int split = 0; split < 2 && magnitude > UINT32_MAX; ++split) {
        char *const chunk_end = first;
        put_32(static_cast<uint32_t>(magnitude % 1000000000u));
        magnitude /= 1000000000u;
        while (first > chunk_end - 9) {
            *--first = '0';
        }
    }
    put_32(static_cast<uint32_t>(magnitude));
    while (first > digits && end - first < min_digits) {
        *--first = '0';
    }
    const size_t count = static_cast<size_t>(end - first);
    memcpy(out, first, count);
    return out + count;
}

// Appends `value` as printf's "%lld" (min_width 1) or "%02d" (min_width 2)
// would: the sign counts towards the width, zeros pad after it.
char *put_signed(char *out, int64_t value, int min_width) noexcept
{
    if (value < 0) {
        *out++ = '-';
        return put_digits(out, 0u - static_cast<uint64_t>(value), min_width - 1);
    }
    return put_digits(out, static_cast<uint64_t>(value), min_width);
}

char *put_text(char *out, const char *text) noexcept
{
    while (*text != '\0') {
        *out++ = *text++;
    }
    return out;
}

// Longest head: "[" + six fields of up to 11 characters + 5 separators +
// "#" + 20-digit tick + "]" + prefix + " " + terminator.
constexpr size_t kHeadSize = 1 + 6 * 11 + 5 + 1 + 20 + 1 + 8 + 1 + 1;

// Composes the head of a line, "[%02d-%02d-%02d#%02d:%02d:%02d#%lld]%s ", into
// `out` (kHeadSize bytes) without a terminator; gives its length. Done by
// hand: printf's own handling of nine arguments would cost more than the rest
// of the line together.
size_t put_head(char *out, const ku_tm &tm, int64_t now, const char *prefix) noexcept
{
    char *const start = out;
    *out++ = '[';
    out = put_signed(out, tm.tm_year, 2);
    *out++ = '-';
    out = put_signed(out, tm.tm_mon, 2);
    *out++ = '-';
    out = put_signed(out, tm.tm_mday, 2);
    *out++ = '#';
    out = put_signed(out, tm.tm_hour, 2);
    *out++ = ':';
    out = put_signed(out, tm.tm_min, 2);
    *out++ = ':';
    out = put_signed(out, tm.tm_sec, 2);
    *out++ = '#';
    out = put_signed(out, now, 1);
    *out++ = ']';
    out = put_text(out, prefix);
    *out++ = ' ';
    return static_cast<size_t>(out - start);
}

// Writes "<head><message>" for the line. When the caller left `room`
// (kHeadSize writable bytes right in front of `message`), the head goes there
// and stdio gets one finished string: a single "%s" conversion is markedly
// cheaper on an unbuffered stream than two.
void ku_log_emit(uint32_t slot, int32_t interval_ms, const char *prefix, char *message,
                 bool room) noexcept
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

    char head[kHeadSize];
    const size_t head_length = put_head(head, tm, now, prefix);
    // One fprintf for the whole line: the stream's lock keeps it in one piece
    // when several threads log at once.
    if (room) {
        char *line = message - head_length;
        memcpy(line, head, head_length);
        fprintf(stderr, "%s", line);
    } else {
        head[head_length] = '\0';
        fprintf(stderr, "%s%s", head, message);
    }

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
    // The message is formatted behind room for the head, so that a short
    // line is finished in place.
    char line[kHeadSize + kStackMessage + 1];
    char *local = line + kHeadSize;
    const int length = vsnprintf(local, kStackMessage + 1, fmt, args);
    if (length < 0) {
        puts(kFailVsnprintf);
        return;
    }
    if (length <= kStackMessage) {
        ku_log_emit(slot, interval_ms, prefix, local, true);
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
    ku_log_emit(slot, interval_ms, prefix, block.text, false);
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
