// ku resample: 16-bit PCM, raw or in a WAV file, through the library's
// integer resampler. The resampler always gives mono, so the tool reads the
// input's rate and channels from the RIFF header when there is one and
// writes a mono WAV header for an OUT ending in ".wav". Samples are taken
// in the machine's byte order, which is WAV's little-endian on the targets.
#include <ku/miniresample.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku resample IN OUT [--from RATE] --to RATE [--channels N] [--select S] [-v]\n"
    "\n"
    "Converts signed 16-bit PCM to mono at another sample rate, by two-point\n"
    "interpolation in integer arithmetic. IN is a WAV file (its header gives the\n"
    "rate and channels) or raw interleaved samples; OUT is written as a mono\n"
    "16-bit WAV file when its name ends in .wav, else as raw samples. '-' reads\n"
    "stdin or writes stdout (raw).\n"
    "\n"
    "options:\n"
    "  --from RATE     input rate in Hz; needed for raw input, checked for WAV\n"
    "  --to RATE       output rate in Hz\n"
    "  --channels N    samples per input frame, 1 to 3 (raw input; default 1)\n"
    "  --select S      how a frame becomes one sample: first, second or mix (the\n"
    "                  average of the first two; default); or 1, 2, 0\n"
    "  -v, --verbose   tell on stderr what was converted\n"
    "\n"
    "The input is fed in blocks of 32768 frames; the resampler makes one sample\n"
    "between two blocks and holds the last input sample back for a next block.\n";

// Frames per call: the resampler's limit of 32768 mono samples. Each block
// boundary costs the resampler one interpolation step (it makes a single
// sample between two blocks), so the blocks are as long as it allows.
constexpr size_t kBlockFrames = 32768;

struct Format {
    int rate = 0;
    int channels = 0;
};

uint32_t le32(const unsigned char *p)
{
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint16_t le16(const unsigned char *p)
{
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

void put32(std::string &out, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out += static_cast<char>((value >> (8 * i)) & 0xff);
}

void put16(std::string &out, uint16_t value)
{
    out += static_cast<char>(value & 0xff);
    out += static_cast<char>(value >> 8);
}

bool is_wav(const std::string &bytes)
{
    return bytes.size() >= 12 && bytes.compare(0, 4, "RIFF") == 0 && bytes.compare(8, 4, "WAVE") == 0;
}

// Finds the fmt and data chunks; on success `samples` is the data chunk.
std::string parse_wav(const std::string &bytes, Format &format, std::string_view &samples)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.data());
    bool have_format = false;
    size_t at = 12;
    while (at + 8 <= bytes.size()) {
        const std::string id = bytes.substr(at, 4);
        const uint32_t length = le32(p + at + 4);
        const size_t body = at + 8;
        if (id == "fmt ") {
            if (length < 16 || body + 16 > bytes.size())
                return "its fmt chunk is cut short";
            const uint16_t tag = le16(p + body);
            // 0xFFFE is WAVE_FORMAT_EXTENSIBLE, whose sub-format is PCM here.
            if (tag != 1 && tag != 0xFFFE)
                return "it is not PCM (format tag " + std::to_string(tag) + ")";
            format.channels = le16(p + body + 2);
            format.rate = static_cast<int>(le32(p + body + 4));
            if (le16(p + body + 14) != 16)
                return "it has " + std::to_string(le16(p + body + 14)) + "-bit samples, not 16-bit";
            have_format = true;
        } else if (id == "data") {
            if (!have_format)
                return "its data chunk comes before the fmt chunk";
            // A data length past the end (a header written before the
            // recording ended) means "up to the end of the file".
            const size_t available = bytes.size() - body;
            samples = std::string_view(bytes).substr(body, length < available ? length : available);
            return "";
        }
        at = body + length + (length & 1);  // chunks are padded to even sizes
    }
    return have_format ? "it has no data chunk" : "it has no fmt chunk";
}

std::string wav_header(int rate, uint32_t data_bytes)
{
    std::string header = "RIFF";
    put32(header, 36 + data_bytes);
    header += "WAVEfmt ";
    put32(header, 16);
    put16(header, 1);  // PCM
    put16(header, 1);  // mono
    put32(header, static_cast<uint32_t>(rate));
    put32(header, static_cast<uint32_t>(rate) * 2);  // bytes per second
    put16(header, 2);                                // bytes per frame
    put16(header, 16);                               // bits per sample
    header += "data";
    put32(header, data_bytes);
    return header;
}

bool ends_with_wav(const std::string &name)
{
    if (name.size() < 4)
        return false;
    std::string tail = name.substr(name.size() - 4);
    for (char &c : tail)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return tail == ".wav";
}

std::optional<int> parse_select(const std::string &text)
{
    if (text == "first" || text == "1")
        return 1;
    if (text == "second" || text == "2")
        return 2;
    if (text == "mix" || text == "0")
        return 0;
    return std::nullopt;
}

