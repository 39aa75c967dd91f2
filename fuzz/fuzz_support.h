// Pieces the fuzz targets share: a reader over the fuzz input, the reference
// model of the container targets, a temporary directory and file helpers.
#ifndef KU_FUZZ_SUPPORT_H
#define KU_FUZZ_SUPPORT_H
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Stops the run naming the check (seen when a finding is replayed: the
// runner closes the target's stderr while it fuzzes).
[[noreturn]] inline void fail_at(const char *file, int line, const char *check)
{
    fprintf(stderr, "%s:%d: check failed: %s\n", file, line, check);
    abort();
}
#define fail_unless(ok) ((ok) ? (void)0 : fail_at(__FILE__, __LINE__, #ok))

struct Input {
    const uint8_t *data;
    size_t size;
    uint8_t byte()
    {
        if (size == 0) return 0;
        --size;
        return *data++;
    }
    size_t number(int bytes)  // big-endian
    {
        size_t value = 0;
        for (int k = 0; k < bytes; ++k) value = value << 8 | byte();
        return value;
    }
    std::string text(size_t length)  // up to `length` raw bytes
    {
        std::string out(reinterpret_cast<const char *>(data), std::min(length, size));
        data += out.size();
        size -= out.size();
        return out;
    }
    std::string c_text(size_t length)  // as text(), zero bytes made spaces
    {
        std::string out = text(length);
        std::replace(out.begin(), out.end(), '\0', ' ');
        return out;
    }
};

// What a container must hold, in order: the byte buffer edits `held` in
// place; the ring, the cache and the list take from its front. Bytes made by
// fresh() count up, so a lost, doubled or reordered byte shows.
struct ByteModel {
    std::string held;
    uint8_t next = 0;
    std::string fresh(size_t n)
    {
        std::string out(n, '\0');
        for (char &c : out) c = static_cast<char>(++next);
        return out;
    }
    std::string take(size_t n)
    {
        std::string out = held.substr(0, n);
        held.erase(0, n);
        return out;
    }
};

// A fresh directory under /dev/shm (or /tmp), removed with its files at exit.
struct TempDir {
    std::string path;
    explicit TempDir(const char *name)
    {
        path = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        path = path + "/ku-fuzz-" + name + "-XXXXXX";
        fail_unless(mkdtemp(path.data()) != nullptr);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
};

inline void write_file(const std::string &path, const std::string &content)
{
    FILE *file = fopen(path.c_str(), "wb");
    fail_unless(file != nullptr);
    fail_unless(fwrite(content.data(), 1, content.size(), file) == content.size());
    fail_unless(fclose(file) == 0);
}

// The whole file, or "<missing>" when it cannot be opened.
inline std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "<missing>";
}
#endif  // KU_FUZZ_SUPPORT_H
