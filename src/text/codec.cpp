// Hex and Base64 between bytes and text over constexpr lookup tables. The
// Base64 decoder runs whole groups of plain symbols through a fast loop and
// everything else (blanks, padding, errors, the limit) one character at a time.
#include "ku/codec.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";
constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";

// ku_a2hex reads at most this many characters.
constexpr int kA2hexPositions = 8;

// Marks in the decode tables. Symbol values stay below 0x40 and hex digits
// below 0x10, so OR-ing the entries of a whole group and testing one mask
// finds any padding, blank or invalid character in it.
constexpr uint8_t kPad = 0x40;
constexpr uint8_t kBlank = 0x80;
constexpr uint8_t kInvalid = 0xC0;
constexpr uint8_t kNotSymbol = 0xC0;
constexpr uint8_t kHexInvalid = 0x80;

// The digit rule of ku_hex2ascii, spelled out on the character as a signed
// byte: it lets the six characters 0x3A..0x3F through as 10..15, which
// callers depend on, so it must not be "corrected" to isxdigit.
constexpr uint8_t hex_pair_digit(unsigned char byte)
{
    int c = static_cast<signed char>(byte);
    if (c >= 'a' && c <= 'f') {
        c -= 'a' - 'A';
    }
    int digit = 0;
    if (c < 0x41) {
        digit = c - 0x30;
    } else if (c <= 0x60) {
        digit = c - 0x37;
    } else {
        digit = c - 0x57;
    }
    const auto reduced = static_cast<signed char>(digit);
    return reduced >= 0 && reduced <= 15 ? static_cast<uint8_t>(reduced) : kHexInvalid;
}

constexpr std::array<uint8_t, 256> make_hex_pair_table()
{
    std::array<uint8_t, 256> table{};
    for (int byte = 0; byte < 256; ++byte) {
        table[byte] = hex_pair_digit(static_cast<unsigned char>(byte));
    }
    return table;
}

// The digit table of ku_a2hex: only the 22 real hex digits.
constexpr std::array<uint8_t, 256> make_hex_digit_table()
{
    std::array<uint8_t, 256> table{};
    table.fill(kHexInvalid);
    for (size_t place = 0; place < kHexDigits.size(); ++place) {
        const auto byte = static_cast<unsigned char>(kHexDigits[place]);
        table[byte] = static_cast<uint8_t>(place < 16 ? place : place - 6);
    }
    return table;
}

// Two characters for every value of 2 * Bits bits, one per half: a byte for
// hex (Bits 4), 12 bits, half a Base64 group, for Base64 (Bits 6).
template <unsigned Bits>
constexpr std::array<std::array<char, 2>, (size_t{1} << (2 * Bits))> make_pair_table(std::string_view alphabet)
{
    constexpr size_t kHalfMask = (size_t{1} << Bits) - 1;
    std::array<std::array<char, 2>, (size_t{1} << (2 * Bits))> table{};
    for (size_t value = 0; value < table.size(); ++value) {
        table[value] = {alphabet[value >> Bits], alphabet[value & kHalfMask]};
    }
    return table;
}

constexpr std::array<uint8_t, 256> make_base64_decode_table()
{
    std::array<uint8_t, 256> table{};
    table.fill(kInvalid);
    for (size_t place = 0; place < kBase64Alphabet.size(); ++place) {
        table[static_cast<unsigned char>(kBase64Alphabet[place])] = static_cast<uint8_t>(place);
    }
    for (const char blank : {' ', '\t', '\n', '\r'}) {
        table[static_cast<unsigned char>(blank)] = kBlank;
    }
    return table;
}

constexpr auto kHexPairTable = make_hex_pair_table();
constexpr auto kHexDigitTable = make_hex_digit_table();
// Upper-case only: places 0 to 15 of the digit table.
constexpr auto kHexEncodeTable = make_pair_table<4>(kHexDigits);
constexpr auto kBase64DecodeTable = make_base64_decode_table();
constexpr auto kBase64EncodeTable = make_pair_table<6>(kBase64Alphabet);

