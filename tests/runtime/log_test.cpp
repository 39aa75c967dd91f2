// The log line format, its length limits and the rate gate, observed on the
// real stderr/stdout descriptors under a controlled clock.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "ku/log.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/fake_clock.h"

namespace {

const std::string kStamp = "[2026-11-22#23:42:07#5000]";

class Log : public ::testing::Test {
protected:
    Log()
    {
        clock.set_utc(1795390927);  // 2026-11-22 23:42:07 UTC
        clock.set_ms(5000);
    }
    ku_test::FakeClock clock;
};

// Each line goes out twice at one tick, as these three are never gated, and
// stamps slot 0: a loop trace there is held back at the same tick.
TEST_F(Log, LineCarriesDateTickPrefixAndMessageAsGivenAndStampsSlot0)
{
    const std::pair<void (*)(), std::string> lines[] = {
        {[] { ku_err("disk %s at %d%%\n", "full", 99); }, "ERR:  disk full at 99%\n"},
        {[] { ku_debug("%s\n", "100%d"); }, "DBG:  100%d\n"},
        {[] { ku_trace("a"); }, "  a"},  // nothing is appended
        {[] { ku_err("%s", ""); }, "ERR:  "},
    };
    int64_t ms = 5000;
    for (const auto &[call, text] : lines) {
        clock.set_ms(++ms);
        ku_test::CaptureStderr err;
        call();
        call();
        ku_loop_trace(0, 1, "held\n");
        const std::string line = "[2026-11-22#23:42:07#" + std::to_string(ms) + "]" + text;
        EXPECT_EQ(err.finish(), line + line);
    }
    clock.set_utc(4102444800);  // a device still running in 2100 must not date its lines 1969
    clock.set_ms(INT64_MAX);
    ku_test::CaptureStderr err;
    ku_trace("t");
    EXPECT_EQ(err.finish(), "[2100-01-01#00:00:00#9223372036854775807]  t");
}

// Up to 256 bytes a message needs no heap, up to 8127 a heap block. A longer
// one, or one whose block cannot be had, is lost with a line on stdout.
TEST_F(Log, MessagesUpTo8127AreWholeOthersLostWithALineOnStdout)
{
    ku_test::CaptureStdout failed;
    ku_trace("%ls", L"\u00e9");  // not convertible in the C locale
    EXPECT_EQ(failed.finish(), "!!!!! ku log, vsnprintf failed\n");
    ku_test::AllocControl alloc;
    for (const bool heap : {true, false}) {
        if (!heap) {
            KU_REQUIRE_ALLOC_CONTROL();
        }
        for (const size_t length : {256, 257, 8127, 8128}) {
            const std::string message(length, 'x');
            const bool kept = length < 8128 && (heap || length <= 256);
            ku_test::CaptureStdout out;
            ku_test::CaptureStderr err;
            alloc.fail(heap ? 0u : ku_test::kAnyAlloc, 0, -1);
            ku_trace("%s", message.c_str());
            alloc.allow();
            EXPECT_EQ(err.finish(), kept ? kStamp + "  " + message : "") << length << heap;
            const std::string lost = length < 8128 ? "alloc failed\n" : "too long log\n";
            EXPECT_EQ(out.finish(), kept ? "" : "!!!!! ku log, " + lost) << length << heap;
        }
    }
}

// Each slot serves one edge: the slot table lives for the whole process.
TEST_F(Log, RateGateWritesFromStampPlusIntervalOn)
{
    const std::tuple<int64_t, uint32_t, int32_t, bool> steps[] = {
        {499, 10, 500, false}, {500, 10, 500, true},  // a fresh slot: stamped at tick 0
        {10000, 11, 100, true}, {10099, 11, 100, false}, {10100, 11, 100, true},  // held: no stamp
        {20000, 12, 0, true}, {20050, 12, 100, false},  // interval 0 passes, but stamps
        {100, 128, 1000000, true}, {100, 4294967295u, 1000000, true},  // never gated
        // A stamp over 60 s ahead of the clock can only be a torn 64-bit store (two
        // threads, two 32-bit halves): it must not hold the slot for 49.7 days.
        {61001, 16, 100, true}, {1000, 16, 100, true},
        {61000, 17, 100, true}, {1000, 17, 100, false},
        {1002, 18, 100, true}, {1000, 18, 100, false},
    };
    for (const auto &[ms, slot, interval, written] : steps) {
        clock.set_ms(ms);
        ku_test::CaptureStderr err;
        ku_loop_trace(slot, interval, "g\n");
        const std::string line = "[2026-11-22#23:42:07#" + std::to_string(ms) + "]  g\n";
        EXPECT_EQ(err.finish(), written ? line : "") << slot << " at " << ms;
    }
}

}  // namespace
