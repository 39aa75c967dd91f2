// Hex decode of arbitrary text, checked against a reference decoder written
// from the digit rule; the encode/decode round trip; and ku_a2hex against a
// reference of its own. Areas are exact-sized heap blocks for ASan.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ku/codec.h"

namespace {

// Digit value of a hex character, or -1. Besides 0-9, A-F and a-f, the six
// characters 0x3A..0x3F count as 10..15.
int reference_digit(unsigned char c)
{
    if (c >= '0' && c <= '?') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

uint32_t reference_a2hex(const char *text)
{
    uint32_t value = 0;
    for (int i = 0; i < 8 && text[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        int digit = -1;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        if (digit >= 0) value = value * 16 + static_cast<uint32_t>(digit);
    }
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const uint32_t src_len = static_cast<uint32_t>(size);
    // The byte behind an odd length is read as the last low digit: give it a
    // terminator, as a caller with a text would.
    std::vector<char> src(data, data + size);
    src.push_back('\0');
    const size_t room = (size + 1) / 2;
    std::vector<uint8_t> dst(room + 1, 0xEE);
    const uint32_t decoded = ku_hex2ascii(src.data(), dst.data(), src_len, static_cast<uint32_t>(room));

    // Reference: pairs until the first invalid digit.
    uint32_t expected = 0;
    bool valid = true;
    for (size_t i = 0; i < size; i += 2) {
        const int high = reference_digit(static_cast<unsigned char>(src[i]));
        const int low = reference_digit(static_cast<unsigned char>(src[i + 1]));
        if (high < 0 || low < 0) {
            valid = false;
            break;
        }
        if (dst[expected] != static_cast<uint8_t>(high * 16 + low)) abort();
        ++expected;
    }
    if (decoded != (valid ? expected : 0u)) abort();
    if (dst[room] != 0xEE) abort();  // nothing written behind the area

    // Round trip of the input as bytes.
    std::vector<char> hex(2 * size + 1);
    const int32_t written = ku_ascii2hex(data, hex.data(), static_cast<int32_t>(size),
                                         static_cast<uint32_t>(hex.size()));
    if (written != static_cast<int32_t>(2 * size) || hex[2 * size] != '\0') abort();
    std::vector<uint8_t> back(size + 1);
    if (ku_hex2ascii(hex.data(), back.data(), static_cast<uint32_t>(2 * size), static_cast<uint32_t>(size)) != size ||
        std::memcmp(back.data(), data, size) != 0) {
        abort();
    }

    if (ku_a2hex(src.data()) != reference_a2hex(src.data())) abort();
    return 0;
}