static_assert(kHexPairTable[':'] == 10 && kHexPairTable['?'] == 15);
static_assert(kHexPairTable['@'] == kHexInvalid && kHexPairTable['G'] == kHexInvalid);
static_assert(kHexPairTable['f'] == 15 && kHexPairTable['g'] == kHexInvalid);
static_assert(kHexPairTable[0x80] == kHexInvalid && kHexPairTable[0] == kHexInvalid);
static_assert(kHexDigitTable['f'] == 15 && kHexDigitTable[':'] == kHexInvalid);
static_assert(kBase64DecodeTable['='] == kPad && kBase64DecodeTable['/'] == 63);
static_assert(kHexEncodeTable[0xAF][0] == 'A' && kHexEncodeTable[0xAF][1] == 'F');
static_assert(kBase64EncodeTable[4095][0] == '/' && kBase64EncodeTable[1][1] == 'B');

// The hex functions clear dst_size bytes first; with a size of 0 the area may
// be null, which memset must not see.
inline void clear(void *area, uint32_t size) noexcept
{
    if (size != 0) {
        std::memset(area, 0, size);
    }
}

// Decodes up to `groups` groups of four plain symbols (no padding, no blank)
// and stops at the first group that is not one. Returns the groups decoded.
inline size_t decode_plain_groups(const unsigned char *in, size_t groups, unsigned char *out) noexcept
{
    size_t done = 0;
    for (; done < groups; ++done, in += 4, out += 3) {
        const uint32_t s0 = kBase64DecodeTable[in[0]];
        const uint32_t s1 = kBase64DecodeTable[in[1]];
        const uint32_t s2 = kBase64DecodeTable[in[2]];
        const uint32_t s3 = kBase64DecodeTable[in[3]];
        if (((s0 | s1 | s2 | s3) & kNotSymbol) != 0) {
            break;
        }
        const uint32_t bits = s0 << 18 | s1 << 12 | s2 << 6 | s3;
        out[0] = static_cast<unsigned char>(bits >> 16);
        out[1] = static_cast<unsigned char>(bits >> 8);
        out[2] = static_cast<unsigned char>(bits);
    }
    return done;
}

// Writes the 1 to 3 bytes of a group of four symbols (padding counts as 0).
inline void put_group(unsigned char *out, const uint8_t symbols[4], size_t count) noexcept
{
    const unsigned s0 = symbols[0];
    const unsigned s1 = symbols[1] & 0x3F;
    const unsigned s2 = symbols[2] & 0x3F;
    const unsigned s3 = symbols[3] & 0x3F;
    out[0] = static_cast<unsigned char>(s0 << 2 | s1 >> 4);
    if (count > 1) {
        out[1] = static_cast<unsigned char>(s1 << 4 | s2 >> 2);
    }
    if (count > 2) {
        out[2] = static_cast<unsigned char>(s2 << 6 | s3);
    }
}

// Number of bytes a complete group gives, or 0 when its padding is invalid.
// The tests run in the documented order; all end in the same failure.
inline size_t group_size(const uint8_t symbols[4]) noexcept
{
    if (symbols[0] == kPad || symbols[1] == kPad) {
        return 0;
    }
    if (symbols[2] == kPad) {
        return symbols[3] == kPad && (symbols[1] & 0x0F) == 0 ? 1 : 0;
    }
    if (symbols[3] == kPad) {
        return (symbols[2] & 0x03) == 0 ? 2 : 0;
    }
    return 3;
}

}  // namespace

