// Cost of a log line against the bare stdio call that writes the same text,
// and cost of a held-back loop trace against the vsnprintf it cannot avoid.
// stderr goes to /dev/null so that only the library's own work is measured.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "ku/log.h"

namespace {

struct DiscardStderr {
    DiscardStderr()
    {
        saved = dup(STDERR_FILENO);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDERR_FILENO);
        close(null);
    }
    ~DiscardStderr()
    {
        fflush(stderr);
        dup2(saved, STDERR_FILENO);
        close(saved);
    }
    int saved;
};

void BM_ku_err_line(benchmark::State &state)
{
    DiscardStderr discard;
    int i = 0;
    for (auto _ : state) {
        ku_err("sensor %d reading %s out of range\n", ++i, "temperature");
    }
}
BENCHMARK(BM_ku_err_line);

// The peer: one fprintf of the finished line, as the log would write it.
void BM_fprintf_finished_line(benchmark::State &state)
{
    DiscardStderr discard;
    int i = 0;
    for (auto _ : state) {
        fprintf(stderr, "[%02d-%02d-%02d#%02d:%02d:%02d#%lld]%s %s", 2026, 11, 22, 23, 42, 7,
                123456789LL, "ERR: ", "sensor 1 reading temperature out of range\n");
        benchmark::DoNotOptimize(++i);
    }
}
BENCHMARK(BM_fprintf_finished_line);

// The strictest peer: the finished text handed to fprintf through "%s"
// (which the compiler turns into fputs).
void BM_fprintf_finished_text(benchmark::State &state)
{
    DiscardStderr discard;
    const char *line = "[2026-11-22#23:42:07#123456789]ERR:  sensor 1 reading temperature out of range\n";
    for (auto _ : state) {
        fprintf(stderr, "%s", line);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_fprintf_finished_text);

void BM_ku_loop_trace_held_back(benchmark::State &state)
{
    DiscardStderr discard;
    ku_loop_trace(77, 0, "stamp\n");  // slot 77 is stamped now; 1 h gate holds
    int i = 0;
    for (auto _ : state) {
        ku_loop_trace(77, 3600000, "sensor %d reading %s out of range\n", ++i, "temperature");
    }
}
BENCHMARK(BM_ku_loop_trace_held_back);

int format_only(char *out, size_t size, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const int n = vsnprintf(out, size, fmt, args);
    va_end(args);
    return n;
}

void BM_vsnprintf_message(benchmark::State &state)
{
    char local[257];
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            format_only(local, sizeof local, "sensor %d reading %s out of range\n", ++i, "temperature"));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_vsnprintf_message);

}  // namespace

BENCHMARK_MAIN();
