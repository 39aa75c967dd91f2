// ku resample: 16-bit PCM, raw or in a WAV file, through the library's
// integer resampler. The resampler always gives mono, so the tool reads the
// input's rate and channels from the RIFF header when there is one and
// writes a mono WAV header for an OUT ending in ".wav". Samples are taken
// in the machine's byte order, which is WAV's little-endian on the targets.
#include <ku/miniresample.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
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
    "The input is read and fed in blocks of 32768 frames, so memory use does not\n"
    "grow with the input; the resampler makes one sample between two blocks and\n"
    "holds the last input sample back for a next block.\n";

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

// The input as a stream of bytes: the first bytes, read to look for a RIFF
// header, are handed out again when there is none; in a WAV file `left`
// limits the stream to the data chunk.
struct Input {
    FILE *file = nullptr;
    unsigned char head[12];
    size_t head_size = 0, head_at = 0;
    uint64_t left = UINT64_MAX;

    size_t read(void *buffer, size_t size)
    {
        auto *out = static_cast<unsigned char *>(buffer);
        size_t filled = 0;
        while (filled < size && head_at < head_size)
            out[filled++] = head[head_at++];
        const size_t want = static_cast<size_t>(std::min<uint64_t>(size - filled, left));
        const size_t got = read_full(file, out + filled, want);
        if (left != UINT64_MAX)
            left -= got;
        return filled + got;
    }

    bool skip(uint64_t bytes)
    {
        unsigned char sink[4096];
        while (bytes > 0) {
            const size_t want = static_cast<size_t>(std::min<uint64_t>(bytes, sizeof sink));
            if (read_full(file, sink, want) != want)
                return false;
            bytes -= want;
        }
        return true;
    }
};

bool is_wav(const Input &input)
{
    return input.head_size == 12 && std::memcmp(input.head, "RIFF", 4) == 0 &&
           std::memcmp(input.head + 8, "WAVE", 4) == 0;
}

// Reads up to the data chunk, taking the format from the fmt chunk on the
// way; afterwards the input hands out the samples of the data chunk only.
std::string parse_wav(Input &input, Format &format)
{
    input.head_at = input.head_size;
    bool have_format = false;
    unsigned char chunk[16];
    while (read_full(input.file, chunk, 8) == 8) {
        const uint32_t length = le32(chunk + 4);
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            if (length < 16 || read_full(input.file, chunk, 16) != 16)
                return "its fmt chunk is cut short";
            const uint16_t tag = le16(chunk);
            // 0xFFFE is WAVE_FORMAT_EXTENSIBLE, whose sub-format is PCM here.
            if (tag != 1 && tag != 0xFFFE)
                return "it is not PCM (format tag " + std::to_string(tag) + ")";
            format.channels = le16(chunk + 2);
            format.rate = static_cast<int>(le32(chunk + 4));
            if (le16(chunk + 14) != 16)
                return "it has " + std::to_string(le16(chunk + 14)) + "-bit samples, not 16-bit";
            have_format = true;
            if (!input.skip(length - 16 + (length & 1)))
                break;
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            if (!have_format)
                return "its data chunk comes before the fmt chunk";
            // A data length past the end (a header written before the
            // recording ended) means "up to the end of the file".
            input.left = length;
            return "";
        } else if (!input.skip(length + (length & 1))) {  // chunks are padded to even sizes
            break;
        }
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

    const auto error_text = [] { return std::string(": ") + std::strerror(errno); };
    const std::string in_label = in_name == "-" ? "stdin" : in_name;
    Input input;
    input.file = in_name == "-" ? stdin : std::fopen(in_name.c_str(), "rb");
    if (input.file == nullptr)
        return fail("resample", "cannot read " + in_label + error_text());
    std::unique_ptr<FILE, int (*)(FILE *)> in_file(in_name == "-" ? nullptr : input.file, std::fclose);
    input.head_size = read_full(input.file, input.head, sizeof input.head);

    Format format;
    const bool wav_in = is_wav(input);
    if (wav_in) {
        const std::string problem = parse_wav(input, format);
        if (std::ferror(input.file))
            return fail("resample", "cannot read " + in_label + error_text());
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

    const bool wav_out = ends_with_wav(out_name);
    FILE *out = out_name == "-" ? stdout : std::fopen(out_name.c_str(), "wb");
    if (out == nullptr)
        return fail("resample", "cannot write " + out_name + error_text());
    std::unique_ptr<FILE, int (*)(FILE *)> out_file(out == stdout ? nullptr : out, std::fclose);
    // The sizes in the header are not known before the end: it goes out
    // first with the "up to the end of the file" sizes and is written again
    // at the end when the output can be rewound.
    if (wav_out && !write_all(out, wav_header(static_cast<int>(*to), UINT32_MAX - 36)))
        return fail("resample", "cannot write " + out_name + error_text());

    // The stream goes through the resampler in blocks of kBlockFrames,
    // each filled completely unless the input ends, as the resampler's
    // state carries over from block to block.
    const size_t frame_bytes = 2 * static_cast<size_t>(format.channels);
    const size_t room = (kBlockFrames * static_cast<size_t>(*to) / static_cast<size_t>(format.rate) + 2) * 2;
    std::vector<unsigned char> block(kBlockFrames * frame_bytes), output(std::max(room, kBlockFrames * 2));
    uint64_t frames = 0, produced_bytes = 0;
    for (;;) {
        const size_t got = input.read(block.data(), block.size());
        if (std::ferror(input.file))
            return fail("resample", "cannot read " + in_label + error_text());
        const size_t count = got / frame_bytes;
        if (count > 0) {
            int32_t produced = 0;
            if (miniresample_process(resampler.get(), block.data(), static_cast<int32_t>(count * frame_bytes),
                                     output.data(), &produced) != 0)
                return fail("resample", "the resampler refused the input");
            if (!write_all(out, std::string_view(reinterpret_cast<const char *>(output.data()),
                                                 static_cast<size_t>(produced))))
                return fail("resample", "cannot write " + out_name + error_text());
            frames += count;
            produced_bytes += static_cast<uint64_t>(produced);
        }
        if (got < block.size())
            break;
    }
    if (wav_out && produced_bytes <= UINT32_MAX - 36 && std::fseek(out, 0, SEEK_SET) == 0 &&
        !write_all(out, wav_header(static_cast<int>(*to), static_cast<uint32_t>(produced_bytes))))
        return fail("resample", "cannot write " + out_name + error_text());
    if (out != stdout && std::fclose(out_file.release()) != 0)
        return fail("resample", "cannot write " + out_name + error_text());
    if (args->has("--verbose"))
        std::fprintf(stderr, "ku resample: %llu frames of %d channel(s) at %d Hz (%s) -> %llu mono samples at %lld Hz (%s)\n",
                     static_cast<unsigned long long>(frames), format.channels, format.rate, wav_in ? "WAV" : "raw",
                     static_cast<unsigned long long>(produced_bytes / 2), *to, wav_out ? "WAV" : "raw");
    return kExitOk;
}

}  // namespace ku_tool
