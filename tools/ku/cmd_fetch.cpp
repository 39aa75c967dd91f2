// ku fetch: one download through HttpsRequestNonBlock, the library's
// cancellable request. With -o FILE the body goes to FILE.part, renamed into
// place on success, so an earlier FILE survives a failed download. To stdout
// the body streams as it arrives: the library writes into a pipe that a
// thread of the tool copies to stdout, so memory and disk stay flat. Ctrl-C
// is answered through the cancel test.
#include <ku/clock.h>
#include <ku/https.h>

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <signal.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
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
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku fetch URL [-o FILE] [-i] [--post DATA] [-H HEADER]... [--timeout S]\n"
    "                    [--size BYTES] [-v]\n"
    "\n"
    "Downloads URL (http:// or https://; without a scheme https:// is used; any\n"
    "other scheme is refused) and writes the body to stdout as it arrives, or to\n"
    "FILE with -o. HTTPS peers are verified against\n"
    "/etc/ssl/certs/ca-certificates.crt. Redirects are not followed.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE   write the body to FILE; it is written as FILE.part and\n"
    "                      renamed on success, so a failed download leaves an\n"
    "                      existing FILE alone\n"
    "  -i, --include       print the status line and the response headers on\n"
    "                      stdout before the body (the body is then held in a\n"
    "                      temporary file until the headers are complete)\n"
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
    "a body shorter than its Content-Length fail with status 1, with the reason:\n"
    "the host name that does not resolve, the connection refused, the TLS\n"
    "handshake, the server's status line or the time limit. On stdout the bytes\n"
    "that arrived before a failure have been written already.\n";

constexpr int kDefaultTimeout = 300;
constexpr int kExitInterrupted = 130;

volatile sig_atomic_t g_interrupted = 0;

void on_interrupt(int)
{
    g_interrupted = 1;
}

void on_alarm(int) {}

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

// The body on its way to stdout: the library writes it into a pipe, opened
// by name as /proc/self/fd/N (not every device has /dev/fd), and a thread
// copies it to stdout. The thread keeps draining after a failed write, so
// the library never blocks on a full pipe; the cancel test then ends the
// transfer.
struct Stream {
    int read_fd = -1, write_fd = -1;
    std::string path;
    std::thread copier;
    std::mutex lock;
    uint64_t bytes = 0;      // guarded by lock
    int write_errno = 0;     // guarded by lock

    bool open()
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            return false;
        read_fd = fds[0];
        write_fd = fds[1];
        path = "/proc/self/fd/" + std::to_string(write_fd);
        // The signals that wake the request's wait belong to the main
        // thread: the copier is started with them blocked.
        sigset_t wake, previous;
        sigemptyset(&wake);
        sigaddset(&wake, SIGINT);
        sigaddset(&wake, SIGTERM);
        sigaddset(&wake, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &wake, &previous);
        copier = std::thread([this] { copy(); });
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        return true;
    }

    void copy()
    {
        char chunk[16384];
        bool writing = true;
        for (;;) {
            const ssize_t got = read(read_fd, chunk, sizeof chunk);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            for (ssize_t done = 0; writing && done < got;) {
                const ssize_t wrote = write(1, chunk + done, static_cast<size_t>(got - done));
                if (wrote < 0 && errno == EINTR)
                    continue;
                if (wrote <= 0) {
                    const std::lock_guard<std::mutex> guard(lock);
                    write_errno = wrote < 0 ? errno : EIO;
                    writing = false;
                    break;
                }
                done += wrote;
            }
            const std::lock_guard<std::mutex> guard(lock);
            bytes += static_cast<uint64_t>(got);
        }
    }

    // After the request: the library has closed its end; closing ours lets
    // the copier see the end of the stream.
    int finish()
    {
        if (write_fd >= 0)
            close(write_fd);
        write_fd = -1;
        if (copier.joinable())
            copier.join();
        if (read_fd >= 0)
            close(read_fd);
        read_fd = -1;
        return write_errno;
    }

    uint64_t copied()
    {
        const std::lock_guard<std::mutex> guard(lock);
        return bytes;
    }

    bool failed()
    {
        const std::lock_guard<std::mutex> guard(lock);
        return write_errno != 0;
    }

    ~Stream() { finish(); }
};

// The live progress line on the terminal. It is fed from two places: the
// library's percentage callback (only with --size) and the cancel test,
// which runs once per pass of the request loop.
struct Progress {
    FILE *terminal = nullptr;  // null: no bar (stderr is no terminal)
    HttpsOption *option = nullptr;
    Stream *stream = nullptr;  // the body's way to stdout, if it goes there
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
        if (stream != nullptr)
            return stream->copied();
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
        const std::string amount = human_bytes(static_cast<double>(done));
        if (option->total_size != 0) {
            const int shown = percent < 0 ? 0 : percent;
            const int filled = (shown > 100 ? 100 : shown) * 30 / 100;
            char bar[31];
            for (int i = 0; i < 30; ++i)
                bar[i] = i < filled ? '#' : '-';
            bar[30] = '\0';
            std::fprintf(terminal, "\r[%s] %d%%  %s of %s  %s\033[K", bar, shown, amount.c_str(),
                         human_bytes(option->total_size).c_str(), rate.c_str());
        } else {
            std::fprintf(terminal, "\r%s  %s\033[K", amount.c_str(), rate.c_str());
        }
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
    auto *progress = static_cast<Progress *>(arg);
    if (progress->stream != nullptr) {
        // What the library has written waits in its stdio buffer: pass it
        // on once a pass, so the body reaches stdout as it arrives.
        if (progress->option->file != nullptr)
            std::fflush(progress->option->file);
        if (progress->stream->failed())
            return 1;
    }
    progress->draw(false);
    return g_interrupted;
}

