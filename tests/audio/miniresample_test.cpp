#include "ku/miniresample.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "support/alloc_control.h"

namespace {

using Samples = std::vector<int16_t>;

// Owns a converter for the length of a test.
struct Stream {
    Stream(int32_t in_rate, int32_t out_rate, int32_t channels = 1, int32_t select = 0)
        : state(miniresample_init(in_rate, out_rate, channels, select))
    {
    }
    ~Stream() { miniresample_deinit(state); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    // Feeds `bytes` bytes of `input` and returns the output samples. The
    // output room is generous and filled with a marker, so that a write past
    // the reported size is caught too.
    Samples feed_bytes(const Samples &input, int32_t bytes)
    {
        constexpr int16_t kMarker = 0x5A5A;
        Samples out(input.size() * 8 + 64, kMarker);
        int32_t out_size = -7;
        EXPECT_EQ(miniresample_process(state, input.data(), bytes, out.data(), &out_size), 0);
        EXPECT_GE(out_size, 0);
        EXPECT_EQ(out_size % 2, 0);
        const size_t count = static_cast<size_t>(out_size) / 2;
        for (size_t k = count; k < out.size(); ++k) {
            EXPECT_EQ(out[k], kMarker) << "written past the reported size at " << k;
            if (out[k] != kMarker) {
                break;
            }
        }
        out.resize(count);
        return out;
    }

    Samples feed(const Samples &input)
    {
        return feed_bytes(input, static_cast<int32_t>(input.size() * 2));
    }

    ku_miniresample *state;
};

Samples random_samples(std::mt19937 &rng, size_t count)
{
    std::uniform_int_distribution<int> sample(-32768, 32767);
    Samples out(count);
    for (auto &value : out) {
        value = static_cast<int16_t>(sample(rng));
    }
    return out;
}

// Feeds `whole` as consecutive blocks, each ending where `block_end(start)`
// says, and returns everything the stream gave.
template <typename BlockEnd>
Samples feed_in_blocks(Stream &stream, const Samples &whole, BlockEnd block_end)
{
    Samples got;
    for (size_t start = 0; start < whole.size();) {
        const size_t end = block_end(start);
        const Samples out = stream.feed(Samples(whole.begin() + static_cast<long>(start),
                                                whole.begin() + static_cast<long>(end)));
        got.insert(got.end(), out.begin(), out.end());
        start = end;
    }
    return got;
}

// ---------------------------------------------------------------------------
// Rates and the fixed-point step

// One stream per row: rates, channels, selection, then each block fed and
// the samples it gives. Each row pins one edge of the fixed-point walk, the
// bridge between blocks or the reduction to mono.
TEST(MiniresampleRates, StreamsGiveTheExactSamples)
{
    struct Script {
        const char *name;
        int32_t in_rate, out_rate, channels, select;
        std::vector<std::pair<Samples, Samples>> calls;  // block fed, samples given
    };
    const Script scripts[] = {
        {"1:4, one bridge sample from 100 towards 200", 1, 4, 1, 0,
         {{{0, 100}, {0, 25, 50, 75}}, {{200, 300}, {100, 225, 250, 275}}}},
        {"3:2", 3, 2, 1, 0, {{{0, 100, 200, 300}, {0, 150}}, {{400, 500, 600, 700}, {300, 550}}}},
        {"2:1, the position runs past a block, a single sample waits", 2, 1, 1, 0,
         {{{10, 20, 30, 40, 50}, {10, 30}}, {{60, 70}, {50}}, {{80}, {}}, {{90, 100, 110, 120}, {80, 110}}}},
        // the step is 2^-32 above the ratio: every product lies just below a
        // whole number and the shift rounds it down
        {"1:4 falling", 1, 4, 1, 0, {{{100, 0}, {100, 74, 49, 24}}}},
        {"3:1 exact ratio still gets the extra fraction", 3, 1, 1, 0, {{{0, 0, 0, 1000, 0, 0, 0}, {0, 999}}}},
        {"3:1 rising", 3, 1, 1, 0, {{{0, 0, 0, 1000, 2000, 0, 0}, {0, 1000}}}},
        // +1/2 and -1/2 both round toward negative infinity
        {"1:2 up", 1, 2, 1, 0, {{{-5, -4}, {-5, -5}}}},
        {"1:2 down", 1, 2, 1, 0, {{{-4, -5}, {-4, -5}}}},
        {"1:2 extremes up", 1, 2, 1, 0, {{{-32768, 32767}, {-32768, -1}}}},
        {"1:2 extremes down", 1, 2, 1, 0, {{{32767, -32768}, {32767, -1}}}},
        {"single sample waits for the bridge", 1, 2, 1, 0, {{{500}, {}}, {{700, 900}, {500, 800}}}},
        {"bridge makes one sample whatever the ratio", 1, 8, 1, 0, {{{0}, {}}, {{800}, {0}}, {{1600}, {900}}}},
        {"8:1 jumps over a whole block", 8, 1, 1, 0,
         {{{10, 11, 12}, {10}}, {{20, 21, 22}, {}}, {{30, 31, 32, 33}, {32}}}},
        // a cut on a sample a position lands on delays the rest by one sample
        {"2:1 cut after a reached sample", 2, 1, 1, 0,
         {{{0, 10, 20, 30, 40}, {0, 20}}, {{50, 60, 70, 80, 90, 100, 110}, {40, 70, 90}}}},
        {"2:1 uncut", 2, 1, 1, 0, {{{0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110}, {0, 20, 40, 60, 80, 100}}}},
        {"first channel", 8000, 8000, 2, 1, {{{-3, -4, -1, 2}, {-3, -1}}}},
        {"second channel", 8000, 8000, 2, 2, {{{-3, -4, -1, 2}, {-4, 2}}}},
        {"average truncates toward zero", 8000, 8000, 2, 0, {{{-3, -4, -1, 2}, {-3, 0}}}},
        {"selection 3 averages", 8000, 8000, 2, 3, {{{-3, -4, -1, 2}, {-3, 0}}}},
        {"average of extremes", 8000, 8000, 2, 0,
         {{{32767, 32767, -32768, -32768, 32767, -32768}, {32767, -32768, 0}}}},
        {"three channels reduce like two", 8000, 8000, 3, 0, {{{-3, -4, 999, -1, 2, -999}, {-3, 0}}}},
        {"selection before resampling", 1, 4, 2, 2, {{{-9, 0, 9, 100}, {0, 25, 50, 75}}}},
        {"part frame dropped, not carried", 8000, 8000, 2, 1, {{{1, 2, 3, 4, 5}, {1, 3}}, {{6, 7}, {6}}}},
        {"part frame of three", 8000, 8000, 3, 2, {{{1, 2, 3, 4, 5, 6, 7, 8}, {2, 5}}}},
    };
    for (const Script &script : scripts) {
        SCOPED_TRACE(script.name);
        Stream stream(script.in_rate, script.out_rate, script.channels, script.select);
        ASSERT_NE(stream.state, nullptr);
        for (const auto &[block, want] : script.calls) {
            EXPECT_EQ(stream.feed(block), want);
        }
    }
}

TEST(MiniresampleRates, OnlyTheRatioMatters)
{
    Stream small(1, 4);
    Stream large(11025, 44100);
    const Samples block{0, 100, -7, 32767, -32768, 5};
    EXPECT_EQ(small.feed(block), large.feed(block));
}

TEST(MiniresampleRates, FirstOutputOfANewStreamIsTheFirstSample)
{
    std::mt19937 rng(7);
    const int32_t rates[][2] = {{48000, 16000}, {44100, 48000}, {8000, 48000}, {48000, 8000},
                                {3, 2},         {1, 4},         {22050, 44100}};
    for (const auto &rate : rates) {
        Stream stream(rate[0], rate[1]);
        const Samples block = random_samples(rng, 100);
        const Samples out = stream.feed(block);
        ASSERT_FALSE(out.empty());
        EXPECT_EQ(out[0], block[0]) << rate[0] << " -> " << rate[1];
    }
}

TEST(MiniresampleRates, OutputStaysWithinTheDocumentedBound)
{
    std::mt19937 rng(11);
    const int32_t rates[][2] = {{44100, 48000}, {48000, 44100}, {8000, 48000}, {48000, 16000}, {1, 4}};
    for (const auto &rate : rates) {
        Stream stream(rate[0], rate[1]);
        std::uniform_int_distribution<size_t> length(1, 700);
        for (int call = 0; call < 200; ++call) {
            const size_t n = length(rng);
            const Samples out = stream.feed(random_samples(rng, n));
            const size_t bound = n * static_cast<size_t>(rate[1]) / static_cast<size_t>(rate[0]) + 2;
            ASSERT_LE(out.size(), bound) << rate[0] << " -> " << rate[1] << " call " << call;
        }
    }
}

TEST(MiniresampleRates, InterpolatedSamplesLieBetweenTheirNeighbours)
{
    std::mt19937 rng(5);
    Stream stream(1, 7);
    const Samples block = random_samples(rng, 300);
    const Samples out = stream.feed(block);
    // 7 outputs per input sample, the last 7 wait for the next block.
    ASSERT_EQ(out.size(), 299u * 7u);
    for (size_t k = 0; k < out.size(); ++k) {
        const int16_t a = block[k / 7];
        const int16_t b = block[k / 7 + 1];
        EXPECT_GE(out[k], std::min(a, b));
        EXPECT_LE(out[k], std::max(a, b));
    }
}

// ---------------------------------------------------------------------------
// Blocks, bridges and carried position

TEST(MiniresampleBlocks, BlockOf32768SamplesIsProcessedInFull)
{
    // A ramp 0..32767 at 1:2: the loop runs up to index 32766, the last
    // sample (index 32767) is kept for the next call's bridge.
    Samples ramp(32768);
    for (size_t k = 0; k < ramp.size(); ++k) {
        ramp[k] = static_cast<int16_t>(k);
    }
    Stream stream(1, 2);
    const Samples out = stream.feed(ramp);
    ASSERT_EQ(out.size(), 65534u);
    for (size_t k = 0; k < out.size(); ++k) {
        ASSERT_EQ(out[k], static_cast<int16_t>(k / 2)) << k;
    }
    EXPECT_EQ(stream.feed({32767}), Samples{32767});
}

TEST(MiniresampleBlocks, LargerBlockStaysInsideItsSamples)
{
    // Twice the documented limit: resampled whole, never a wrapped index.
    Samples ramp(65536);
    for (size_t k = 0; k < ramp.size(); ++k) {
        ramp[k] = static_cast<int16_t>(k / 4);
    }
    Stream stream(2, 1);
    const Samples out = stream.feed(ramp);
    ASSERT_EQ(out.size(), 32768u);
    for (size_t k = 0; k < out.size(); ++k) {
        ASSERT_EQ(out[k], static_cast<int16_t>(k / 2)) << k;
    }
}

TEST(MiniresampleBlocks, EmptyBlockLeavesTheStreamAsItWas)
{
    Stream with_empty(1, 4);
    Stream without(1, 4);
    EXPECT_EQ(with_empty.feed({0, 100}), without.feed({0, 100}));
    EXPECT_EQ(with_empty.feed({}), Samples{});
    EXPECT_EQ(with_empty.feed_bytes({7}, 1), Samples{});  // no whole sample
    EXPECT_EQ(with_empty.feed_bytes({7}, -2), Samples{});
    EXPECT_EQ(with_empty.feed({200, 300}), without.feed({200, 300}));
}

TEST(MiniresampleBlocks, RandomCutsThatNoPositionReachesMatchOneBlock)
{
    // 48000 -> 16000: the step is just over 3, so the integer parts of the
    // positions are 0, 3, 6, ... for this stream's length. A cut at an index
    // B with B - 1 not a multiple of 3 is never reached by a last-sample
    // position, and then the carried position continues exactly.
    std::mt19937 rng(2024);
    const Samples whole = random_samples(rng, 30000);
    Stream reference(48000, 16000);
    const Samples expected = reference.feed(whole);
    ASSERT_EQ(expected.size(), 10000u);

    std::uniform_int_distribution<size_t> length(1, 2000);
    for (int round = 0; round < 20; ++round) {
        Stream stream(48000, 16000);
        const Samples got = feed_in_blocks(stream, whole, [&](size_t start) {
            size_t end = std::min(whole.size(), start + length(rng));
            while (end < whole.size() && (end - 1) % 3 == 0) {
                ++end;
            }
            return end;
        });
        ASSERT_EQ(got, expected) << "round " << round;
    }
}

TEST(MiniresampleBlocks, OddByteOfAOneChannelBlockIsIgnoredWhenResampling)
{
    Stream odd(1, 4);
    Stream even(1, 4);
    const Samples block{0, 100, 0x7F7F};
    EXPECT_EQ(odd.feed_bytes(block, 5), even.feed({0, 100}));
    EXPECT_EQ(odd.feed({200, 300}), even.feed({200, 300}));
}

TEST(MiniresampleBlocks, InputAndOutputMayBeTheSameMemory)
{
    std::mt19937 rng(3);
    const Samples input = random_samples(rng, 1000);
    Stream separate(1, 3);
    const Samples expected = separate.feed(input);

    Stream in_place(1, 3);
    Samples buffer(3100);
    std::copy(input.begin(), input.end(), buffer.begin());
    int32_t out_size = 0;
    ASSERT_EQ(miniresample_process(in_place.state, buffer.data(), 2000, buffer.data(), &out_size), 0);
    ASSERT_EQ(static_cast<size_t>(out_size), expected.size() * 2);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), buffer.begin()));
}

