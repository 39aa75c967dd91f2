// Triple DES against OpenSSL's EVP des-ede3-ecb; the default key, bad lengths, no memory.
#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "ku/des.h"
#include "support/alloc_control.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Codec = void (*)(const unsigned char *, const void *, int32_t, void *);

// EVP des-ede3-ecb without padding over `in` cut or zero-padded to `size`.
Bytes evp(const Bytes &key, Bytes in, size_t size, int encrypt)
{
    in.resize(size, 0);
    Bytes out(size + 8);
    int n = 0;
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    EXPECT_TRUE(EVP_CipherInit_ex(ctx, EVP_des_ede3_ecb(), nullptr, key.data(), nullptr, encrypt) &&
                EVP_CIPHER_CTX_set_padding(ctx, 0) &&
                EVP_CipherUpdate(ctx, out.data(), &n, in.data(), int(size)));
    EVP_CIPHER_CTX_free(ctx);
    out.resize(size_t(n));
    return out;
}

// Runs a codec into an area of 0xA5 and in place; returns the first `size`
// bytes, checking that both agree and that nothing behind them was written.
Bytes run(Codec codec, const unsigned char *key, const Bytes &in, size_t size)
{
    Bytes out(in.size() + 16, 0xA5), area = in;
    area.resize(out.size());
    codec(key, in.data(), int32_t(in.size()), out.data());
    codec(key, area.data(), int32_t(in.size()), area.data());
    EXPECT_EQ(Bytes(out.begin() + long(size), out.end()), Bytes(out.size() - size, 0xA5)) << size;
    out.resize(size);
    area.resize(size);
    EXPECT_EQ(area, out) << "in place, " << size;
    return out;
}

}  // namespace

// Plaintext is wiped before its work area is freed: the library's calls land here.
int wiped_plaintexts = 0;

extern "C" void OPENSSL_cleanse(void *ptr, size_t len)
{
    wiped_plaintexts += len == 8 && std::memcmp(ptr, "key\0\0\0\0\0", 8) == 0;
    std::memset(ptr, 0, len);
}

// Three different keys (K3 != K1), every length up to five blocks: encoding
// adds a block of zero bytes to the whole ones, decoding drops a tail. A null
// key stands for KEY_ENC, which is K1 K2 K1. Each area that held plaintext is wiped.
TEST(TripleDes, MatchesEvpForEveryLengthAndKeyAndWipesPlaintext)
{
    const Bytes stored = {0x3c, 0xa9, 0x57, 0xe1, 0x06, 0xd4, 0x8b, 0x72, 0x91, 0x2e, 0xf0, 0x4d,
                          0x68, 0xb7, 0x1a, 0xc5, 0x3c, 0xa9, 0x57, 0xe1, 0x06, 0xd4, 0x8b, 0x72};
    ASSERT_EQ(Bytes(KEY_ENC, KEY_ENC + 24), stored);
    const Bytes plain = {'k', 'e', 'y'}, cipher = evp(stored, plain, 8, 1);
    EXPECT_EQ(run(ku_des_encode3, nullptr, plain, 8), cipher);
    EXPECT_EQ(run(ku_des_decode3, nullptr, cipher, 8), Bytes({'k', 'e', 'y', 0, 0, 0, 0, 0}));
    EXPECT_EQ(wiped_plaintexts, 4) << "once per direction, in place and not";
    std::independent_bits_engine<std::mt19937, 8, unsigned> rng(3);
    for (size_t len = 0; len <= 40; ++len) {
        Bytes key(24), in(len);
        std::generate(key.begin(), key.end(), std::ref(rng));
        std::generate(in.begin(), in.end(), std::ref(rng));
        const size_t whole = len / 8 * 8, padded = whole + 8;
        EXPECT_EQ(run(ku_des_encode3, key.data(), in, padded), evp(key, in, padded, 1)) << len;
        EXPECT_EQ(run(ku_des_decode3, key.data(), in, whole), evp(key, in, whole, 0)) << len;
    }
}

// Either work area refused, or a negative length, which is refused before any
// memory is asked for (as a size it would be some 4 GiB): out stays as it was.
TEST(TripleDes, NegativeLengthOrNoMemoryWritesNothing)
{
    KU_REQUIRE_ALLOC_CONTROL();
    const Bytes in(16, 'n');
    const std::pair<int32_t, long> rows[] = {{-1, 0}, {-8, 0}, {INT32_MIN, 0}, {16, 0}, {16, 1}};
    for (Codec codec : {ku_des_encode3, ku_des_decode3}) {
        for (const auto &[len, skip] : rows) {
            Bytes out(24, 0xA5);
            ku_test::AllocControl alloc;
            alloc.fail(ku_test::kAnyAlloc, skip);
            codec(nullptr, in.data(), len, out.data());
            alloc.allow();
            EXPECT_EQ(alloc.last_failed() != 0, len > 0) << "memory asked for, len " << len;
            EXPECT_EQ(out, Bytes(24, 0xA5)) << len << " " << skip;
        }
    }
}
