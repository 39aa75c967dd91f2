// Exact samples at each edge of the fixed-point walk, bridge and mono reduction; refusals.
#include "ku/miniresample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/alloc_control.h"

namespace {

using Samples = std::vector<int16_t>;

struct Stream {
    Stream(int32_t in_rate, int32_t out_rate, int32_t channels = 1, int32_t select = 0)
        : state(miniresample_init(in_rate, out_rate, channels, select)) {}
    ~Stream() { miniresample_deinit(state); }

    // The samples of one call of `bytes` (0: the whole block); the room behind keeps its markers.
    Samples feed(const Samples &input, int32_t bytes = 0)
    {
        Samples out(input.size() * 8 + 64, 0x5A5A);
        int32_t size = -7;
        bytes = bytes != 0 ? bytes : int32_t(input.size() * 2);
        EXPECT_EQ(miniresample_process(state, input.data(), bytes, out.data(), &size), 0);
        EXPECT_TRUE(size >= 0 && size % 2 == 0) << size;
        out.resize(out.size() - std::count(out.begin() + size / 2, out.end(), 0x5A5A));
        EXPECT_EQ(out.size(), size_t(size / 2)) << "written past the reported size";
        return out;
    }

    ku_miniresample *state;
};

}  // namespace

// One stream per row: its settings, then each block fed (with its size in bytes
// when that is not the whole block) and the samples it gives.
TEST(Miniresample, StreamsGiveTheExactSamples)
{
    struct Call {
        Samples block, want;
        int32_t bytes = 0;
    };
    const struct {
        const char *name;
        int32_t in_rate, out_rate, channels, select;
        std::vector<Call> calls;
    } scripts[] = {
        {"1:4, one bridge sample from 100 towards 200; no whole sample changes nothing", 1, 4, 1,
         0, {{{0, 100}, {0, 25, 50, 75}}, {{}, {}}, {{7}, {}, 1}, {{7}, {}, -2},
             {{200, 300, 0x7F7F}, {100, 225, 250, 275}, 5}}},
        {"3:2", 3, 2, 1, 0, {{{0, 100, 200, 300}, {0, 150}}, {{400, 500, 600, 700}, {300, 550}}}},
        {"2:1, the position runs past a block, a single sample waits", 2, 1, 1, 0,
         {{{10, 20, 30, 40, 50}, {10, 30}}, {{60, 70}, {50}}, {{80}, {}},
          {{90, 100, 110, 120}, {80, 110}}}},
        // the step is 2^-32 above the ratio: products lie just below whole numbers
        {"1:4 falling, toward negative infinity", 1, 4, 1, 0, {{{100, 0}, {100, 74, 49, 24}}}},
        {"difference beyond 16 bits", 1, 2, 1, 0, {{{32767, -32768}, {32767, -1}}}},
        {"one bridge sample at any ratio", 1, 8, 1, 0, {{{0}, {}}, {{800}, {0}}, {{1600}, {900}}}},
        {"8:1 jumps over a whole block", 8, 1, 1, 0,
         {{{10, 11, 12}, {10}}, {{20, 21, 22}, {}}, {{30, 31, 32, 33}, {32}}}},
        {"first channel", 8000, 8000, 2, 1, {{{-3, -4, -1, 2}, {-3, -1}}}},
        {"second channel", 8000, 8000, 2, 2, {{{-3, -4, -1, 2}, {-4, 2}}}},
        {"average truncates toward zero", 8000, 8000, 2, 0, {{{-3, -4, -1, 2}, {-3, 0}}}},
        {"extremes average", 8000, 8000, 2, 0, {{{32767, 32767, -32768, -32768}, {32767, -32768}}}},
        {"third sample unread", 8000, 8000, 3, 0, {{{-3, -4, 999, -1, 2, -999}, {-3, 0}}}},
        {"selection before resampling", 1, 4, 2, 2, {{{-9, 0, 9, 100}, {0, 25, 50, 75}}}},
        {"part frame dropped", 8000, 8000, 2, 1, {{{1, 2, 3, 4, 5}, {1, 3}}, {{6, 7}, {6}}}},
        {"part frame of three", 8000, 8000, 3, 2, {{{1, 2, 3, 4, 5, 6, 7, 8}, {2, 5}}}},
    };
    for (const auto &script : scripts) {
        SCOPED_TRACE(script.name);
        Stream stream(script.in_rate, script.out_rate, script.channels, script.select);
        ASSERT_NE(stream.state, nullptr);
        for (const Call &call : script.calls)
            EXPECT_EQ(stream.feed(call.block, call.bytes), call.want) << call.bytes;
    }
}

TEST(Miniresample, EqualRatesPassAnOddOneChannelBlockThroughWhole)
{
    Stream stream(16000, 16000);
    for (const std::string block : {"\x11\x22\x33\x44\x55", "\x66"}) {
        std::string out(6, '\xEE');
        int32_t size = 0;
        const auto bytes = int32_t(block.size());
        ASSERT_EQ(miniresample_process(stream.state, block.data(), bytes, out.data(), &size), 0);
        EXPECT_EQ(out.substr(0, size_t(size) + 1), block + '\xEE');
    }
}

// Meaningless settings and a null converter are refused; so is memory, which
// leaves the stream. The scratch copy follows the raw input size, never
// shrinks: equal blocks allocate once. Input is output.
TEST(Miniresample, RefusesWhatItCannotUseAndGrowsScratchOnlyForALargerBlock)
{
    const int32_t rows[][3] = {{0, 1, 1}, {1, 0, 1}, {-1, 1, 1}, {2, 1, 0}, {2, 1, 4}};
    for (const auto &[in, out, channels] : rows)
        EXPECT_EQ(miniresample_init(in, out, channels, 0), nullptr) << in << out << channels;
    EXPECT_EQ(miniresample_process(nullptr, nullptr, 6, nullptr, nullptr), -1) << "touches nothing";
    miniresample_deinit(nullptr);
    KU_REQUIRE_ALLOC_CONTROL();
    Stream stream(1, 4, 2, 1);
    Samples io(4100);
    int32_t out_size = 99;
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kAnyAlloc, 0, -1);
    EXPECT_EQ(miniresample_init(1, 4, 2, 1), nullptr);
    EXPECT_EQ(miniresample_process(stream.state, io.data(), 8, io.data(), &out_size), -1);
    EXPECT_EQ(out_size, 0);
    alloc.allow();
    EXPECT_EQ(stream.feed({0, 9, 100, 9}), (Samples{0, 25, 50, 75}));
    alloc.reset();
    for (int32_t size : {4000, 4000, 3000, 8, 4004})
        ASSERT_EQ(miniresample_process(stream.state, io.data(), size, io.data(), &out_size), 0);
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 2) << "for 4000 bytes, then for 4004";
}