struct ResamplerFree {
    void operator()(ku_miniresample *resampler) const { miniresample_deinit(resampler); }
};

}  // namespace

int run_resample(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("resample", argc, argv,
                                 {{"--from", "", true},
                                  {"--to", "", true},
                                  {"--channels", "", true},
                                  {"--select", "", true},
                                  {"--verbose", "-v", false}});
    if (!args)
        return kExitUsage;
    if (args->positional.size() != 2)
        return usage_error("resample", "expected IN and OUT");
    const std::string &in_name = args->positional[0], &out_name = args->positional[1];

    std::optional<long long> from, to, channels;
    if (const auto text = args->value("--from"); text && !(from = parse_int(*text, 1, 1000000)))
        return usage_error("resample", "--from takes a rate from 1 to 1000000 Hz");
    if (const auto text = args->value("--to"); !text || !(to = parse_int(*text, 1, 1000000)))
        return usage_error("resample", "--to takes a rate from 1 to 1000000 Hz");
    if (const auto text = args->value("--channels"); text && !(channels = parse_int(*text, 1, 3)))
        return usage_error("resample", "--channels takes 1, 2 or 3");
    int select = 0;
    if (const auto text = args->value("--select")) {
        const auto value = parse_select(*text);
        if (!value)
            return usage_error("resample", "--select takes first, second or mix");
        select = *value;
    }

    std::string input;
    if (in_name == "-" ? !read_all(stdin, input) : !read_file(in_name, input))
        return fail("resample", "cannot read " + (in_name == "-" ? std::string("stdin") : in_name));

    Format format;
    std::string_view samples = input;
    const bool wav_in = is_wav(input);
    if (wav_in) {
        const std::string problem = parse_wav(input, format, samples);
        if (!problem.empty())
            return fail("resample", in_name + " is not usable WAV: " + problem);
        if (format.channels < 1 || format.channels > 3)
            return fail("resample", in_name + " has " + std::to_string(format.channels) +
                                        " channels; the resampler takes 1 to 3");
        if (from && *from != format.rate)
            return fail("resample", in_name + " is " + std::to_string(format.rate) + " Hz, not " +
                                        std::to_string(*from) + " Hz as --from says");
        if (channels && *channels != format.channels)
            return fail("resample", in_name + " has " + std::to_string(format.channels) +
                                        " channels, not " + std::to_string(*channels) + " as --channels says");
    } else {
        if (!from)
            return usage_error("resample", "raw input needs --from RATE");
        format.rate = static_cast<int>(*from);
        format.channels = channels ? static_cast<int>(*channels) : 1;
    }

    std::unique_ptr<ku_miniresample, ResamplerFree> resampler(
        miniresample_init(format.rate, static_cast<int32_t>(*to), format.channels, select));
    if (!resampler)
        return fail("resample", "out of memory");

    const size_t frame_bytes = 2 * static_cast<size_t>(format.channels);
    const size_t frames = samples.size() / frame_bytes;
    std::string output;
    std::vector<unsigned char> block;
    for (size_t first = 0; first < frames; first += kBlockFrames) {
        const size_t count = std::min(kBlockFrames, frames - first);
        const size_t room = (count * static_cast<size_t>(*to) / static_cast<size_t>(format.rate) + 2) * 2;
        block.assign(std::max(room, count * 2), 0);
        int32_t produced = 0;
        if (miniresample_process(resampler.get(), samples.data() + first * frame_bytes,
                                 static_cast<int32_t>(count * frame_bytes), block.data(), &produced) != 0)
            return fail("resample", "the resampler refused the input");
        output.append(reinterpret_cast<const char *>(block.data()), static_cast<size_t>(produced));
    }

    const bool wav_out = ends_with_wav(out_name);
    if (wav_out && output.size() > UINT32_MAX - 36)
        return fail("resample", "output too large for a WAV file");
    const std::string header = wav_out ? wav_header(static_cast<int>(*to), static_cast<uint32_t>(output.size())) : "";
    FILE *out = out_name == "-" ? stdout : std::fopen(out_name.c_str(), "wb");
    if (out == nullptr)
        return fail("resample", "cannot write " + out_name);
    const bool written = write_all(out, header) && write_all(out, output);
    const bool closed = out == stdout || std::fclose(out) == 0;
    if (!written || !closed)
        return fail("resample", "cannot write " + out_name);
    if (args->has("--verbose"))
        std::fprintf(stderr, "ku resample: %zu frames of %d channel(s) at %d Hz (%s) -> %zu mono samples at %lld Hz (%s)\n",
                     frames, format.channels, format.rate, wav_in ? "WAV" : "raw", output.size() / 2, *to,
                     wav_out ? "WAV" : "raw");
    return kExitOk;
}

}  // namespace ku_tool
