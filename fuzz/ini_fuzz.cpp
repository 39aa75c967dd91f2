// A fuzzed INI file rewritten by fuzzed PutIniKeyString calls, each read back
// with GetIniKeyString, which picks the same line (keys that look like
// comments aside: only the writer sees those). A refused write leaves the file
// byte for byte, a key not found is not added, a key found reads back as the
// new value, and no temporary file stays. Zero bytes in the file become spaces.
//
// Input: two bytes of file length, the file, then the calls.
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "ku/ini.h"

static const TempDir dir("ini");

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const std::string path = dir.path + "/f.ini";
    write_file(path, in.c_text(in.number(2)));
    while (in.size > 0) {
        const std::string section = in.c_text(in.byte() % 34), key = in.c_text(in.byte() % 6);
        std::string value = in.c_text(in.byte() < 0xF0 ? in.byte() : in.number(2) % 1100);
        for (char &c : value) c = c == '\n' ? ' ' : c;
        const char *s = section.c_str(), *k = key.c_str(), *p = path.c_str();
        const bool comment = key.rfind('#', 0) == 0 || key.rfind("//", 0) == 0;
        const std::string before = read_file(path);
        const bool found = GetIniKeyString(s, k, p) != nullptr;
        const int result = PutIniKeyString(s, k, value.c_str(), p);
        fail_unless(result == 0 || result == -1);
        fail_unless(read_file(path + ".tmp") == "<missing>");
        if (result == -1 || (!found && !comment)) fail_unless(read_file(path) == before);
        const char *now = GetIniKeyString(s, k, p);
        if (result == 0 && found) fail_unless(now != nullptr && value == now);
    }
    return 0;
}
