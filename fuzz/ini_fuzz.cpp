// A fuzzed INI file, read and rewritten by a fuzzed sequence of
// GetIniKeyString/GetIniKeyInt/PutIniKeyString/PutIniKeyInt calls beside a
// reference model written from the format: fgets lines of 1023 bytes, the
// header test, the first '=' as the end of the key text, the writer's state
// machine and its refusals (section over 29 bytes, path over 1019 bytes, a
// key line that would not fit 1024 bytes). After each write the file must
// hold exactly the model's bytes and no temporary file may stay behind.
//
// GetIniKeyString returns into one process-wide line buffer: each result is
// compared at once, before the next call overwrites it. The files live in a
// private temporary directory; a path may be padded with "./" steps to pass
// the writer's path limit.
//
// Input: two bytes of file length, the file, then the operations.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "ku/ini.h"

namespace {

// The file as fgets(…, 1024, …) hands it out, each line seen as a C string.
std::vector<std::string> lines_of(const std::string &file)
{
    std::vector<std::string> lines;
    size_t at = 0;
    while (at < file.size()) {
        size_t end = at;
        while (end < file.size() && end - at < 1023 && file[end] != '\n') ++end;
        if (end < file.size() && end - at < 1023) ++end;
        const std::string chunk = file.substr(at, end - at);
        lines.push_back(chunk.substr(0, chunk.find('\0')));
        at = end;
    }
    return lines;
}

bool is_header(const std::string &line, const std::string &header)
{
    return line == header || line == header + "\n";
}

bool is_comment(const std::string &line)
{
    return line.rfind("#", 0) == 0 || line.rfind("//", 0) == 0;
}

bool key_matches(const std::string &line, const std::string &key)
{
    const size_t equals = line.find('=');
    return equals != std::string::npos && line.compare(0, equals, key) == 0 && equals == key.size();
}

std::optional<std::string> get_model(const std::string &file, const std::string &section, const std::string &key)
{
    const std::string header = "[" + section + "]";
    if (header.size() > 31) return std::nullopt;
    bool seen = false;
    for (const std::string &line : lines_of(file)) {
        if (is_comment(line)) continue;
        if (seen && line.find('=') != std::string::npos) {
            if (key_matches(line, key)) {
                std::string value = line.substr(line.find('=') + 1);
                if (!value.empty() && value.back() == '\n') value.pop_back();
                return value;
            }
            continue;
        }
        if (is_header(line, header)) seen = true;
    }
    return std::nullopt;
}

// The new file, or nothing when the writer must refuse and leave it alone.
std::optional<std::string> put_model(const std::string &file, const std::string &section, const std::string &key,
                                     const std::string &value, const std::string &path)
{
    const std::string header = "[" + section + "]";
    if (header.size() > 31 || path.size() > 1019) return std::nullopt;
    int state = 0;
    std::string out;
    for (std::string line : lines_of(file)) {
        if (state == 0 && is_header(line, header)) {
            state = 1;
        } else if (state == 1 && key_matches(line, key)) {
            line = line.substr(0, line.find('=') + 1) + value + "\n";
            if (line.size() > 1023) return std::nullopt;
            state = 2;
        }
        out += line;
    }
    return out;
}

const TempDir dir("ini");

// One of a few names drawn from the input, so that calls meet each other.
std::string pick(Input &in, const std::vector<std::string> &names)
{
    const uint8_t b = in.byte();
    if (b < 0xC0) return names[b % names.size()];
    return in.c_text(b - 0xC0 + (b == 0xFF ? in.byte() : 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    std::string file = in.text(in.number(2));
    const uint8_t padding = in.byte();
    // Most paths are short; padded ones straddle the 1019-byte limit.
    std::string path = dir.path + "/";
    const size_t steps = padding < 0xE0 ? 0 : 470 + (padding - 0xE0) * 2;
    for (size_t i = 0; i < steps; ++i) path += "./";
    path += "f.ini";
    const std::string temporary = dir.path + "/f.ini.tmp";
    write_file(dir.path + "/f.ini", file);

    static const std::vector<std::string> sections = {"s", "sec", "", "[s]", "a=b", std::string(29, 'x'),
                                                      std::string(30, 'x')};
    static const std::vector<std::string> keys = {"k", "key", "", "k ", "#k", "//k", "[s]"};
    while (in.size > 0) {
        const uint8_t op = in.byte() % 4;
        const std::string section = pick(in, sections);
        const std::string key = pick(in, keys);
        const std::optional<std::string> expected = get_model(file, section, key);
        switch (op) {
        case 0: {
            const char *value = GetIniKeyString(section.c_str(), key.c_str(), path.c_str());
            fail_unless((value == nullptr) == !expected.has_value());
            if (value != nullptr) fail_unless(*expected == value);
            break;
        }
        case 1:
            fail_unless(GetIniKeyInt(section.c_str(), key.c_str(), path.c_str()) ==
                        (expected ? atoi(expected->c_str()) : 0));
            break;
        case 2:
        case 3: {
            std::string value;
            if (op == 2) {
                value = in.c_text(in.byte() < 0xF0 ? in.byte() : in.number(2) % 1100);
                fail_unless(PutIniKeyString(section.c_str(), key.c_str(), value.c_str(), path.c_str()) ==
                            (put_model(file, section, key, value, path) ? 0 : -1));
            } else {
                const int number = static_cast<int>(static_cast<uint32_t>(in.number(4)));
                value = std::to_string(number);
                fail_unless(PutIniKeyInt(section.c_str(), key.c_str(), number, path.c_str()) ==
                            (put_model(file, section, key, value, path) ? 0 : -1));
            }
            if (const std::optional<std::string> written = put_model(file, section, key, value, path)) {
                file = *written;
            }
            fail_unless(read_file(dir.path + "/f.ini") == file);
            fail_unless(read_file(temporary) == "<missing>");
            break;
        }
        }
    }
    return 0;
}