// ---------------------------------------------------------------------------
// Reduction to mono

TEST(MiniresampleChannels, ThirdSampleOfAFrameHasNoInfluence)
{
    std::mt19937 rng(17);
    for (int32_t select : {0, 1, 2}) {
        Samples a = random_samples(rng, 3 * 400);
        Samples b = a;
        for (size_t k = 2; k < b.size(); k += 3) {
            b[k] = static_cast<int16_t>(~b[k]);
        }
        Stream pass_a(16000, 16000, 3, select), pass_b(16000, 16000, 3, select);
        EXPECT_EQ(pass_a.feed(a), pass_b.feed(b));
        Stream down_a(44100, 16000, 3, select), down_b(44100, 16000, 3, select);
        EXPECT_EQ(down_a.feed(a), down_b.feed(b));
        EXPECT_EQ(down_a.feed(b), down_b.feed(a));
    }
}

// ---------------------------------------------------------------------------
// Equal rates

TEST(MiniresamplePassThrough, TwoChannelsGiveHalfTheBytes)
{
    std::mt19937 rng(23);
    const Samples stereo = random_samples(rng, 2 * 1000);
    Stream stream(44100, 44100, 2, 1);
    const Samples out = stream.feed(stereo);
    ASSERT_EQ(out.size(), 1000u);
    for (size_t k = 0; k < out.size(); ++k) {
        ASSERT_EQ(out[k], stereo[2 * k]);
    }
}

