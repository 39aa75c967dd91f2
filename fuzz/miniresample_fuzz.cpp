// One resampler stream with settings and blocks from the input. Each output
// area is a heap block of exactly the documented bound, floor(n * out_rate /
// in_rate) + 2 samples for n mono samples, so a write past it is an ASan
// finding; one channel at equal rates must come through unchanged.
#include <algorithm>
#include <vector>

#include "fuzz_support.h"
#include "ku/miniresample.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    // Rates of 1000 to 48999: a ratio below 50 keeps the output areas small.
    const auto in_rate = int32_t(in.number(2) % 48000 + 1000);
    const auto out_rate = int32_t(in.number(2) % 48000 + 1000);
    const int32_t channels = in.byte() % 3 + 1, select = in.byte() % 4;
    ku_miniresample *stream = miniresample_init(in_rate, out_rate, channels, select);
    fail_unless(stream != nullptr);
    while (in.size > 0) {
        const std::string block = in.text(in.number(2) % 4096);
        const size_t mono = channels == 1 ? block.size() / 2 : block.size() / (2 * channels);
        const size_t bound = in_rate == out_rate ? (channels == 1 ? block.size() : 2 * mono)
                                                 : 2 * (mono * out_rate / in_rate + 2);
        std::vector<char> out(std::max<size_t>(bound, 1));  // a real area, even for nothing
        int32_t written = -1;
        fail_unless(miniresample_process(stream, block.data(), int32_t(block.size()), out.data(),
                                         &written) == 0);
        fail_unless(written >= 0 && size_t(written) <= bound);
        const bool unchanged = std::string(out.data(), size_t(written)) == block;
        fail_unless(in_rate != out_rate || channels != 1 || unchanged);
    }
    miniresample_deinit(stream);
    return 0;
}
