// Growth, trimming, the limit that clears the cache, consumption with
// dynamic_mem_process, and the allocation failure paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ku/dynamic_mem.h"
#include "support/alloc_control.h"
#include "support/capture.h"

using ku_test::AllocControl;
using ku_test::CaptureStderr;
using ku_test::kCalloc;
using ku_test::kMalloc;
using ku_test::kRealloc;

namespace {

constexpr const char *kOverrunLine = "ERR:  dynamic_mem_input overrun, clean cache\n";

// growth 16, limit 100, as in the worked examples.
class DynamicMem : public ::testing::Test {
protected:
    DynamicMem() : mem(dynamic_mem_init(16, 100)) {}
    ~DynamicMem() override { dynamic_mem_free(mem); }

    void input(const std::string &bytes)
    {
        ASSERT_EQ(dynamic_mem_input(mem, bytes.data(), static_cast<int32_t>(bytes.size())), mem);
    }
    // Input that is expected to cross the limit: returns the stderr text.
    std::string content() const { return std::string(mem->buffer, static_cast<size_t>(mem->used)); }

    ku_dynamic_mem *mem;
};

}  // namespace

static_assert(offsetof(ku_dynamic_mem, capacity) == 0 && offsetof(ku_dynamic_mem, used) == 4 &&
              offsetof(ku_dynamic_mem, growth) == 8 && offsetof(ku_dynamic_mem, limit) == 12 &&
              offsetof(ku_dynamic_mem, buffer) == 16);

// Scripts on growth 16, limit 100. A step is an input (text, or a length of
// 'z's with '#') or a consumption ('>' and the offset from the buffer), then
// capacity, used, the content and whether the overrun line was logged.
TEST_F(DynamicMem, ScriptsFollowTheGrowTrimAndClearRules)
{
    struct Step {
        std::string op;
        int32_t capacity, used;
        std::string content;
        bool overrun = false;
    };
    const std::string a90(90, 'a');
    const std::vector<std::vector<Step>> scripts = {
        // grows when no spare byte would remain: need 16 == capacity 16
        {{"0123456789", 16, 10, "0123456789"}, {"abcdef", 32, 16, "0123456789abcdef"}},
        // just under the limit is stored; reaching it clears with one line
        {{a90, 106, 90, a90}, {"bbbbbbbbb", 106, 99, a90 + "bbbbbbbbb"}, {"0", 16, 1, "0", true}},
        // a first input longer than the limit is stored whole, then cleared
        {{"#120", 136, 120, std::string(120, 'z'), true}, {"y", 16, 1, "y", true}},
        // process never trims; the next input trims to need + growth
        {{"#184", 200, 184, std::string(184, 'z'), true}, {">179", 200, 5, "zzzzz"}, {"!", 22, 6, "zzzzz!"}},
        // trimmed only once more than one step would stay free
        {{"#40", 56, 40, std::string(40, 'z')}, {">10", 56, 30, std::string(30, 'z')},
         {"bbbbbbbbbb", 56, 40, std::string(30, 'z') + "bbbbbbbbbb"},
         {">1", 56, 39, std::string(29, 'z') + "bbbbbbbbbb"}, {"", 55, 39, std::string(29, 'z') + "bbbbbbbbbb"}},
        // consumption at or below the buffer changes nothing, at or past the end empties
        {{"0123456789", 16, 10, "0123456789"}, {">0", 16, 10, "0123456789"}, {">-1", 16, 10, "0123456789"},
         {">4", 16, 6, "456789"}, {">6", 16, 0, ""}, {"abc", 16, 3, "abc"}, {">1000", 16, 0, ""}},
    };
    for (size_t n = 0; n < scripts.size(); n++) {
        dynamic_mem_free(mem);
        mem = dynamic_mem_init(16, 100);
        for (const Step &step : scripts[n]) {
            SCOPED_TRACE(testing::Message() << "script " << n << " step " << step.op.substr(0, 12));
            CaptureStderr err;
            if (step.op[0] == '>') {
                const auto end = reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(mem->buffer) +
                                                                static_cast<uintptr_t>(std::stol(step.op.substr(1))));
                EXPECT_EQ(dynamic_mem_process(mem, end), mem);
            } else {
                input(step.op[0] == '#' ? std::string(std::stoul(step.op.substr(1)), 'z') : step.op);
            }
            const std::string log = err.finish();
            if (step.overrun) {
                const size_t at = log.size() - std::min(log.size(), strlen(kOverrunLine));
                EXPECT_TRUE(at > 0 && log.find(kOverrunLine) == at && log.find('\n') == log.size() - 1) << log;
            } else {
                EXPECT_EQ(log, "");
            }
            EXPECT_EQ(mem->capacity, step.capacity);
            EXPECT_EQ(mem->used, step.used);
            EXPECT_EQ(content(), step.content);
        }
    }
}