TEST(MiniresamplePassThrough, OddSizedOneChannelBlockGoesThroughWhole)
{
    Stream stream(16000, 16000, 1, 0);
    const unsigned char input[5] = {0x11, 0x22, 0x33, 0x44, 0x55};
    alignas(2) unsigned char output[8] = {0, 0, 0, 0, 0, 0xEE, 0xEE, 0xEE};
    int32_t out_size = 0;
    ASSERT_EQ(miniresample_process(stream.state, input, 5, output, &out_size), 0);
    EXPECT_EQ(out_size, 5);
    EXPECT_EQ(std::memcmp(output, input, 5), 0);
    EXPECT_EQ(output[5], 0xEE);
    ASSERT_EQ(miniresample_process(stream.state, input, 1, output, &out_size), 0);
    EXPECT_EQ(out_size, 1) << "a single byte goes through too";
}

TEST(MiniresamplePassThrough, AnyBlockSizesGiveTheSameStream)
{
    std::mt19937 rng(29);
    const Samples whole = random_samples(rng, 2 * 50000);
    Stream reference(48000, 48000, 2, 0);
    const Samples expected = reference.feed(whole);
    ASSERT_EQ(expected.size(), 50000u);

    Stream stream(48000, 48000, 2, 0);
    std::uniform_int_distribution<size_t> frames(1, 3000);
    const Samples got = feed_in_blocks(stream, whole, [&](size_t start) {
        return std::min(whole.size(), start + 2 * frames(rng));
    });
    EXPECT_EQ(got, expected);
}

