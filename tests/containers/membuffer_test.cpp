// Growth and shrink arithmetic, terminator rules, allocation failure and the
// null-record assertion of membuffer; comparisons of memptr; str_alloc.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ku/membuffer.h"
#include "support/alloc_control.h"

using ku_test::AllocControl;
using ku_test::kMalloc;
using ku_test::kRealloc;

namespace {

class Membuffer : public ::testing::Test {
protected:
    Membuffer() { membuffer_init(&m); }
    ~Membuffer() override { membuffer_destroy(&m); }

    std::string content() const { return m.data == nullptr ? std::string() : std::string(m.data, m.length); }

    // A buffer of `length` bytes "0123..." in a block of exactly `capacity`.
    void fill(size_t length, size_t capacity)
    {
        ASSERT_EQ(membuffer_set_size(&m, capacity), 0);
        ASSERT_EQ(m.capacity, capacity);
        std::string text;
        for (size_t i = 0; i < length; i++) {
            text += static_cast<char>('0' + i % 10);
        }
        ASSERT_EQ(membuffer_assign(&m, text.data(), text.size()), 0);
        ASSERT_EQ(m.capacity, capacity);
    }

    membuffer m;
};

memptr slice(const char *data, size_t length)
{
    return memptr{data, length};
}

}  // namespace

// --- growth ------------------------------------------------------------------

TEST_F(Membuffer, FreshBufferIsEmptyWithStepFive)
{
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
    EXPECT_EQ(m.growth_step, 5u);
}

TEST_F(Membuffer, SmallAppendsGrowByTheStep)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    ASSERT_EQ(membuffer_append(&m, "abc", 3), 0);
    EXPECT_EQ(m.capacity, 5u);
    EXPECT_EQ(alloc.count(kRealloc), 1);
    m.data[5] = '\0';  // the block is capacity + 1 bytes: ASan catches a short one

    ASSERT_EQ(membuffer_append(&m, "de", 2), 0);
    EXPECT_EQ(m.capacity, 5u);
    EXPECT_EQ(alloc.count(kRealloc), 1) << "appends inside capacity must not reallocate";

    ASSERT_EQ(membuffer_append(&m, "f", 1), 0);
    EXPECT_EQ(m.capacity, 10u);
    EXPECT_EQ(alloc.count(kRealloc), 2);
    m.data[10] = '\0';
    EXPECT_EQ(content(), "abcdef");
    EXPECT_EQ(m.data[6], '\0');
}

TEST_F(Membuffer, LargeAppendGrowsByItsOwnLength)
{
    const std::string text(100, 'x');
    ASSERT_EQ(membuffer_append(&m, text.data(), text.size()), 0);
    EXPECT_EQ(m.capacity, 100u);
    EXPECT_EQ(m.length, 100u);
    EXPECT_EQ(m.data[100], '\0');
}

TEST_F(Membuffer, GrowthDistanceIsMeasuredFromLength)
{
    fill(2, 10);
    ASSERT_EQ(membuffer_set_size(&m, 12), 0);
    EXPECT_EQ(m.capacity, 20u) << "10 + (12 - 2), not 10 + (12 - 10)";
    EXPECT_EQ(m.length, 2u) << "set_size never changes length";
    EXPECT_EQ(content(), "01");
}

TEST_F(Membuffer, GrowthAppendsKeepRepeatedAdditiveSteps)
{
    const std::string chunk(4096, 'q');
    for (int i = 0; i < 4; i++) {
        ASSERT_EQ(membuffer_append(&m, chunk.data(), chunk.size()), 0);
        EXPECT_EQ(m.capacity, 4096u * static_cast<size_t>(i + 1)) << "never doubles";
    }
}

TEST_F(Membuffer, SetSizeToLengthNeverReallocates)
{
    KU_REQUIRE_ALLOC_CONTROL();
    fill(3, 200);
    AllocControl alloc;
    ASSERT_EQ(membuffer_set_size(&m, 3), 0);
    EXPECT_EQ(m.capacity, 200u);
    EXPECT_EQ(alloc.count(kRealloc), 0);
}

// --- shrink ------------------------------------------------------------------

