// Hex and Base64: digit rules, RFC 4648 vectors, every decoder failure, the limit.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "ku/codec.h"

// One row per edge: src, src_len, dst_size, result, first bytes of dst (was 'U').
TEST(Hex2Ascii, DecodesPairsUntilAnInvalidOneAndClearsDstSize)
{
    const std::tuple<std::string, uint32_t, uint32_t, uint32_t, std::string> rows[] = {
        {"", 0, 4, 0, std::string(4, '\0') + "U"}, {"", 0, 1, 0, std::string(1, '\0') + "U"},
        {"09afAF:?", 8, 4, 4, "\x09\xAF\xAF\xAF"}, {"aBcD;<=>", 8, 4, 4, "\xAB\xCD\xBC\xDE"},
        {"0102 3", 6, 6, 0, std::string("\1\2\0\0\0\0", 6)},  // earlier pairs stay
        // the neighbours of the digit ranges, and a byte from 0x80 up
        {"/0", 2, 1, 0, {'\0'}}, {"@0", 2, 1, 0, {'\0'}}, {"0G", 2, 1, 0, {'\0'}},
        {"0`", 2, 1, 0, {'\0'}}, {"g0", 2, 1, 0, {'\0'}}, {"\xB0" "0", 2, 1, 0, {'\0'}},
        {"A1B2C3", 6, 1, 3, "\xA1\xB2\xC3U"},           // dst_size is no limit
        {"ABC", 3, 2, 0, std::string("\xAB\0", 2)},     // the terminator is the odd low digit
        {"ABCD", 3, 2, 2, "\xAB\xCD"}, {std::string("00\0" "0", 4), 4, 2, 0, std::string(2, '\0')},
    };
    for (const auto &[src, src_len, dst_size, result, want] : rows) {
        char dst[8];
        std::memset(dst, 'U', sizeof dst);
        EXPECT_EQ(ku_hex2ascii(src.data(), dst, src_len, dst_size), result) << src;
        EXPECT_EQ(std::string(dst, want.size()), want) << src;
    }
}

// Upper-case pairs, dst_size cleared; a number from at most eight positions.
TEST(Hex, EncodesUpperCasePairsAndReadsANumberFromEightPositions)
{
    const std::tuple<int32_t, uint32_t, int32_t, std::string> rows[] = {
        {3, 0, 6, "00AB9F##"},  // no terminator of its own
        {2, 6, 4, std::string("00AB\0\0#", 7)}, {-1, 3, 0, std::string("\0\0\0#", 4)},
    };
    for (const auto &[src_len, dst_size, result, want] : rows) {
        char dst[8];
        std::memset(dst, '#', sizeof dst);
        EXPECT_EQ(ku_ascii2hex("\x00\xAB\x9F", dst, src_len, dst_size), result);
        EXPECT_EQ(std::string(dst, want.size()), want) << src_len;
    }
    const std::pair<const char *, uint32_t> numbers[] = {
        {"", 0}, {"FFFFFFFF", 0xFFFFFFFFu}, {"123456789", 0x12345678u}, {"aB", 0xAB}, {"zz", 0},
        {"1 2", 0x12}, {":1", 1}, {"g1h2", 0x12}, {"9fF0", 0x9FF0}, {"0x12345678", 0x123456u},
    };
    for (const auto &[text, value] : numbers)
        EXPECT_EQ(ku_a2hex(text), value) << text;
}

// Sources are exact-sized: ASan sees a read behind src_len.
TEST(Base64, EncodesTheStandardTextWithATerminatorAndDecodesByEveryRule)
{
    const std::pair<std::string, std::string> rows[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xFB\xFF", "+/8="},
        {"\xFF\xFE\x80", "//6A"},
    };
    for (const auto &[data, text] : rows) {
        const std::vector<char> src(data.begin(), data.end());
        std::string dst(text.size() + 2, '#');
        EXPECT_EQ(ku_string_base64_encode(dst.data(), src.data(), int32_t(src.size())),
                  int32_t(text.size()));
        EXPECT_EQ(dst, text + std::string("\0#", 2));
    }
    char dst[2] = {'#', '#'};
    EXPECT_EQ(ku_string_base64_encode(dst, "abc", -5), 0);
    EXPECT_EQ(std::string(dst, 2), std::string("\0#", 2)) << "the terminator alone";
    // One row per decoder rule: text, dst_size, result and the first bytes of
    // dst afterwards (dst starts as 'U'; groups before a failure stay).
    const std::tuple<const char *, uint32_t, int32_t, std::string> decodes[] = {
        {"", 1, 0, "U"}, {" \t\r\n ", 1, 0, "U"}, {"", 0, 0, "U"}, {"Zg==", 2, 1, "fU"},
        {"Zm8=", 3, 2, "foU"}, {"+/8=", 3, 2, "\xFB\xFFU"}, {"//6A", 4, 3, "\xFF\xFE\x80U"},
        {&"QUJDZm9vYmFy"[4], 7, 6, "foobarU"},  // "QUJD" lies before the text, never read
        {" Z m\t9\r\nv Y\nm F y ", 16, 6, "foobarU"}, {"Zm9vYg=\n=", 16, 4, "foobU"},
        {"Zm9vYg==\r\n \t", 16, 4, "foob"}, {"Zg==  \n", 16, 1, "fU"},
        // incomplete last group; outside the alphabet; misplaced padding; bits under it
        // ('h' is 33: low 4 bits set, '9' 61: low 2 bits); data behind a padded group
        {"Z", 16, -1, "U"}, {"Zm9vY", 16, -1, "fooU"}, {"Zg=", 16, -1, "U"}, {"Zm-v", 16, -1, "U"},
        {"Zm9v!", 16, -1, "foo"}, {"\vZm9", 16, -1, "U"}, {"\x80Zm9", 16, -1, "U"},
        {"Zm9vYm\xff" "y", 16, -1, "fooU"}, {"=AAA", 16, -1, "U"}, {"A=AA", 16, -1, "U"},
        {"AA=A", 16, -1, "U"}, {"Zm9v=AAA", 16, -1, "fooU"}, {"Zm9vZg=A", 16, -1, "fooU"},
        {"Zh==", 16, -1, "U"}, {"Zm9=", 16, -1, "U"}, {"AA==", 16, 1, std::string("\0U", 2)},
        {"Zg==Zg==", 16, -1, "fU"}, {"Zm8=Zm9v", 16, -1, "foU"}, {"Zg== Z", 16, -1, "fU"},
        // one byte of dst stays free: a group that would reach it is not written
        {"Zm9v", 3, -1, "U"}, {"Zg==", 1, -1, "U"}, {"Zm8=", 2, -1, "U"}, {"Zm9v", 0, -1, "U"},
        {"Zm 9v", 3, -1, "U"}, {"Zm 9v", 4, 3, "fooU"}, {"Zm9vYmFyYmF6", 7, -1, "foobarU"},
        {"Zm 9vYmFyYmF6", 7, -1, "foobarU"}, {"Zm9vYmFy!AAA", 16, -1, "foobarU"},
    };
    for (const auto &[text, dst_size, result, want] : decodes) {
        char area[16];
        std::memset(area, 'U', sizeof area);
        EXPECT_EQ(ku_string_base64_decode(text, area, dst_size), result) << text << " " << dst_size;
        EXPECT_EQ(std::string(area, want.size()), want) << text;
    }
}
