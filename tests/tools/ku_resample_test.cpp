// ku resample on raw PCM and WAV files: the interpolated values, the channel
// reduction, the RIFF header read and written, and the refusals of input
// the resampler cannot take.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::read_file;
using KuResample = ku_test::KuTool;

[[maybe_unused]] std::string pcm(const std::vector<int16_t> &samples)
{
    std::string bytes;
    for (const int16_t sample : samples) {
        bytes += static_cast<char>(static_cast<uint16_t>(sample) & 0xff);
        bytes += static_cast<char>(static_cast<uint16_t>(sample) >> 8);
    }
    return bytes;
}

[[maybe_unused]] std::vector<int16_t> samples_of(const std::string &bytes)
{
    std::vector<int16_t> samples;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        samples.push_back(static_cast<int16_t>(static_cast<uint8_t>(bytes[i]) |
                                               (static_cast<uint8_t>(bytes[i + 1]) << 8)));
    return samples;
}

[[maybe_unused]] uint32_t le32(const std::string &bytes, size_t at)
{
    return static_cast<uint8_t>(bytes[at]) | (static_cast<uint8_t>(bytes[at + 1]) << 8) |
           (static_cast<uint8_t>(bytes[at + 2]) << 16) | (static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 3])) << 24);
}

[[maybe_unused]] std::string le(uint32_t value, int bytes)
{
    std::string out;
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>((value >> (8 * i)) & 0xff);
    return out;
}

// A canonical 44-byte-header WAV file.
[[maybe_unused]] std::string wav(uint32_t rate, uint16_t channels, uint16_t bits, const std::string &data)
{
    return "RIFF" + le(36 + static_cast<uint32_t>(data.size()), 4) + "WAVEfmt " + le(16, 4) + le(1, 2) +
           le(channels, 2) + le(rate, 4) + le(rate * channels * bits / 8, 4) + le(channels * bits / 8, 2) +
           le(bits, 2) + "data" + le(static_cast<uint32_t>(data.size()), 4) + data;
}

#ifdef KU_TOOL_HAVE_RESAMPLE

