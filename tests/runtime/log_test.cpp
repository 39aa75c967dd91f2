// The log line format, its length limits and the rate gate, observed on the
// real stderr/stdout descriptors under a controlled clock.
#include <gtest/gtest.h>

#include <string>

#include "ku/log.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/fake_clock.h"

namespace {

using ku_test::CaptureStderr;

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

std::string stderr_of(void (*call)())
{
    CaptureStderr err;
    call();
    return err.finish();
}

TEST_F(Log, LineCarriesDateTickPrefixAndMessageAsGiven)
{
    EXPECT_EQ(stderr_of([] { ku_err("disk %s at %d%%\n", "full", 99); }),
              kStamp + "ERR:  disk full at 99%\n");
    EXPECT_EQ(stderr_of([] { ku_debug("%s\n", "100%d"); }), kStamp + "DBG:  100%d\n");
    EXPECT_EQ(stderr_of([] { ku_trace("a"); }), kStamp + "  a");  // nothing is appended
    EXPECT_EQ(stderr_of([] { ku_err("%s", ""); }), kStamp + "ERR:  ");
    clock.set_utc(0);
    clock.set_monotonic(-1, 999000000);
    EXPECT_EQ(stderr_of([] { ku_trace("t"); }), "[1970-01-01#00:00:00#-1]  t");
    clock.set_utc(4102444800);  // a device still running in 2100 must not date its lines 1969
    clock.set_monotonic(9223372036854775, 807000000);
    EXPECT_EQ(stderr_of([] { ku_trace("t"); }), "[2100-01-01#00:00:00#9223372036854775807]  t");
}

TEST_F(Log, MessagesUpTo8127AreWholeOthersLostWithALineOnStdout)
{
    for (const size_t length : {255, 256, 257, 8127, 8128}) {
        const std::string message(length, 'x');
        ku_test::CaptureStdout out;
        CaptureStderr err;
        ku_trace("%s", message.c_str());
        EXPECT_EQ(err.finish(), length < 8128 ? kStamp + "  " + message : "") << length;
        EXPECT_EQ(out.finish(), length < 8128 ? "" : "!!!!! ku log, too long log\n") << length;
    }
    ku_test::CaptureStdout out;
    ku_trace("%ls", L"\u00e9");  // not convertible in the C locale
    EXPECT_EQ(out.finish(), "!!!!! ku log, vsnprintf failed\n");
}

TEST_F(Log, OnlyMessagesOver256BytesNeedTheHeap)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const std::string message(256, 'a');
    ku_test::AllocControl alloc;
    ku_test::CaptureStdout out;
    CaptureStderr err;
    alloc.fail(ku_test::kAnyAlloc, 0, -1);
    ku_err("%s\n", message.c_str());
    ku_err("%s", message.c_str());
    alloc.allow();
    EXPECT_EQ(out.finish(), "!!!!! ku log, alloc failed\n");
    EXPECT_EQ(err.finish(), kStamp + "ERR:  " + message);
}

// Each slot serves one edge: the slot table lives for the whole process.
TEST_F(Log, RateGateWritesFromStampPlusIntervalOn)
{
    const struct {
        int64_t ms;
        uint32_t slot;
        int32_t interval;
        bool written;
    } steps[] = {
        {499, 10, 500, false}, {500, 10, 500, true},  // a fresh slot: stamped at tick 0
        {10000, 11, 100, true}, {10099, 11, 100, false},
        {10100, 11, 100, true}, {10199, 11, 100, false},  // the held line did not stamp
        {20000, 12, 0, true}, {20050, 12, 100, false},  // interval 0 passes, but stamps
        {100, 128, 1000000, true}, {100, 4294967295u, 1000000, true},  // never gated
        // A stamp far ahead of the clock can only be a torn 64-bit store (two
        // threads, two 32-bit halves): it must not hold the slot for 49.7 days.
        {1000 + (int64_t{1} << 32), 15, 100, true}, {1000, 15, 100, true},
        {61001, 16, 100, true}, {1000, 16, 100, true},
        {61000, 17, 100, true}, {1000, 17, 100, false},
        {1002, 18, 100, true}, {1000, 18, 100, false},
    };
    for (const auto &step : steps) {
        clock.set_ms(step.ms);
        CaptureStderr err;
        ku_loop_trace(step.slot, step.interval, "g\n");
        const std::string line = "[2026-11-22#23:42:07#" + std::to_string(step.ms) + "]  g\n";
        EXPECT_EQ(err.finish(), step.written ? line : "") << step.slot << " at " << step.ms;
    }
}

TEST_F(Log, ErrDebugAndTraceStampSlot0)
{
    int64_t ms = 40000;
    for (void (*call)() :
         {+[] { ku_err("s\n"); }, +[] { ku_debug("s\n"); }, +[] { ku_trace("s\n"); }}) {
        clock.set_ms(ms += 10000);
        stderr_of(call);
        EXPECT_EQ(stderr_of([] { ku_loop_trace(0, 1, "held\n"); }), "") << ms;
    }
}

}  // namespace