int on_percent(uintptr_t arg1, uintptr_t, int percent)
{
    auto *progress = reinterpret_cast<Progress *>(arg1);
    progress->percent = percent;
    progress->draw(false);
    return 0;
}

// The parts of a URL that a diagnosis needs; the library's own defaults:
// https when no scheme is given.
struct Target {
    std::string scheme = "https";
    std::string host;
    std::string port;
};

// Nullopt for a scheme other than http and https.
std::optional<Target> parse_target(const std::string &url)
{
    Target target;
    std::string rest = url;
    if (const size_t colon = url.find("://"); colon != std::string::npos) {
        target.scheme = url.substr(0, colon);
        for (char &c : target.scheme)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (target.scheme != "http" && target.scheme != "https")
            return std::nullopt;
        rest = url.substr(colon + 3);
    }
    std::string authority = rest.substr(0, rest.find_first_of("/?#"));
    if (const size_t at = authority.rfind('@'); at != std::string::npos)
        authority.erase(0, at + 1);
    target.port = target.scheme == "http" ? "80" : "443";
    if (!authority.empty() && authority[0] == '[') {
        const size_t close_at = authority.find(']');
        target.host = authority.substr(1, close_at == std::string::npos ? std::string::npos : close_at - 1);
        if (close_at != std::string::npos && close_at + 1 < authority.size() && authority[close_at + 1] == ':')
            target.port = authority.substr(close_at + 2);
    } else if (const size_t colon = authority.rfind(':'); colon != std::string::npos) {
        target.host = authority.substr(0, colon);
        target.port = authority.substr(colon + 1);
    } else {
        target.host = authority;
    }
    return target;
}

// The request's record tells only that no response came. Asking the name
// service and connecting once more tells the user which step failed; a
// reachable server that gave no response over https points at TLS.
std::string why_no_response(const Target &target, int seconds_left)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int lookup = getaddrinfo(target.host.c_str(), target.port.c_str(), &hints, &found);
    if (lookup != 0)
        return "cannot resolve host '" + target.host + "': " + gai_strerror(lookup);
    int connect_errno = ETIMEDOUT;
    bool connected = false;
    for (addrinfo *entry = found; entry != nullptr && !connected; entry = entry->ai_next) {
        const int fd = socket(entry->ai_family, entry->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, entry->ai_protocol);
        if (fd < 0)
            continue;
        if (connect(fd, entry->ai_addr, entry->ai_addrlen) == 0) {
            connected = true;
        } else if (errno == EINPROGRESS) {
            pollfd wait{fd, POLLOUT, 0};
            if (poll(&wait, 1, (seconds_left > 0 ? seconds_left : 1) * 1000) == 1) {
                int error = 0;
                socklen_t size = sizeof error;
                getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
                connected = error == 0;
                connect_errno = error;
            }
        } else {
            connect_errno = errno;
        }
        close(fd);
    }
    freeaddrinfo(found);
    const std::string where = target.host + " port " + target.port;
    if (!connected)
        return "cannot connect to " + where + ": " + std::strerror(connect_errno);
    if (target.scheme == "https")
        return "TLS handshake with " + where + " failed (certificate not trusted, or no TLS there)";
    return "no response from " + where + ": the connection closed without one";
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

