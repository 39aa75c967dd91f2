// Hex and Base64: digit rules, RFC 4648 vectors, every decoder failure, the
// destination limit, and an encoder that stops exactly at src_len.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ku/codec.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytes_of(const std::string &text)
{
    return Bytes(text.begin(), text.end());
}

std::string encode(const Bytes &data)
{
    std::string text(data.size() / 3 * 4 + 8, '#');
    const int32_t n = ku_string_base64_encode(text.data(), data.data(), static_cast<int32_t>(data.size()));
    EXPECT_EQ(text[static_cast<size_t>(n)], '\0') << "terminator";
    text.resize(static_cast<size_t>(n));
    return text;
}

// Decodes into a generous area; the result is empty on failure, `result`
// holds the count.
Bytes decode(const std::string &text, int32_t *result)
{
    Bytes out(text.size() + 8, 0xEE);
    *result = ku_string_base64_decode(text.c_str(), out.data(), static_cast<uint32_t>(out.size()));
    out.resize(*result > 0 ? static_cast<size_t>(*result) : 0);
    return out;
}

// The 2 x 4096 byte mapping with a PROT_NONE page right behind the first: a
// read behind `end` faults.
class GuardedPage {
public:
    GuardedPage()
    {
        page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void *area = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (area != MAP_FAILED) {
            base_ = static_cast<unsigned char *>(area);
            mprotect(base_ + page_, page_, PROT_NONE);
        }
    }
    ~GuardedPage()
    {
        if (base_ != nullptr) {
            munmap(base_, 2 * page_);
        }
    }
    bool ok() const { return base_ != nullptr; }
    // `length` bytes ending exactly at the protected page.
    unsigned char *tail(size_t length) { return base_ + page_ - length; }

private:
    size_t page_ = 0;
    unsigned char *base_ = nullptr;
};

}  // namespace

// ---- hex -------------------------------------------------------------------

// One row per digit and length edge; dst starts as 0x55 everywhere.
TEST(Hex2Ascii, DecodesPairsAndClearsDst)
{
    struct Row {
        std::string src;
        uint32_t src_len, dst_size, result;
        Bytes dst;  // the first dst.size() bytes afterwards
    };
    const Row rows[] = {
        {"", 0, 4, 0, {0, 0, 0, 0, 0x55, 0x55}},
        {"aBcD0f9E", 8, 4, 4, {0xAB, 0xCD, 0x0F, 0x9E}},
        {":?;<=>", 6, 3, 3, {0xAF, 0xBC, 0xDE}},
        {"0102g3", 6, 6, 0, {0x01, 0x02, 0, 0, 0, 0}},  // earlier pairs stay
        {"01020g", 6, 6, 0, {0x01, 0x02, 0, 0, 0, 0}},
        {"0102 3", 6, 6, 0, {0x01, 0x02, 0, 0, 0, 0}},
        {"A1B2C3", 6, 1, 3, {0xA1, 0xB2, 0xC3, 0x55}},   // dst_size is no limit
        {"ABC", 3, 2, 0, {0xAB, 0}},                     // the terminator is the odd low digit
        {"ABCD", 3, 2, 2, {0xAB, 0xCD}},                 // a digit behind src_len is used
        {std::string("00\0" "0", 4), 4, 2, 0, {0, 0}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.src);
        unsigned char dst[8];
        std::memset(dst, 0x55, sizeof dst);
        EXPECT_EQ(ku_hex2ascii(row.src.data(), dst, row.src_len, row.dst_size), row.result);
        EXPECT_EQ(Bytes(dst, dst + row.dst.size()), row.dst);
    }
    EXPECT_EQ(ku_hex2ascii("", nullptr, 0, 0), 0u);
    EXPECT_EQ(ku_ascii2hex(nullptr, nullptr, 0, 0), 0);
}

TEST(Hex2Ascii, ExactlyTheDocumentedCharactersAreDigits)
{
    for (int c = 0; c < 256; ++c) {
        for (int low = 0; low < 2; ++low) {  // as the high and as the low digit
            const char pair[2] = {low ? '0' : static_cast<char>(c), low ? static_cast<char>(c) : '0'};
            unsigned char dst[1] = {};
            const bool digit = (c >= 0x30 && c <= 0x3F) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
            ASSERT_EQ(ku_hex2ascii(pair, dst, 2, 1), digit ? 1u : 0u) << "character " << c;
            if (digit) {
                const int value = c <= 0x3F ? c - 0x30 : (c | 0x20) - 'a' + 10;
                EXPECT_EQ(dst[0], low ? value : value << 4) << "character " << c;
            }
        }
    }
}

