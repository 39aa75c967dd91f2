// Integer PCM resampler: reduce each block to mono in a scratch copy, then
// interpolate between neighbours at a 32.32 fixed-point position.
// Integer arithmetic only (the device has no FPU); the only cross-block state
// is the position, the last mono sample and the pending bridge sample.
#include "ku/miniresample.h"

#include <cstdlib>
#include <cstring>

struct ku_miniresample {
    uint64_t step;         // 32.32 input samples per output sample
    uint64_t pos;          // 32.32 position of the next output, in the current block
    int32_t pass_through;  // equal rates: reduce to mono, nothing else
    int8_t bridge;         // next call first interpolates last_sample -> x[0]
    int16_t last_sample;   // last mono sample of the previous block
    int32_t in_rate;
    int32_t out_rate;
    int32_t channels;
    int32_t channel_select;
    uint8_t *scratch;      // mono copy of the current block
    int32_t scratch_size;  // bytes; follows the raw input size, never shrinks
};

namespace {

constexpr uint64_t kFractionMask = 0xFFFFFFFFu;

// a + (b - a) * f / 2^32 with an arithmetic shift, so the result rounds toward
// negative infinity and never leaves [min(a, b), max(a, b)].
inline int16_t interpolate(int16_t a, int16_t b, uint32_t fraction) noexcept
{
    const int64_t difference = static_cast<int64_t>(b) - static_cast<int64_t>(a);
    const int64_t offset = (difference * static_cast<int64_t>(fraction)) >> 32;
    return static_cast<int16_t>(a + offset);
}

// Frames of `Stride` samples to one sample each; returns the mono sample count.
template <size_t Stride>
size_t reduce_frames(const int16_t *in, int16_t *mono, size_t frames, int32_t select) noexcept
{
    if (select == 1) {
        for (size_t k = 0; k < frames; ++k) {
            mono[k] = in[k * Stride];
        }
    } else if (select == 2) {
        for (size_t k = 0; k < frames; ++k) {
            mono[k] = in[k * Stride + 1];
        }
    } else {
        // C division truncates toward zero: (-3 + -4) / 2 is -3, (-1 + 2) / 2 is 0.
        for (size_t k = 0; k < frames; ++k) {
            mono[k] = static_cast<int16_t>((int32_t{in[k * Stride]} + int32_t{in[k * Stride + 1]}) / 2);
        }
    }
    return frames;
}

// Makes scratch hold at least `size` bytes. Growth frees first: the old
// content is about to be overwritten, and peak memory matters on the device.
bool reserve_scratch(ku_miniresample &state, int32_t size) noexcept
{
    if (state.scratch != nullptr && state.scratch_size >= size) {
        return true;
    }
    std::free(state.scratch);
    state.scratch = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(size)));
    state.scratch_size = state.scratch != nullptr ? size : 0;
    return state.scratch != nullptr;
}

// The block as mono bytes in scratch; returns their number.
size_t reduce_to_mono(ku_miniresample &state, const void *input, int32_t input_size) noexcept
{
    const size_t size = static_cast<size_t>(input_size);
    const auto *in = static_cast<const int16_t *>(input);
    auto *mono = reinterpret_cast<int16_t *>(state.scratch);
    switch (state.channels) {
    case 3:
        return reduce_frames<3>(in, mono, size / 6, state.channel_select) * 2;
    case 2:
        return reduce_frames<2>(in, mono, size / 4, state.channel_select) * 2;
    default:
        std::memcpy(state.scratch, input, size);
        return size;
    }
}

// Interpolates one block of n >= 1 mono samples; returns the output count.
size_t resample_block(ku_miniresample &state, const int16_t *x, uint32_t n, int16_t *out) noexcept
{
    const uint64_t step = state.step;
    uint64_t pos = state.pos;
    size_t count = 0;

    if (state.bridge != 0) {
        state.bridge = 0;
        out[count++] = interpolate(state.last_sample, x[0], static_cast<uint32_t>(pos & kFractionMask));
        pos += step;
    }

    // The index is defined as the low 16 bits of the integer part read as a
    // signed value; within the 32768-sample block limit that equals the whole
    // integer part, which also keeps a larger block inside scratch instead of
    // wrapping to a negative index.
    const uint64_t last = n - 1;
    while ((pos >> 32) < last) {
        const auto i = static_cast<uint32_t>(pos >> 32);
        out[count++] = interpolate(x[i], x[i + 1], static_cast<uint32_t>(pos & kFractionMask));
        pos += step;
    }

    if ((pos >> 32) == last) {
        // x[last + 1] is the next block's first sample: make this one then,
        // counting the next block from the same fraction.
        state.bridge = 1;
        pos &= kFractionMask;
    } else {
        // Past the block: carry the overshoot (it may skip whole blocks).
        pos -= static_cast<uint64_t>(n) << 32;
    }
    state.pos = pos;
    state.last_sample = x[last];
    return count;
}

}  // namespace

extern "C" {

KU_API ku_miniresample *miniresample_init(int32_t in_rate, int32_t out_rate, int32_t channels,
                                          int32_t channel_select) noexcept
{
    if (in_rate <= 0 || out_rate <= 0 || channels < 1 || channels > 3) {
        return nullptr;
    }
    auto *state = static_cast<ku_miniresample *>(std::calloc(1, sizeof(ku_miniresample)));
    if (state == nullptr) {
        return nullptr;
    }
    state->in_rate = in_rate;
    state->out_rate = out_rate;
    state->channels = channels;
    state->channel_select = channel_select;
    if (in_rate == out_rate) {
        state->pass_through = 1;
    } else {
        // The + 1 applies even to exact ratios: positions creep ahead rather
        // than ever falling short of an input sample.
        state->step = (static_cast<uint64_t>(in_rate) << 32) / static_cast<uint64_t>(out_rate) + 1;
    }
    return state;
}

KU_API int miniresample_process(ku_miniresample *resampler, const void *input, int32_t input_size,
                                void *output, int32_t *output_size) noexcept
{
    if (resampler == nullptr) {
        return -1;
    }
    if (input_size <= 0) {
        *output_size = 0;
        return 0;
    }
    if (!reserve_scratch(*resampler, input_size)) {
        *output_size = 0;
        return -1;
    }
    const size_t mono_bytes = reduce_to_mono(*resampler, input, input_size);

    if (resampler->pass_through != 0) {
        std::memcpy(output, resampler->scratch, mono_bytes);
        *output_size = static_cast<int32_t>(mono_bytes);
        return 0;
    }

    const auto n = static_cast<uint32_t>(mono_bytes / 2);
    if (n == 0) {
        *output_size = 0;
        return 0;
    }
    const size_t count = resample_block(*resampler, reinterpret_cast<const int16_t *>(resampler->scratch),
                                        n, static_cast<int16_t *>(output));
    *output_size = static_cast<int32_t>(count * 2);
    return 0;
}

KU_API void miniresample_deinit(ku_miniresample *resampler) noexcept
{
    if (resampler == nullptr) {
        return;
    }
    std::free(resampler->scratch);
    std::free(resampler);
}

}  // extern "C"
