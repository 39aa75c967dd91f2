// membuffer: the additive size rule, content edits, allocation failure and
// the null-record assertion; memptr comparisons; str_alloc.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "ku/membuffer.h"
#include "support/alloc_control.h"

using ku_test::AllocControl;
using ku_test::kRealloc;

namespace {

class Membuffer : public ::testing::Test {
protected:
    Membuffer() { membuffer_init(&m); }
    ~Membuffer() override { membuffer_destroy(&m); }

    std::string content() const { return m.data == nullptr ? std::string() : std::string(m.data, m.length); }

    // `length` bytes "0123..." in a block of exactly `capacity`.
    void fill(size_t length, size_t capacity)
    {
        membuffer_destroy(&m);
        ASSERT_EQ(membuffer_set_size(&m, capacity), 0);
        std::string text;
        for (size_t i = 0; i < length; i++) {
            text += static_cast<char>('0' + i % 10);
        }
        ASSERT_EQ(membuffer_assign(&m, text.data(), text.size()), 0);
        ASSERT_EQ(m.capacity, capacity);
    }

    membuffer m;
};

}  // namespace

// One row per edge of the size rule: grow by max(step, distance from length),
// shrink to length + step once the slack exceeds the step, else keep.
TEST_F(Membuffer, SetSizeFollowsTheAdditiveRule)
{
    KU_REQUIRE_ALLOC_CONTROL();
    struct Row {
        size_t length, capacity, request, want_capacity;
        long reallocs;
    };
    const Row rows[] = {
        {0, 0, 3, 5, 1},       // first block: one step
        {0, 0, 100, 100, 1},   // a big request grows by itself
        {3, 5, 5, 5, 0},       // inside capacity
        {5, 5, 6, 10, 1},      // one past capacity: a whole step
        {2, 10, 12, 20, 1},    // distance measured from length, not capacity
        {3, 200, 3, 200, 0},   // new_length == length never reallocates
        {20, 20, 15, 20, 0},   // slack 5 == step: kept
        {20, 20, 14, 19, 1},   // slack 6 > step: length + step
        {0, 0, 0, 0, 0},       // nothing on a fresh buffer
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.length << "/" << row.capacity << " -> " << row.request);
        membuffer_destroy(&m);
        if (row.capacity != 0) {
            fill(row.length, row.capacity);
        }
        const std::string before = content();
        AllocControl alloc;
        ASSERT_EQ(membuffer_set_size(&m, row.request), 0);
        EXPECT_EQ(m.capacity, row.want_capacity);
        EXPECT_EQ(alloc.count(kRealloc), row.reallocs);
        EXPECT_EQ(content(), before) << "set_size never changes content or length";
        if (m.data != nullptr) {
            m.data[m.capacity] = '\0';  // the block is capacity + 1 bytes: ASan catches a short one
        }
    }
}

TEST_F(Membuffer, RefusedReallocTriesTheExactSizeOnce)
{
    KU_REQUIRE_ALLOC_CONTROL();
    fill(2, 10);
    {
        AllocControl alloc;
        alloc.fail(kRealloc, 0, 1);
        ASSERT_EQ(membuffer_set_size(&m, 12), 0);
        EXPECT_EQ(m.capacity, 12u);
        EXPECT_EQ(alloc.count(kRealloc), 2);
    }
    fill(20, 20);
    AllocControl alloc;
    alloc.fail(kRealloc, 0, 1);
    ASSERT_EQ(membuffer_set_size(&m, 14), 0);
    EXPECT_EQ(m.capacity, 14u);
    EXPECT_EQ(m.length, 20u) << "set_size never changes length";
}

TEST_F(Membuffer, OutOfMemoryLeavesEveryEditUndone)
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
    EXPECT_EQ(membuffer_append(&m, "x", SIZE_MAX), -1) << "a wrapping length is out of memory";
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.capacity, 5u);
    EXPECT_STREQ(m.data, "abc");

    membuffer_destroy(&m);
    alloc.allow();
    EXPECT_EQ(membuffer_set_size(&m, SIZE_MAX), -1) << "a block size that wraps is out of memory";
    alloc.fail(kRealloc, 0, -1);
    EXPECT_EQ(membuffer_append(&m, "abc", 3), -1);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
}

TEST_F(Membuffer, DeleteCutsContentEvenWhenTheShrinkIsRefused)
{
    KU_REQUIRE_ALLOC_CONTROL();
    fill(20, 20);
    AllocControl alloc;
    alloc.fail(kRealloc, 0, -1);
    membuffer_delete(&m, 2, 15);
    EXPECT_EQ(m.capacity, 20u);
    EXPECT_STREQ(m.data, "01789");
}

