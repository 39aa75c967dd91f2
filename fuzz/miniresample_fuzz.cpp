// Drives one resampler stream with settings and blocks taken from the input,
// beside a step-by-step model of the documented algorithm (literal 16-bit
// index, loop with an in-loop bridge test) that must give the same bytes for
// every block. Each output buffer is exactly the documented bound, so a write
// past floor(n * out_rate / in_rate) + 2 samples is a sanitizer finding.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ku/miniresample.h"

namespace {

struct Reader {
    const uint8_t *data;
    size_t size;

    uint32_t take(size_t bytes)
    {
        uint32_t value = 0;
        for (size_t k = 0; k < bytes && size > 0; ++k, ++data, --size) {
            value = (value << 8) | *data;
        }
        return value;
    }
};

struct Model {
    uint64_t step = 0;
    uint64_t pos = 0;
    bool pass_through = false;
    bool bridge = false;
    int16_t last_sample = 0;
    int32_t channels = 1;
    int32_t select = 0;

    Model(int32_t in_rate, int32_t out_rate, int32_t channel_count, int32_t channel_select)
        : channels(channel_count), select(channel_select)
    {
        pass_through = in_rate == out_rate;
        if (!pass_through) {
            step = (uint64_t(uint32_t(in_rate)) << 32) / uint64_t(uint32_t(out_rate)) + 1;
        }
    }

    static int16_t lerp(int16_t a, int16_t b, uint64_t pos)
    {
        const int64_t product = (int64_t(b) - int64_t(a)) * int64_t(uint32_t(pos));
        return int16_t(a + (product >> 32));
    }

    std::vector<uint8_t> process(const uint8_t *input, size_t size)
    {
        std::vector<uint8_t> mono;
        if (channels == 1) {
            mono.assign(input, input + size);
        } else {
            const size_t frame = 2 * size_t(channels);
            for (size_t f = 0; f < size / frame; ++f) {
                int16_t first, second;
                std::memcpy(&first, input + f * frame, 2);
                std::memcpy(&second, input + f * frame + 2, 2);
                const int16_t value =
                    select == 1 ? first : select == 2 ? second : int16_t((int32_t(first) + int32_t(second)) / 2);
                mono.insert(mono.end(), reinterpret_cast<const uint8_t *>(&value),
                            reinterpret_cast<const uint8_t *>(&value) + 2);
            }
        }
        if (pass_through) {
            return mono;
        }
        const int32_t n = int32_t(mono.size() / 2);
        if (n == 0) {
            return {};
        }
        std::vector<int16_t> x(static_cast<size_t>(n));
        std::memcpy(x.data(), mono.data(), x.size() * 2);
        std::vector<int16_t> out;
        if (bridge) {
            bridge = false;
            out.push_back(lerp(last_sample, x[0], pos));
            pos += step;
        }
        while ((pos >> 32) < uint64_t(n)) {
            const auto i = int16_t(uint16_t(pos >> 32));
            if (i >= n - 1) {
                bridge = true;
                break;
            }
            out.push_back(lerp(x[size_t(i)], x[size_t(i) + 1], pos));
            pos += step;
        }
        if (bridge) {
            pos &= 0xFFFFFFFFu;
        } else {
            pos -= uint64_t(n) << 32;
        }
        last_sample = x[size_t(n) - 1];
        const auto *first = reinterpret_cast<const uint8_t *>(out.data());
        return std::vector<uint8_t>(first, first + out.size() * 2);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Reader in{data, size};
    // Ratios within 1:16 .. 16:1, both rates positive.
    const auto in_rate = static_cast<int32_t>(in.take(2) % 48000 + 1);
    const auto out_rate = static_cast<int32_t>(
        std::clamp<int64_t>(in.take(3) % 768000 + 1, in_rate / 16 + 1, int64_t{in_rate} * 16));
    const auto channels = static_cast<int32_t>(in.take(1) % 3 + 1);
    const auto select = static_cast<int32_t>(in.take(1) % 4);
    ku_miniresample *stream = miniresample_init(in_rate, out_rate, channels, select);
    if (stream == nullptr) {
        return 0;
    }
    Model model(in_rate, out_rate, channels, select);

    while (in.size > 0) {
        // Up to 65536 bytes: never more than 32768 mono samples. A block
        // whose first length byte is odd is processed in place (input and
        // output in one area, which the contract allows).
        const bool in_place = in.size > 0 && (in.data[0] & 1) != 0;
        const size_t bytes = std::min<size_t>(in.take(2) + in.take(1) % 2, in.size);
        const std::vector<uint8_t> expected = model.process(in.data, bytes);

        const size_t mono = channels == 1 ? bytes / 2 : bytes / (2 * size_t(channels));
        const size_t bound_bytes =
            in_rate == out_rate ? (channels == 1 ? bytes : mono * 2)
                                : (mono * size_t(out_rate) / size_t(in_rate) + 2) * 2;
        // Exact-sized heap areas, so ASan sees a read past the input as well
        // as a write past the bound.
        auto *input = static_cast<uint8_t *>(std::malloc(std::max<size_t>(in_place ? std::max(bytes, bound_bytes) : bytes, 1)));
        std::memcpy(input, in.data, bytes);
        in.data += bytes;
        in.size -= bytes;
        auto *output = in_place ? input : static_cast<uint8_t *>(std::malloc(std::max<size_t>(bound_bytes, 1)));
        int32_t out_size = -1;
        if (miniresample_process(stream, input, int32_t(bytes), output, &out_size) != 0 ||
            size_t(out_size) != expected.size() || size_t(out_size) > bound_bytes ||
            (!expected.empty() && std::memcmp(output, expected.data(), expected.size()) != 0)) {
            std::abort();
        }
        if (!in_place) std::free(output);
        std::free(input);
    }
    miniresample_deinit(stream);
    return 0;
}
