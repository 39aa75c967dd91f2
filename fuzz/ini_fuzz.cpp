// A fuzzed INI file (zero bytes as spaces) and fuzzed PutIniKeyString calls: a refused
// write leaves the file byte for byte, a key the reader found reads back as the new value,
// and no temporary file stays. Input: two bytes of file length, the file, then the calls.
#include "fuzz_support.h"
#include "ku/ini.h"

static const ku_test::TempDir &dir = fuzz_dir();

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const std::string path = dir.write("f.ini", in.c_text(in.number(2)));
    while (in.size > 0) {
        const std::string section = in.c_text(in.byte() % 34), key = in.c_text(in.byte() % 6);
        const std::string value = in.c_text(in.number(2) % 1100), before = ku_test::read_file(path);
        const char *s = section.c_str(), *k = key.c_str(), *p = path.c_str();
        const bool reads_back = value.find('\n') == value.npos && GetIniKeyString(s, k, p);
        const int result = PutIniKeyString(s, k, value.c_str(), p);
        fail_unless(result == 0 || (result == -1 && ku_test::read_file(path) == before));
        fail_unless(access((path + ".tmp").c_str(), F_OK) != 0);
        if (result == 0 && reads_back) fail_unless(value == GetIniKeyString(s, k, p));
    }
    return 0;
}