// One row per edit: the content before, the call, its result and the content
// after (always zero-terminated when a block exists).
TEST_F(Membuffer, EditsGiveTheExpectedContent)
{
    using Edit = std::function<int(membuffer *)>;
    struct Row {
        const char *name;
        std::string before;
        Edit edit;
        int result;
        std::string after;
        bool terminates = true;
    };
    const Row rows[] = {
        {"assign replaces", "hello world", [](membuffer *b) { return membuffer_assign(b, "bye", 3); }, 0, "bye"},
        {"assign keeps zero bytes", "", [](membuffer *b) { return membuffer_assign(b, "a\0b", 3); }, 0,
         std::string("a\0b", 3)},
        {"insert in the middle", "held", [](membuffer *b) { return membuffer_insert(b, "llo wor", 7, 2); }, 0,
         "hello world"},
        {"insert at 0", "ab", [](membuffer *b) { return membuffer_insert(b, ">", 1, 0); }, 0, ">ab"},
        {"insert at length", "ab", [](membuffer *b) { return membuffer_insert(b, "cd", 2, 2); }, 0, "abcd"},
        {"insert past length", "ab", [](membuffer *b) { return membuffer_insert(b, "x", 1, 3); }, -1, "ab"},
        {"null insert past length", "ab", [](membuffer *b) { return membuffer_insert(b, nullptr, 0, 3); }, -1, "ab"},
        {"null insert", "ab", [](membuffer *b) { return membuffer_insert(b, nullptr, 5, 1); }, 0, "ab"},
        // A tail moved by a wrong count overruns the block: the heap check
        // (or ASan) stops the test.
        {"insert near the end", std::string(64, 'a'), [](membuffer *b) { return membuffer_insert(b, "b", 1, 60); }, 0,
         std::string(60, 'a') + "baaaa"},
        {"append_str", "key: ", [](membuffer *b) { return membuffer_append_str(b, "value"); }, 0, "key: value"},
        {"delete in the middle", "hello world", [](membuffer *b) { return membuffer_delete(b, 4, 5), 0; }, 0,
         "hellld"},
        {"delete past end", "hello world", [](membuffer *b) { return membuffer_delete(b, 5, 1000), 0; }, 0, "hello"},
        {"delete everything", std::string(64, 'a'), [](membuffer *b) { return membuffer_delete(b, 0, 64), 0; }, 0,
         ""},
        {"delete SIZE_MAX", "hello", [](membuffer *b) { return membuffer_delete(b, 2, SIZE_MAX), 0; }, 0, "he"},
        {"delete at length", "abc", [](membuffer *b) { return membuffer_delete(b, 3, 4), 0; }, 0, "abc"},
        {"delete none", "abc", [](membuffer *b) { return membuffer_delete(b, 1, 0), 0; }, 0, "abc"},
        {"delete past length", "abc", [](membuffer *b) { return membuffer_delete(b, 4, 1), 0; }, 0, "abc", false},
        {"delete on empty", "", [](membuffer *b) { return membuffer_delete(b, 0, 10), 0; }, 0, ""},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        membuffer_destroy(&m);
        ASSERT_EQ(membuffer_assign(&m, row.before.data(), row.before.size()), 0);
        if (m.data != nullptr && row.terminates && std::string(row.name).rfind("delete", 0) == 0) {
            m.data[m.length] = '!';  // a delete must write the terminator again
        }
        EXPECT_EQ(row.edit(&m), row.result);
        EXPECT_EQ(content(), row.after);
        if (m.data != nullptr && row.terminates) {
            EXPECT_EQ(m.data[m.length], '\0');
        }
    }
}

TEST_F(Membuffer, EmptyRequestsAllocateNothing)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    EXPECT_EQ(membuffer_assign(&m, "abc", 0), 0);
    EXPECT_EQ(membuffer_append(&m, "abc", 0), 0);
    EXPECT_EQ(membuffer_append(&m, nullptr, 7), 0);
    EXPECT_EQ(membuffer_append_str(&m, ""), 0);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 0);
}