// ---------------------------------------------------------------------------
// Memory and failures

TEST(MiniresampleMemory, EqualBlocksAllocateOnlyOnTheFirstCall)
{
    KU_REQUIRE_ALLOC_CONTROL();
    Stream stream(44100, 48000, 2, 0);
    std::mt19937 rng(31);
    const Samples block = random_samples(rng, 2 * 1024);
    Samples out(1200);
    int32_t out_size = 0;

    ku_test::AllocControl alloc;
    ASSERT_EQ(miniresample_process(stream.state, block.data(), 4096, out.data(), &out_size), 0);
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 1);
    alloc.reset();
    for (int call = 0; call < 500; ++call) {
        ASSERT_EQ(miniresample_process(stream.state, block.data(), 4096, out.data(), &out_size), 0);
    }
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 0);
}

TEST(MiniresampleMemory, ScratchFollowsTheRawSizeAndNeverShrinks)
{
    KU_REQUIRE_ALLOC_CONTROL();
    Stream stream(48000, 16000, 2, 0);
    const Samples big(2 * 1002, 1);
    Samples out(2000);
    int32_t out_size = 0;
    ku_test::AllocControl alloc;
    ASSERT_EQ(miniresample_process(stream.state, big.data(), 4000, out.data(), &out_size), 0);
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 1);
    // 3000 raw bytes fit the 4000 kept, although the mono copy was only 2000.
    ASSERT_EQ(miniresample_process(stream.state, big.data(), 3000, out.data(), &out_size), 0);
    ASSERT_EQ(miniresample_process(stream.state, big.data(), 8, out.data(), &out_size), 0);
    ASSERT_EQ(miniresample_process(stream.state, big.data(), 4000, out.data(), &out_size), 0);
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 1);
    ASSERT_EQ(miniresample_process(stream.state, big.data(), 4004, out.data(), &out_size), 0);
    EXPECT_EQ(alloc.count(ku_test::kAnyAlloc), 2);
}

