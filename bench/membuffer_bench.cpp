// membuffer_append of 4 KiB chunks up to 64 MiB against std::string::append,
// and against the bare realloc-and-copy that the additive rule implies, to
// show that membuffer's own overhead over that realloc is small.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "ku/membuffer.h"

namespace {

constexpr size_t kTotal = size_t{64} << 20;
constexpr size_t kChunk = 4096;

const char *chunk()
{
    static char bytes[kChunk];
    memset(bytes, 'm', sizeof bytes);
    return bytes;
}

void BM_membuffer_append(benchmark::State &state)
{
    const char *bytes = chunk();
    for (auto _ : state) {
        membuffer m;
        membuffer_init(&m);
        for (size_t done = 0; done < kTotal; done += kChunk) {
            if (membuffer_append(&m, bytes, kChunk) != 0) {
                state.SkipWithError("out of memory");
                break;
            }
        }
        benchmark::DoNotOptimize(m.data);
        membuffer_destroy(&m);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_membuffer_append)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The peer: geometric growth.
void BM_std_string_append(benchmark::State &state)
{
    const char *bytes = chunk();
    for (auto _ : state) {
        std::string s;
        for (size_t done = 0; done < kTotal; done += kChunk) {
            s.append(bytes, kChunk);
        }
        benchmark::DoNotOptimize(s.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_std_string_append)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// The floor for the additive rule: one realloc by exactly the chunk, one
// copy and a terminator per append, with no bookkeeping.
void BM_realloc_by_chunk(benchmark::State &state)
{
    const char *bytes = chunk();
    for (auto _ : state) {
        char *block = nullptr;
        for (size_t done = 0; done < kTotal; done += kChunk) {
            char *grown = static_cast<char *>(realloc(block, done + kChunk + 1));
            if (grown == nullptr) {
                state.SkipWithError("out of memory");
                break;
            }
            block = grown;
            memcpy(block + done, bytes, kChunk);
            block[done + kChunk] = '\0';
        }
        benchmark::DoNotOptimize(block);
        free(block);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_realloc_by_chunk)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
