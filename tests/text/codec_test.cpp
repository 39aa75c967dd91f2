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

int32_t decode_result(const std::string &text)
{
    int32_t result = 0;
    decode(text, &result);
    return result;
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

TEST(Hex2Ascii, EmptySourceClearsDstAndGivesZero)
{
    unsigned char dst[6];
    std::memset(dst, 0x55, sizeof dst);
    EXPECT_EQ(ku_hex2ascii("", dst, 0, 4), 0u);
    EXPECT_EQ(Bytes(dst, dst + 6), (Bytes{0, 0, 0, 0, 0x55, 0x55}));
}

TEST(Hex2Ascii, NothingToDoAcceptsNullAreas)
{
    EXPECT_EQ(ku_hex2ascii("", nullptr, 0, 0), 0u);
    EXPECT_EQ(ku_ascii2hex(nullptr, nullptr, 0, 0), 0);
}

TEST(Hex2Ascii, AcceptsLowerUpperAndMixedCase)
{
    unsigned char dst[4] = {};
    EXPECT_EQ(ku_hex2ascii("aBcD0f9E", dst, 8, 4), 4u);
    EXPECT_EQ(Bytes(dst, dst + 4), (Bytes{0xAB, 0xCD, 0x0F, 0x9E}));
}

TEST(Hex2Ascii, SixPunctuationCharactersAreDigitsTenToFifteen)
{
    unsigned char dst[3] = {};
    EXPECT_EQ(ku_hex2ascii(":?;<=>", dst, 6, 3), 3u);
    EXPECT_EQ(Bytes(dst, dst + 3), (Bytes{0xAF, 0xBC, 0xDE}));
}

TEST(Hex2Ascii, ExactlyTheDocumentedCharactersAreDigits)
{
    // Each byte value as the high digit of "x0": 22 + 6 of them decode.
    for (int c = 0; c < 256; ++c) {
        const char pair[2] = {static_cast<char>(c), '0'};
        unsigned char dst[1] = {};
        const uint32_t n = ku_hex2ascii(pair, dst, 2, 1);
        const bool digit = (c >= 0x30 && c <= 0x3F) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        EXPECT_EQ(n, digit ? 1u : 0u) << "character " << c;
        if (digit) {
            const int value = c <= 0x3F ? c - 0x30 : (c | 0x20) - 'a' + 10;
            EXPECT_EQ(dst[0], value << 4) << "character " << c;
        }
    }
}

TEST(Hex2Ascii, InvalidThirdPairKeepsEarlierBytesAndClearsTheRest)
{
    for (const char *src : {"0102g3", "0102 3", "01020g", "0102G0", "0102@0"}) {
        unsigned char dst[6];
        std::memset(dst, 0x55, sizeof dst);
        EXPECT_EQ(ku_hex2ascii(src, dst, 6, 6), 0u) << src;
        EXPECT_EQ(Bytes(dst, dst + 6), (Bytes{0x01, 0x02, 0, 0, 0, 0})) << src;
    }
}

TEST(Hex2Ascii, DstSizeClearsButDoesNotLimit)
{
    unsigned char dst[8];
    std::memset(dst, 0x55, sizeof dst);
    EXPECT_EQ(ku_hex2ascii("A1B2C3", dst, 6, 1), 3u);
    EXPECT_EQ(Bytes(dst, dst + 5), (Bytes{0xA1, 0xB2, 0xC3, 0x55, 0x55}));
}

TEST(Hex2Ascii, OddLengthReadsTheByteBehindAsLowDigit)
{
    unsigned char dst[2] = {};
    // Terminated text: the terminator is the low digit and fails the pair.
    EXPECT_EQ(ku_hex2ascii("ABC", dst, 3, 2), 0u);
    EXPECT_EQ(dst[0], 0xAB);
    // A digit behind src_len is used.
    EXPECT_EQ(ku_hex2ascii("ABCD", dst, 3, 2), 2u);
    EXPECT_EQ(Bytes(dst, dst + 2), (Bytes{0xAB, 0xCD}));
}

TEST(Hex2Ascii, NulInsideTheSourceIsAnInvalidDigit)
{
    unsigned char dst[2] = {};
    EXPECT_EQ(ku_hex2ascii(std::string("00\0" "0", 4).data(), dst, 4, 2), 0u);
}

TEST(Ascii2Hex, UpperCaseHighHalfFirst)
{
    const unsigned char src[] = {0x00, 0xAB};
    char dst[5];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(ku_ascii2hex(src, dst, 2, 5), 4);
    EXPECT_STREQ(dst, "00AB");
}

TEST(Ascii2Hex, AllByteValuesRoundTrip)
{
    unsigned char all[256];
    for (int i = 0; i < 256; ++i) {
        all[i] = static_cast<unsigned char>(i);
    }
    char text[513];
    ASSERT_EQ(ku_ascii2hex(all, text, 256, sizeof text), 512);
    EXPECT_EQ(std::string(text, 6), "000102");
    EXPECT_EQ(std::string(text + 506, 6), "FDFEFF");
    EXPECT_EQ(text[512], '\0');
    unsigned char back[256];
    ASSERT_EQ(ku_hex2ascii(text, back, 512, 256), 256u);
    EXPECT_EQ(std::memcmp(back, all, 256), 0);
}

TEST(Ascii2Hex, NoTerminatorUnlessDstSizeIsLarger)
{
    const unsigned char src[] = {0x12};
    char dst[4];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(ku_ascii2hex(src, dst, 1, 2), 2);
    EXPECT_EQ(std::string(dst, 4), "12##");
}

TEST(Ascii2Hex, NegativeLengthClearsAndGivesZero)
{
    const unsigned char src[] = {0x12};
    char dst[4];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(ku_ascii2hex(src, dst, -1, 3), 0);
    EXPECT_EQ(std::string(dst, 4), std::string("\0\0\0#", 4));
}

TEST(A2hex, ReadsAtMostEightPositions)
{
    EXPECT_EQ(ku_a2hex(""), 0u);
    EXPECT_EQ(ku_a2hex("FFFFFFFF"), 4294967295u);
    EXPECT_EQ(ku_a2hex("123456789"), 0x12345678u);
    EXPECT_EQ(ku_a2hex("ff"), 0xFFu);
    EXPECT_EQ(ku_a2hex("aB"), 0xABu);
}

TEST(A2hex, NonDigitsAreSkippedButUseAPosition)
{
    // "0x" uses two of the eight positions: six digits remain.
    EXPECT_EQ(ku_a2hex("0x12345678"), 0x123456u);
    EXPECT_EQ(ku_a2hex("1 2"), 0x12u);
    EXPECT_EQ(ku_a2hex("zz"), 0u);
    // The punctuation digits of ku_hex2ascii are not digits here.
    EXPECT_EQ(ku_a2hex(":1"), 1u);
    EXPECT_EQ(ku_a2hex("g1h2"), 0x12u);
}

// ---- Base64 ----------------------------------------------------------------

struct Rfc4648Vector {
    const char *data;
    const char *text;
};

constexpr Rfc4648Vector kRfc4648[] = {
    {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},        {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
};

TEST(Base64, Rfc4648VectorsEncode)
{
    for (const auto &v : kRfc4648) {
        EXPECT_EQ(encode(bytes_of(v.data)), v.text) << v.data;
    }
}

TEST(Base64, Rfc4648VectorsDecode)
{
    for (const auto &v : kRfc4648) {
        int32_t n = -2;
        EXPECT_EQ(decode(v.text, &n), bytes_of(v.data)) << v.text;
        EXPECT_EQ(n, static_cast<int32_t>(std::strlen(v.data))) << v.text;
    }
}

TEST(Base64, HighBytesEncodeAsTheStandardAndDecodeBack)
{
    EXPECT_EQ(encode(Bytes{0xFB, 0xFF}), "+/8=");
    EXPECT_EQ(encode(Bytes{0xFF, 0xFE, 0x80}), "//6A");
    Bytes high;
    for (int i = 0x80; i < 0x100; ++i) {
        high.push_back(static_cast<unsigned char>(i));
    }
    const std::string text = encode(high);
    EXPECT_EQ(text.substr(0, 8), "gIGCg4SF");
    EXPECT_EQ(text.substr(text.size() - 8), "+/z9/v8=");
    int32_t n = 0;
    EXPECT_EQ(decode(text, &n), high);
    EXPECT_EQ(n, 128);
}

TEST(Base64, EncodeOfNothingWritesTheTerminatorAlone)
{
    char dst[2] = {'#', '#'};
    EXPECT_EQ(ku_string_base64_encode(dst, "abc", 0), 0);
    EXPECT_EQ(dst[0], '\0');
    dst[0] = '#';
    EXPECT_EQ(ku_string_base64_encode(dst, "abc", -5), 0);
    EXPECT_EQ(dst[0], '\0');
    EXPECT_EQ(dst[1], '#');
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
    // The same with an exact heap block for ASan.
    for (size_t length = 1; length <= 10; ++length) {
        Bytes exact(length, 0x5A);
        char dst[20];
        EXPECT_GT(ku_string_base64_encode(dst, exact.data(), static_cast<int32_t>(length)), 0);
    }
}

TEST(Base64Decode, EmptyAndBlankTextsGiveZero)
{
    unsigned char dst[1];
    EXPECT_EQ(ku_string_base64_decode("", dst, 1), 0);
    EXPECT_EQ(ku_string_base64_decode(" \t\r\n ", dst, 1), 0);
    EXPECT_EQ(ku_string_base64_decode("", dst, 0), 0);
}

TEST(Base64Decode, BlanksAreSkippedAnywhere)
{
    int32_t n = 0;
    EXPECT_EQ(decode(" Z m\t9\r\nv Y\nm F y ", &n), bytes_of("foobar"));
    EXPECT_EQ(decode("Zm9vYg=\n=", &n), bytes_of("foob"));
    EXPECT_EQ(decode("Zm9vYg==\r\n \t", &n), bytes_of("foob"));
    EXPECT_EQ(n, 4);
}

TEST(Base64Decode, FoldedText)
{
    Bytes data(200);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<unsigned char>(i * 7 + 3);
    }
    const std::string flat = encode(data);
    for (size_t width : {76u, 64u, 5u, 1u}) {
        std::string folded;
        for (size_t pos = 0; pos < flat.size(); pos += width) {
            folded += flat.substr(pos, width) + "\r\n";
        }
        int32_t n = 0;
        EXPECT_EQ(decode(folded, &n), data) << "width " << width;
        EXPECT_EQ(n, 200);
    }
}

TEST(Base64Decode, IncompleteLastGroupFails)
{
    EXPECT_EQ(decode_result("Z"), -1);
    EXPECT_EQ(decode_result("Zm9"), -1);
    EXPECT_EQ(decode_result("Zm9vY"), -1);
    EXPECT_EQ(decode_result("Zm9vYmF"), -1);
    EXPECT_EQ(decode_result("Zg="), -1);
    EXPECT_EQ(decode_result("Zm9v Zm \n"), -1);
}

TEST(Base64Decode, CharacterOutsideTheAlphabetFails)
{
    for (const char *text : {"Zm9v!", "Zm-v", "Zm_v", "Zm9v\v", "\fZm9v", "Zm9v.Zm9v", "\x80Zm9",
                             "Zm9vYm\xff" "y"}) {
        EXPECT_EQ(decode_result(text), -1) << text;
    }
}

TEST(Base64Decode, PaddingAsFirstOrSecondSymbolFails)
{
    EXPECT_EQ(decode_result("=AAA"), -1);
    EXPECT_EQ(decode_result("===="), -1);
    EXPECT_EQ(decode_result("A=AA"), -1);
    EXPECT_EQ(decode_result("A==="), -1);
    EXPECT_EQ(decode_result("Zm9v=AAA"), -1);
}

TEST(Base64Decode, ThirdSymbolPaddingNeedsFourthPadding)
{
    EXPECT_EQ(decode_result("AA=A"), -1);
    EXPECT_EQ(decode_result("Zm9vZg=A"), -1);
    EXPECT_EQ(decode_result("AA=="), 1);
}

TEST(Base64Decode, PaddingBehindNonZeroBitsFails)
{
    // 'h' is 33: low 4 bits not 0 under two '='.
    EXPECT_EQ(decode_result("Zh=="), -1);
    EXPECT_EQ(decode_result("Zg=="), 1);
    // '9' is 61: low 2 bits not 0 under one '='.
    EXPECT_EQ(decode_result("Zm9="), -1);
    EXPECT_EQ(decode_result("Zm8="), 2);
}

TEST(Base64Decode, AnythingButBlanksBehindAPaddedGroupFails)
{
    EXPECT_EQ(decode_result("Zg==Zg=="), -1);
    EXPECT_EQ(decode_result("Zm8=Zm9v"), -1);
    EXPECT_EQ(decode_result("Zg== Z"), -1);
    EXPECT_EQ(decode_result("Zg==="), -1);
    EXPECT_EQ(decode_result("Zg== !"), -1);
    EXPECT_EQ(decode_result("Zg==  \n"), 1);
}

TEST(Base64Decode, OneByteOfDstAlwaysStaysFree)
{
    unsigned char dst[8];
    std::memset(dst, 0x55, sizeof dst);
    EXPECT_EQ(ku_string_base64_decode("Zm9v", dst, 3), -1);
    EXPECT_EQ(dst[0], 0x55) << "a group that does not fit is not written";
    EXPECT_EQ(ku_string_base64_decode("Zm9v", dst, 4), 3);
    EXPECT_EQ(dst[3], 0x55) << "no terminator";
    EXPECT_EQ(ku_string_base64_decode("Zg==", dst, 1), -1);
    EXPECT_EQ(ku_string_base64_decode("Zg==", dst, 2), 1);
    EXPECT_EQ(ku_string_base64_decode("Zm8=", dst, 2), -1);
    EXPECT_EQ(ku_string_base64_decode("Zm8=", dst, 3), 2);
    EXPECT_EQ(ku_string_base64_decode("Zm9v", dst, 0), -1);
    // The same limit when the group is broken up by blanks.
    EXPECT_EQ(ku_string_base64_decode("Zm 9v", dst, 3), -1);
    EXPECT_EQ(ku_string_base64_decode("Zm 9v", dst, 4), 3);
}

TEST(Base64Decode, GroupsBeforeAFailureStayInDst)
{
    unsigned char dst[16];
    std::memset(dst, 0x55, sizeof dst);
    EXPECT_EQ(ku_string_base64_decode("Zm9vYmFy!AAA", dst, sizeof dst), -1);
    EXPECT_EQ(Bytes(dst, dst + 7), (Bytes{'f', 'o', 'o', 'b', 'a', 'r', 0x55}));
    std::memset(dst, 0x55, sizeof dst);
    // With dst_size 7 the groups ending at 3 and 6 fit, the one ending at 9
    // fails and is not written.
    EXPECT_EQ(ku_string_base64_decode("Zm9vYmFyYmF6", dst, 7), -1);
    EXPECT_EQ(Bytes(dst, dst + 7), (Bytes{'f', 'o', 'o', 'b', 'a', 'r', 0x55}));
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
