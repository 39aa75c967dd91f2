// One producer and one consumer thread moving 256 MiB through a ring in
// 4 KiB transfers, against a single-thread memcpy of the same 256 MiB from
// the same source to the same destination.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "ku/circle_buf.h"

namespace {

// What a polling caller does while the ring is full or empty: retry at once
// for a short while (the other side is usually mid-copy), then give the CPU up.
void wait_a_little(int &misses)
{
    if (++misses < 64) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
        return;
    }
    misses = 0;
    std::this_thread::yield();
}

constexpr size_t kTotal = size_t{256} << 20;
constexpr int32_t kChunk = 4096;

// Source and destination allocated and touched once, so page faults are not
// part of either measurement.
struct Arena {
    Arena()
        : source(static_cast<unsigned char *>(malloc(kTotal))), destination(static_cast<unsigned char *>(malloc(kTotal)))
    {
        for (size_t i = 0; i < kTotal; i++) {
            source[i] = static_cast<unsigned char>(i * 131u >> 7);
        }
        memset(destination, 0, kTotal);
    }
    ~Arena()
    {
        free(source);
        free(destination);
    }
    unsigned char *source;
    unsigned char *destination;
};

Arena &arena()
{
    static Arena instance;
    return instance;
}

void BM_circle_buf_producer_consumer(benchmark::State &state)
{
    Arena &memory = arena();
    ku_circle_buf *cb = circle_buf_init(static_cast<uint32_t>(state.range(0)));
    for (auto _ : state) {
        std::thread producer([cb, &memory] {
            int misses = 0;
            for (size_t sent = 0; sent < kTotal; sent += kChunk) {
                while (circle_buf_write(cb, memory.source + sent, kChunk) == 0) {
                    wait_a_little(misses);
                }
            }
        });
        int misses = 0;
        for (size_t received = 0; received < kTotal; received += kChunk) {
            while (circle_buf_read(cb, memory.destination + received, kChunk) == 0) {
                wait_a_little(misses);
            }
        }
        producer.join();
    }
    if (memcmp(memory.source, memory.destination, kTotal) != 0) {
        state.SkipWithError("stream corrupted");
    }
    circle_buf_free(cb);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_circle_buf_producer_consumer)
    ->Arg(64 << 10)
    ->Arg(256 << 10)
    ->Arg(1 << 20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(2.0);

// The same stream through the ring from one thread (write a chunk, read it
// back): the copies under the lock are serialised anyway, so this is roughly
// the ceiling that the two-thread run approaches when both threads have a core.
void BM_circle_buf_same_bytes_one_thread(benchmark::State &state)
{
    Arena &memory = arena();
    ku_circle_buf *cb = circle_buf_init(64 << 10);
    for (auto _ : state) {
        for (size_t done = 0; done < kTotal; done += kChunk) {
            circle_buf_write(cb, memory.source + done, kChunk);
            circle_buf_read(cb, memory.destination + done, kChunk);
        }
        benchmark::ClobberMemory();
    }
    if (memcmp(memory.source, memory.destination, kTotal) != 0) {
        state.SkipWithError("stream corrupted");
    }
    circle_buf_free(cb);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_circle_buf_same_bytes_one_thread)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

// The peer: the same bytes, one thread, one memcpy.
void BM_memcpy_same_bytes(benchmark::State &state)
{
    Arena &memory = arena();
    for (auto _ : state) {
        memcpy(memory.destination, memory.source, kTotal);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}
BENCHMARK(BM_memcpy_same_bytes)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

// Lock and bookkeeping cost without a second thread: write then read one
// 4 KiB chunk through a ring that stays in cache.
void BM_circle_buf_write_read_one_thread(benchmark::State &state)
{
    ku_circle_buf *cb = circle_buf_init(64 << 10);
    static unsigned char in[kChunk];
    static unsigned char out[kChunk];
    for (auto _ : state) {
        circle_buf_write(cb, in, kChunk);
        circle_buf_read(cb, out, kChunk);
        benchmark::ClobberMemory();
    }
    circle_buf_free(cb);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
}
BENCHMARK(BM_circle_buf_write_read_one_thread);

// Its peer: the two 4 KiB memcpy calls alone.
void BM_memcpy_two_chunks(benchmark::State &state)
{
    static unsigned char in[kChunk];
    static unsigned char ring[kChunk];
    static unsigned char out[kChunk];
    for (auto _ : state) {
        memcpy(ring, in, kChunk);
        benchmark::ClobberMemory();
        memcpy(out, ring, kChunk);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
}
BENCHMARK(BM_memcpy_two_chunks);

}  // namespace

BENCHMARK_MAIN();