TEST(Ascii2Hex, EncodesUpperCaseAndRoundTripsEveryByte)
{
    unsigned char all[256];
    for (int i = 0; i < 256; ++i) {
        all[i] = static_cast<unsigned char>(i);
    }
    char text[514];
    std::memset(text, '#', sizeof text);
    ASSERT_EQ(ku_ascii2hex(all, text, 256, 513), 512);
    EXPECT_EQ(std::string(text, 6), "000102");
    EXPECT_EQ(std::string(text + 342, 6), "ABACAD");
    EXPECT_EQ(std::string(text + 506, 8), std::string("FDFEFF\0#", 8)) << "cleared up to dst_size";
    unsigned char back[256];
    ASSERT_EQ(ku_hex2ascii(text, back, 512, 256), 256u);
    EXPECT_EQ(std::memcmp(back, all, 256), 0);

    const unsigned char one[] = {0x12};
    char dst[4];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(ku_ascii2hex(one, dst, 1, 2), 2);
    EXPECT_EQ(std::string(dst, 4), "12##") << "no terminator unless dst_size is larger";
    EXPECT_EQ(ku_ascii2hex(one, dst, -1, 3), 0);
    EXPECT_EQ(std::string(dst, 4), std::string("\0\0\0#", 4));
}

TEST(A2hex, ReadsAtMostEightPositions)
{
    const std::pair<const char *, uint32_t> rows[] = {
        {"", 0},       {"FFFFFFFF", 0xFFFFFFFFu}, {"123456789", 0x12345678u}, {"aB", 0xABu},
        {"0x12345678", 0x123456u},  // "0x" uses two of the eight positions
        {"1 2", 0x12u}, {"zz", 0},  {":1", 1},  {"g1h2", 0x12u}, {"9fF0", 0x9FF0u},
    };
    for (const auto &[text, value] : rows) {
        EXPECT_EQ(ku_a2hex(text), value) << text;
    }
}

// ---- Base64 ----------------------------------------------------------------

TEST(Base64, EncodesAndDecodesTheStandardVectors)
{
    const std::pair<Bytes, std::string> rows[] = {
        {bytes_of(""), ""},           {bytes_of("f"), "Zg=="},           {bytes_of("fo"), "Zm8="},
        {bytes_of("foo"), "Zm9v"},    {bytes_of("foob"), "Zm9vYg=="},    {bytes_of("fooba"), "Zm9vYmE="},
        {bytes_of("foobar"), "Zm9vYmFy"}, {Bytes{0xFB, 0xFF}, "+/8="},   {Bytes{0xFF, 0xFE, 0x80}, "//6A"},
    };
    for (const auto &[data, text] : rows) {
        EXPECT_EQ(encode(data), text);
        int32_t n = -2;
        EXPECT_EQ(decode(text, &n), data) << text;
        EXPECT_EQ(n, static_cast<int32_t>(data.size())) << text;
    }
    char dst[2] = {'#', '#'};
    for (int32_t length : {0, -5}) {
        dst[0] = '#';
        EXPECT_EQ(ku_string_base64_encode(dst, "abc", length), 0);
        EXPECT_EQ(std::string(dst, 2), std::string("\0#", 2)) << "the terminator alone";
    }
}

TEST(Base64, EncodeMatchesOpenSslForRandomData)
{
    std::mt19937 rng(4648);
    for (int length = 0; length < 200; ++length) {
        Bytes data(static_cast<size_t>(length));
        for (auto &b : data) {
            b = static_cast<unsigned char>(rng());
        }
        std::string oracle(static_cast<size_t>(length) / 3 * 4 + 8, '\0');
        const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(oracle.data()), data.data(), length);
        oracle.resize(static_cast<size_t>(n));
        const std::string text = encode(data);
        ASSERT_EQ(text, oracle) << "length " << length;
        int32_t decoded = 0;
        ASSERT_EQ(decode(text, &decoded), data) << "length " << length;
    }
}

TEST(Base64, EncoderReadsNothingBehindSrcLen)
{
    GuardedPage guard;
    ASSERT_TRUE(guard.ok());
    for (size_t length = 0; length <= 10; ++length) {
        unsigned char *src = guard.tail(length);
        std::memset(src, 0xA5, length);
        char dst[20];
        const int32_t n = ku_string_base64_encode(dst, src, static_cast<int32_t>(length));
        EXPECT_EQ(n, static_cast<int32_t>((length + 2) / 3 * 4));
        EXPECT_EQ(dst[n], '\0');
    }
}