TEST_F(Membuffer, ShrinkWithinStepKeepsCapacity)
{
    KU_REQUIRE_ALLOC_CONTROL();
    fill(20, 20);
    AllocControl alloc;
    ASSERT_EQ(membuffer_set_size(&m, 15), 0);
    EXPECT_EQ(m.capacity, 20u);
    EXPECT_EQ(alloc.count(kRealloc), 0);
}

TEST_F(Membuffer, ShrinkBeyondStepLandsOnLengthPlusStep)
{
    fill(20, 20);
    ASSERT_EQ(membuffer_set_size(&m, 14), 0);
    EXPECT_EQ(m.capacity, 19u);
    m.data[19] = '\0';  // block of 20 bytes
    EXPECT_EQ(m.length, 20u);
    EXPECT_EQ(m.data[14], '4') << "set_size writes no terminator";
}

TEST_F(Membuffer, DeleteShrinksByTheSameRule)
{
    fill(20, 20);
    membuffer_delete(&m, 15, 5);
    EXPECT_EQ(m.capacity, 20u);
    EXPECT_EQ(content(), "012345678901234");
    membuffer_delete(&m, 0, 1);
    EXPECT_EQ(m.capacity, 19u) << "slack is capacity 20 - 14 = 6, above the step";
    EXPECT_EQ(content(), "12345678901234");
}

// --- allocation failure ------------------------------------------------------

TEST_F(Membuffer, FailedGrowthFallsBackToExactSize)
{
    KU_REQUIRE_ALLOC_CONTROL();
    fill(2, 10);
    AllocControl alloc;
    alloc.fail(kRealloc, 0, 1);
    ASSERT_EQ(membuffer_set_size(&m, 12), 0);
    EXPECT_EQ(m.capacity, 12u);
    EXPECT_EQ(alloc.count(kRealloc), 2);
    EXPECT_EQ(content(), "01");
}

TEST_F(Membuffer, FailedShrinkFallsBackToExactSize)
{
    KU_REQUIRE_ALLOC_CONTROL();
    fill(20, 20);
    AllocControl alloc;
    alloc.fail(kRealloc, 0, 1);
    ASSERT_EQ(membuffer_set_size(&m, 14), 0);
    EXPECT_EQ(m.capacity, 14u);
}

TEST_F(Membuffer, BothAttemptsFailingLeaveBufferUntouched)
{
    KU_REQUIRE_ALLOC_CONTROL();
    ASSERT_EQ(membuffer_append(&m, "abc", 3), 0);
    char *const block = m.data;
    AllocControl alloc;
    alloc.fail(kRealloc, 0, -1);

    const std::string big(50, 'z');
    EXPECT_EQ(membuffer_append(&m, big.data(), big.size()), -1);
    EXPECT_EQ(membuffer_insert(&m, big.data(), big.size(), 0), -1);
    EXPECT_EQ(membuffer_assign(&m, big.data(), big.size()), -1);
    EXPECT_EQ(membuffer_assign_str(&m, big.c_str()), -1);
    EXPECT_EQ(membuffer_append_str(&m, big.c_str()), -1);
    EXPECT_EQ(membuffer_set_size(&m, 50), -1);
    EXPECT_EQ(alloc.count(kRealloc), 12) << "each call tries twice";

    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.length, 3u);
    EXPECT_EQ(m.capacity, 5u);
    EXPECT_STREQ(m.data, "abc");
}

TEST_F(Membuffer, FailedFirstAllocationKeepsDataNull)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    alloc.fail(kRealloc, 0, -1);
    EXPECT_EQ(membuffer_append(&m, "abc", 3), -1);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
}

TEST_F(Membuffer, DeleteWithRefusedShrinkStillCutsContent)
{
    KU_REQUIRE_ALLOC_CONTROL();
    fill(20, 20);
    char *const block = m.data;
    AllocControl alloc;
    alloc.fail(kRealloc, 0, -1);
    membuffer_delete(&m, 2, 15);
    EXPECT_EQ(alloc.count(kRealloc), 2);
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.capacity, 20u);
    EXPECT_EQ(m.length, 5u);
    EXPECT_STREQ(m.data, "01789");
}

TEST_F(Membuffer, SizeThatWrapsAroundCountsAsOutOfMemory)
{
    ASSERT_EQ(membuffer_append(&m, "abc", 3), 0);
    EXPECT_EQ(membuffer_append(&m, "x", SIZE_MAX), -1);
    EXPECT_EQ(content(), "abc");
}