TEST_F(Membuffer, EmptyAssignLeavesOldBytesAndNullAssignResets)
{
    ASSERT_EQ(membuffer_assign_str(&m, "abc"), 0);
    ASSERT_EQ(membuffer_assign(&m, "zzz", 0), 0);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.data[0], 'a') << "no terminator is written for an empty assign";

    m.growth_step = 9;
    EXPECT_EQ(membuffer_assign(&m, nullptr, 12345), 0);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.capacity, 0u);
    EXPECT_EQ(m.growth_step, 5u);
}

TEST_F(Membuffer, DetachHandsOverBlockAndKeepsStep)
{
    EXPECT_EQ(membuffer_detach(&m), nullptr);
    ASSERT_EQ(membuffer_assign_str(&m, "payload"), 0);
    m.growth_step = 7;
    char *block = membuffer_detach(&m);
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "payload");
    free(block);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.length, 0u);
    EXPECT_EQ(m.capacity, 0u);
    ASSERT_EQ(membuffer_append(&m, "ab", 2), 0);
    EXPECT_EQ(m.capacity, 7u) << "the step survives a detach";
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
    const std::string tail = ": Assertion `m != \\(\\(void \\*\\)0\\)' failed\\.";
    const std::pair<const char *, std::function<void()>> calls[] = {
        {"membuffer_init", [] { membuffer_init(nullptr); }},
        {"membuffer_assign", [] { membuffer_assign(nullptr, "a", 1); }},
        {"membuffer_assign", [] { membuffer_assign_str(nullptr, "a"); }},
        {"membuffer_insert", [] { membuffer_insert(nullptr, "a", 1, 0); }},
        {"membuffer_append", [] { membuffer_append(nullptr, "a", 1); }},
        {"membuffer_delete", [] { membuffer_delete(nullptr, 0, 1); }},
        {"membuffer_detach", [] { membuffer_detach(nullptr); }},
        {"membuffer_attach", [] { membuffer_attach(nullptr, nullptr, 0); }},
    };
    for (const auto &[name, call] : calls) {
        EXPECT_DEATH(call(), std::string("membuffer:[0-9]+: ") + name + tail);
    }
    fill(2, 10);
    EXPECT_DEATH(membuffer_set_size(&m, SIZE_MAX - 3),
                 "membuffer:[0-9]+: membuffer_set_size: Assertion `alloc_len >= new_length' failed\\.");
}

// One row per comparison edge; the sign is what counts, except that a
// difference comes back as strncmp gave it.
TEST(Memptr, ComparesSliceAgainstText)
{
    struct Row {
        const char *data;
        size_t length;
        const char *text;
        int exact, nocase;  // sign; -1 exactly for the prefix rule
    };
    const Row rows[] = {
        {nullptr, 0, "", 0, 0},
        {nullptr, 0, "a", -1, -1},
        {"abcdef", 3, "abcd", -1, -1},
        {"abcdef", 3, "abc", 0, 0},
        {"abcdef", 3, "ab", 1, 1},
        {"a", 1, "z", -1, -1},
        {"a", 1, "A", 1, 0},
        {"ab\0cd", 5, "ab", 0, 0},
        {"Content-Length: 5", 14, "content-length", -1, 0},
        {"Content-Length: 5", 14, "content-length-x", -1, -1},
        {"Content-Length: 5", 14, "content-lengta", -1, 1},
    };
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << "'" << (row.data ? row.data : "") << "'/" << row.length << " vs '"
                                        << row.text << "'");
        const memptr p{row.data, row.length};
        EXPECT_EQ(sign(memptr_cmp(&p, row.text)), row.exact);
        EXPECT_EQ(sign(memptr_cmp_nocase(&p, row.text)), row.nocase);
    }
    int (*volatile libc_strncmp)(const char *, const char *, size_t) = strncmp;
    const memptr a{"a", 1};
    EXPECT_EQ(memptr_cmp(&a, "z"), libc_strncmp("a", "z", 1)) << "the difference comes back unreduced";
    EXPECT_EQ(memptr_cmp(&a, "ab"), -1);
}

TEST(StrAlloc, CopiesExactlyLenBytesAndTerminates)
{
    char *copy = str_alloc("a\0bcdef", 4);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::string(copy, 5), std::string("a\0bc\0", 5));
    free(copy);
    copy = str_alloc(nullptr, 0);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy[0], '\0');
    free(copy);
    EXPECT_EQ(str_alloc("x", SIZE_MAX), nullptr) << "a size that wraps is refused";
}

TEST(StrAlloc, AllocationFailureGivesNull)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    alloc.fail(ku_test::kMalloc);
    EXPECT_EQ(str_alloc("abc", 3), nullptr);
}
