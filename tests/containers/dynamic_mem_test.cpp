// Growth, trimming, the limit that clears the cache, consumption, and the
// allocation failure paths.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ku/dynamic_mem.h"
#include "support/alloc_control.h"
#include "support/capture.h"

// Scripts on growth 16, limit 100. A step is an input ('+' and the text, '#'
// and a count of 'z's, '!' or '?' and the text with the reallocation or the
// fresh buffer refused, '~' a negative length, '=' and a length from a null
// source) or a consumption ('>' and the offset from buffer); then capacity,
// used, the bytes from buffer on (as many as given), and whether the
// overrun line came.
TEST(DynamicMem, ScriptsFollowTheGrowTrimAndClearRules)
{
    struct Step {
        std::string op;
        int32_t capacity, used;
        std::string bytes;
        bool overrun = false;
    };
    const std::string a90 = "+" + std::string(90, 'a'), z(16, 'z'), n16(16, '\0');
    const std::vector<std::vector<Step>> scripts = {
        {{"=0", 16, 0, n16}, {"+0123456789", 16, 10, "0123456789"},
         {"+abcdef", 32, 16, "0123456789abcdef"}},
        {{a90, 106, 90, a90.substr(1)}, {"+bbbbbbbbb", 106, 99, "aaaa"}, {"+0", 16, 1, "0", true}},
        {{"#120", 136, 120, z, true}, {"+y", 16, 1, "y", true}},
        {{"#184", 200, 184, z, true}, {">179", 200, 5, "zzzzz"}, {"+y", 22, 6, "zzzzzy"}},
        {{"#40", 56, 40, z}, {">10", 56, 30, z}, {"#10", 56, 40, z}, {">1", 56, 39, z},
         {"+", 55, 39, z}},
        {{"+0123456789", 16, 10, "0"}, {">0", 16, 10, "0"}, {">-1", 16, 10, "0"},
         {">4", 16, 6, "4567896789"}, {">6", 16, 0, n16}, {"+abc", 16, 3, "abc"},
         {">99", 16, 0, n16}},
        {{"+0123456789", 16, 10, "0"}, {"!abcdefghij", 0, 20, ""}, {">1", 0, 20, ""},
         {"+ab", 16, 2, "ab"}},
        {{"?abc", 0, 0, ""}, {"+def", 16, 3, "def"}, {"~", 16, 3, "def"}, {"=5", 16, 3, "def"}},
    };
    for (const std::vector<Step> &script : scripts) {
        ku_dynamic_mem *mem = dynamic_mem_init(16, 100);
        for (const auto &[op, capacity, used, bytes, overrun] : script) {
            SCOPED_TRACE(op.substr(0, 12));
            const bool refused = op[0] == '!' || op[0] == '?';
            if (refused && !ku_test::AllocControl::effective()) break;
            std::string text = op.substr(1);
            if (op[0] == '#') text = std::string(std::stoul(text), 'z');
            int32_t length = op[0] == '~' ? -1 : static_cast<int32_t>(text.size());
            if (op[0] == '=') length = std::stoi(text);
            const char *src = op[0] == '=' ? nullptr : text.data();
            ku_test::CaptureStderr err;
            ku_test::AllocControl alloc;
            alloc.fail(op[0] == '!' ? ku_test::kRealloc : ku_test::kCalloc, 0, refused);
            if (op[0] == '>') {
                const auto end = reinterpret_cast<uintptr_t>(mem->buffer) + std::stol(text);
                EXPECT_EQ(dynamic_mem_process(mem, reinterpret_cast<void *>(end)), mem);
            } else {
                EXPECT_EQ(dynamic_mem_input(mem, src, length), mem);
            }
            alloc.allow();
            const std::string log = err.finish();  // one line, behind the time stamp
            EXPECT_EQ(log.substr(log.find(']') + 1),  // none: npos + 1 is 0
                      overrun ? "ERR:  dynamic_mem_input overrun, clean cache\n" : "");
            EXPECT_EQ(std::pair(mem->capacity, mem->used), std::pair(capacity, used));
            EXPECT_EQ(mem->buffer ? std::string(mem->buffer, bytes.size()) : "", bytes);
        }
        dynamic_mem_free(mem);
    }
}

TEST(DynamicMem, InitRefusesStepOrLimitBelowOne)
{
    EXPECT_EQ(dynamic_mem_init(0, 100), nullptr);
    EXPECT_EQ(dynamic_mem_init(16, 0), nullptr);
    EXPECT_EQ(dynamic_mem_input(nullptr, "a", 1), nullptr);
    EXPECT_EQ(dynamic_mem_process(nullptr, nullptr), nullptr);
    dynamic_mem_free(nullptr);
    ku_dynamic_mem *mem = dynamic_mem_init(1, 1);
    ku_test::CaptureStderr quiet;
    EXPECT_EQ(dynamic_mem_input(mem, "abc", 3)->capacity, 4) << "need 3 + growth 1";
    dynamic_mem_free(mem);
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kMalloc);
    EXPECT_EQ(dynamic_mem_init(16, 100), nullptr);
}