bool copy_file(const std::string &path, FILE *to)
{
    FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return false;
    char chunk[65536];
    bool ok = true;
    size_t got;
    while (ok && (got = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        ok = std::fwrite(chunk, 1, got, to) == got;
    ok = ok && !std::ferror(file);
    std::fclose(file);
    return ok && std::fflush(to) == 0;
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
    const auto target = parse_target(url);
    if (!target)
        return usage_error("fetch", "'" + url + "' is not an http:// or https:// URL");

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

    // Where the body goes: FILE.part beside -o FILE; a pipe to stdout; with
    // --include to stdout a private temporary file, as the headers must come
    // first and the library hands them over at the end.
    PartFile part;
    Stream stream;
    const bool spool = to_stdout && args->has("--include");
    std::string save_path;
    if (spool) {
        const char *tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/ku-fetch-XXXXXX";
        const int fd = mkstemp(pattern.data());
        if (fd < 0)
            return fail("fetch", "cannot make a temporary file in " + pattern.substr(0, pattern.rfind('/')) + ": " +
                                     std::strerror(errno));
        close(fd);
        part.path = pattern;
        save_path = pattern;
    } else if (to_stdout) {
        if (!stream.open())
            return fail("fetch", std::string("cannot make a pipe: ") + std::strerror(errno));
        save_path = stream.path;
    } else {
        part.path = *output + ".part";
        FILE *probe = std::fopen(part.path.c_str(), "w");
        if (probe == nullptr)
            return fail("fetch", "cannot write " + part.path + ": " + std::strerror(errno));
        std::fclose(probe);
        save_path = part.path;
    }

    // The request's limit counts whole seconds of this clock; reading it the
    // same way tells a reached limit from a transfer that ended by itself.
    const int64_t start_second = ku_second_ticks();
    HttpsOption option{};
    Progress progress;
    progress.option = &option;
    progress.stream = to_stdout && !spool ? &stream : nullptr;
    progress.start_ms = now_ms();
    option.cancel_test = cancel_test;
    option.cancel_arg = &progress;
    option.total_size = size;
    option.done_size = 0;
    if (size != 0) {
        option.progress = on_percent;
        option.progress_arg1 = reinterpret_cast<uintptr_t>(&progress);
    }
    option.save_path = save_path.c_str();
    option.time_limit = timeout;

    struct sigaction interrupt {};
    interrupt.sa_handler = on_interrupt;
    sigemptyset(&interrupt.sa_mask);
    interrupt.sa_flags = 0;  // no SA_RESTART: the request's wait must wake up
    sigaction(SIGINT, &interrupt, nullptr);
    sigaction(SIGTERM, &interrupt, nullptr);
    // The request looks at its limit only when its wait returns, and with a
    // stalled server that wait lasts as long as libcurl's next timer (up to
    // its 30 s connect limit). An alarm just past the limit, and every
    // quarter second after it, ends the wait so the limit holds.
    struct sigaction wake {};
    wake.sa_handler = on_alarm;
    sigemptyset(&wake.sa_mask);
    sigaction(SIGALRM, &wake, nullptr);
    itimerval alarm_at{};
    alarm_at.it_value.tv_sec = timeout;
    alarm_at.it_value.tv_usec = 100000;
    alarm_at.it_interval.tv_usec = 250000;
    setitimer(ITIMER_REAL, &alarm_at, nullptr);

    std::vector<char> header_text(headers.begin(), headers.end());
    header_text.push_back('\0');
    std::unique_ptr<HttpsResponse, ResponseFree> response;
    int stdout_errno = 0;
    {
        QuietStderr quiet(!args->has("--verbose"));
        FILE *terminal = nullptr;
        if (isatty(quiet.saved >= 0 ? quiet.saved : 2))
            terminal = fdopen(dup(quiet.saved >= 0 ? quiet.saved : 2), "w");
        progress.terminal = terminal;
        response.reset(HttpsRequestNonBlock(url.c_str(), headers.empty() ? nullptr : header_text.data(),
                                            post ? post->c_str() : nullptr, &option));
        const itimerval off{};
        setitimer(ITIMER_REAL, &off, nullptr);
        stdout_errno = stream.finish();
        if (response)
            progress.finish(progress.stream != nullptr ? stream.copied() : response->body_length);
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
    if (stdout_errno != 0)
        return fail("fetch", std::string("cannot write stdout: ") + std::strerror(stdout_errno));
    if (!response)
        return fail("fetch", "the request could not be set up for " + url);
    const std::string_view header_block(response->header != nullptr ? response->header : "",
                                        response->header_length);
    const Status status = parse_header(header_block);
    const std::string limit = "timed out after " + std::to_string(timeout) + " s";
    if (status.code == 0) {
        if (timed_out)
            return fail("fetch", limit + ": no response from " + url);
        const int64_t left = timeout - (ku_second_ticks() - start_second);
        return fail("fetch", why_no_response(*target, static_cast<int>(left < 30 ? left : 30)));
    }
    if (status.code >= 300) {
        std::string message = "server answered '" + status.line + "'";
        if (status.code < 400 && !status.location.empty())
            message += ", see " + status.location + " (redirects are not followed)";
        return fail("fetch", message);
    }
    // A pipe has no position: the library's count of a streamed body is
    // meaningless, the copier's is exact.
    const auto received = static_cast<long long>(progress.stream != nullptr ? stream.copied() : response->body_length);
    if (status.content_length >= 0 && received < status.content_length)
        return fail("fetch", (timed_out ? limit + ": got " : std::string("transfer cut short: got ")) +
                                 std::to_string(received) + " of " + std::to_string(status.content_length) +
                                 " bytes");
    if (timed_out && status.content_length < 0)
        return fail("fetch", limit);

    if (spool) {
        if (!write_all(stdout, header_block) || !copy_file(part.path, stdout))
            return fail("fetch", std::string("cannot write stdout: ") + std::strerror(errno));
        return kExitOk;
    }
    if (to_stdout)
        return kExitOk;
    if (args->has("--include") && !write_all(stdout, header_block))
        return fail("fetch", std::string("cannot write stdout: ") + std::strerror(errno));
    if (std::rename(part.path.c_str(), output->c_str()) != 0)
        return fail("fetch", "cannot rename " + part.path + " to " + *output + ": " + std::strerror(errno));
    part.keep = true;
    return kExitOk;
}

}  // namespace ku_tool
