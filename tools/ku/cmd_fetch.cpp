// ku fetch: one download through HttpsRequestNonBlock, the library's
// cancellable request. The body always goes to a file (FILE.part beside -o
// FILE, renamed into place on success, or a temporary file copied to stdout),
// so the tool can show live progress from the cancel test and an earlier
// FILE survives a failed download. Ctrl-C is answered through the cancel test.
#include <ku/clock.h>
#include <ku/https.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku fetch URL [-o FILE] [-i] [--post DATA] [-H HEADER]... [--timeout S]\n"
    "                    [--size BYTES] [-v]\n"
    "\n"
    "Downloads URL (http:// or https://; without a scheme https:// is used) and\n"
    "writes the body to stdout, or to FILE with -o. HTTPS peers are verified\n"
    "against /etc/ssl/certs/ca-certificates.crt. Redirects are not followed.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE   write the body to FILE; it is written as FILE.part and\n"
    "                      renamed on success, so a failed download leaves an\n"
    "                      existing FILE alone\n"
    "  -i, --include       print the status line and the response headers on\n"
    "                      stdout before the body\n"
    "  --post DATA         send a POST with DATA as its body (default: GET)\n"
    "  -H, --header TEXT   add a request header, such as 'Accept: text/plain';\n"
    "                      may be given more than once\n"
    "  --timeout S         limit of the whole transfer in seconds (default 300)\n"
    "  --size BYTES        the expected size of the body: the progress bar then\n"
    "                      shows a percentage\n"
    "  -v, --verbose       let the library's own log lines through on stderr\n"
    "\n"
    "On a terminal, stderr shows a live progress bar: the percentage when --size\n"
    "is given, else the bytes so far and the rate. Ctrl-C cancels the download\n"
    "cleanly (status 130). A response of 300 or above, no response, a time-out or\n"
    "a body shorter than its Content-Length fail with status 1.\n";

constexpr int kDefaultTimeout = 300;
constexpr int kExitInterrupted = 130;

volatile sig_atomic_t g_interrupted = 0;

void on_interrupt(int)
{
    g_interrupted = 1;
}

int64_t now_ms()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