// --- empty operations --------------------------------------------------------

TEST_F(Membuffer, NothingOnFreshBufferSucceedsWithoutBlock)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    EXPECT_EQ(membuffer_set_size(&m, 0), 0);
    EXPECT_EQ(membuffer_assign(&m, "abc", 0), 0);
    EXPECT_EQ(membuffer_append(&m, "abc", 0), 0);
    EXPECT_EQ(membuffer_append(&m, nullptr, 7), 0);
    EXPECT_EQ(membuffer_append_str(&m, ""), 0);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 0);
}

// --- assign ------------------------------------------------------------------

TEST_F(Membuffer, AssignReplacesContentAndTerminates)
{
    ASSERT_EQ(membuffer_assign_str(&m, "hello world"), 0);
    ASSERT_EQ(membuffer_assign(&m, "bye", 3), 0);
    EXPECT_EQ(m.length, 3u);
    EXPECT_STREQ(m.data, "bye");
}

TEST_F(Membuffer, AssignKeepsZeroBytesOfContent)
{
    ASSERT_EQ(membuffer_assign(&m, "a\0b", 3), 0);
    EXPECT_EQ(content(), std::string("a\0b", 3));
    EXPECT_EQ(m.data[3], '\0');
}

TEST_F(Membuffer, AssignNullEmptiesAndResetsStep)
{
    ASSERT_EQ(membuffer_assign_str(&m, "abc"), 0);
    m.growth_step = 9;
    EXPECT_EQ(membuffer_assign(&m, nullptr, 12345), 0);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
    EXPECT_EQ(m.growth_step, 5u);
}

TEST_F(Membuffer, AssignOfZeroBytesLeavesOldBytesInBlock)
{
    ASSERT_EQ(membuffer_assign_str(&m, "abc"), 0);
    ASSERT_EQ(membuffer_assign(&m, "zzz", 0), 0);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.data[0], 'a') << "no terminator is written for an empty assign";
}

// --- insert and append -------------------------------------------------------

TEST_F(Membuffer, InsertInTheMiddleMovesTheTail)
{
    ASSERT_EQ(membuffer_assign_str(&m, "held"), 0);
    ASSERT_EQ(membuffer_insert(&m, "llo wor", 7, 2), 0);
    EXPECT_STREQ(m.data, "hello world");
    ASSERT_EQ(membuffer_insert(&m, ">", 1, 0), 0);
    EXPECT_STREQ(m.data, ">hello world");
    EXPECT_EQ(m.length, 12u);
}

TEST_F(Membuffer, InsertAtLengthAppends)
{
    ASSERT_EQ(membuffer_assign_str(&m, "ab"), 0);
    ASSERT_EQ(membuffer_insert(&m, "cd", 2, 2), 0);
    EXPECT_STREQ(m.data, "abcd");
}

TEST_F(Membuffer, InsertPastLengthFailsEvenWithoutSource)
{
    ASSERT_EQ(membuffer_assign_str(&m, "ab"), 0);
    EXPECT_EQ(membuffer_insert(&m, "x", 1, 3), -1);
    EXPECT_EQ(membuffer_insert(&m, nullptr, 0, 3), -1);
    EXPECT_EQ(membuffer_insert(&m, nullptr, 0, 1), 0);
    EXPECT_EQ(membuffer_insert(&m, "x", 0, 1), 0);
    EXPECT_STREQ(m.data, "ab");
    EXPECT_EQ(m.length, 2u);
}

TEST_F(Membuffer, AppendStrAppendsWithoutTerminatorOfSource)
{
    ASSERT_EQ(membuffer_append_str(&m, "key: "), 0);
    ASSERT_EQ(membuffer_append_str(&m, "value"), 0);
    EXPECT_EQ(m.length, 10u);
    EXPECT_STREQ(m.data, "key: value");
}

// --- delete ------------------------------------------------------------------

TEST_F(Membuffer, DeleteOnEmptyBufferDoesNothing)
{
    membuffer_delete(&m, 0, 10);
    membuffer_delete(&m, 7, 1);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
}

TEST_F(Membuffer, DeleteInTheMiddleClosesTheGap)
{
    ASSERT_EQ(membuffer_assign_str(&m, "hello world"), 0);
    membuffer_delete(&m, 4, 5);
    EXPECT_EQ(m.length, 6u);
    EXPECT_STREQ(m.data, "hellld");
}

