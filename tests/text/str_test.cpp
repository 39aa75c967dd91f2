// Case conversion, blank trimming and the clock token.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "ku/str.h"
#include "support/alloc_control.h"
#include "support/fake_clock.h"

using ku_test::AllocControl;
using ku_test::FakeClock;

namespace {

std::string trimmed(const char *text)
{
    std::string buffer(text);
    ku_string_trim(buffer.data());
    return std::string(buffer.c_str());
}

std::string random_at(int64_t seconds, long nanoseconds)
{
    FakeClock clock;
    clock.set_monotonic(seconds, nanoseconds);
    char *token = ku_string_random();
    EXPECT_NE(token, nullptr);
    std::string text = token != nullptr ? token : "";
    std::free(token);
    return text;
}

}  // namespace

TEST(CaseConversion, ConvertsInPlaceAndReturnsTheSamePointer)
{
    EXPECT_EQ(strupr(nullptr), nullptr);
    EXPECT_EQ(strlwr(nullptr), nullptr);
    char text[] = "Hello, World az AZ";
    EXPECT_EQ(strupr(text), text);
    EXPECT_STREQ(text, "HELLO, WORLD AZ AZ");
    EXPECT_EQ(strlwr(text), text);
    EXPECT_STREQ(text, "hello, world az az");
    char stops[] = "ab\0cd";
    strupr(stops);
    EXPECT_EQ(std::string(stops, sizeof stops - 1), std::string("AB\0cd", 5)) << "stops at the terminator";
}

TEST(CaseConversion, OnlyAsciiLettersChange)
{
    // Every byte value 1..255 once: only the 52 ASCII letters may change, and
    // neighbours of the ranges ('@', '[', '`', '{') must stay.
    char all[256];
    for (int i = 1; i < 256; ++i) {
        all[i - 1] = static_cast<char>(i);
    }
    all[255] = '\0';
    char upper[256];
    char lower[256];
    std::memcpy(upper, all, sizeof all);
    std::memcpy(lower, all, sizeof all);
    strupr(upper);
    strlwr(lower);
    for (int i = 1; i < 256; ++i) {
        const auto up = static_cast<unsigned char>(upper[i - 1]);
        const auto low = static_cast<unsigned char>(lower[i - 1]);
        EXPECT_EQ(up, i >= 0x61 && i <= 0x7A ? i - 32 : i) << "byte " << i;
        EXPECT_EQ(low, i >= 0x41 && i <= 0x5A ? i + 32 : i) << "byte " << i;
    }
}

// Only the blank counts, on both ends; the text moves to the start.
TEST(Trim, RemovesOuterBlanksOnly)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", ""},       {" ", ""},     {"     ", ""},    {"a", "a"},   {"key value", "key value"},
        {"   a b  c   ", "a b  c"}, {"  x", "x"},    {"x  ", "x"}, {"  value  \n", "value  \n"},
        {"\t value \t", "\t value \t"}, {"\r x", "\r x"},
    };
    for (const auto &[text, want] : rows) {
        EXPECT_EQ(trimmed(text), want) << "'" << text << "'";
    }
}

TEST(Trim, LongOverlappingMoveKeepsEveryByte)
{
    // More leading blanks than kept bytes and the reverse: both overlap
    // directions of the move.
    std::string body;
    for (int i = 0; i < 200; ++i) {
        body += static_cast<char>('!' + i % 90);
    }
    EXPECT_EQ(trimmed(("  " + body + " ").c_str()), body);
    EXPECT_EQ(trimmed((std::string(500, ' ') + body).c_str()), body);
}

TEST(Trim, BytesBehindTheNewTerminatorKeepTheirValues)
{
    char text[] = "  ab  ";
    ku_string_trim(text);
    // "ab" moved to the start, terminator behind it; the rest is untouched.
    EXPECT_EQ(std::string(text, sizeof text), std::string("ab\0b  \0", 7));
}

TEST(RandomText, IsTheClockInLowerCaseHex)
{
    EXPECT_EQ(random_at(0, 0x2a), "2a");
    // 0xABCDEF12345 ns, no leading zeros and no prefix.
    EXPECT_EQ(random_at(11806, 310474565), "abcdef12345");
    EXPECT_EQ(random_at(0, 0), "0");
}

TEST(RandomText, LargestTickHasSixteenDigits)
{
    // 9223372036854775807 ns = INT64_MAX, the largest the clock can give.
    EXPECT_EQ(random_at(9223372036, 854775807), "7fffffffffffffff");
}

TEST(RandomText, SameTickGivesSameTextAndNextTickDiffers)
{
    EXPECT_EQ(random_at(5, 100), random_at(5, 100));
    EXPECT_NE(random_at(5, 100), random_at(5, 101));
}

TEST(RandomText, BlockHasRoomForSixtyFourBytes)
{
    char *token = ku_string_random();
    ASSERT_NE(token, nullptr);
    // The whole 64-byte block is the caller's: writing all of it must be fine
    // (ASan checks the size).
    std::memset(token, 'x', 64);
    std::free(token);
}

TEST(RandomText, FailedAllocationGivesNull)
{
    KU_REQUIRE_ALLOC_CONTROL();
    AllocControl alloc;
    alloc.fail(ku_test::kAnyAlloc);
    EXPECT_EQ(ku_string_random(), nullptr);
}
