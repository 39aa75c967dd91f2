// Triple DES of 1 MiB against OpenSSL's EVP des-ede3-ecb, and the cost of one
// short (16-byte) call. The ku codec builds three key schedules and two heap
// areas on every call by contract; the EVP side sets its key once per
// iteration too, with its context made once outside the loop.
#include <benchmark/benchmark.h>

#include <openssl/evp.h>

#include <vector>

#include "ku/des.h"

namespace {

constexpr int kMiB = 1 << 20;

constexpr unsigned char kKey[24] = {
    0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFE, 0xDC, 0xBA, 0x98,
    0x76, 0x54, 0x32, 0x10, 0x89, 0xAB, 0xCD, 0xEF, 0x01, 0x23, 0x45, 0x67,
};

// EVP without padding over `len` bytes (a multiple of 8) in one update.
bool evp_run(EVP_CIPHER_CTX *ctx, const unsigned char *in, int len, unsigned char *out, int encrypt)
{
    int n = 0;
    int tail = 0;
    return EVP_CipherInit_ex(ctx, EVP_des_ede3_ecb(), nullptr, kKey, nullptr, encrypt) == 1 &&
           EVP_CIPHER_CTX_set_padding(ctx, 0) == 1 && EVP_CipherUpdate(ctx, out, &n, in, len) == 1 &&
           EVP_CipherFinal_ex(ctx, out + n, &tail) == 1;
}

// The ku codec over 1 MiB; `encrypt` picks the direction.
void BM_des_1MiB_ku(benchmark::State &state, bool encrypt)
{
    std::vector<unsigned char> in(kMiB, 0x5A);
    std::vector<unsigned char> out(kMiB + 8);
    for (auto _ : state) {
        (encrypt ? ku_des_encode3 : ku_des_decode3)(kKey, in.data(), kMiB, out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK_CAPTURE(BM_des_1MiB_ku, encode, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_des_1MiB_ku, decode, false)->Unit(benchmark::kMillisecond);

// EVP over `size` bytes, key set per iteration on a reused context.
void BM_des_evp(benchmark::State &state, int size, int encrypt)
{
    std::vector<unsigned char> in(static_cast<size_t>(size), 0x5A);
    std::vector<unsigned char> out(static_cast<size_t>(size) + 8);
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    for (auto _ : state) {
        if (!evp_run(ctx, in.data(), size, out.data(), encrypt)) {
            state.SkipWithError("EVP failed");
        }
        benchmark::ClobberMemory();
    }
    EVP_CIPHER_CTX_free(ctx);
    state.SetBytesProcessed(state.iterations() * size);
}
BENCHMARK_CAPTURE(BM_des_evp, encode_1MiB, kMiB, 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_des_evp, decode_1MiB, kMiB, 0)->Unit(benchmark::kMillisecond);

// One 16-byte plaintext, as applications encrypt short tokens, with the
// default key: encoding writes 24 bytes (two data blocks and the zero block).
void BM_des_16B_ku(benchmark::State &state, bool encrypt)
{
    unsigned char in[16] = "short token 123";
    unsigned char out[24];
    for (auto _ : state) {
        (encrypt ? ku_des_encode3 : ku_des_decode3)(nullptr, in, 16, out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(BM_des_16B_ku, encode, true);
BENCHMARK_CAPTURE(BM_des_16B_ku, decode, false);
BENCHMARK_CAPTURE(BM_des_evp, encode_16B, 16, 1);

}  // namespace

BENCHMARK_MAIN();
