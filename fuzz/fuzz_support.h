// Pieces the file-driven fuzz targets share: a reader over the fuzz input, a
// private temporary directory that lives as long as the process, and whole-
// file reads and writes.
#ifndef KU_FUZZ_SUPPORT_H
#define KU_FUZZ_SUPPORT_H

#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// Stops the run when a check fails, naming it (seen when a finding is
// replayed: the runner closes the target's stderr while it fuzzes).
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
    // A big-endian number of `bytes` bytes.
    size_t number(int bytes)
    {
        size_t value = 0;
        for (int k = 0; k < bytes; ++k) value = value << 8 | byte();
        return value;
    }
    // Up to `length` raw bytes, zero bytes included.
    std::string text(size_t length)
    {
        if (length > size) length = size;
        std::string out(reinterpret_cast<const char *>(data), length);
        data += length;
        size -= length;
        return out;
    }
    // Up to `length` bytes as a C string argument: zero bytes become spaces.
    std::string c_text(size_t length)
    {
        std::string out = text(length);
        for (char &c : out) {
            if (c == '\0') c = ' ';
        }
        return out;
    }
};

// A fresh directory under /dev/shm (or /tmp), emptied and removed at exit.
struct TempDir {
    std::string path;

    explicit TempDir(const char *name)
    {
        const char *base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string pattern = std::string(base) + "/ku-fuzz-" + name + "-XXXXXX";
        fail_unless(mkdtemp(pattern.data()) != nullptr);
        path = pattern;
    }
    ~TempDir()
    {
        if (DIR *dir = opendir(path.c_str())) {
            while (dirent *entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..") unlink((path + "/" + name).c_str());
            }
            closedir(dir);
        }
        rmdir(path.c_str());
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
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
    FILE *file = fopen(path.c_str(), "rb");
    if (file == nullptr) return "<missing>";
    std::string content;
    char chunk[4096];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) content.append(chunk, got);
    fclose(file);
    return content;
}

#endif  // KU_FUZZ_SUPPORT_H
