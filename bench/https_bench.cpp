// Download throughput over loopback HTTP from nginx: HttpsRequest and
// HttpsRequestNonBlock into a file against the curl command-line tool fetching
// the same URL to a file, and both requests into memory with their peak
// resident memory against the body size (the body grows additively, by the
// size of each piece libcurl delivers).
//
// Run with TMPDIR=/dev/shm to keep the disk's writeback out of the figures,
// and with stderr sent away (the cancellable request traces every download).
#include <benchmark/benchmark.h>

#include <malloc.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ku/https.h"
#include "support/nginx_server.h"
#include "support/temp_dir.h"

extern char **environ;

namespace {

constexpr long kMiB = 1 << 20;

struct Site {
    ku_test::TempDir dir;
    std::unique_ptr<ku_test::NginxServer> nginx;

    Site()
    {
        // A fixed mmap threshold: every large body lives in its own mapping
        // and leaves with its free, so each download's peak is its own.
        mallopt(M_MMAP_THRESHOLD, 1 << 20);
        const std::string root = dir.file("www");
        mkdir(root.c_str(), 0755);
        for (long mib : {16L, 64L, 256L}) {
            std::ofstream out(root + file_name(mib), std::ios::binary);
            std::string block(kMiB, '\0');
            for (long i = 0; i < mib; ++i) {
                for (size_t j = 0; j < block.size(); j += 64) {
                    block[j] = static_cast<char>(i + j);
                }
                out.write(block.data(), static_cast<std::streamsize>(block.size()));
            }
        }
        nginx = std::make_unique<ku_test::NginxServer>(dir.path(), root);
    }
    std::string url(long mib) const { return nginx->http_url(file_name(mib)); }
    static std::string file_name(long mib)
    {
        char name[32];
        snprintf(name, sizeof name, "/%ld.bin", mib);
        return name;
    }
    std::string save_path() const { return dir.file("download.bin"); }
};

Site &site()
{
    static Site shared;
    return shared;
}

bool site_ready(benchmark::State &state)
{
    if (!site().nginx->ok()) {
        state.SkipWithError(("nginx unavailable: " + site().nginx->error()).c_str());
        return false;
    }
    return true;
}

long kib_field(const char *name)
{
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = 0;
    while (status >> key) {
        if (key == name) {
            status >> value;
            return value;
        }
        status.ignore(1 << 10, '\n');
    }
    return 0;
}

// Resets the peak resident size so that VmHWM covers only what follows.
void reset_peak()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

double seconds_ms(const timeval &time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

void check(benchmark::State &state, HttpsResponse *response, long bytes)
{
    if (response == nullptr || static_cast<long>(response->body_length) != bytes) {
        state.SkipWithError("download incomplete");
    }
}

// Downloads the file of state.range(0) MiB with `download(url, path)` in
// every iteration and checks the record's length.
template <typename Download>
void download_to_file(benchmark::State &state, Download download)
{
    if (!site_ready(state)) {
        return;
    }
    const long bytes = state.range(0) * kMiB;
    const std::string url = site().url(state.range(0));
    const std::string path = site().save_path();
    for (auto _ : state) {
        HttpsResponse *response = download(url.c_str(), path.c_str(), bytes);
        check(state, response, bytes);
        HttpsFreeResponse(response);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void BM_HttpsRequest_ToFile(benchmark::State &state)
{
    download_to_file(state, [](const char *url, const char *path, long) {
        return HttpsRequest(url, nullptr, nullptr, path, 120);
    });
}

void BM_HttpsRequestNonBlock_ToFile(benchmark::State &state)
{
    download_to_file(state, [](const char *url, const char *path, long bytes) {
        HttpsOption option{};
        option.save_path = path;
        option.time_limit = 120;
        option.total_size = static_cast<uint32_t>(bytes);
        option.progress = [](uintptr_t, uintptr_t, int percent) { return percent; };
        return HttpsRequestNonBlock(url, nullptr, nullptr, &option);
    });
}

// The peer: the curl command-line tool, started afresh for every download as
// a user of it would.
void BM_CurlCli_ToFile(benchmark::State &state)
{
    if (!site_ready(state)) {
        return;
    }
    const long bytes = state.range(0) * kMiB;
    std::string url = site().url(state.range(0));
    std::string path = site().save_path();
    std::string program = "curl";
    std::string silent = "-s";
    std::string output = "-o";
    char *argv[] = {program.data(), silent.data(), output.data(), path.data(), url.data(), nullptr};
    double child_cpu_ms = 0;
    for (auto _ : state) {
        pid_t pid = 0;
        int status = -1;
        rusage usage{};
        if (posix_spawnp(&pid, "curl", nullptr, nullptr, argv, environ) != 0 ||
            wait4(pid, &status, 0, &usage) != pid || status != 0) {
            state.SkipWithError("curl failed");
            return;
        }
        child_cpu_ms += seconds_ms(usage.ru_utime) + seconds_ms(usage.ru_stime);
        struct stat info {};
        if (stat(path.c_str(), &info) != 0 || info.st_size != bytes) {
            state.SkipWithError("curl download incomplete");
        }
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    // The tool's own CPU time, which the CPU column cannot see.
    state.counters["child_cpu_ms"] =
        benchmark::Counter(child_cpu_ms, benchmark::Counter::kAvgIterations);
}

template <bool NonBlock>
void BM_ToMemory(benchmark::State &state)
{
    if (!site_ready(state)) {
        return;
    }
    const long bytes = state.range(0) * kMiB;
    const std::string url = site().url(state.range(0));
    long peak_kib = 0;
    for (auto _ : state) {
        const long before = kib_field("VmRSS:");
        reset_peak();
        HttpsResponse *response = nullptr;
        if (NonBlock) {
            HttpsOption option{};
            option.time_limit = 120;
            response = HttpsRequestNonBlock(url.c_str(), nullptr, nullptr, &option);
        } else {
            response = HttpsRequest(url.c_str(), nullptr, nullptr, nullptr, 120);
        }
        const long grown = kib_field("VmHWM:") - before;
        peak_kib = grown > peak_kib ? grown : peak_kib;
        check(state, response, bytes);
        HttpsFreeResponse(response);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    state.counters["peak_MiB"] = static_cast<double>(peak_kib) / 1024.0;
    state.counters["peak_per_body"] = static_cast<double>(peak_kib) * 1024.0 / static_cast<double>(bytes);
}

// On a shared machine the fastest repetition is the one least disturbed.
double fastest(const std::vector<double> &values)
{
    return *std::min_element(values.begin(), values.end());
}

BENCHMARK(BM_HttpsRequest_ToFile)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->ComputeStatistics("min", fastest);
BENCHMARK(BM_CurlCli_ToFile)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->ComputeStatistics("min", fastest);
BENCHMARK(BM_HttpsRequestNonBlock_ToFile)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->ComputeStatistics("min", fastest);
BENCHMARK(BM_ToMemory<false>)->Name("BM_HttpsRequest_ToMemory")->Arg(16)->Arg(64)->Arg(256)
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ToMemory<true>)->Name("BM_HttpsRequestNonBlock_ToMemory")->Arg(16)->Arg(64)->Arg(256)
    ->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
