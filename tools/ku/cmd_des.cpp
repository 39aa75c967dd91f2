// ku des: the library's Triple-DES ECB codec between stdin and stdout.
// The codec pads a plaintext with 1 to 8 zero bytes and records no length,
// so decryption drops the zero bytes at the end of the last block unless
// --raw asks for the blocks exactly as decrypted.
#include <ku/codec.h>
#include <ku/des.h>

#include <cctype>
#include <cstdint>
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
    "  --raw         decrypt: keep every decrypted byte, padding included\n";

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

    std::string input;
    if (!read_all(stdin, input))
        return fail("des", "cannot read stdin");
    if (input.size() > INT32_MAX - 8)
        return fail("des", "input too large: the codec takes less than 2 GiB");
    const auto length = static_cast<int32_t>(input.size());
    const auto *in = reinterpret_cast<const unsigned char *>(input.data());

    std::vector<unsigned char> output;
    if (mode == "encrypt") {
        output.resize((input.size() / 8 + 1) * 8);
        ku_des_encode3(key_bytes, in, length, output.data());
    } else {
        if (input.size() % 8 != 0)
            return fail("des", "ciphertext of " + std::to_string(input.size()) +
                                   " bytes is not whole 8-byte blocks");
        output.resize(input.size());
        if (!output.empty())
            ku_des_decode3(key_bytes, in, length, output.data());
        if (!args->has("--raw")) {
            size_t padding = 0;
            while (padding < 8 && padding < output.size() && output[output.size() - 1 - padding] == 0)
                ++padding;
            output.resize(output.size() - padding);
        }
    }
    const std::string_view bytes(reinterpret_cast<const char *>(output.data()), output.size());
    return write_all(stdout, bytes) ? kExitOk : fail("des", "cannot write stdout");
}

}  // namespace ku_tool