TEST_F(Membuffer, DeleteCountPastEndCutsAtIndex)
{
    ASSERT_EQ(membuffer_assign_str(&m, "hello world"), 0);
    membuffer_delete(&m, 5, 1000);
    EXPECT_EQ(m.length, 5u);
    EXPECT_STREQ(m.data, "hello");
    membuffer_delete(&m, 2, SIZE_MAX);
    EXPECT_STREQ(m.data, "he");
}

TEST_F(Membuffer, DeleteNothingRewritesTerminator)
{
    ASSERT_EQ(membuffer_assign_str(&m, "abc"), 0);
    m.data[3] = '!';
    membuffer_delete(&m, 3, 4);
    EXPECT_EQ(m.data[3], '\0');
    m.data[3] = '!';
    membuffer_delete(&m, 1, 0);
    EXPECT_EQ(m.data[3], '\0');
    EXPECT_EQ(content(), "abc");
}

TEST_F(Membuffer, DeleteFromIndexPastLengthIsIgnored)
{
    ASSERT_EQ(membuffer_assign_str(&m, "abc"), 0);
    membuffer_delete(&m, 4, 1);
    EXPECT_EQ(content(), "abc");
}

// --- detach, attach, destroy -------------------------------------------------

TEST_F(Membuffer, DetachOfFreshBufferGivesNull)
{
    EXPECT_EQ(membuffer_detach(&m), nullptr);
}

TEST_F(Membuffer, DetachHandsOverBlockAndKeepsStep)
{
    ASSERT_EQ(membuffer_assign_str(&m, "payload"), 0);
    m.growth_step = 7;
    char *block = membuffer_detach(&m);
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "payload");
    free(block);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
    EXPECT_EQ(m.growth_step, 7u);

    ASSERT_EQ(membuffer_append(&m, "ab", 2), 0);
    EXPECT_EQ(m.capacity, 7u);
    EXPECT_STREQ(m.data, "ab");
}

TEST_F(Membuffer, AttachTakesBlockWithoutWritingIt)
{
    ASSERT_EQ(membuffer_assign_str(&m, "old"), 0);
    m.growth_step = 11;
    char *block = static_cast<char *>(malloc(5));
    memcpy(block, "wxyz!", 5);
    membuffer_attach(&m, block, 4);
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.length, 4u);
    EXPECT_EQ(m.capacity, 4u);
    EXPECT_EQ(m.growth_step, 5u);
    EXPECT_EQ(block[4], '!') << "attach adds no terminator";

    membuffer_delete(&m, 3, 1);
    EXPECT_STREQ(m.data, "wxy");
}

TEST_F(Membuffer, AttachOfNullLeavesEmptyBuffer)
{
    ASSERT_EQ(membuffer_assign_str(&m, "old"), 0);
    membuffer_attach(&m, nullptr, 10);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
}

TEST_F(Membuffer, DestroyResetsAndRecordStaysUsable)
{
    ASSERT_EQ(membuffer_assign_str(&m, "abc"), 0);
    m.growth_step = 3;
    membuffer_destroy(&m);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
    EXPECT_EQ(m.growth_step, 5u);
    membuffer_destroy(nullptr);
    ASSERT_EQ(membuffer_append_str(&m, "x"), 0);
    EXPECT_STREQ(m.data, "x");
}

// --- the null-record assertion -----------------------------------------------

using MembufferDeathTest = Membuffer;

// glibc's private routine behind assert(), declared otherwise by other C
// libraries: the library must stop on its own. A call that still lands here shows in the
// death message instead of the assertion text.
extern "C" [[noreturn]] void __assert_fail(const char *, const char *, unsigned int, const char *) noexcept
{
    fputs("stopped through __assert_fail\n", stderr);
    abort();
}

