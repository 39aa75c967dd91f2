// The log line format, its length limits and the rate gate, observed on the
// real stderr/stdout descriptors under a controlled clock.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ku/log.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/fake_clock.h"

using ku_test::AllocControl;
using ku_test::CaptureStderr;
using ku_test::CaptureStdout;
using ku_test::FakeClock;

namespace {

// 2026-11-22 23:42:07 UTC
constexpr int64_t kUtc = 1795390927;

class Log : public ::testing::Test {
protected:
    Log()
    {
        clock.set_utc(kUtc);
        clock.set_ms(5000);
    }
    FakeClock clock;
};

std::string stderr_of(void (*call)())
{
    CaptureStderr err;
    call();
    return err.finish();
}

// Whatever ku_loop_trace(slot, 100 ms) writes.
std::string stderr_of_slot(uint32_t slot)
{
    CaptureStderr err;
    ku_loop_trace(slot, 100, "gated\n");
    return err.finish();
}

}  // namespace

TEST_F(Log, ErrorLineFormatHasTwoBlanksBeforeMessage)
{
    EXPECT_EQ(stderr_of([] { ku_err("disk %s at %d%%\n", "full", 99); }),
              "[2026-11-22#23:42:07#5000]ERR:  disk full at 99%\n");
}

TEST_F(Log, DebugAndTracePrefixes)
{
    EXPECT_EQ(stderr_of([] { ku_debug("x=%d\n", 7); }), "[2026-11-22#23:42:07#5000]DBG:  x=7\n");
    EXPECT_EQ(stderr_of([] { ku_trace("hello\n"); }), "[2026-11-22#23:42:07#5000]  hello\n");
}

TEST_F(Log, DatePartsAreZeroPaddedAndTickIsNot)
{
    clock.set_utc(0);  // 1970-01-01 00:00:00
    clock.set_ms(7);
    EXPECT_EQ(stderr_of([] { ku_err("m\n"); }), "[1970-01-01#00:00:00#7]ERR:  m\n");
}

TEST_F(Log, TicksPast32BitsPrintInFull)
{
    // The last second a 32-bit time_t holds: milliseconds far past 32 bits.
    clock.set_monotonic(2147483647, 0);
    EXPECT_EQ(stderr_of([] { ku_trace("t"); }), "[2026-11-22#23:42:07#2147483647000]  t");
}

TEST_F(Log, DatesAcrossTheEndOf32BitTimePrintInFull)
{
    // A device still running after January 2038 must not date its lines 1969.
    const struct {
        int64_t utc;
        const char *line;
    } rows[] = {
        {2147483647, "[2038-01-19#03:14:07#5000]  t"},  // the last second of 32-bit time
        {2147483648, "[2038-01-19#03:14:08#5000]  t"},
        {4102444800, "[2100-01-01#00:00:00#5000]  t"},
    };
    for (const auto &row : rows) {
        clock.set_utc(row.utc);
        EXPECT_EQ(stderr_of([] { ku_trace("t"); }), row.line) << row.utc;
    }
}

TEST_F(Log, FieldsWiderThanTwoDigitsAndNegativeTicksAreNotCut)
{
    clock.set_utc(253402300800LL + 3 * 3600 + 4 * 60 + 5);  // 10000-01-01 03:04:05
    clock.set_monotonic(-2, 0);
    EXPECT_EQ(stderr_of([] { ku_debug("far\n"); }), "[10000-01-01#03:04:05#-2000]DBG:  far\n");
}

TEST_F(Log, TicksBeyondThirtyTwoBitsKeepTheirInnerZeros)
{
    // 2000000000007 ms: past 32 bits, a run of zeros inside, and a second
    // count that even a 32-bit time_t holds.
    clock.set_monotonic(2000000000LL, 7000000);
    EXPECT_EQ(stderr_of([] { ku_trace("t\n"); }), "[2026-11-22#23:42:07#2000000000007]  t\n");
    clock.set_monotonic(9223372036854775LL, 807000000);  // the largest 64-bit tick
    EXPECT_EQ(stderr_of([] { ku_trace("t\n"); }),
              "[2026-11-22#23:42:07#9223372036854775807]  t\n");
}

TEST_F(Log, NegativeTickOfOneDigit)
{
    clock.set_monotonic(-1, 999000000);  // -1 ms
    EXPECT_EQ(stderr_of([] { ku_trace("n"); }), "[2026-11-22#23:42:07#-1]  n");
}

