// Case conversion, blank trimming and the clock token.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "ku/str.h"
#include "support/alloc_control.h"
#include "support/fake_clock.h"

// Case conversion: the neighbours of both letter ranges stay, bytes from 0x80
// too, and the terminator stops. Trimming: only the blank counts, at both ends,
// and the rest moves to the start.
TEST(InPlace, OnlyAsciiLettersChangeCaseAndOnlyOuterBlanksAreTrimmed)
{
    EXPECT_EQ(strupr(nullptr), nullptr);
    EXPECT_EQ(strlwr(nullptr), nullptr);
    const std::string text("\x01`az{@AZ[\x80\xE1\xFF 9\0aA", 17);
    std::string upper = text, lower = text;
    EXPECT_EQ(strupr(upper.data()), upper.data());
    EXPECT_EQ(strlwr(lower.data()), lower.data());
    EXPECT_EQ(upper, std::string("\x01`AZ{@AZ[\x80\xE1\xFF 9\0aA", 17));
    EXPECT_EQ(lower, std::string("\x01`az{@az[\x80\xE1\xFF 9\0aA", 17));
    const std::pair<std::string, std::string> rows[] = {
        {"", ""}, {" ", ""}, {"     ", ""}, {"a", "a"}, {"key value", "key value"},
        {"   a b  c   ", "a b  c"}, {"  x", "x"}, {"x  ", "x"}, {"  value  \n", "value  \n"},
        {"\t value \t", "\t value \t"}, {"\r x", "\r x"},
        {"   0123456789abcdefghijklmnopqrstuvwxyz ", "0123456789abcdefghijklmnopqrstuvwxyz"},
    };
    for (auto [trimmed, want] : rows) {
        ku_string_trim(trimmed.data());
        EXPECT_EQ(trimmed.c_str(), want) << "'" << trimmed << "'";
    }
}

TEST(RandomText, IsTheClockInLowerCaseHexInA64ByteBlockOrNull)
{
    const std::tuple<int64_t, long, const char *> rows[] = {
        {0, 0, "0"}, {0, 0x2a, "2a"}, {11806, 310474565, "abcdef12345"},
        {9223372036, 854775807, "7fffffffffffffff"},  // INT64_MAX ns: the most digits
    };
    for (const auto &[seconds, nanoseconds, text] : rows) {
        ku_test::FakeClock clock;
        clock.set_monotonic(seconds, nanoseconds);
        char *token = ku_string_random();
        ASSERT_NE(token, nullptr);
        EXPECT_STREQ(token, text);
        std::memset(token, 'x', 64);  // the whole block is the caller's (ASan checks)
        std::free(token);
    }
    if (ku_test::AllocControl::effective()) {  // not under valgrind
        ku_test::AllocControl alloc;
        alloc.fail(ku_test::kAnyAlloc);
        EXPECT_EQ(ku_string_random(), nullptr) << "without memory";
    }
}
