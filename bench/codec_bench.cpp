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
constexpr size_t kMiBytes = kMiB;

std::vector<unsigned char> random_bytes(size_t size)
{
    std::vector<unsigned char> data(size);
    std::mt19937 rng(1);
    for (auto &b : data) {
        b = static_cast<unsigned char>(rng());
    }
    return data;
}

// Runs `body` once per iteration and reports 1 MiB of raw data per run.
template <typename Body>
void per_mib(benchmark::State &state, Body body)
{
    for (auto _ : state) {
        body();
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
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
    per_mib(state, [&] {
        benchmark::DoNotOptimize(ku_string_base64_encode(text.data(), data.data(), kMiB));
    });
}
BENCHMARK(BM_base64_encode_ku);

void BM_base64_encode_openssl(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<unsigned char> text((kMiB + 2) / 3 * 4 + 1);
    per_mib(state, [&] { benchmark::DoNotOptimize(EVP_EncodeBlock(text.data(), data.data(), kMiB)); });
}
BENCHMARK(BM_base64_encode_openssl);

void BM_base64_decode_ku(benchmark::State &state)
{
    const auto text = base64_text(random_bytes(kMiB));
    std::vector<unsigned char> data(kMiB + 4);
    per_mib(state, [&] {
        if (ku_string_base64_decode(text.data(), data.data(), static_cast<uint32_t>(data.size())) != kMiB) {
            state.SkipWithError("decode failed");
        }
    });
}
BENCHMARK(BM_base64_decode_ku);

// The ku decoder must find the terminator; EVP_DecodeBlock is told the length.
// Both are measured as an application calls them on a terminated text, so the
// OpenSSL side pays the strlen too.
void BM_base64_decode_openssl(benchmark::State &state)
{
    const auto text = base64_text(random_bytes(kMiB));
    std::vector<unsigned char> data(kMiB + 4);
    per_mib(state, [&] {
        const int length = static_cast<int>(std::strlen(text.data()));
        if (EVP_DecodeBlock(data.data(), reinterpret_cast<const unsigned char *>(text.data()), length) < kMiB) {
            state.SkipWithError("decode failed");
        }
    });
}
BENCHMARK(BM_base64_decode_openssl);

void BM_hex_encode_ku(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<char> text(2 * kMiB + 1);
    per_mib(state, [&] { benchmark::DoNotOptimize(ku_ascii2hex(data.data(), text.data(), kMiB, 0)); });
}
BENCHMARK(BM_hex_encode_ku);

void BM_hex_encode_snprintf(benchmark::State &state)
{
    const auto data = random_bytes(kMiB);
    std::vector<char> text(2 * kMiB + 1);
    per_mib(state, [&] {
        for (size_t i = 0; i < kMiBytes; ++i) {
            std::snprintf(&text[2 * i], 3, "%02X", data[i]);
        }
    });
}
BENCHMARK(BM_hex_encode_snprintf);

std::vector<char> hex_text(const std::vector<unsigned char> &data)
{
    std::vector<char> text(2 * data.size() + 1);
    ku_ascii2hex(data.data(), text.data(), static_cast<int32_t>(data.size()), static_cast<uint32_t>(text.size()));
    return text;
}

void BM_hex_decode_ku(benchmark::State &state)
{
    const auto text = hex_text(random_bytes(kMiB));
    std::vector<unsigned char> out(kMiB);
    per_mib(state, [&] {
        if (ku_hex2ascii(text.data(), out.data(), 2 * kMiB, 0) != kMiB) {
            state.SkipWithError("decode failed");
        }
    });
}
BENCHMARK(BM_hex_decode_ku);

// The decoding counterpart of the snprintf loop: strtoul of each pair, copied
// out so that the parse stops after two characters.
void BM_hex_decode_strtoul(benchmark::State &state)
{
    const auto text = hex_text(random_bytes(kMiB));
    std::vector<unsigned char> out(kMiB);
    per_mib(state, [&] {
        for (size_t i = 0; i < kMiBytes; ++i) {
            const char pair[3] = {text[2 * i], text[2 * i + 1], '\0'};
            out[i] = static_cast<unsigned char>(std::strtoul(pair, nullptr, 16));
        }
    });
}
BENCHMARK(BM_hex_decode_strtoul);

}  // namespace

BENCHMARK_MAIN();
