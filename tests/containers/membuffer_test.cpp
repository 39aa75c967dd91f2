// membuffer: the size rule, edits, allocation failure; memptr; str_alloc.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>

#include "ku/membuffer.h"
#include "support/alloc_control.h"

using ku_test::AllocControl;
using namespace std::string_literals;

class Membuffer : public ::testing::Test {
protected:
    Membuffer() { membuffer_init(&m); }
    ~Membuffer() override { membuffer_destroy(&m); }
    // data[0..length], the terminator included; "<null>" without a block.
    std::string bytes() const { return m.data ? std::string(m.data, m.length + 1) : "<null>"; }
    membuffer m;
};

// Grow by max(step, distance from length), shrink to length + step once the
// slack exceeds the step, else keep; a refused realloc retries the exact size.
TEST_F(Membuffer, SetSizeFollowsTheAdditiveRule)
{
    KU_REQUIRE_ALLOC_CONTROL();
    // length, capacity, request, reallocs refused -> result, capacity, reallocs
    const std::tuple<size_t, size_t, size_t, long, int, size_t, long> rows[] = {
        {0, 0, 3, 0, 0, 5, 1},     {2, 10, 12, 0, 0, 20, 1},  {3, 20, 3, 0, 0, 20, 0},
        {20, 20, 15, 0, 0, 20, 0}, {20, 20, 14, 0, 0, 19, 1}, {0, 0, 0, 0, 0, 0, 0},
        {2, 10, 12, 1, 0, 12, 2},  {2, 10, 12, 2, -1, 10, 2}, {0, 0, SIZE_MAX, 0, -1, 0, 0},
        {0, 0, 25, 0, 0, 25, 1},  // a block big enough to show a realloc one byte short
    };
    for (const auto &[length, capacity, request, refused, result, want, reallocs] : rows) {
        SCOPED_TRACE(testing::Message() << length << "/" << capacity << " -> " << request);
        membuffer_destroy(&m);
        ASSERT_EQ(membuffer_set_size(&m, capacity), 0);
        ASSERT_EQ(membuffer_assign(&m, "01234567890123456789", length), 0);
        AllocControl alloc;
        alloc.fail(ku_test::kRealloc, 0, refused);
        EXPECT_EQ(membuffer_set_size(&m, request), result);
        EXPECT_EQ(m.capacity, want);
        EXPECT_EQ(alloc.count(ku_test::kRealloc), reallocs);
        EXPECT_EQ(m.length, length) << "set_size leaves the content alone";
        EXPECT_TRUE(m.data == nullptr || malloc_usable_size(m.data) > m.capacity) << "capacity + 1";
    }
}

// One row per edit of "hello" in a block of 20, every realloc refused when
// oom is set: the result and data[0..length] after it. An edit that changes
// nothing leaves the '!' put behind the content; an empty assign writes
// nothing, not even the terminator.
TEST_F(Membuffer, EditsGiveTheExpectedContent)
{
    const std::string a30(30, 'a');
    // a(ssign) i(nsert) p (append) d(elete)
    const std::tuple<char, const char *, size_t, size_t, bool, int, std::string> rows[] = {
        {'a', "a\0b", 3, 0, false, 0, "a\0b\0"s},  {'a', "zz", 0, 0, false, 0, "h"},
        {'a', nullptr, 3, 0, false, 0, "<null>"},   {'p', ", you", 5, 0, false, 0, "hello, you\0"s},
        {'i', "x", 1, 6, false, -1, "hello!"},      {'i', nullptr, 0, 6, false, -1, "hello!"},
        {'i', nullptr, 5, 1, false, 0, "hello!"},
        {'i', a30.c_str(), 30, 3, false, 0, "hel" + a30 + "lo\0"s},  // a wrong move overruns
        {'d', nullptr, 2, 1, false, 0, "hlo\0"s},   {'d', nullptr, SIZE_MAX, 2, false, 0, "he\0"s},
        {'d', nullptr, 5, 0, false, 0, "\0"s},      {'d', nullptr, 4, 5, false, 0, "hello\0"s},
        {'d', nullptr, 1, 6, false, 0, "hello!"},   {'d', nullptr, 1, 0, true, 0, "ello\0"s},
        {'a', a30.c_str(), 30, 0, true, -1, "hello!"},
        {'i', a30.c_str(), 30, 0, true, -1, "hello!"},
        {'p', "x", SIZE_MAX, 0, false, -1, "hello!"},  // a length that wraps: out of memory
    };
    for (const auto &[op, text, count, index, oom, result, after] : rows) {
        SCOPED_TRACE(testing::Message() << op << " " << count << " at " << index);
        if (oom && !AllocControl::effective()) continue;
        ASSERT_EQ(membuffer_set_size(&m, 20), 0);
        ASSERT_EQ(membuffer_assign_str(&m, "hello"), 0);
        m.data[5] = '!';
        AllocControl alloc;
        alloc.fail(ku_test::kRealloc, 0, oom ? -1 : 0);
        const int got = op == 'a'   ? membuffer_assign(&m, text, count)
                        : op == 'i' ? membuffer_insert(&m, text, count, index)
                        : op == 'p' ? membuffer_append(&m, text, count)
                                    : (membuffer_delete(&m, index, count), 0);
        EXPECT_EQ(got, result);
        EXPECT_EQ(bytes(), after);
        EXPECT_TRUE(!oom || m.capacity == 20u);
        membuffer_destroy(&m);
    }
}