TEST_F(MembufferDeathTest, NullRecordStopsProcessNamingFunction)
{
    const char *const tail = ": Assertion `m != \\(\\(void \\*\\)0\\)' failed\\.";
    EXPECT_DEATH(membuffer_init(nullptr), std::string("membuffer:[0-9]+: membuffer_init") + tail);
    EXPECT_DEATH(membuffer_assign(nullptr, "a", 1), std::string("membuffer:[0-9]+: membuffer_assign") + tail);
    EXPECT_DEATH(membuffer_assign_str(nullptr, "a"), std::string("membuffer:[0-9]+: membuffer_assign") + tail);
    EXPECT_DEATH(membuffer_insert(nullptr, "a", 1, 0), std::string("membuffer:[0-9]+: membuffer_insert") + tail);
    EXPECT_DEATH(membuffer_append(nullptr, "a", 1), std::string("membuffer:[0-9]+: membuffer_append") + tail);
    EXPECT_DEATH(membuffer_delete(nullptr, 0, 1), std::string("membuffer:[0-9]+: membuffer_delete") + tail);
    EXPECT_DEATH(membuffer_detach(nullptr), std::string("membuffer:[0-9]+: membuffer_detach") + tail);
    EXPECT_DEATH(membuffer_attach(nullptr, nullptr, 0), std::string("membuffer:[0-9]+: membuffer_attach") + tail);
}

TEST_F(MembufferDeathTest, SizeOverflowStopsProcess)
{
    fill(2, 10);
    EXPECT_DEATH(membuffer_set_size(&m, SIZE_MAX - 3),
                 "membuffer:[0-9]+: membuffer_set_size: Assertion `alloc_len >= new_length' failed\\.");
}

// --- memptr ------------------------------------------------------------------

TEST(Memptr, EmptySliceEqualsEmptyStringAndSortsFirst)
{
    const memptr empty = slice(nullptr, 0);
    EXPECT_EQ(memptr_cmp(&empty, ""), 0);
    EXPECT_EQ(memptr_cmp(&empty, "a"), -1);
    EXPECT_EQ(memptr_cmp_nocase(&empty, ""), 0);
    EXPECT_EQ(memptr_cmp_nocase(&empty, "a"), -1);
}

TEST(Memptr, ProperPrefixSortsFirst)
{
    const memptr abc = slice("abcdef", 3);
    EXPECT_EQ(memptr_cmp(&abc, "abcd"), -1);
    EXPECT_EQ(memptr_cmp(&abc, "abc"), 0);
    EXPECT_GT(memptr_cmp(&abc, "ab"), 0);
}

TEST(Memptr, DifferenceComesBackUnreduced)
{
    // Called through a pointer so that the expected value comes from the
    // same strncmp the library calls, not from the compiler's inline version.
    int (*volatile libc_strncmp)(const char *, const char *, size_t) = strncmp;
    const memptr a = slice("a", 1);
    EXPECT_EQ(memptr_cmp(&a, "z"), libc_strncmp("a", "z", 1));
    EXPECT_LT(memptr_cmp(&a, "z"), 0);
    EXPECT_GT(memptr_cmp(&a, "A"), 0);
}

TEST(Memptr, ZeroByteInsideSliceEndsComparison)
{
    const memptr text = slice("ab\0cd", 5);
    EXPECT_EQ(memptr_cmp(&text, "ab"), 0);
    EXPECT_EQ(memptr_cmp_nocase(&text, "AB"), 0);
}

TEST(Memptr, NocaseIgnoresAsciiCase)
{
    const memptr header = slice("Content-Length: 5", 14);
    EXPECT_EQ(memptr_cmp_nocase(&header, "content-length"), 0);
    EXPECT_NE(memptr_cmp(&header, "content-length"), 0);
    EXPECT_EQ(memptr_cmp_nocase(&header, "content-length-x"), -1);
    EXPECT_GT(memptr_cmp_nocase(&header, "content-lengta"), 0) << "'h' vs 'a'";
}

// --- str_alloc ---------------------------------------------------------------

TEST(StrAlloc, ZeroLengthGivesOneZeroByte)
{
    char *copy = str_alloc("ignored", 0);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy[0], '\0');
    free(copy);
    copy = str_alloc(nullptr, 0);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy[0], '\0');
    free(copy);
}

TEST(StrAlloc, CopiesExactlyLenBytesIncludingZeros)
{
    char *copy = str_alloc("a\0bcdef", 4);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::string(copy, 5), std::string("a\0bc\0", 5));
    free(copy);
}

TEST(StrAlloc, AllocationFailureGivesNull)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    alloc.fail(kMalloc);
    EXPECT_EQ(str_alloc("abc", 3), nullptr);
}
