// Pieces the fuzz targets share: a reader over the fuzz input, a check that
// names itself, the file targets' directory.
#ifndef KU_FUZZ_SUPPORT_H
#define KU_FUZZ_SUPPORT_H
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/temp_dir.h"

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

// On /dev/shm where there is one: the fsyncs of every INI rewrite cost
// nothing there. Removed with its files at exit.
inline const ku_test::TempDir &fuzz_dir()
{
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
    static const ku_test::TempDir dir;
    return dir;
}
#endif  // KU_FUZZ_SUPPORT_H