// Detach hands the block out and keeps the step; attach takes a block as it
// is; destroy frees and resets the step.
TEST_F(Membuffer, DetachAttachAndDestroyHandOverTheBlock)
{
    EXPECT_EQ(membuffer_detach(&m), nullptr);
    ASSERT_EQ(membuffer_assign_str(&m, "payload"), 0);
    m.growth_step = 7;
    char *block = membuffer_detach(&m);
    EXPECT_EQ(block + bytes() + std::to_string(m.length + m.capacity), "payload<null>0");
    ASSERT_EQ(membuffer_append(&m, "ab", 2), 0);
    EXPECT_EQ(m.capacity, 7u);
    memcpy(block, "wxyz!", 5);
    membuffer_attach(&m, block, 4);
    EXPECT_EQ(bytes() + std::to_string(m.capacity + m.growth_step), "wxyz!9") << "no terminator";
    membuffer_destroy(&m);
    membuffer_destroy(nullptr);
    EXPECT_EQ(bytes() + std::to_string(m.length + m.capacity + m.growth_step), "<null>5");
}

// The sign counts (-1 exactly for the prefix rule); a difference comes back
// as strncmp gave it. str_alloc copies exactly len bytes and terminates.
TEST(Memptr, ComparesSliceAgainstTextAndStrAllocCopiesIt)
{
    // slice, its length, text -> memptr_cmp, memptr_cmp_nocase
    const std::tuple<const char *, size_t, const char *, int, int> rows[] = {
        {nullptr, 0, "", 0, 0},     {nullptr, 0, "a", -1, -1}, {"abcdef", 3, "abcd", -1, -1},
        {"abcdef", 3, "abc", 0, 0}, {"abcdef", 3, "ab", 1, 1}, {"a", 1, "A", 1, 0},
        {"ab\0cd", 5, "ab", 0, 0},  {"Content-L", 9, "content-lx", -1, -1},
        {"Content-L", 9, "content-k", -1, 1},
    };
    for (const auto &[data, length, text, exact, nocase] : rows) {
        SCOPED_TRACE(testing::Message() << length << " bytes against '" << text << "'");
        const memptr p{data, length};
        EXPECT_EQ(std::clamp(memptr_cmp(&p, text), -1, 1), exact);
        EXPECT_EQ(std::clamp(memptr_cmp_nocase(&p, text), -1, 1), nocase);
    }
    int (*volatile libc_strncmp)(const char *, const char *, size_t) = strncmp;  // not folded
    const memptr a{"a", 1};
    EXPECT_EQ(memptr_cmp(&a, "z"), libc_strncmp("a", "z", 1)) << "a difference comes back whole";
    char *copy = str_alloc("a\0bcdef", 4);
    EXPECT_EQ(std::string(copy, 5), "a\0bc\0"s);
    free(copy);
    EXPECT_EQ(str_alloc("x", SIZE_MAX), nullptr) << "a size that wraps is refused";
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    alloc.fail(ku_test::kMalloc);
    EXPECT_EQ(str_alloc("abc", 3), nullptr);
}
