// Base64 decode of arbitrary text into a destination of arbitrary size, and
// the encode/decode round trip of arbitrary bytes. The destination is a heap
// block of exactly dst_size bytes, so ASan sees any write past the limit.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ku/codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const uint32_t dst_size = (static_cast<uint32_t>(data[0]) << 8 | data[1]) % 4096;
    data += 2;
    size -= 2;

    // 1. Decode the input as text.
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    std::vector<uint8_t> dst(dst_size);
    const int32_t decoded = ku_string_base64_decode(text.data(), dst.data(), dst_size);
    if (decoded != -1 && (decoded < 0 || (dst_size == 0 ? decoded != 0 : static_cast<uint32_t>(decoded) >= dst_size))) {
        abort();  // must leave at least one byte of dst free
    }

    // 2. Encode the input as bytes and decode it back.
    const int32_t length = static_cast<int32_t>(size);
    std::vector<char> encoded(static_cast<size_t>((length + 2) / 3 * 4 + 1));
    const int32_t written = ku_string_base64_encode(encoded.data(), data, length);
    if (written != (length + 2) / 3 * 4 || encoded[static_cast<size_t>(written)] != '\0') {
        abort();
    }
    std::vector<uint8_t> back(size + 1);
    const int32_t round = ku_string_base64_decode(encoded.data(), back.data(), static_cast<uint32_t>(back.size()));
    if (round != length || std::memcmp(back.data(), data, size) != 0) {
        abort();
    }
    return 0;
}
