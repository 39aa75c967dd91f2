// Triple DES against OpenSSL's EVP des-ede3-ecb, the default key, the output
// sizes of both directions, in-place use and allocation failure.
#define OPENSSL_SUPPRESS_DEPRECATED 1  // DES_set_key_unchecked, to know the schedules

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <openssl/crypto.h>
#include <openssl/des.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ku/codec.h"
#include "ku/des.h"
#include "support/alloc_control.h"

using ku_test::AllocControl;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kSentinel = 0xA5;

// Three different keys, K3 != K1.
constexpr unsigned char kKey[24] = {
    0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFE, 0xDC, 0xBA, 0x98,
    0x76, 0x54, 0x32, 0x10, 0x89, 0xAB, 0xCD, 0xEF, 0x01, 0x23, 0x45, 0x67,
};

std::string hex(const Bytes &bytes)
{
    std::string text(2 * bytes.size() + 1, '\0');
    ku_ascii2hex(bytes.data(), text.data(), static_cast<int32_t>(bytes.size()), 0);
    text.resize(2 * bytes.size());
    return text;
}

Bytes random_bytes(std::mt19937 &rng, size_t size)
{
    Bytes bytes(size);
    for (auto &b : bytes) {
        b = static_cast<unsigned char>(rng());
    }
    return bytes;
}

// EVP des-ede3-ecb without padding over whole blocks.
Bytes evp(const unsigned char *key, const Bytes &in, bool encrypt)
{
    Bytes out(in.size() + 8);
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    int n = 0;
    int tail = 0;
    const bool ok = ctx != nullptr &&
                    EVP_CipherInit_ex(ctx, EVP_des_ede3_ecb(), nullptr, key, nullptr, encrypt ? 1 : 0) == 1 &&
                    EVP_CIPHER_CTX_set_padding(ctx, 0) == 1 &&
                    EVP_CipherUpdate(ctx, out.data(), &n, in.data(), static_cast<int>(in.size())) == 1 &&
                    EVP_CipherFinal_ex(ctx, out.data() + n, &tail) == 1;
    EVP_CIPHER_CTX_free(ctx);
    EXPECT_TRUE(ok) << "EVP des-ede3-ecb failed";
    out.resize(static_cast<size_t>(n + tail));
    return out;
}

// Runs the codec into an area with sentinels and returns every byte it wrote,
// so that a write of the wrong size shows.
Bytes encode3(const unsigned char *key, const Bytes &in)
{
    Bytes out(in.size() + 32, kSentinel);
    ku_des_encode3(key, in.data(), static_cast<int32_t>(in.size()), out.data());
    while (!out.empty() && out.back() == kSentinel && out.size() > (in.size() / 8 + 1) * 8) {
        out.pop_back();
    }
    return out;
}

Bytes decode3(const unsigned char *key, const Bytes &in)
{
    Bytes out(in.size() + 32, kSentinel);
    ku_des_decode3(key, in.data(), static_cast<int32_t>(in.size()), out.data());
    while (!out.empty() && out.back() == kSentinel && out.size() > in.size() / 8 * 8) {
        out.pop_back();
    }
    return out;
}

Bytes with_zeros(Bytes bytes, size_t total)
{
    bytes.resize(total, 0);
    return bytes;
}

// Restores KEY_ENC when a test has changed it.
struct SavedDefaultKey {
    SavedDefaultKey() { std::memcpy(saved, KEY_ENC, sizeof saved); }
    ~SavedDefaultKey() { std::memcpy(KEY_ENC, saved, sizeof saved); }
    unsigned char saved[24];
};

}  // namespace

TEST(DefaultKey, HoldsK1K2K1)
{
    EXPECT_EQ(hex(Bytes(KEY_ENC, KEY_ENC + 24)), "3CA957E106D48B72912EF04D68B71AC53CA957E106D48B72");
}

TEST(DefaultKey, FixedVectors)
{
    // Computed with `openssl enc -des-ede3 -K <KEY_ENC> -nopad`.
    EXPECT_EQ(hex(encode3(nullptr, Bytes{})), "906FB9C70249AA28");
    const std::string text = "libku 3des text";
    EXPECT_EQ(hex(encode3(nullptr, Bytes(text.begin(), text.end()))), "80D3B0A66368F63CD5931C3669A9DEE4");
}

