// Hex and Base64 decoding of any text into a destination of any size, and the
// encode/decode round trips of any bytes. Every destination is a heap block of
// exactly the size the call is given, so a write past it is an ASan finding.
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "ku/codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const auto room = static_cast<uint32_t>(in.number(2) % 4096);
    const std::string text = in.text(size);  // the rest, as text and as bytes
    const auto length = static_cast<uint32_t>(text.size());

    std::vector<uint8_t> dst(room);
    const int32_t decoded = ku_string_base64_decode(text.c_str(), dst.data(), room);
    // A decode leaves at least one byte of the room free.
    const bool leaves_a_byte = room == 0 ? decoded == 0 : decoded >= 0 && uint32_t(decoded) < room;
    fail_unless(decoded == -1 || leaves_a_byte);
    std::vector<uint8_t> bytes((length + 1) / 2);  // hex needs no more, whatever it is told
    const uint32_t hex_room = uint32_t(bytes.size());
    fail_unless(ku_hex2ascii(text.c_str(), bytes.data(), length, hex_room) <= hex_room);
    ku_a2hex(text.c_str());

    std::vector<char> base64((length + 2) / 3 * 4 + 1), hex(2 * length + 1);
    fail_unless(ku_string_base64_encode(base64.data(), text.data(), int32_t(length)) ==
                int32_t(base64.size() - 1));
    fail_unless(ku_ascii2hex(text.data(), hex.data(), int32_t(length), uint32_t(hex.size())) ==
                int32_t(hex.size() - 1));
    std::vector<char> back(length + 1);
    fail_unless(ku_string_base64_decode(base64.data(), back.data(), length + 1) == int32_t(length));
    fail_unless(memcmp(back.data(), text.data(), length) == 0);
    fail_unless(ku_hex2ascii(hex.data(), back.data(), 2 * length, length) == length);
    fail_unless(memcmp(back.data(), text.data(), length) == 0);
    return 0;
}