std::string human_bytes(double bytes)
{
    const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    while (bytes >= 1024 && unit < 4) {
        bytes /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

// The live progress line on the terminal. It is fed from two places: the
// library's percentage callback (only with --size) and the cancel test,
// which runs once per pass of the request loop and reads the file position.
struct Progress {
    FILE *terminal = nullptr;  // null: no bar (stderr is no terminal)
    HttpsOption *option = nullptr;
    int64_t start_ms = 0;
    int64_t drawn_ms = -1;
    int percent = -1;
    bool drawn = false;
    // Once the request has returned, its file is closed: the final figure
    // comes from the response instead.
    bool finished = false;
    uint64_t final_bytes = 0;

    uint64_t bytes() const
    {
        if (finished)
            return final_bytes;
        if (option->total_size != 0)
            return option->done_size;
        if (option->file == nullptr)
            return 0;
        const long position = std::ftell(option->file);
        return position > 0 ? static_cast<uint64_t>(position) : 0;
    }

    void draw(bool force)
    {
        if (terminal == nullptr)
            return;
        const int64_t now = now_ms();
        if (!force && drawn_ms >= 0 && now - drawn_ms < 100)
            return;
        drawn_ms = now;
        const uint64_t done = bytes();
        const double seconds = static_cast<double>(now - start_ms) / 1000.0;
        const std::string rate = seconds > 0 ? human_bytes(static_cast<double>(done) / seconds) + "/s" : "";
        std::string line;
        if (option->total_size != 0) {
            const int shown = percent < 0 ? 0 : percent;
            const int filled = (shown > 100 ? 100 : shown) * 30 / 100;
            // Appends, not "literal" + std::string: GCC 12 at -O3 warns a false
            // -Wrestrict inside that operator+.
            line.assign(1, '[').append(static_cast<size_t>(filled), '#');
            line.append(static_cast<size_t>(30 - filled), '-').append("] ").append(std::to_string(shown));
            line.append("%  ").append(human_bytes(static_cast<double>(done))).append(" of ");
            line.append(human_bytes(option->total_size)).append("  ").append(rate);
        } else {
            line = human_bytes(static_cast<double>(done)) + "  " + rate;
        }
        std::fprintf(terminal, "\r%s\033[K", line.c_str());
        std::fflush(terminal);
        drawn = true;
    }

    void finish(uint64_t body_bytes)
    {
        finished = true;
        final_bytes = body_bytes;
        if (terminal == nullptr || !drawn)
            return;
        if (option->total_size != 0)
            percent = static_cast<int>(body_bytes * 100 / option->total_size);
        draw(true);
        std::fputc('\n', terminal);
        std::fflush(terminal);
    }
};

int cancel_test(void *arg)
{
    static_cast<Progress *>(arg)->draw(false);
    return g_interrupted;
}

int on_percent(uintptr_t arg1, uintptr_t, int percent)
{
    auto *progress = reinterpret_cast<Progress *>(arg1);
    progress->percent = percent;
    progress->draw(false);
    return 0;
}

struct ResponseFree {
    void operator()(HttpsResponse *response) const { HttpsFreeResponse(response); }
};

// The last status line of the header block: with "100 Continue" or a proxy
// in between, the final response comes last.
struct Status {
    int code = 0;
    std::string line;
    long long content_length = -1;
    std::string location;
};

Status parse_header(std::string_view header)
{
    Status status;
    size_t start = 0;
    while (start < header.size()) {
        size_t end = header.find('\n', start);
        if (end == std::string_view::npos)
            end = header.size();
        std::string line(header.substr(start, end - start));
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        start = end + 1;
        if (line.rfind("HTTP/", 0) == 0) {
            status = Status{};
            status.line = line;
            const size_t blank = line.find(' ');
            if (blank != std::string::npos)
                status.code = std::atoi(line.c_str() + blank + 1);
            continue;
        }
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        std::string name = line.substr(0, colon);
        for (char &c : name)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        size_t value_start = colon + 1;
        while (value_start < line.size() && line[value_start] == ' ')
            ++value_start;
        const std::string value = line.substr(value_start);
        if (name == "content-length")
            status.content_length = parse_int(value, 0, INT64_MAX).value_or(-1);
        else if (name == "location")
            status.location = value;
    }
    return status;
}

// Removes the partial file on every path that does not keep it.
struct PartFile {
    std::string path;
    bool keep = false;
    ~PartFile()
    {
        if (!keep && !path.empty())
            unlink(path.c_str());
    }
};

bool copy_to_stdout(const std::string &path)
{
    FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return false;
    char chunk[65536];
    bool ok = true;
    size_t got;
    while (ok && (got = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        ok = std::fwrite(chunk, 1, got, stdout) == got;
    ok = ok && !std::ferror(file);
    std::fclose(file);
    return ok && std::fflush(stdout) == 0;
}

// Sends the library's stderr lines to /dev/null for the request's duration,
// keeping a descriptor of the real stderr for the tool's own output.
struct QuietStderr {
    int saved = -1;
    explicit QuietStderr(bool quiet)
    {
        if (!quiet)
            return;
        std::fflush(stderr);
        saved = dup(2);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (saved < 0 || null < 0 || dup2(null, 2) < 0) {
            if (null >= 0)
                close(null);
            restore();
            return;
        }
        close(null);
    }
    void restore()
    {
        if (saved < 0)
            return;
        std::fflush(stderr);
        dup2(saved, 2);
        close(saved);
        saved = -1;
    }
    ~QuietStderr() { restore(); }
};

}  // namespace

int run_fetch(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("fetch", argc, argv,
                                 {{"--output", "-o", true},
                                  {"--include", "-i", false},
                                  {"--post", "", true},
                                  {"--header", "-H", true},
                                  {"--timeout", "", true},
                                  {"--size", "", true},
                                  {"--verbose", "-v", false}});
    if (!args)
        return kExitUsage;
    if (args->positional.size() != 1)
        return usage_error("fetch", "expected one URL");
    const std::string &url = args->positional[0];

    int timeout = kDefaultTimeout;
    if (const auto text = args->value("--timeout")) {
        const auto value = parse_int(*text, 1, 86400 * 7);
        if (!value)
            return usage_error("fetch", "--timeout takes whole seconds from 1");
        timeout = static_cast<int>(*value);
    }
    uint32_t size = 0;
    if (const auto text = args->value("--size")) {
        const auto value = parse_int(*text, 1, UINT32_MAX);
        if (!value)
            return usage_error("fetch", "--size takes a byte count from 1 to 4294967295");
        size = static_cast<uint32_t>(*value);
    }
    std::string headers;
    for (const auto &header : args->values("--header")) {
        if (header.find_first_of("\r\n") != std::string::npos || header.find(':') == std::string::npos)
            return usage_error("fetch", "a header is one 'Name: value' line");
        headers += (headers.empty() ? "" : "\r\n") + header;
    }
    const auto post = args->value("--post");
    const auto output = args->value("--output");
    const bool to_stdout = !output || *output == "-";

    // The part file: beside the target, or a private temporary file.
    PartFile part;
    if (to_stdout) {
        const char *tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/ku-fetch-XXXXXX";
        const int fd = mkstemp(pattern.data());
        if (fd < 0)
            return fail("fetch", "cannot make a temporary file in " + pattern.substr(0, pattern.rfind('/')));
        close(fd);
        part.path = pattern;
    } else {
        part.path = *output + ".part";
        FILE *probe = std::fopen(part.path.c_str(), "w");
        if (probe == nullptr)
            return fail("fetch", "cannot write " + part.path + ": " + std::strerror(errno));
        std::fclose(probe);
    }

    // The request's limit counts whole seconds of this clock; reading it the
    // same way tells a reached limit from a transfer that ended by itself.
    const int64_t start_second = ku_second_ticks();
    HttpsOption option{};
    Progress progress;
    progress.option = &option;
    progress.start_ms = now_ms();
    option.cancel_test = cancel_test;
    option.cancel_arg = &progress;
    option.total_size = size;
    option.done_size = 0;
    if (size != 0) {
        option.progress = on_percent;
        option.progress_arg1 = reinterpret_cast<uintptr_t>(&progress);
    }
    option.save_path = part.path.c_str();
    option.time_limit = timeout;

    struct sigaction interrupt {};
    interrupt.sa_handler = on_interrupt;
    sigemptyset(&interrupt.sa_mask);
    interrupt.sa_flags = 0;  // no SA_RESTART: the request's wait must wake up
    sigaction(SIGINT, &interrupt, nullptr);
    sigaction(SIGTERM, &interrupt, nullptr);

    std::vector<char> header_text(headers.begin(), headers.end());
    header_text.push_back('\0');
    std::unique_ptr<HttpsResponse, ResponseFree> response;
    {
        QuietStderr quiet(!args->has("--verbose"));
        FILE *terminal = nullptr;
        if (isatty(quiet.saved >= 0 ? quiet.saved : 2))
            terminal = fdopen(dup(quiet.saved >= 0 ? quiet.saved : 2), "w");
        progress.terminal = terminal;
        response.reset(HttpsRequestNonBlock(url.c_str(), headers.empty() ? nullptr : header_text.data(),
                                            post ? post->c_str() : nullptr, &option));
        if (response)
            progress.finish(response->body_length);
        else if (terminal != nullptr && progress.drawn)
            std::fputc('\n', terminal);
        if (terminal != nullptr)
            std::fclose(terminal);
        progress.terminal = nullptr;
    }
    const bool timed_out = ku_second_ticks() - start_second >= timeout;

    if (g_interrupted) {
        fail("fetch", "cancelled");
        return kExitInterrupted;
    }
    if (!response)
        return fail("fetch", "the request could not be set up for " + url);
    const std::string_view header_block(response->header != nullptr ? response->header : "",
                                        response->header_length);
    const Status status = parse_header(header_block);
    if (status.code == 0)
        return fail("fetch", timed_out ? "no response from " + url + " within " + std::to_string(timeout) + " s"
                                       : "no response from " + url);
    if (status.code >= 300) {
        std::string message = "server answered '" + status.line + "'";
        if (status.code < 400 && !status.location.empty())
            message += ", see " + status.location + " (redirects are not followed)";
        return fail("fetch", message);
    }
    const auto received = static_cast<long long>(response->body_length);
    if (status.content_length >= 0 && received < status.content_length)
        return fail("fetch", (timed_out ? "timed out after " + std::to_string(timeout) + " s: got "
                                        : std::string("transfer cut short: got ")) +
                                 std::to_string(received) + " of " + std::to_string(status.content_length) +
                                 " bytes");
    if (timed_out && status.content_length < 0)
        return fail("fetch", "timed out after " + std::to_string(timeout) + " s");

    if (args->has("--include") && !write_all(stdout, header_block))
        return fail("fetch", "cannot write stdout");
    if (to_stdout) {
        if (!copy_to_stdout(part.path))
            return fail("fetch", "cannot write stdout");
        return kExitOk;
    }
    if (std::rename(part.path.c_str(), output->c_str()) != 0)
        return fail("fetch", "cannot rename " + part.path + " to " + *output + ": " + std::strerror(errno));
    part.keep = true;
    return kExitOk;
}

}  // namespace ku_tool
