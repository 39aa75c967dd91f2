// ku b64, ku hex: the library's Base64 and hexadecimal codecs between stdin
// and stdout, in fixed chunks both ways, so that any input size runs in the
// same small memory. Encoding cuts the input at group boundaries; decoding
// carries the symbols of an unfinished group over to the next chunk.
#include <ku/codec.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kB64Help =
    "usage: ku b64 encode|decode < INPUT > OUTPUT\n"
    "\n"
    "Base64 (RFC 4648, standard alphabet, '=' padding) from stdin to stdout.\n"
    "  encode   any bytes in; one line of Base64 text out, ended by a newline\n"
    "  decode   Base64 text in, which may be folded over lines and carry\n"
    "           blanks; the bytes out, exactly. Text that is not Base64 fails\n"
    "           with status 1; the bytes before the faulty chunk have then\n"
    "           been written already.\n"
    "\n"
    "Both work in chunks of 64 KiB: memory use does not grow with the input.\n";

constexpr const char *kHexHelp =
    "usage: ku hex encode|decode < INPUT > OUTPUT\n"
    "\n"
    "Hexadecimal from stdin to stdout.\n"
    "  encode   any bytes in; one line of upper-case hex digits out, ended by a\n"
    "           newline\n"
    "  decode   hex digits in (either case; blanks and line ends are skipped);\n"
    "           the bytes out. Any other character or an odd number of digits\n"
    "           fails with status 1; the bytes before the faulty chunk have\n"
    "           then been written already.\n"
    "\n"
    "Both work in chunks of 64 KiB: memory use does not grow with the input.\n";

// Multiples of 3 bytes, so that chunked Base64 is the Base64 of the whole.
constexpr size_t kChunk = 3 * 16384;

// Runs `encode(chunk, text_out)` over stdin in chunks and writes the text.
template <typename Encode>
int encode_stream(const char *name, Encode encode)
{
    std::vector<unsigned char> chunk(kChunk);
    std::string text;
    for (;;) {
        // A short read from a pipe must not put padding in the middle of
        // the Base64 text: only the last chunk may be short.
        const size_t filled = read_full(stdin, chunk.data(), chunk.size());
        if (std::ferror(stdin))
            return fail(name, "cannot read stdin: " + std::string(std::strerror(errno)));
        if (filled > 0) {
            encode(chunk.data(), filled, text);
            if (!write_all(stdout, text))
                return fail(name, "cannot write stdout: " + std::string(std::strerror(errno)));
        }
        if (filled < chunk.size())
            break;
    }
    return write_all(stdout, "\n") ? kExitOk : fail(name, "cannot write stdout: " + std::string(std::strerror(errno)));
}

int b64_encode()
{
    return encode_stream("b64", [](const unsigned char *bytes, size_t size, std::string &text) {
        text.resize((size + 2) / 3 * 4 + 1);
        const int32_t written = ku_string_base64_encode(text.data(), bytes, static_cast<int32_t>(size));
        text.resize(static_cast<size_t>(written));
    });
}