TEST(DefaultKey, NullKeyEqualsACopyOfTheDefault)
{
    unsigned char copy[24];
    std::memcpy(copy, KEY_ENC, sizeof copy);
    const Bytes plain = {'s', 'e', 'c', 'r', 'e', 't', ' ', 'v', 'a', 'l', 'u', 'e'};
    EXPECT_EQ(encode3(nullptr, plain), encode3(copy, plain));
    const Bytes cipher = encode3(copy, plain);
    EXPECT_EQ(decode3(nullptr, cipher), decode3(copy, cipher));
}

TEST(DefaultKey, ChangeTakesEffectAtTheNextCall)
{
    SavedDefaultKey restore;
    const Bytes plain = {1, 2, 3};
    const Bytes before = encode3(nullptr, plain);
    std::memcpy(KEY_ENC, kKey, 24);
    const Bytes after = encode3(nullptr, plain);
    EXPECT_NE(after, before);
    EXPECT_EQ(after, encode3(kKey, plain));
    EXPECT_EQ(decode3(nullptr, after), with_zeros(plain, 8));
}

TEST(TripleDes, MatchesEvpForRandomKeysAndLengths)
{
    std::mt19937 rng(3);
    for (size_t len = 0; len <= 64; ++len) {
        for (int round = 0; round < 4; ++round) {
            const Bytes key = random_bytes(rng, 24);
            const Bytes plain = random_bytes(rng, len);
            const Bytes cipher = encode3(key.data(), plain);
            ASSERT_EQ(cipher, evp(key.data(), with_zeros(plain, (len / 8 + 1) * 8), true)) << "len " << len;

            // Decoding random bytes of any length: only the whole blocks.
            const Bytes other = random_bytes(rng, len);
            ASSERT_EQ(decode3(key.data(), other), evp(key.data(), Bytes(other.begin(), other.begin() + len / 8 * 8), false))
                << "len " << len;
        }
    }
}

TEST(TripleDes, RoundTripAddsOneToEightZeros)
{
    std::mt19937 rng(8);
    for (size_t len = 0; len <= 24; ++len) {
        const Bytes plain = random_bytes(rng, len);
        const Bytes back = decode3(kKey, encode3(kKey, plain));
        const size_t zeros = 8 - len % 8;
        EXPECT_EQ(back, with_zeros(plain, len + zeros)) << "len " << len;
    }
}

TEST(TripleDes, EncodedSizeIsWholeBlocksPlusOne)
{
    EXPECT_EQ(encode3(kKey, Bytes{}).size(), 8u);
    EXPECT_EQ(encode3(kKey, Bytes(7, 'x')).size(), 8u);
    EXPECT_EQ(encode3(kKey, Bytes(13, 'x')).size(), 16u);
    const Bytes eight = encode3(kKey, Bytes(8, 'x'));
    ASSERT_EQ(eight.size(), 16u);
    // The extra block is the encryption of eight zero bytes.
    EXPECT_EQ(Bytes(eight.begin() + 8, eight.end()), encode3(kKey, Bytes{}));
}

TEST(TripleDes, DecodeIgnoresTheTail)
{
    EXPECT_TRUE(decode3(kKey, Bytes{}).empty());
    EXPECT_TRUE(decode3(kKey, Bytes(7, 'x')).empty());
    std::mt19937 rng(20);
    const Bytes cipher = random_bytes(rng, 20);
    const Bytes plain = decode3(kKey, cipher);
    ASSERT_EQ(plain.size(), 16u);
    EXPECT_EQ(plain, decode3(kKey, Bytes(cipher.begin(), cipher.begin() + 16)));
}

TEST(TripleDes, EqualPlainBlocksGiveEqualCipherBlocks)
{
    const Bytes plain = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'};
    const Bytes cipher = encode3(kKey, plain);
    ASSERT_EQ(cipher.size(), 24u);
    EXPECT_EQ(Bytes(cipher.begin(), cipher.begin() + 8), Bytes(cipher.begin() + 8, cipher.begin() + 16));
}