TEST(MiniresampleMemory, FailedInitAllocationGivesNull)
{
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kAnyAlloc);
    EXPECT_EQ(miniresample_init(44100, 48000, 2, 0), nullptr);
}

TEST(MiniresampleMemory, FailedScratchAllocationIsReportedAndRecoverable)
{
    KU_REQUIRE_ALLOC_CONTROL();
    Stream failing(1, 4);
    Stream reference(1, 4);
    Samples out(64, 0);
    const Samples block{0, 100};
    int32_t out_size = 99;
    {
        ku_test::AllocControl alloc;
        alloc.fail(ku_test::kAnyAlloc);
        EXPECT_EQ(miniresample_process(failing.state, block.data(), 4, out.data(), &out_size), -1);
        EXPECT_EQ(out_size, 0);
    }
    // The stream did not move: the retry gives what a fresh stream gives.
    EXPECT_EQ(failing.feed(block), reference.feed(block));
}

TEST(MiniresampleErrors, NullConverterTouchesNothing)
{
    const Samples input{1, 2, 3};
    Samples output{9, 9, 9};
    int32_t out_size = 1234;
    EXPECT_EQ(miniresample_process(nullptr, input.data(), 6, output.data(), &out_size), -1);
    EXPECT_EQ(out_size, 1234);
    EXPECT_EQ(output, (Samples{9, 9, 9}));
    miniresample_deinit(nullptr);
}

TEST(MiniresampleErrors, MeaninglessSettingsAreRefused)
{
    EXPECT_EQ(miniresample_init(0, 16000, 1, 0), nullptr);
    EXPECT_EQ(miniresample_init(16000, 0, 1, 0), nullptr);
    EXPECT_EQ(miniresample_init(-8000, 16000, 1, 0), nullptr);
    EXPECT_EQ(miniresample_init(16000, 8000, 0, 0), nullptr);
    EXPECT_EQ(miniresample_init(16000, 8000, 4, 0), nullptr);
    ku_miniresample *fine = miniresample_init(16000, 8000, 3, 7);
    EXPECT_NE(fine, nullptr);
    miniresample_deinit(fine);
}

}  // namespace
