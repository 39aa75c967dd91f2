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

void BM_des_encode_1MiB_ku(benchmark::State &state)
{
    std::vector<unsigned char> in(kMiB, 0x5A);
    std::vector<unsigned char> out(kMiB + 8);
    for (auto _ : state) {
        ku_des_encode3(kKey, in.data(), kMiB, out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_des_encode_1MiB_ku)->Unit(benchmark::kMillisecond);

void BM_des_encode_1MiB_evp(benchmark::State &state)
{
    std::vector<unsigned char> in(kMiB, 0x5A);
    std::vector<unsigned char> out(kMiB + 8);
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    for (auto _ : state) {
        if (!evp_run(ctx, in.data(), kMiB, out.data(), 1)) {
            state.SkipWithError("EVP failed");
        }
        benchmark::ClobberMemory();
    }
    EVP_CIPHER_CTX_free(ctx);
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_des_encode_1MiB_evp)->Unit(benchmark::kMillisecond);

void BM_des_decode_1MiB_ku(benchmark::State &state)
{
    std::vector<unsigned char> in(kMiB, 0x5A);
    std::vector<unsigned char> out(kMiB);
    for (auto _ : state) {
        ku_des_decode3(kKey, in.data(), kMiB, out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_des_decode_1MiB_ku)->Unit(benchmark::kMillisecond);

void BM_des_decode_1MiB_evp(benchmark::State &state)
{
    std::vector<unsigned char> in(kMiB, 0x5A);
    std::vector<unsigned char> out(kMiB + 8);
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    for (auto _ : state) {
        if (!evp_run(ctx, in.data(), kMiB, out.data(), 0)) {
            state.SkipWithError("EVP failed");
        }
        benchmark::ClobberMemory();
    }
    EVP_CIPHER_CTX_free(ctx);
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_des_decode_1MiB_evp)->Unit(benchmark::kMillisecond);

// One 16-byte plaintext, as applications encrypt short tokens: the ku call
// writes 24 bytes (two data blocks and the zero block).
void BM_des_encode_16B_ku(benchmark::State &state)
{
    unsigned char in[16] = "short token 123";
    unsigned char out[24];
    for (auto _ : state) {
        ku_des_encode3(nullptr, in, 16, out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_des_encode_16B_ku);

void BM_des_decode_16B_ku(benchmark::State &state)
{
    unsigned char in[16] = "short token 123";
    unsigned char out[16];
    for (auto _ : state) {
        ku_des_decode3(nullptr, in, 16, out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_des_decode_16B_ku);

// The same 16 bytes through EVP, key set per call on a reused context.
void BM_des_encode_16B_evp(benchmark::State &state)
{
    unsigned char in[16] = "short token 123";
    unsigned char out[24];
    EVP_CIPHER_CTX *ctx = EVP_CIPHER_CTX_new();
    for (auto _ : state) {
        if (!evp_run(ctx, in, 16, out, 1)) {
            state.SkipWithError("EVP failed");
        }
        benchmark::ClobberMemory();
    }
    EVP_CIPHER_CTX_free(ctx);
}
BENCHMARK(BM_des_encode_16B_evp);

}  // namespace

BENCHMARK_MAIN();
