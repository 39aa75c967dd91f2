#include "support/script_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace ku_test {
namespace {

constexpr int kPollMs = 50;

int listen_loopback(int *port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw std::runtime_error("socket failed");
    }
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, 64) != 0) {
        close(fd);
        throw std::runtime_error("bind/listen on 127.0.0.1 failed");
    }
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    *port = ntohs(address.sin_port);
    return fd;
}

std::string lower(std::string_view text)
{
    std::string out(text);
    for (char &c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

std::string trim(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

void parse_head(const std::string &head, HttpRequest *request)
{
    size_t line_end = head.find("\r\n");
    const std::string line = head.substr(0, line_end);
    const size_t space = line.find(' ');
    request->method = line.substr(0, space);
    const size_t second = line.find(' ', space + 1);
    request->target = line.substr(space + 1, second - space - 1);
    while (line_end != std::string::npos && line_end + 2 < head.size()) {
        const size_t start = line_end + 2;
        line_end = head.find("\r\n", start);
        const std::string header = head.substr(start, line_end - start);
        const size_t colon = header.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        request->headers.emplace_back(trim(header.substr(0, colon)),
                                      trim(header.substr(colon + 1)));
    }
}

}  // namespace

std::string HttpRequest::header(std::string_view name) const
{
    for (const auto &[key, value] : headers) {
        if (lower(key) == lower(name)) {
            return value;
        }
    }
    return {};
}

bool HttpRequest::has_header(std::string_view name) const
{
    for (const auto &entry : headers) {
        if (lower(entry.first) == lower(name)) {
            return true;
        }
    }
    return false;
}

bool ScriptConnection::stopping() const
{
    return server_.stopping_.load();
}

bool ScriptConnection::read_request(HttpRequest *request)
{
    HttpRequest got;
    size_t head_end;
    char chunk[4096];
    // Reads until `done` says enough bytes are pending.
    auto fill_until = [&](auto done) {
        while (!done()) {
            pollfd poller{fd_, POLLIN, 0};
            if (stopping()) {
                return false;
            }
            if (poll(&poller, 1, kPollMs) <= 0) {
                continue;
            }
            const ssize_t n = recv(fd_, chunk, sizeof chunk, 0);
            if (n <= 0) {
                return false;
            }
            pending_.append(chunk, static_cast<size_t>(n));
        }
        return true;
    };
    if (!fill_until([&] { return (head_end = pending_.find("\r\n\r\n")) != std::string::npos; })) {
        return false;
    }
    got.head = pending_.substr(0, head_end + 2);
    parse_head(got.head, &got);
    pending_.erase(0, head_end + 4);
    const std::string length_text = got.header("Content-Length");
    const size_t length = length_text.empty() ? 0 : std::strtoul(length_text.c_str(), nullptr, 10);
    if (lower(got.header("Expect")) == "100-continue") {
        send("HTTP/1.1 100 Continue\r\n\r\n");
    }
    if (!fill_until([&] { return pending_.size() >= length; })) {
        return false;
    }
    got.body = pending_.substr(0, length);
    pending_.erase(0, length);
    server_.record(got);
    if (request != nullptr) {
        *request = got;
    }
    return true;
}

bool ScriptConnection::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

bool ScriptConnection::pause_ms(int ms)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < until) {
        if (stopping()) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(ms < kPollMs ? ms : kPollMs));
    }
    return !stopping();
}

void ScriptConnection::hold()
{
    char chunk[4096];
    while (!stopping()) {
        pollfd poller{fd_, POLLIN, 0};
        if (poll(&poller, 1, kPollMs) <= 0) {
            continue;
        }
        if (recv(fd_, chunk, sizeof chunk, 0) <= 0) {
            return;
        }
    }
}

ScriptServer::ScriptServer(Script script) : script_(std::move(script))
{
    listen_fd_ = listen_loopback(&port_);
    acceptor_ = std::thread([this] { accept_loop(); });
}

ScriptServer::~ScriptServer()
{
    stopping_.store(true);
    acceptor_.join();
    close(listen_fd_);
    for (std::thread &worker : workers_) {
        worker.join();
    }
}

std::string ScriptServer::url(const std::string &path) const
{
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<HttpRequest> ScriptServer::requests() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void ScriptServer::record(const HttpRequest &request)
{
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
}

void ScriptServer::accept_loop()
{
    while (!stopping_.load()) {
        pollfd poller{listen_fd_, POLLIN, 0};
        if (poll(&poller, 1, kPollMs) <= 0) {
            continue;
        }
        const int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        connections_.fetch_add(1);
        workers_.emplace_back([this, fd] {
            ScriptConnection connection(*this, fd);
            script_(connection);
            close(fd);
        });
    }
}

std::string ScriptServer::response(int status, const std::string &reason, const std::string &body,
                                   const std::string &extra_headers)
{
    return "HTTP/1.1 " + std::to_string(status) + " " + reason +
           "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n" + extra_headers + "\r\n" + body;
}

ScriptServer::Script answer_with(std::string full_response)
{
    return [full_response](ScriptConnection &connection) {
        if (connection.read_request()) {
            connection.send(full_response);
        }
    };
}

ScriptServer::Script trickle(std::string head, size_t body_bytes, int interval_ms, char fill)
{
    return [head, body_bytes, interval_ms, fill](ScriptConnection &connection) {
        if (!connection.read_request() || !connection.send(head)) {
            return;
        }
        for (size_t sent = 0; sent < body_bytes; ++sent) {
            if (!connection.send(std::string_view(&fill, 1)) || !connection.pause_ms(interval_ms)) {
                return;
            }
        }
        connection.hold();
    };
}

int free_loopback_port()
{
    int port = 0;
    close(listen_loopback(&port));
    return port;
}

}  // namespace ku_test