TEST_F(Log, EmptyMessageGivesBracketPrefixAndBlank)
{
    EXPECT_EQ(stderr_of([] { ku_err("%s", ""); }), "[2026-11-22#23:42:07#5000]ERR:  ");
}

TEST_F(Log, NothingIsAppendedWithoutANewline)
{
    EXPECT_EQ(stderr_of([] {
                  ku_trace("a");
                  ku_trace("b\n");
              }),
              "[2026-11-22#23:42:07#5000]  a[2026-11-22#23:42:07#5000]  b\n");
}

TEST_F(Log, PercentInsideArgumentIsNotFormattedAgain)
{
    EXPECT_EQ(stderr_of([] { ku_trace("%s\n", "100%d %s"); }),
              "[2026-11-22#23:42:07#5000]  100%d %s\n");
}

// --- length limits --------------------------------------------------------

class LogLength : public Log, public ::testing::WithParamInterface<int> {};

TEST_P(LogLength, MessageIsWrittenWhole)
{
    const std::string message(static_cast<size_t>(GetParam()), 'x');
    CaptureStderr err;
    ku_trace("%s", message.c_str());
    EXPECT_EQ(err.finish(), "[2026-11-22#23:42:07#5000]  " + message);
}

INSTANTIATE_TEST_SUITE_P(UpToLimit, LogLength, ::testing::Values(255, 256, 257, 1000, 8127));

TEST_F(Log, MessageOf8128IsLostWithFailureLineOnStdout)
{
    const std::string message(8128, 'y');
    CaptureStdout out;
    CaptureStderr err;
    ku_err("%s", message.c_str());
    EXPECT_EQ(err.finish(), "");
    EXPECT_EQ(out.finish(), "!!!!! ku log, too long log\n");
}

TEST_F(Log, LongMessageWithoutMemoryGivesAllocFailureLine)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const std::string message(300, 'z');
    AllocControl alloc;
    CaptureStdout out;
    CaptureStderr err;
    alloc.fail(ku_test::kMalloc, 0, -1);
    ku_err("%s", message.c_str());
    alloc.allow();
    EXPECT_EQ(err.finish(), "");
    EXPECT_EQ(out.finish(), "!!!!! ku log, alloc failed\n");
}

TEST_F(Log, ShortMessageNeedsNoHeap)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const std::string message(256, 'a');
    AllocControl alloc;
    CaptureStdout out;
    CaptureStderr err;
    alloc.fail(ku_test::kAnyAlloc, 0, -1);
    ku_err("%s\n", message.c_str());  // 257 with the newline: needs the heap
    ku_err("%s", message.c_str());
    alloc.allow();
    EXPECT_EQ(out.finish(), "!!!!! ku log, alloc failed\n");
    EXPECT_EQ(err.finish(), "[2026-11-22#23:42:07#5000]ERR:  " + message);
}

// --- the rate gate --------------------------------------------------------
// Each test uses slots of its own: the slot table lives for the whole process.

TEST_F(Log, FreshSlotCountsAsStampedAtTickZero)
{
    clock.set_ms(499);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(10, 500, "held\n"); }), "");
    clock.set_ms(500);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(10, 500, "passes\n"); }),
              "[2026-11-22#23:42:07#500]  passes\n");
}

TEST_F(Log, NowEqualToStampPlusIntervalPasses)
{
    clock.set_ms(10000);
    EXPECT_NE(stderr_of([] { ku_loop_trace(11, 100, "first\n"); }), "");
    clock.set_ms(10099);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(11, 100, "too early\n"); }), "");
    clock.set_ms(10100);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(11, 100, "on time\n"); }),
              "[2026-11-22#23:42:07#10100]  on time\n");
    // The held line did not stamp: 10200 is measured from 10100.
    clock.set_ms(10199);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(11, 100, "early\n"); }), "");
}

TEST_F(Log, ZeroIntervalAlwaysWritesAndStamps)
{
    clock.set_ms(20000);
    EXPECT_NE(stderr_of([] { ku_loop_trace(12, 0, "a\n"); }), "");
    EXPECT_NE(stderr_of([] { ku_loop_trace(12, 0, "b\n"); }), "");
    // The stamp of the ungated line holds back a gated one.
    clock.set_ms(20050);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(12, 100, "c\n"); }), "");
}

