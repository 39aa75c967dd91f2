// String helpers on terminated byte texts, all in place except the token.
// Plain ASCII ranges on purpose: the device's applications expect the same
// result whatever locale a process has set.
#include "ku/str.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ku/clock.h"

namespace {

constexpr char kBlank = ' ';
// The token is at most 16 hex digits; the block is larger so that a caller may
// append to it.
constexpr size_t kRandomBlock = 64;
constexpr size_t kRandomLimit = 63;

// Adds `shift` to every byte in [first, last]; bytes are compared unsigned so
// that 0x80 and above never match.
char *shift_range(char *str, unsigned char first, unsigned char last, int shift) noexcept
{
    if (str == nullptr) {
        return str;
    }
    for (unsigned char *p = reinterpret_cast<unsigned char *>(str); *p != 0; ++p) {
        if (*p >= first && *p <= last) {
            *p = static_cast<unsigned char>(*p + shift);
        }
    }
    return str;
}

}  // namespace

extern "C" {

KU_API char *strupr(char *str) noexcept
{
    return shift_range(str, 'a', 'z', -32);
}

KU_API char *strlwr(char *str) noexcept
{
    return shift_range(str, 'A', 'Z', 32);
}

KU_API void ku_string_trim(char *str) noexcept
{
    const size_t length = std::strlen(str);
    if (length == 0) {
        return;
    }
    size_t leading = 0;
    while (leading < length && str[leading] == kBlank) {
        ++leading;
    }
    size_t trailing = 0;
    while (trailing < length && str[length - 1 - trailing] == kBlank) {
        ++trailing;
    }
    // For an all-blank text each count equals the length, hence >=.
    if (leading + trailing >= length) {
        str[0] = '\0';
        return;
    }
    const size_t kept = length - leading - trailing;
    // Source and destination overlap whenever there are leading blanks.
    std::memmove(str, str + leading, kept);
    str[kept] = '\0';
}

KU_API char *ku_string_random(void) noexcept
{
    // The clock is read before the allocation, so the token tells when the
    // call started, not how long malloc took.
    const int64_t ticks = ku_ns_ticks();
    char *token = static_cast<char *>(std::malloc(kRandomBlock));
    if (token == nullptr) {
        return nullptr;
    }
    std::snprintf(token, kRandomLimit, "%llx", static_cast<unsigned long long>(ticks));
    return token;
}

}  // extern "C"
