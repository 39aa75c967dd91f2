// ku des: the library's Triple-DES ECB codec between stdin and stdout.
// The codec pads a plaintext with 1 to 8 zero bytes and records no length,
// so decryption drops the zero bytes at the end of the last block unless
// --raw asks for the blocks exactly as decrypted.
#include <ku/codec.h>
#include <ku/des.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku des encrypt|decrypt [--key HEX48] [--raw] < INPUT > OUTPUT\n"
    "\n"
    "Triple-DES in ECB mode (8-byte blocks, keys K1 K2 K3) from stdin to stdout.\n"
    "  encrypt   any bytes in; the plaintext is made up to whole blocks with 1 to\n"
    "            8 zero bytes, so the output is 1 to 8 bytes longer than the input\n"
    "  decrypt   whole blocks in; the plaintext out, with the zero bytes at the\n"
    "            end of the last block removed (a plaintext that itself ended in\n"
    "            zero bytes loses them: the codec records no length)\n"
    "\n"
    "options:\n"
    "  --key HEX48   the 24-byte key as 48 hex digits; default: the library's\n"
    "                built-in key KEY_ENC\n"
    "  --raw         decrypt: keep every decrypted byte, padding included\n"
    "\n"
    "The stream is coded in chunks of 64 KiB: memory use does not grow with the\n"
    "input. A decryption that fails on a short last block has written the\n"
    "blocks before it already.\n";

bool parse_key(const std::string &hex, std::vector<unsigned char> &key)
{
    if (hex.size() != 48)
        return false;
    for (const char c : hex)
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return false;
    key.assign(25, 0);
    return ku_hex2ascii(hex.c_str(), key.data(), 48, static_cast<uint32_t>(key.size())) == 24;
}

}  // namespace

int run_des(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("des", argc, argv, {{"--key", "-k", true}, {"--raw", "", false}});
    if (!args)
        return kExitUsage;
    if (args->positional.size() != 1)
        return usage_error("des", "expected 'encrypt' or 'decrypt'");
    const std::string &mode = args->positional[0];
    if (mode != "encrypt" && mode != "decrypt")
        return usage_error("des", "unknown mode '" + mode + "' (encrypt, decrypt)");

    std::vector<unsigned char> key;
    if (const auto hex = args->value("--key"); hex && !parse_key(*hex, key))
        return usage_error("des", "--key takes 48 hex digits (24 bytes)");
    const unsigned char *key_bytes = key.empty() ? nullptr : key.data();

    // Blocks are independent in ECB, so the stream is coded a chunk at a
    // time; only the last block is special: encryption pads it, decryption
    // strips its zero bytes, so decryption holds one block back until the
    // input ends.
    const bool encrypt = mode == "encrypt";
    const size_t held_back = encrypt ? 0 : 8;
    std::vector<unsigned char> in(kStreamChunk + 8), out(kStreamChunk + 16);
    size_t held = 0;
    uint64_t total = 0;
    for (;;) {
        const size_t got = read_full(stdin, in.data() + held, kStreamChunk);
        if (std::ferror(stdin))
            return fail("des", "cannot read stdin: " + std::string(std::strerror(errno)));
        total += got;
        const size_t size = held + got;
        const bool last = got < kStreamChunk;
        size_t length = last ? size : size - held_back;
        size_t produced = length;
        if (encrypt) {
            // A chunk in the middle gives its blocks; the padding block that
            // the codec adds belongs to the end of the stream only.
            ku_des_encode3(key_bytes, in.data(), static_cast<int32_t>(length), out.data());
            if (last)
                produced = (length / 8 + 1) * 8;
        } else {
            if (last && size % 8 != 0)
                return fail("des", "ciphertext of " + std::to_string(total) + " bytes is not whole 8-byte blocks");
            if (length > 0)
                ku_des_decode3(key_bytes, in.data(), static_cast<int32_t>(length), out.data());
            if (last && !args->has("--raw"))
                for (size_t padding = 0; padding < 8 && produced > 0 && out[produced - 1] == 0; ++padding)
                    --produced;
        }
        if (!write_all(stdout, std::string_view(reinterpret_cast<const char *>(out.data()), produced)))
            return fail("des", "cannot write stdout: " + std::string(std::strerror(errno)));
        if (last)
            return kExitOk;
        held = size - length;
        std::memmove(in.data(), in.data() + length, held);
    }
}

}  // namespace ku_tool
