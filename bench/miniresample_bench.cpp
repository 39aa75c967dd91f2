// miniresample_process against libsamplerate's SRC_LINEAR and the speexdsp
// resampler at quality 0, on one second of the same stereo 16-bit input fed in
// blocks of 1024 frames, each peer doing the whole job: stereo in, mono 16-bit
// out at the new rate. Rates are in mega-samples (input frames) per second.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <samplerate.h>
#include <speex/speex_resampler.h>
#include <vector>

#include "ku/miniresample.h"

namespace {

constexpr size_t kBlockFrames = 1024;

// Two detuned integer triangle waves plus a little noise: no floating point
// in the input either, and the same samples for every contender.
std::vector<int16_t> stereo_input(size_t frames)
{
    std::vector<int16_t> samples(frames * 2);
    uint32_t noise = 12345;
    for (size_t k = 0; k < frames; ++k) {
        noise = noise * 1103515245u + 12345u;
        const auto jitter = static_cast<int32_t>((noise >> 16) & 0x3FF) - 512;
        const auto left = static_cast<int32_t>((k * 37) % 20000) - 10000;
        const auto right = static_cast<int32_t>((k * 53) % 24000) - 12000;
        samples[2 * k] = static_cast<int16_t>(left + jitter);
        samples[2 * k + 1] = static_cast<int16_t>(right - jitter);
    }
    return samples;
}

// The mono downmix the peers need first (they have no channel reduction).
void downmix(const int16_t *stereo, int16_t *mono, size_t frames)
{
    for (size_t k = 0; k < frames; ++k) {
        mono[k] = static_cast<int16_t>((int32_t{stereo[2 * k]} + int32_t{stereo[2 * k + 1]}) / 2);
    }
}

// One second of input at in_rate, fed block by block to `convert(block)`,
// which gets a pointer to kBlockFrames interleaved stereo frames.
template <typename Convert>
void run_blocks(benchmark::State &state, int32_t in_rate, Convert convert)
{
    const size_t frames = static_cast<size_t>(in_rate) / kBlockFrames * kBlockFrames;
    const std::vector<int16_t> input = stereo_input(frames);
    for (auto _ : state) {
        for (size_t start = 0; start < frames; start += kBlockFrames) {
            convert(&input[2 * start]);
            benchmark::ClobberMemory();
        }
    }
    // Shown as items_per_second: "M/s" there is mega-samples per second.
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(frames));
}

// Output room for one block, with slack for what a converter holds back.
size_t output_room(int32_t in_rate, int32_t out_rate)
{
    return kBlockFrames * static_cast<size_t>(out_rate) / static_cast<size_t>(in_rate) + 16;
}

void BM_miniresample(benchmark::State &state, int32_t in_rate, int32_t out_rate)
{
    std::vector<int16_t> output(output_room(in_rate, out_rate));
    ku_miniresample *resampler = miniresample_init(in_rate, out_rate, 2, 0);
    run_blocks(state, in_rate, [&](const int16_t *block) {
        int32_t out_size = 0;
        miniresample_process(resampler, block, static_cast<int32_t>(kBlockFrames * 4), output.data(), &out_size);
        benchmark::DoNotOptimize(output.data());
    });
    miniresample_deinit(resampler);
}

void BM_src_linear(benchmark::State &state, int32_t in_rate, int32_t out_rate)
{
    const size_t out_room = output_room(in_rate, out_rate);
    std::vector<int16_t> mono(kBlockFrames);
    std::vector<float> mono_float(kBlockFrames);
    std::vector<float> out_float(out_room);
    std::vector<int16_t> output(out_room);
    int error = 0;
    SRC_STATE *converter = src_new(SRC_LINEAR, 1, &error);
    SRC_DATA data{};
    data.src_ratio = static_cast<double>(out_rate) / static_cast<double>(in_rate);
    run_blocks(state, in_rate, [&](const int16_t *block) {
        downmix(block, mono.data(), kBlockFrames);
        src_short_to_float_array(mono.data(), mono_float.data(), static_cast<int>(kBlockFrames));
        data.data_in = mono_float.data();
        data.input_frames = static_cast<long>(kBlockFrames);
        data.data_out = out_float.data();
        data.output_frames = static_cast<long>(out_room);
        src_process(converter, &data);
        src_float_to_short_array(out_float.data(), output.data(), static_cast<int>(data.output_frames_gen));
        benchmark::DoNotOptimize(output.data());
    });
    src_delete(converter);
}

void BM_speex_q0(benchmark::State &state, int32_t in_rate, int32_t out_rate)
{
    const size_t out_room = output_room(in_rate, out_rate);
    std::vector<int16_t> mono(kBlockFrames);
    std::vector<int16_t> output(out_room);
    int error = 0;
    SpeexResamplerState *resampler = speex_resampler_init(1, static_cast<spx_uint32_t>(in_rate),
                                                          static_cast<spx_uint32_t>(out_rate), 0, &error);
    run_blocks(state, in_rate, [&](const int16_t *block) {
        downmix(block, mono.data(), kBlockFrames);
        spx_uint32_t in_length = kBlockFrames;
        spx_uint32_t out_length = static_cast<spx_uint32_t>(out_room);
        speex_resampler_process_int(resampler, 0, mono.data(), &in_length, output.data(), &out_length);
        benchmark::DoNotOptimize(output.data());
    });
    speex_resampler_destroy(resampler);
}

BENCHMARK_CAPTURE(BM_miniresample, 48000_to_16000, 48000, 16000);
BENCHMARK_CAPTURE(BM_src_linear, 48000_to_16000, 48000, 16000);
BENCHMARK_CAPTURE(BM_speex_q0, 48000_to_16000, 48000, 16000);
BENCHMARK_CAPTURE(BM_miniresample, 44100_to_48000, 44100, 48000);
BENCHMARK_CAPTURE(BM_src_linear, 44100_to_48000, 44100, 48000);
BENCHMARK_CAPTURE(BM_speex_q0, 44100_to_48000, 44100, 48000);

}  // namespace

BENCHMARK_MAIN();