TEST_F(KuResample, RawMonoUpsamplingInterpolatesBetweenSamples)
{
    const auto in = dir.write("in.raw", pcm({0, 100, 200, 300}));
    const auto result = ku({"resample", in, dir.file("out.raw"), "--from", "1", "--to", "4"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    // The last input sample waits for a next block that never comes.
    EXPECT_EQ(samples_of(read_file(dir.file("out.raw"))),
              (std::vector<int16_t>{0, 25, 50, 75, 100, 125, 150, 175, 200, 225, 250, 275}));
}

TEST_F(KuResample, RawMonoDownsamplingStepsByTheRatio)
{
    const auto in = dir.write("in.raw", pcm({0, 100, 200, 300, 400, 500, 600, 700}));
    ASSERT_EQ(ku({"resample", in, dir.file("out.raw"), "--from", "3", "--to", "2"}).status, 0);
    EXPECT_EQ(samples_of(read_file(dir.file("out.raw"))), (std::vector<int16_t>{0, 150, 300, 450, 600}));
}

TEST_F(KuResample, StereoBecomesMonoBySelection)
{
    // Frames (-3, -4) and (-1, 2); equal rates only reduce the channels.
    const auto in = dir.write("in.raw", pcm({-3, -4, -1, 2}));
    const std::pair<const char *, std::vector<int16_t>> cases[] = {
        {"first", {-3, -1}}, {"1", {-3, -1}}, {"second", {-4, 2}}, {"mix", {-3, 0}}, {"0", {-3, 0}}};
    for (const auto &[select, expected] : cases) {
        SCOPED_TRACE(select);
        const auto result = ku({"resample", in, dir.file("out.raw"), "--from", "8000", "--to", "8000",
                                "--channels", "2", "--select", select});
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(samples_of(read_file(dir.file("out.raw"))), expected);
    }
    // Without --select the first two samples are averaged.
    ASSERT_EQ(ku({"resample", in, dir.file("out.raw"), "--from", "8000", "--to", "8000", "--channels", "2"}).status, 0);
    EXPECT_EQ(samples_of(read_file(dir.file("out.raw"))), (std::vector<int16_t>{-3, 0}));
}

TEST_F(KuResample, EqualRatesPassLongMonoInputThroughUnchanged)
{
    // More than two of the tool's blocks of 32768 frames.
    std::vector<int16_t> samples;
    for (int i = 0; i < 70001; ++i)
        samples.push_back(static_cast<int16_t>(i * 7));
    const auto in = dir.write("in.raw", pcm(samples));
    ASSERT_EQ(ku({"resample", in, dir.file("out.raw"), "--from", "22050", "--to", "22050"}).status, 0);
    EXPECT_EQ(read_file(dir.file("out.raw")), pcm(samples));
}

TEST_F(KuResample, WavInWavOutCarriesRatesInTheHeaders)
{
    std::vector<int16_t> frames;
    for (int i = 0; i < 8000; ++i) {  // one second of stereo at 8000 Hz
        frames.push_back(static_cast<int16_t>(i));
        frames.push_back(static_cast<int16_t>(-i));
    }
    const auto in = dir.write("in.wav", wav(8000, 2, 16, pcm(frames)));
    const auto result = ku({"resample", in, dir.file("out.wav"), "--to", "16000", "--select", "first", "-v"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("8000 frames of 2 channel(s) at 8000 Hz (WAV)"), std::string::npos) << result.err;

    const std::string out = read_file(dir.file("out.wav"));
    ASSERT_GE(out.size(), 44u);
    EXPECT_EQ(out.substr(0, 4), "RIFF");
    EXPECT_EQ(le32(out, 4), out.size() - 8);
    EXPECT_EQ(out.substr(8, 8), "WAVEfmt ");
    EXPECT_EQ(le32(out, 20) & 0xffff, 1u);           // PCM
    EXPECT_EQ(le32(out, 22) & 0xffff, 1u);           // mono
    EXPECT_EQ(le32(out, 24), 16000u);                // rate
    EXPECT_EQ(le32(out, 28), 32000u);                // bytes per second
    EXPECT_EQ(le32(out, 34) & 0xffff, 16u);          // bits
    EXPECT_EQ(out.substr(36, 4), "data");
    EXPECT_EQ(le32(out, 40), out.size() - 44);
    const auto samples = samples_of(out.substr(44));
    // Twice the frames, less the two held back with the last input sample.
    EXPECT_EQ(samples.size(), 15998u);
    ASSERT_GT(samples.size(), 3u);
    EXPECT_EQ(samples[0], 0);
    EXPECT_EQ(samples[2], 1);
    EXPECT_EQ(samples[3], 1);  // half-way between 1 and 2, rounded down
}

TEST_F(KuResample, WavInRawOutThroughStdout)
{
    const auto in = dir.write("in.wav", wav(4, 1, 16, pcm({0, 100, 200, 300})));
    const auto result = ku({"resample", in, "-", "--to", "2"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(samples_of(result.out), (std::vector<int16_t>{0, 200}));
}

TEST_F(KuResample, RawInputFromStdin)
{
    ku_test::ProcessOptions options;
    options.input = pcm({10, 20, 30, 40, 50});
    const auto result = ku({"resample", "-", "-", "--from", "2", "--to", "1"}, options);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(samples_of(result.out), (std::vector<int16_t>{10, 30}));
}

TEST_F(KuResample, RefusesWavItCannotTake)
{
    const auto eight_bit = dir.write("8bit.wav", wav(8000, 1, 8, std::string(100, '\x80')));
    expect_one_line_error(ku({"resample", eight_bit, dir.file("o.wav"), "--to", "16000"}), 1, "resample");
    const auto quad = dir.write("quad.wav", wav(8000, 4, 16, std::string(64, '\0')));
    expect_one_line_error(ku({"resample", quad, dir.file("o.wav"), "--to", "16000"}), 1, "resample");
    const auto mono = dir.write("mono.wav", wav(8000, 1, 16, std::string(64, '\0')));
    expect_one_line_error(ku({"resample", mono, dir.file("o.wav"), "--from", "44100", "--to", "16000"}), 1,
                          "resample");
    expect_one_line_error(ku({"resample", mono, dir.file("o.wav"), "--channels", "2", "--to", "16000"}), 1,
                          "resample");
    const auto cut = dir.write("cut.wav", wav(8000, 1, 16, "").substr(0, 30));
    expect_one_line_error(ku({"resample", cut, dir.file("o.wav"), "--to", "16000"}), 1, "resample");
}

TEST_F(KuResample, RefusesWrongArgumentsAndMissingFiles)
{
    const auto raw = dir.write("in.raw", pcm({1, 2, 3}));
    expect_one_line_error(ku({"resample", raw, dir.file("o.raw"), "--to", "8000"}), 2, "resample");
    expect_one_line_error(ku({"resample", raw, dir.file("o.raw"), "--from", "8000"}), 2, "resample");
    expect_one_line_error(ku({"resample", raw, dir.file("o.raw"), "--from", "0", "--to", "8000"}), 2, "resample");
    expect_one_line_error(ku({"resample", raw, dir.file("o.raw"), "--from", "8000", "--to", "8000", "--channels", "4"}),
                          2, "resample");
    expect_one_line_error(ku({"resample", raw, dir.file("o.raw"), "--from", "8000", "--to", "8000", "--select", "left"}),
                          2, "resample");
    expect_one_line_error(ku({"resample", raw, "--from", "8000", "--to", "8000"}), 2, "resample");
    // File errors carry the system's reason.
    for (const auto &[in, out] : {std::pair{dir.file("absent.raw"), dir.file("o.raw")},
                                  std::pair{raw, dir.file("no/such/dir/o.raw")}}) {
        const auto result = ku({"resample", in, out, "--from", "8000", "--to", "4000"});
        expect_one_line_error(result, 1, "resample");
        EXPECT_NE(result.err.find(": No such file or directory\n"), std::string::npos) << result.err;
    }
}

#endif  // KU_TOOL_HAVE_RESAMPLE

}  // namespace
