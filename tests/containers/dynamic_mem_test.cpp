// Growth, trimming, the limit that clears the cache, consumption with
// dynamic_mem_process, and the allocation failure paths.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

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
    std::string input_logged(const std::string &bytes)
    {
        CaptureStderr err;
        input(bytes);
        return err.finish();
    }
    std::string content() const { return std::string(mem->buffer, static_cast<size_t>(mem->used)); }

    ku_dynamic_mem *mem;
};

size_t count_of(const std::string &text, const std::string &line)
{
    size_t count = 0;
    for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
        count++;
    }
    return count;
}

}  // namespace

TEST(DynamicMemLayout, FieldsInDocumentedOrder)
{
    EXPECT_EQ(offsetof(ku_dynamic_mem, capacity), 0u);
    EXPECT_EQ(offsetof(ku_dynamic_mem, used), 4u);
    EXPECT_EQ(offsetof(ku_dynamic_mem, growth), 8u);
    EXPECT_EQ(offsetof(ku_dynamic_mem, limit), 12u);
    EXPECT_EQ(offsetof(ku_dynamic_mem, buffer), 16u);
}

TEST_F(DynamicMem, NewRecordHoldsNothing)
{
    ASSERT_NE(mem, nullptr);
    EXPECT_EQ(mem->capacity, 0);
    EXPECT_EQ(mem->used, 0);
    EXPECT_EQ(mem->growth, 16);
    EXPECT_EQ(mem->limit, 100);
    EXPECT_EQ(mem->buffer, nullptr);
}

TEST_F(DynamicMem, GrowsWhenNoSpareByteWouldRemain)
{
    input("0123456789");
    EXPECT_EQ(mem->capacity, 16);
    EXPECT_EQ(mem->used, 10);
    input("abcdef");
    EXPECT_EQ(mem->capacity, 32) << "need 16 equals capacity 16";
    EXPECT_EQ(mem->used, 16);
    EXPECT_EQ(content(), "0123456789abcdef");
}

TEST_F(DynamicMem, EmptyFirstInputAllocates)
{
    ASSERT_EQ(dynamic_mem_input(mem, nullptr, 0), mem);
    EXPECT_EQ(mem->capacity, 16);
    EXPECT_EQ(mem->used, 0);
    ASSERT_NE(mem->buffer, nullptr);
    EXPECT_EQ(std::string(mem->buffer, 16), std::string(16, '\0')) << "a new buffer is cleared";
}

TEST_F(DynamicMem, InputJustUnderLimitIsStored)
{
    input(std::string(90, 'a'));
    EXPECT_EQ(mem->used, 90);
    CaptureStderr err;
    input("bbbbbbbbb");
    EXPECT_EQ(err.finish(), "");
    EXPECT_EQ(mem->used, 99);
    EXPECT_EQ(content(), std::string(90, 'a') + "bbbbbbbbb");
}

TEST_F(DynamicMem, InputReachingLimitClearsCacheWithOneErrorLine)
{
    input(std::string(90, 'a'));
    const std::string log = input_logged("0123456789");
    EXPECT_EQ(count_of(log, kOverrunLine), 1u) << log;
    EXPECT_EQ(mem->used, 10);
    EXPECT_EQ(mem->capacity, 16);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DynamicMem, FirstInputLongerThanLimitIsStoredWholeThenCleared)
{
    const std::string big(120, 'x');
    EXPECT_EQ(count_of(input_logged(big), kOverrunLine), 1u);
    EXPECT_EQ(mem->used, 120);
    EXPECT_EQ(mem->capacity, 136);
    EXPECT_EQ(content(), big);

    EXPECT_EQ(count_of(input_logged("y"), kOverrunLine), 1u);
    EXPECT_EQ(mem->used, 1);
    EXPECT_EQ(mem->capacity, 16);
    EXPECT_EQ(content(), "y");
}

TEST_F(DynamicMem, LargeSlackIsTrimmedByTheNextInput)
{
    (void)input_logged(std::string(184, 'z'));
    ASSERT_EQ(mem->capacity, 200);
    ASSERT_EQ(dynamic_mem_process(mem, mem->buffer + 179), mem);
    ASSERT_EQ(mem->used, 5);
    EXPECT_EQ(mem->capacity, 200) << "process never trims";

    input("!");
    EXPECT_EQ(mem->capacity, 22) << "need 6 + growth 16";
    EXPECT_EQ(content(), "zzzzz!");
}

TEST_F(DynamicMem, TrimStartsWhenMoreThanOneStepWouldStayFree)
{
    input(std::string(40, 'a'));
    ASSERT_EQ(mem->capacity, 56);
    dynamic_mem_process(mem, mem->buffer + 10);
    input("bbbbbbbbbb");
    EXPECT_EQ(mem->capacity, 56) << "need 40 + 16 is not under 56: kept";
    dynamic_mem_process(mem, mem->buffer + 1);
    input("");
    EXPECT_EQ(mem->capacity, 55) << "need 39 + 16 is under 56: trimmed";
    EXPECT_EQ(content(), std::string(29, 'a') + "bbbbbbbbbb");
}

// --- process -----------------------------------------------------------------

TEST_F(DynamicMem, ProcessMovesRestToFront)
{
    input("0123456789");
    char *const buffer = mem->buffer;
    ASSERT_EQ(dynamic_mem_process(mem, mem->buffer + 4), mem);
    EXPECT_EQ(mem->used, 6);
    EXPECT_EQ(mem->buffer, buffer);
    EXPECT_EQ(std::string(mem->buffer, 10), "4567896789") << "bytes behind the new end keep their values";
}

TEST_F(DynamicMem, ProcessAtOrBelowBufferChangesNothing)
{
    input("0123456789");
    dynamic_mem_process(mem, mem->buffer);
    dynamic_mem_process(mem, mem->buffer - 1);
    dynamic_mem_process(mem, nullptr);
    EXPECT_EQ(mem->used, 10);
    EXPECT_EQ(content(), "0123456789");
}

TEST_F(DynamicMem, ProcessAtOrPastEndEmptiesAndZeroes)
{
    input("0123456789");
    dynamic_mem_process(mem, mem->buffer + 10);
    EXPECT_EQ(mem->used, 0);
    EXPECT_EQ(mem->capacity, 16);
    EXPECT_EQ(std::string(mem->buffer, 16), std::string(16, '\0'));

    input("abc");
    dynamic_mem_process(mem, mem->buffer + 1000);
    EXPECT_EQ(mem->used, 0);
    EXPECT_EQ(mem->buffer[0], '\0');
}

TEST_F(DynamicMem, ProcessWithoutBufferChangesNothing)
{
    char other[4] = {};
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

TEST_F(DynamicMem, NegativeLengthOrMissingSourceIsIgnored)
{
    input("abc");
    EXPECT_EQ(dynamic_mem_input(mem, "x", -1), mem);
    EXPECT_EQ(dynamic_mem_input(mem, nullptr, 5), mem);
    EXPECT_EQ(content(), "abc");
    EXPECT_EQ(mem->capacity, 16);
}

TEST(DynamicMemInit, RefusesStepOrLimitBelowOne)
{
    EXPECT_EQ(dynamic_mem_init(0, 100), nullptr);
    EXPECT_EQ(dynamic_mem_init(16, 0), nullptr);
    EXPECT_EQ(dynamic_mem_init(-1, -1), nullptr);
    EXPECT_EQ(dynamic_mem_input(nullptr, "a", 1), nullptr);
    EXPECT_EQ(dynamic_mem_process(nullptr, nullptr), nullptr);
    dynamic_mem_free(nullptr);
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
