// ku b64, ku hex: the library's Base64 and hexadecimal codecs between stdin
// and stdout. Encoding streams in chunks whose size keeps group boundaries,
// so any input size works in bounded memory; decoding reads the whole text.
#include <ku/codec.h>

#include <cctype>
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
    "           with status 1 and nothing on stdout.\n";

constexpr const char *kHexHelp =
    "usage: ku hex encode|decode < INPUT > OUTPUT\n"
    "\n"
    "Hexadecimal from stdin to stdout.\n"
    "  encode   any bytes in; one line of upper-case hex digits out, ended by a\n"
    "           newline\n"
    "  decode   hex digits in (either case; blanks and line ends are skipped);\n"
    "           the bytes out. Any other character or an odd number of digits\n"
    "           fails with status 1 and nothing on stdout.\n";

// Multiples of 3 bytes, so that chunked Base64 is the Base64 of the whole.
constexpr size_t kChunk = 3 * 16384;

// Runs `encode(chunk, text_out)` over stdin in chunks and writes the text.
template <typename Encode>
int encode_stream(const char *name, Encode encode)
{
    std::vector<unsigned char> chunk(kChunk);
    std::string text;
    for (;;) {
        size_t filled = 0;
        // Fill the chunk completely unless the input ends: a short read from
        // a pipe must not put padding in the middle of the Base64 text.
        while (filled < chunk.size()) {
            const size_t got = std::fread(chunk.data() + filled, 1, chunk.size() - filled, stdin);
            if (got == 0)
                break;
            filled += got;
        }
        if (std::ferror(stdin))
            return fail(name, "cannot read stdin");
        if (filled > 0) {
            encode(chunk.data(), filled, text);
            if (!write_all(stdout, text))
                return fail(name, "cannot write stdout");
        }
        if (filled < chunk.size())
            break;
    }
    return write_all(stdout, "\n") ? kExitOk : fail(name, "cannot write stdout");
}

int b64_encode()
{
    return encode_stream("b64", [](const unsigned char *bytes, size_t size, std::string &text) {
        text.resize((size + 2) / 3 * 4 + 1);
        const int32_t written = ku_string_base64_encode(text.data(), bytes, static_cast<int32_t>(size));
        text.resize(static_cast<size_t>(written));
    });
}

int b64_decode()
{
    std::string text;
    if (!read_all(stdin, text))
        return fail("b64", "cannot read stdin");
    // The decoder reads a terminated text: a zero byte would end it early.
    if (text.find('\0') != std::string::npos)
        return fail("b64", "input is not Base64 text: it holds a zero byte");
    // One byte more than the longest result: the decoder keeps one free.
    std::vector<unsigned char> bytes(text.size() / 4 * 3 + 4);
    const int32_t decoded =
        ku_string_base64_decode(text.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size()));
    if (decoded < 0)
        return fail("b64", "input is not valid Base64");
    const std::string_view out(reinterpret_cast<const char *>(bytes.data()), static_cast<size_t>(decoded));
    return write_all(stdout, out) ? kExitOk : fail("b64", "cannot write stdout");
}

int hex_encode()
{
    return encode_stream("hex", [](const unsigned char *bytes, size_t size, std::string &text) {
        text.resize(size * 2);
        ku_ascii2hex(bytes, text.data(), static_cast<int32_t>(size), static_cast<uint32_t>(text.size()));
    });
}

int hex_decode()
{
    std::string text;
    if (!read_all(stdin, text))
        return fail("hex", "cannot read stdin");
    std::string digits;
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
            continue;
        // The library's digit rule also takes ":;<=>?" as 10 to 15; from a
        // shell those are typing errors, so only true hex digits pass.
        if (!std::isxdigit(c))
            return fail("hex", "input is not hexadecimal: byte " + std::to_string(i) + " is not a digit");
        digits += static_cast<char>(c);
    }
    if (digits.size() % 2 != 0)
        return fail("hex", "input has an odd number of hex digits");
    std::vector<unsigned char> bytes(digits.size() / 2 + 1);
    const uint32_t decoded = ku_hex2ascii(digits.data(), bytes.data(), static_cast<uint32_t>(digits.size()),
                                          static_cast<uint32_t>(bytes.size()));
    if (decoded * 2 != digits.size())
        return fail("hex", "input is not valid hexadecimal");
    const std::string_view out(reinterpret_cast<const char *>(bytes.data()), decoded);
    return write_all(stdout, out) ? kExitOk : fail("hex", "cannot write stdout");
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
