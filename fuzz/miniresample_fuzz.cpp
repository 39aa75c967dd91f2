// Drives one resampler stream with settings and block sizes taken from the
// input. Each output buffer is exactly the documented bound, so a write past
// floor(n * out_rate / in_rate) + 2 samples or a read outside the block is a
// sanitizer finding; every output sample must also lie within the block's
// range of values (or the previous block's last sample).
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

    bool have_last = false;
    int16_t last = 0;
    while (in.size > 0) {
        // Block size in bytes: up to 2 * 32768 mono samples' worth of frames.
        const size_t frame_bytes = 2 * static_cast<size_t>(channels);
        const size_t wanted = in.take(2) % (32768 * frame_bytes / 2 + 1) + in.take(1) % 2;
        const size_t bytes = std::min(wanted, in.size);
        std::vector<int16_t> block(bytes / 2 + 1);
        std::memcpy(block.data(), in.data, bytes);
        in.data += bytes;
        in.size -= bytes;

        const size_t mono = channels == 1 ? bytes / 2 : bytes / frame_bytes;
        const size_t bound = in_rate == out_rate
                                 ? (channels == 1 ? (bytes + 1) / 2 : mono)
                                 : mono * static_cast<size_t>(out_rate) / static_cast<size_t>(in_rate) + 2;
        auto *output = static_cast<int16_t *>(std::malloc(std::max<size_t>(bound, 1) * 2));
        int32_t out_size = -1;
        if (miniresample_process(stream, block.data(), static_cast<int32_t>(bytes), output, &out_size) != 0 ||
            out_size < 0 || static_cast<size_t>(out_size) > bound * 2) {
            std::abort();
        }
        if (in_rate != out_rate && channels == 1 && mono > 0) {
            int16_t low = *std::min_element(block.begin(), block.begin() + static_cast<long>(mono));
            int16_t high = *std::max_element(block.begin(), block.begin() + static_cast<long>(mono));
            if (have_last) {
                low = std::min(low, last);
                high = std::max(high, last);
            }
            for (int32_t k = 0; k < out_size / 2; ++k) {
                if (output[k] < low || output[k] > high) {
                    std::abort();
                }
            }
            last = block[mono - 1];
            have_last = true;
        }
        std::free(output);
    }
    miniresample_deinit(stream);
    return 0;
}