TEST_F(DynamicMem, FreshOrEmptiedBufferIsZeroedAndAMoveLeavesTheTail)
{
    ASSERT_EQ(dynamic_mem_input(mem, nullptr, 0), mem);
    ASSERT_NE(mem->buffer, nullptr);
    EXPECT_EQ(std::string(mem->buffer, 16), std::string(16, '\0'));
    input("0123456789");
    char *const buffer = mem->buffer;
    dynamic_mem_process(mem, mem->buffer + 4);
    EXPECT_EQ(mem->buffer, buffer);
    EXPECT_EQ(std::string(mem->buffer, 10), "4567896789") << "bytes behind the new end keep their values";
    dynamic_mem_process(mem, mem->buffer + 6);
    EXPECT_EQ(std::string(mem->buffer, 16), std::string(16, '\0'));

    char other[4] = {};
    dynamic_mem_free(mem);
    mem = dynamic_mem_init(16, 100);
    EXPECT_EQ(dynamic_mem_process(mem, other + 2), mem);
    EXPECT_EQ(mem->buffer, nullptr);
    EXPECT_EQ(mem->used, 0);
}

TEST_F(DynamicMem, ParseLoopReassemblesMessagesSplitAcrossInputs)
{
    // Lines split at arbitrary points come out whole.
    const std::string stream = "alpha\nbe|ta\ngam|ma\n|delta\n|";
    std::string lines;
    size_t from = 0;
    for (size_t cut = stream.find('|'); cut != std::string::npos; cut = stream.find('|', from)) {
        input(stream.substr(from, cut - from));
        from = cut + 1;
        char *start = mem->buffer;
        char *end = mem->buffer + mem->used;
        for (char *newline = static_cast<char *>(memchr(start, '\n', static_cast<size_t>(end - start)));
             newline != nullptr; newline = static_cast<char *>(memchr(start, '\n', static_cast<size_t>(end - start)))) {
            lines += std::string(start, newline) + ";";
            start = newline + 1;
        }
        dynamic_mem_process(mem, start);
    }
    EXPECT_EQ(lines, "alpha;beta;gamma;delta;");
    EXPECT_EQ(mem->used, 0);
}

// --- caller mistakes ---------------------------------------------------------

TEST(DynamicMemInit, RefusesStepOrLimitBelowOne)
{
    EXPECT_EQ(dynamic_mem_init(0, 100), nullptr);
    EXPECT_EQ(dynamic_mem_init(16, 0), nullptr);
    EXPECT_EQ(dynamic_mem_init(-1, -1), nullptr);
    EXPECT_EQ(dynamic_mem_input(nullptr, "a", 1), nullptr);
    EXPECT_EQ(dynamic_mem_process(nullptr, nullptr), nullptr);
    dynamic_mem_free(nullptr);

    ku_dynamic_mem *smallest = dynamic_mem_init(1, 1);
    ASSERT_NE(smallest, nullptr) << "a step and a limit of 1 are fine";
    dynamic_mem_free(smallest);
    ku_dynamic_mem *step1 = dynamic_mem_init(1, 100);
    ASSERT_EQ(dynamic_mem_input(step1, "abc", 3), step1);
    EXPECT_EQ(step1->capacity, 4) << "need 3 + growth 1";
    dynamic_mem_free(step1);
}

TEST_F(DynamicMem, NegativeLengthOrMissingSourceIsIgnored)
{
    input("abc");
    EXPECT_EQ(dynamic_mem_input(mem, "x", -1), mem);
    EXPECT_EQ(dynamic_mem_input(mem, nullptr, 5), mem);
    EXPECT_EQ(content(), "abc");
    EXPECT_EQ(mem->capacity, 16);
}


// --- allocation failure ------------------------------------------------------

TEST(DynamicMemInit, FailedRecordAllocationGivesNull)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    alloc.fail(kMalloc);
    EXPECT_EQ(dynamic_mem_init(16, 100), nullptr);
}

TEST_F(DynamicMem, FailedReallocationLosesContentButCountsIt)
{
    KU_REQUIRE_ALLOC_CONTROL();
    input("0123456789");
    {
        AllocControl alloc;
        alloc.fail(kRealloc);
        input("abcdefghij");  // needs 20: reallocation refused
    }
    EXPECT_EQ(mem->buffer, nullptr);
    EXPECT_EQ(mem->used, 20);
    EXPECT_EQ(mem->capacity, 0);

    char other[4] = {};
    dynamic_mem_process(mem, other + 1);
    EXPECT_EQ(mem->used, 20) << "nothing to process without a buffer";

    input("new");
    ASSERT_NE(mem->buffer, nullptr);
    EXPECT_EQ(mem->capacity, 16);
    EXPECT_EQ(content(), "new");
}

TEST_F(DynamicMem, FailedFreshBufferDropsInput)
{
    KU_REQUIRE_ALLOC_CONTROL();
    {
        AllocControl alloc;
        alloc.fail(kCalloc);
        input("abc");
    }
    EXPECT_EQ(mem->buffer, nullptr);
    EXPECT_EQ(mem->used, 0);
    EXPECT_EQ(mem->capacity, 0);
    input("def");
    EXPECT_EQ(content(), "def");
}