extern "C" {

KU_API uint32_t ku_hex2ascii(const char *src, void *dst, uint32_t src_len, uint32_t dst_size) noexcept
{
    auto *out = static_cast<unsigned char *>(dst);
    clear(out, dst_size);
    const auto *in = reinterpret_cast<const unsigned char *>(src);
    // An odd length takes one more pair, whose low digit lies behind src_len.
    const uint32_t pairs = src_len / 2 + (src_len & 1);
    uint32_t decoded = 0;
    while (decoded < pairs) {
        const uint8_t high = kHexPairTable[in[0]];
        const uint8_t low = kHexPairTable[in[1]];
        if (((high | low) & kHexInvalid) != 0) {
            return 0;
        }
        out[decoded++] = static_cast<unsigned char>(high << 4 | low);
        in += 2;
    }
    return decoded;
}

KU_API int32_t ku_ascii2hex(const void *src, char *dst, int32_t src_len, uint32_t dst_size) noexcept
{
    clear(dst, dst_size);
    if (src_len < 0) {
        return 0;
    }
    const auto *in = static_cast<const unsigned char *>(src);
    const auto length = static_cast<size_t>(src_len);
    for (size_t i = 0; i < length; ++i) {
        std::memcpy(dst + 2 * i, kHexEncodeTable[in[i]].data(), 2);
    }
    return static_cast<int32_t>(2 * static_cast<uint32_t>(src_len));
}

KU_API uint32_t ku_a2hex(const char *str) noexcept
{
    uint32_t value = 0;
    for (int position = 0; position < kA2hexPositions && str[position] != '\0'; ++position) {
        const uint8_t digit = kHexDigitTable[static_cast<unsigned char>(str[position])];
        if (digit != kHexInvalid) {
            value = value << 4 | digit;
        }
    }
    return value;
}

KU_API int32_t ku_string_base64_decode(const char *src, void *dst, uint32_t dst_size) noexcept
{
    const auto *in = reinterpret_cast<const unsigned char *>(src);
    const size_t length = std::strlen(src);
    auto *out = static_cast<unsigned char *>(dst);
    // A group may end at most at dst + dst_size - 1: one byte always stays free.
    const size_t limit = dst_size;
    size_t written = 0;
    uint8_t group[4];
    size_t filled = 0;
    size_t pos = 0;
    while (pos < length) {
        if (filled == 0) {
            // Whole groups that surely fit leave at least one byte free.
            const size_t room = written < limit ? (limit - written - 1) / 3 : 0;
            const size_t groups = decode_plain_groups(in + pos, std::min((length - pos) / 4, room),
                                                      out + written);
            pos += 4 * groups;
            written += 3 * groups;
            if (pos == length) {
                break;
            }
        }
        const uint8_t symbol = kBase64DecodeTable[in[pos++]];
        if (symbol == kBlank) {
            continue;
        }
        if (symbol == kInvalid) {
            return -1;
        }
        group[filled++] = symbol;
        if (filled < 4) {
            continue;
        }
        filled = 0;
        const size_t count = group_size(group);
        if (count == 0 || written + count >= limit) {
            return -1;
        }
        put_group(out + written, group, count);
        written += count;
        if (count < 3) {
            // Behind a padded group only blanks may follow.
            for (; pos < length; ++pos) {
                if (kBase64DecodeTable[in[pos]] != kBlank) {
                    return -1;
                }
            }
        }
    }
    if (filled != 0) {
        return -1;
    }
    return static_cast<int32_t>(written);
}

KU_API int32_t ku_string_base64_encode(char *dst, const void *src, int32_t src_len) noexcept
{
    if (src_len <= 0) {
        dst[0] = '\0';
        return 0;
    }
    const auto *in = static_cast<const unsigned char *>(src);
    const auto length = static_cast<size_t>(src_len);
    char *out = dst;
    size_t pos = 0;
    // Whole groups only: the encoder must never read behind src_len.
    for (; length - pos >= 3; pos += 3, out += 4) {
        const uint32_t bits = static_cast<uint32_t>(in[pos]) << 16 |
                              static_cast<uint32_t>(in[pos + 1]) << 8 | in[pos + 2];
        std::memcpy(out, kBase64EncodeTable[bits >> 12].data(), 2);
        std::memcpy(out + 2, kBase64EncodeTable[bits & 0xFFF].data(), 2);
    }
    const size_t rest = length - pos;
    if (rest != 0) {
        const uint32_t bits = static_cast<uint32_t>(in[pos]) << 16 |
                              (rest == 2 ? static_cast<uint32_t>(in[pos + 1]) << 8 : 0);
        std::memcpy(out, kBase64EncodeTable[bits >> 12].data(), 2);
        out[2] = rest == 2 ? kBase64Alphabet[(bits >> 6) & 0x3F] : '=';
        out[3] = '=';
        out += 4;
    }
    *out = '\0';
    return static_cast<int32_t>(out - dst);
}

}  // extern "C"
