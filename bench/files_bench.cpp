// Text tables and INI files at realistic sizes: a 16 MiB table of 100k rows
// (throughput and the memory the loaded table holds against the file size),
// and the read of the last key of a 1 MiB INI file.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "ku/ini.h"
#include "ku/table.h"

namespace {

std::string temp_path(const char *name)
{
    const char *dir = getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/" + name + std::to_string(getpid());
}

// 100000 rows of 8 fields, about 168 bytes a row: 16 MiB.
const std::string &table_file()
{
    static const std::string path = [] {
        const std::string file = temp_path("ku-bench-table-");
        FILE *out = fopen(file.c_str(), "w");
        for (int row = 0; row < 100000; ++row) {
            fprintf(out, "row%06d field\\ with\\ escapes 12345678901234567890 abcdefghijklmnopqrstuv "
                         "0x%08X some-longer-token-here-for-width value%d last-column-of-the-row-padded-out\n",
                    row, row * 2654435761u, row % 97);
        }
        fclose(out);
        return file;
    }();
    return path;
}

void BM_kutable_load_16MiB(benchmark::State &state)
{
    const std::string &path = table_file();
    FILE *probe = fopen(path.c_str(), "r");
    fseek(probe, 0, SEEK_END);
    const long file_size = ftell(probe);
    fclose(probe);
    size_t held = 0;
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks;
        kutable *table = kutable_load(path.c_str());
        held = mallinfo2().uordblks - before;
        benchmark::DoNotOptimize(table);
        kutable_close(table);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * file_size);
    state.counters["file_MiB"] = static_cast<double>(file_size) / (1 << 20);
    state.counters["heap_MiB"] = static_cast<double>(held) / (1 << 20);
    state.counters["heap_per_file_byte"] = static_cast<double>(held) / static_cast<double>(file_size);
}
BENCHMARK(BM_kutable_load_16MiB)->Unit(benchmark::kMillisecond);

const std::string &ini_file()
{
    static const std::string path = [] {
        const std::string file = temp_path("ku-bench-ini-");
        FILE *out = fopen(file.c_str(), "w");
        fprintf(out, "[main]\n");
        long written = 0;
        int key = 0;
        while (written < (1 << 20)) {
            written += fprintf(out, "key%06d=value of key number %d with some text\n", key, key);
            ++key;
        }
        fprintf(out, "last=found\n");
        fclose(out);
        return file;
    }();
    return path;
}

void BM_GetIniKeyString_last_key_of_1MiB(benchmark::State &state)
{
    const std::string &path = ini_file();
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetIniKeyString("main", "last", path.c_str()));
    }
}
BENCHMARK(BM_GetIniKeyString_last_key_of_1MiB)->Unit(benchmark::kMicrosecond);

struct Cleanup {
    ~Cleanup()
    {
        unlink(table_file().c_str());
        unlink(ini_file().c_str());
    }
};

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    Cleanup cleanup;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
