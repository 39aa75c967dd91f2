// Base64 of 1 MiB against OpenSSL's EVP_EncodeBlock / EVP_DecodeBlock, and hex
// of 1 MiB against the plain snprintf("%02X") loop and its strtoul
// counterpart. Throughput is reported as bytes/second of
// raw data in both directions.
#include <benchmark/benchmark.h>

#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "ku/codec.h"

namespace {

constexpr int kMiB = 1 << 20;

std::vector<unsigned char> random_bytes(size_t size)
{
    std::vector<unsigned char> data(size);
    std::mt19937 rng(1);
    for (auto &b : data) {
        b = static_cast<unsigned char>(rng());
    }
    return data;
}

std::vector<char> base64_text(const std::vector<unsigned char> &data)
{
    std::vector<char> text((data.size() + 2) / 3 * 4 + 1);
    ku_string_base64_encode(text.data(), data.data(), static_cast<int32_t>(data.size()));
    return text;
}

void BM_base64_encode_ku(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<char> text((kMiB + 2) / 3 * 4 + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ku_string_base64_encode(text.data(), data.data(), kMiB));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_base64_encode_ku);

void BM_base64_encode_openssl(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<unsigned char> text((kMiB + 2) / 3 * 4 + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(EVP_EncodeBlock(text.data(), data.data(), kMiB));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_base64_encode_openssl);

void BM_base64_decode_ku(benchmark::State &state)
{
    const auto text = base64_text(random_bytes(kMiB));
    std::vector<unsigned char> data(kMiB + 4);
    for (auto _ : state) {
        const int32_t n = ku_string_base64_decode(text.data(), data.data(), static_cast<uint32_t>(data.size()));
        if (n != kMiB) {
            state.SkipWithError("decode failed");
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_base64_decode_ku);

// The ku decoder must find the terminator; EVP_DecodeBlock is told the length.
// Both are measured as an application calls them on a terminated text, so the
// OpenSSL side pays the strlen too.
void BM_base64_decode_openssl(benchmark::State &state)
{
    const auto text = base64_text(random_bytes(kMiB));
    std::vector<unsigned char> data(kMiB + 4);
    for (auto _ : state) {
        const int length = static_cast<int>(std::strlen(text.data()));
        const int n = EVP_DecodeBlock(data.data(), reinterpret_cast<const unsigned char *>(text.data()), length);
        if (n < kMiB) {
            state.SkipWithError("decode failed");
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_base64_decode_openssl);

void BM_hex_encode_ku(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<char> text(2 * kMiB + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ku_ascii2hex(data.data(), text.data(), kMiB, 0));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_hex_encode_ku);

void BM_hex_encode_snprintf(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<char> text(2 * kMiB + 1);
    for (auto _ : state) {
        char *out = text.data();
        for (int i = 0; i < kMiB; ++i) {
            std::snprintf(out + 2 * i, 3, "%02X", data[static_cast<size_t>(i)]);
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_hex_encode_snprintf);

void BM_hex_decode_ku(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<char> text(2 * kMiB + 1);
    ku_ascii2hex(data.data(), text.data(), kMiB, static_cast<uint32_t>(text.size()));
    std::vector<unsigned char> out(kMiB);
    for (auto _ : state) {
        if (ku_hex2ascii(text.data(), out.data(), 2 * kMiB, 0) != kMiB) {
            state.SkipWithError("decode failed");
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_hex_decode_ku);

// The decoding counterpart of the snprintf loop: strtoul of each pair, copied
// out so that the parse stops after two characters.
void BM_hex_decode_strtoul(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<char> text(2 * kMiB + 1);
    ku_ascii2hex(data.data(), text.data(), kMiB, static_cast<uint32_t>(text.size()));
    std::vector<unsigned char> out(kMiB);
    for (auto _ : state) {
        for (int i = 0; i < kMiB; ++i) {
            const char pair[3] = {text[2 * static_cast<size_t>(i)], text[2 * static_cast<size_t>(i) + 1], '\0'};
            out[static_cast<size_t>(i)] = static_cast<unsigned char>(std::strtoul(pair, nullptr, 16));
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}
BENCHMARK(BM_hex_decode_strtoul);

}  // namespace

BENCHMARK_MAIN();