// One row per decoder rule: the text, the dst_size, the result and the bytes
// in dst afterwards (dst starts as 0x55; groups before a failure stay).
TEST(Base64Decode, FollowsEveryRule)
{
    struct Row {
        const char *text;
        uint32_t dst_size;
        int32_t result;
        std::string dst;  // the first dst.size() bytes afterwards
    };
    const std::string u = "\x55";
    const Row rows[] = {
        {"", 1, 0, u},
        {" \t\r\n ", 1, 0, u},
        {"", 0, 0, u},
        {" Z m\t9\r\nv Y\nm F y ", 16, 6, "foobar" + u},  // blanks anywhere
        {"Zm9vYg=\n=", 16, 4, "foob" + u},
        {"Zm9vYg==\r\n \t", 16, 4, "foob"},
        // incomplete last group
        {"Z", 16, -1, u}, {"Zm9", 16, -1, u}, {"Zm9vY", 16, -1, "foo" + u}, {"Zg=", 16, -1, u},
        {"Zm9v Zm \n", 16, -1, "foo" + u},
        // outside the alphabet
        {"Zm9v!", 16, -1, "foo"}, {"Zm-v", 16, -1, u}, {"Zm_v", 16, -1, u}, {"Zm9v\v", 16, -1, "foo"},
        {"\fZm9v", 16, -1, u}, {"\x80Zm9", 16, -1, u}, {"Zm9vYm\xff" "y", 16, -1, "foo" + u},
        // misplaced padding
        {"=AAA", 16, -1, u}, {"====", 16, -1, u}, {"A=AA", 16, -1, u}, {"A===", 16, -1, u},
        {"Zm9v=AAA", 16, -1, "foo" + u}, {"AA=A", 16, -1, u}, {"Zm9vZg=A", 16, -1, "foo" + u},
        {"AA==", 16, 1, std::string(1, '\0') + u},
        // bits under padding: 'h' is 33 (low 4 bits set), '9' is 61 (low 2 bits set)
        {"Zh==", 16, -1, u}, {"Zg==", 16, 1, "f" + u}, {"Zm9=", 16, -1, u}, {"Zm8=", 16, 2, "fo" + u},
        // data behind a padded group
        {"Zg==Zg==", 16, -1, "f" + u}, {"Zm8=Zm9v", 16, -1, "fo" + u}, {"Zg== Z", 16, -1, "f" + u},
        {"Zg===", 16, -1, "f" + u}, {"Zg== !", 16, -1, "f" + u}, {"Zg==  \n", 16, 1, "f" + u},
        // one byte of dst stays free: a group that would reach it is not written
        {"Zm9v", 3, -1, u}, {"Zm9v", 4, 3, "foo" + u}, {"Zg==", 1, -1, u}, {"Zg==", 2, 1, "f" + u},
        {"Zm8=", 2, -1, u}, {"Zm8=", 3, 2, "fo" + u}, {"Zm9v", 0, -1, u}, {"Zm 9v", 3, -1, u},
        {"Zm 9v", 4, 3, "foo" + u}, {"Zm9vYmFyYmF6", 7, -1, "foobar" + u},
        {"Zm 9vYmFyYmF6", 7, -1, "foobar" + u}, {"Zm9vYmFy!AAA", 16, -1, "foobar" + u},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << "'" << row.text << "' dst_size " << row.dst_size);
        unsigned char dst[16];
        std::memset(dst, 0x55, sizeof dst);
        EXPECT_EQ(ku_string_base64_decode(row.text, dst, row.dst_size), row.result);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(dst), row.dst.size()), row.dst);
    }
}

TEST(Base64Decode, BlanksInsideGroupsGiveTheSameBytesAsWithout)
{
    // Random data, random blanks: whatever mix of whole and broken-up groups
    // the text has, the bytes and the count are those of the plain text.
    std::mt19937 rng(76);
    for (int round = 0; round < 300; ++round) {
        Bytes data(rng() % 40);
        for (auto &b : data) {
            b = static_cast<unsigned char>(rng());
        }
        const std::string flat = encode(data);
        std::string noisy;
        for (char c : flat) {
            while (rng() % 4 == 0) {
                noisy += " \t\r\n"[rng() % 4];
            }
            noisy += c;
        }
        int32_t n = 0;
        ASSERT_EQ(decode(noisy, &n), data) << noisy;
        ASSERT_EQ(n, static_cast<int32_t>(data.size()));
    }
}

TEST(Base64Decode, WholeGroupsAndSpacedOutGroupsAgreeOnEveryInput)
{
    // A blank behind every character keeps every group from being decoded in
    // one piece: random texts, valid or not, and random limits must give the
    // same result and the same dst either way.
    std::mt19937 rng(2);
    const std::string alphabet = "AQgw/+9=!";
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (size_t n = rng() % 17; n > 0; --n) {
            text += alphabet[rng() % alphabet.size()];
        }
        std::string spaced;
        for (char c : text) {
            spaced += c;
            spaced += ' ';
        }
        const auto dst_size = static_cast<uint32_t>(rng() % 14);
        unsigned char whole[16];
        unsigned char apart[16];
        std::memset(whole, 0x55, sizeof whole);
        std::memset(apart, 0x55, sizeof apart);
        ASSERT_EQ(ku_string_base64_decode(text.c_str(), whole, dst_size),
                  ku_string_base64_decode(spaced.c_str(), apart, dst_size))
            << text << " dst_size " << dst_size;
        ASSERT_EQ(Bytes(whole, whole + 16), Bytes(apart, apart + 16)) << text << " dst_size " << dst_size;
    }
}