TEST(TripleDes, InPlaceGivesTheSameAsSeparateAreas)
{
    std::mt19937 rng(5);
    for (size_t len : {0u, 5u, 8u, 21u, 64u}) {
        const Bytes plain = random_bytes(rng, len);
        Bytes area = with_zeros(plain, (len / 8 + 1) * 8);
        ku_des_encode3(kKey, area.data(), static_cast<int32_t>(len), area.data());
        const Bytes expected = encode3(kKey, plain);
        EXPECT_EQ(area, expected) << "len " << len;
        ku_des_decode3(kKey, area.data(), static_cast<int32_t>(area.size()), area.data());
        EXPECT_EQ(area, decode3(kKey, expected)) << "len " << len;
    }
}

TEST(TripleDes, FailedAllocationLeavesOutUnchanged)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const Bytes plain(16, 'p');
    // Either of the two work areas failing, in each direction.
    for (auto *codec : {&ku_des_encode3, &ku_des_decode3}) {
        for (long skip : {0L, 1L}) {
            Bytes out(24, kSentinel);
            AllocControl alloc;
            alloc.fail(ku_test::kAnyAlloc, skip);
            codec(kKey, plain.data(), 16, out.data());
            alloc.allow();
            EXPECT_EQ(out, Bytes(24, kSentinel)) << "skip " << skip;
        }
    }
}

// OPENSSL_cleanse is defined here, so the library's calls land in this
// executable: each wiped region is recorded as it was before the wipe.
std::vector<std::string> *wiped = nullptr;

extern "C" void OPENSSL_cleanse(void *ptr, size_t len)
{
    if (wiped != nullptr) {
        wiped->emplace_back(static_cast<const char *>(ptr), len);
    }
    reinterpret_cast<void (*)(void *, size_t)>(dlsym(RTLD_NEXT, "OPENSSL_cleanse"))(ptr, len);
}

// Plaintext copies, key blocks and key schedules are wiped before their
// memory goes back to the allocator or the stack, in both directions.
TEST(TripleDes, PlaintextAndKeyMaterialAreWipedBeforeRelease)
{
    const std::string plain = "attack at dawn!";  // 15 bytes: one zero pads the block
    std::vector<std::string> secrets = {plain};
    for (int i = 0; i < 3; ++i) {
        DES_cblock block;
        std::memcpy(block, kKey + 8 * i, 8);
        DES_key_schedule schedule;
        DES_set_key_unchecked(&block, &schedule);
        secrets.emplace_back(reinterpret_cast<const char *>(kKey + 8 * i), 8);
        secrets.emplace_back(reinterpret_cast<const char *>(&schedule), sizeof schedule);
    }
    const Bytes cipher = encode3(kKey, Bytes(plain.begin(), plain.end()));
    for (auto *codec : {&ku_des_encode3, &ku_des_decode3}) {
        const bool encoding = codec == &ku_des_encode3;
        Bytes out(16);
        std::vector<std::string> log;
        wiped = &log;
        codec(kKey, encoding ? plain.data() : static_cast<const void *>(cipher.data()),
              static_cast<int32_t>(encoding ? plain.size() : cipher.size()), out.data());
        wiped = nullptr;
        for (const std::string &secret : secrets) {
            EXPECT_TRUE(std::any_of(log.begin(), log.end(),
                                    [&](const std::string &region) { return region.find(secret) != std::string::npos; }))
                << (encoding ? "encode: " : "decode: ") << "not wiped: " << hex(Bytes(secret.begin(), secret.end()));
        }
    }
}

TEST(TripleDes, ConcurrentCallsGiveTheSameResults)
{
    std::mt19937 rng(9);
    const Bytes plain = random_bytes(rng, 100);
    const Bytes expected = encode3(nullptr, plain);
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (size_t t = 0; t < mismatches.size(); ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                Bytes out(expected.size());
                ku_des_encode3(nullptr, plain.data(), 100, out.data());
                mismatches[t] += out != expected ? 1 : 0;
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}