bool is_blank(unsigned char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

int read_error(const char *name)
{
    return fail(name, "cannot read stdin: " + std::string(std::strerror(errno)));
}

int write_error(const char *name)
{
    return fail(name, "cannot write stdout: " + std::string(std::strerror(errno)));
}

// Base64 text is decoded a chunk at a time up to its last whole group of four
// symbols; the symbols of an unfinished group start the next chunk. After a group with padding only blanks may follow,
// which the library checks inside one call and the tool across calls.
int b64_decode()
{
    // One byte more than the text for the terminator the decoder reads.
    std::vector<char> text(kStreamChunk + 1);
    std::vector<unsigned char> bytes(kStreamChunk / 4 * 3 + 4);
    size_t carried = 0;
    bool padded = false;
    for (;;) {
        const size_t got = read_full(stdin, text.data() + carried, kStreamChunk - carried);
        if (std::ferror(stdin))
            return read_error("b64");
        const size_t size = carried + got;
        const bool last = carried + got < kStreamChunk;
        // The decoder reads a terminated text: a zero byte would end it early.
        if (std::memchr(text.data() + carried, '\0', got) != nullptr)
            return fail("b64", "input is not Base64 text: it holds a zero byte");
        size_t symbols = 0;
        for (size_t i = 0; i < size; ++i)
            symbols += !is_blank(static_cast<unsigned char>(text[i]));
        if (padded && symbols != 0)
            return fail("b64", "input is not valid Base64");
        // Cut after the last whole group; at the end the decoder sees all,
        // so that an unfinished last group fails as it would in one call.
        size_t cut = size;
        for (size_t open = last ? 0 : symbols % 4; open > 0; --cut)
            open -= !is_blank(static_cast<unsigned char>(text[cut - 1]));
        if (cut > 0) {
            const char saved = text[cut];
            text[cut] = '\0';
            const int32_t decoded =
                ku_string_base64_decode(text.data(), bytes.data(), static_cast<uint32_t>(bytes.size()));
            text[cut] = saved;
            if (decoded < 0)
                return fail("b64", "input is not valid Base64");
            size_t end = cut;
            while (end > 0 && is_blank(static_cast<unsigned char>(text[end - 1])))
                --end;
            padded = end > 0 && text[end - 1] == '=';
            const std::string_view out(reinterpret_cast<const char *>(bytes.data()), static_cast<size_t>(decoded));
            if (!write_all(stdout, out))
                return write_error("b64");
        }
        if (last)
            return kExitOk;
        // Only the symbols travel on: the blanks among them mean nothing,
        // and dropping them keeps the carry below one group.
        carried = 0;
        for (size_t i = cut; i < size; ++i)
            if (!is_blank(static_cast<unsigned char>(text[i])))
                text[carried++] = text[i];
    }
}

int hex_encode()
{
    return encode_stream("hex", [](const unsigned char *bytes, size_t size, std::string &text) {
        text.resize(size * 2);
        ku_ascii2hex(bytes, text.data(), static_cast<int32_t>(size), static_cast<uint32_t>(text.size()));
    });
}

// The digits of each chunk are gathered without the blanks and decoded in
// pairs; an odd digit at the end of a chunk starts the next one.
int hex_decode()
{
    // The library's digit rule also takes ":;<=>?" as 10 to 15; from a shell
    // those are typing errors, so only true hex digits pass.
    enum : unsigned char { kInvalid, kDigit, kBlank };
    unsigned char kind[256] = {};
    for (const unsigned char c : std::string_view("0123456789abcdefABCDEF"))
        kind[c] = kDigit;
    for (const unsigned char c : std::string_view(" \t\r\n"))
        kind[c] = kBlank;

    std::vector<char> text(kStreamChunk);
    std::vector<char> digits(kStreamChunk + 1);
    std::vector<unsigned char> bytes(kStreamChunk / 2 + 1);
    size_t held = 0;  // digits carried from the chunk before: 0 or 1
    uint64_t offset = 0;
    for (;;) {
        const size_t got = read_full(stdin, text.data(), text.size());
        if (std::ferror(stdin))
            return read_error("hex");
        for (size_t i = 0; i < got; ++i) {
            const unsigned char c = static_cast<unsigned char>(text[i]);
            if (kind[c] == kDigit)
                digits[held++] = static_cast<char>(c);
            else if (kind[c] != kBlank)
                return fail("hex", "input is not hexadecimal: byte " + std::to_string(offset + i) +
                                       " is not a digit");
        }
        offset += got;
        const bool last = got < text.size();
        if (last && held % 2 != 0)
            return fail("hex", "input has an odd number of hex digits");
        const size_t pairs = held / 2;
        if (pairs > 0) {
            const uint32_t decoded = ku_hex2ascii(digits.data(), bytes.data(), static_cast<uint32_t>(pairs * 2),
                                                  static_cast<uint32_t>(bytes.size()));
            if (decoded != pairs)
                return fail("hex", "input is not valid hexadecimal");
            if (!write_all(stdout, std::string_view(reinterpret_cast<const char *>(bytes.data()), pairs)))
                return write_error("hex");
            digits[0] = digits[pairs * 2];
            held -= pairs * 2;
        }
        if (last)
            return kExitOk;
    }
}

int run_codec(const char *name, const char *help, int (*encode)(), int (*decode)(), int argc,
              char **argv)
{
    if (wants_help(argc, argv))
        return print_help(help);
    const auto args = parse_args(name, argc, argv, {});
    if (!args)
        return kExitUsage;
    if (args->positional.size() != 1)
        return usage_error(name, "expected 'encode' or 'decode'");
    const std::string &mode = args->positional[0];
    if (mode == "encode")
        return encode();
    if (mode == "decode")
        return decode();
    return usage_error(name, "unknown mode '" + mode + "' (encode, decode)");
}

}  // namespace

int run_b64(int argc, char **argv)
{
    return run_codec("b64", kB64Help, b64_encode, b64_decode, argc, argv);
}

int run_hex(int argc, char **argv)
{
    return run_codec("hex", kHexHelp, hex_encode, hex_decode, argc, argv);
}

}  // namespace ku_tool
