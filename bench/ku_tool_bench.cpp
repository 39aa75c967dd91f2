// ku b64 decode and ku hex decode of 64 MiB against coreutils `base64 -d` and
// `xxd -r -p`, each run as a child process from a file to /dev/null, the way
// a user runs them. Time is wall time (the work is the child's); peak_KiB is
// the child's peak resident memory. The goal: at least 0.9x the peer's
// throughput at no more memory.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ku/codec.h"
#include "support/subprocess.h"

namespace {

constexpr size_t kBytes = size_t{64} << 20;

std::string make_input(bool base64)
{
    std::string raw(kBytes, '\0');
    uint32_t state = 1;
    for (char &byte : raw) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    std::string text(base64 ? raw.size() / 3 * 4 + 8 : raw.size() * 2, '\0');
    if (base64)
        text.resize(static_cast<size_t>(ku_string_base64_encode(
            text.data(), reinterpret_cast<const unsigned char *>(raw.data()), static_cast<int32_t>(raw.size()))));
    else
        ku_ascii2hex(reinterpret_cast<const unsigned char *>(raw.data()), text.data(),
                     static_cast<int32_t>(raw.size()), 0);
    // Folded as the peers' own encoders write it: 76 and 60 columns.
    const size_t width = base64 ? 76 : 60;
    std::string folded;
    folded.reserve(text.size() + text.size() / width + 1);
    for (size_t at = 0; at < text.size(); at += width)
        folded.append(text, at, width).push_back('\n');
    const std::string path = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") +
                             (base64 ? "/ku_tool_bench.b64" : "/ku_tool_bench.hex");
    FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr || std::fwrite(folded.data(), 1, folded.size(), file) != folded.size() ||
        std::fclose(file) != 0)
        std::abort();
    return path;
}

const std::string &input(bool base64)
{
    static const std::string b64 = make_input(true), hex = make_input(false);
    return base64 ? b64 : hex;
}

// `command` reads stdin; the shell gives it the input file and /dev/null.
void decode(benchmark::State &state, const std::string &command, bool base64)
{
    if (command.front() == ' ') {
        state.SkipWithError("the ku tool is not built");
        return;
    }
    const std::string &in = input(base64);
    long peak = 0;
    for (auto _ : state) {
        const auto result =
            ku_test::run_process({"sh", "-c", command + " < " + in + " > /dev/null"});
        if (result.status != 0) {
            state.SkipWithError((command + " failed").c_str());
            return;
        }
        peak = std::max(peak, result.peak_kib);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
    state.counters["peak_KiB"] = static_cast<double>(peak);
}

BENCHMARK_CAPTURE(decode, ku_b64, std::string(KU_TOOL_PATH " b64 decode"), true)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(decode, coreutils_base64, std::string("base64 -d"), true)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(decode, ku_hex, std::string(KU_TOOL_PATH " hex decode"), false)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(decode, xxd, std::string("xxd -r -p"), false)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