TEST_F(Log, NegativeIntervalWritesEveryTime)
{
    clock.set_ms(30000);
    const std::string twice = stderr_of([] {
        ku_loop_trace(13, -1000, "n\n");
        ku_loop_trace(13, -1000, "n\n");
    });
    EXPECT_EQ(twice, "[2026-11-22#23:42:07#30000]  n\n[2026-11-22#23:42:07#30000]  n\n");
    // ...and it stamped the slot.
    EXPECT_EQ(stderr_of([] { ku_loop_trace(13, 10, "held\n"); }), "");
}

TEST_F(Log, SlotsFrom128AreNeverGatedNorStamped)
{
    clock.set_ms(100);  // a gated slot-127 line would be held until 1000
    EXPECT_EQ(stderr_of([] {
                  ku_loop_trace(128, 1000000, "a\n");
                  ku_loop_trace(4294967295u, 1000000, "b\n");
              }),
              "[2026-11-22#23:42:07#100]  a\n[2026-11-22#23:42:07#100]  b\n");
    EXPECT_EQ(stderr_of([] { ku_loop_trace(127, 1000, "held\n"); }), "");
}

TEST_F(Log, Slot0IsSharedWithErrDebugAndTrace)
{
    clock.set_ms(40000);
    stderr_of([] { ku_err("stamp\n"); });
    clock.set_ms(40999);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(0, 1000, "held by ku_err\n"); }), "");
    clock.set_ms(41000);
    EXPECT_NE(stderr_of([] { ku_loop_trace(0, 1000, "passes\n"); }), "");
    clock.set_ms(41500);
    stderr_of([] { ku_debug("stamp\n"); });
    clock.set_ms(42000);
    EXPECT_EQ(stderr_of([] { ku_loop_trace(0, 1000, "held by ku_debug\n"); }), "");
}

TEST_F(Log, FailureLineComesOutEvenWhenTheGateWouldHold)
{
    clock.set_ms(50000);
    stderr_of([] { ku_loop_trace(14, 1000, "stamp\n"); });
    const std::string message(8200, 'q');
    CaptureStdout out;
    ku_loop_trace(14, 1000, "%s", message.c_str());
    EXPECT_EQ(out.finish(), "!!!!! ku log, too long log\n");
}

// A stamp far ahead of the clock can only be a torn 64-bit store (two
// 32-bit halves from two threads): it must not hold the slot for 49.7 days.
// One a little ahead is another thread's later reading and still holds.
TEST_F(Log, StampFarAheadOfTheClockIsTornAndStale)
{
    struct Row {
        uint32_t slot;
        int64_t ahead_ms;  // the slot's stamp minus the clock's present
        bool written;
    };
    const Row rows[] = {{15, int64_t{1} << 32, true}, {16, 60001, true}, {17, 60000, false}, {18, 2, false}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.slot);
        clock.set_ms(1000 + row.ahead_ms);
        stderr_of_slot(row.slot);  // stamps the slot
        clock.set_ms(1000);
        EXPECT_EQ(stderr_of_slot(row.slot) != "", row.written);
    }
}

// --- threads --------------------------------------------------------------

TEST(LogThreads, LinesFromSeveralThreadsComeOutWhole)
{
    constexpr int kThreads = 8;
    constexpr int kLines = 200;
    CaptureStderr err;
    {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([t] {
                const std::string body(600, static_cast<char>('a' + t));  // heap path
                for (int i = 0; i < kLines; ++i) {
                    ku_trace("<%d:%d:%s>\n", t, i, body.c_str());
                }
            });
        }
        for (auto &thread : threads) {
            thread.join();
        }
    }
    const std::string text = err.finish();
    const std::regex line(R"(\[\d{4}-\d\d-\d\d#\d\d:\d\d:\d\d#\d+\]  <(\d):(\d+):([a-h])\3{599}>)");
    size_t start = 0;
    int count = 0;
    while (start < text.size()) {
        const size_t end = text.find('\n', start);
        ASSERT_NE(end, std::string::npos);
        ASSERT_TRUE(std::regex_match(text.substr(start, end - start), line))
            << text.substr(start, 80);
        ++count;
        start = end + 1;
    }
    EXPECT_EQ(count, kThreads * kLines);
}
