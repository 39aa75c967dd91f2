// The loopback HTTP test server. Waits go through poll() together with a
// stop pipe, so that destroying the server never hangs on a stalled reply
// or on a client that keeps its connection open.
#include "loopback_http.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace ku_test {
namespace {

bool send_all(int fd, const std::string &bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

std::string lower(std::string text)
{
    for (char &c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

}  // namespace

LoopbackHttp::LoopbackHttp()
{
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener_, 8) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) != 0 ||
        pipe2(stop_pipe_, O_CLOEXEC) != 0)
        std::abort();
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

LoopbackHttp::~LoopbackHttp()
{
    stopping_ = true;
    const char stop = 's';
    if (::write(stop_pipe_[1], &stop, 1) < 0) {
        // The pipe is ours and empty: a failed write cannot happen here.
    }
    thread_.join();
    close(listener_);
    close(stop_pipe_[0]);
    close(stop_pipe_[1]);
}

void LoopbackHttp::route(const std::string &path, HttpReply reply)
{
    std::lock_guard<std::mutex> lock(mutex_);
    routes_[path] = std::move(reply);
}

std::string LoopbackHttp::url(const std::string &path) const
{
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<HttpRequestSeen> LoopbackHttp::requests() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

bool LoopbackHttp::wait_readable(int fd, int timeout_ms) const
{
    pollfd fds[2] = {{fd, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
    if (poll(fds, 2, timeout_ms) <= 0)
        return false;
    return (fds[1].revents & POLLIN) == 0 && fds[0].revents != 0;
}

void LoopbackHttp::serve()
{
    while (!stopping_) {
        if (!wait_readable(listener_, -1))
            continue;
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        handle(client);
        close(client);
    }
}

void LoopbackHttp::handle(int client)
{
    std::string data;
    size_t header_end = std::string::npos;
    char buffer[8192];
    while (header_end == std::string::npos) {
        if (!wait_readable(client, 5000))
            return;
        const ssize_t n = ::recv(client, buffer, sizeof buffer, 0);
        if (n <= 0)
            return;
        data.append(buffer, static_cast<size_t>(n));
        header_end = data.find("\r\n\r\n");
    }
    HttpRequestSeen request;
    const std::string head = data.substr(0, header_end + 2);
    const size_t line_end = head.find("\r\n");
    const std::string request_line = head.substr(0, line_end);
    const size_t first_blank = request_line.find(' ');
    const size_t second_blank = request_line.find(' ', first_blank + 1);
    request.method = request_line.substr(0, first_blank);
    request.path = request_line.substr(first_blank + 1, second_blank - first_blank - 1);
    request.headers = head.substr(line_end + 2);
    size_t content_length = 0;
    const std::string lowered = lower(request.headers);
    if (const size_t at = lowered.find("content-length:"); at != std::string::npos)
        content_length = std::strtoul(lowered.c_str() + at + 15, nullptr, 10);
    request.body = data.substr(header_end + 4);
    while (request.body.size() < content_length) {
        if (!wait_readable(client, 5000))
            return;
        const ssize_t n = ::recv(client, buffer, sizeof buffer, 0);
        if (n <= 0)
            return;
        request.body.append(buffer, static_cast<size_t>(n));
    }

    HttpReply reply;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(request);
        const auto found = routes_.find(request.path);
        if (found != routes_.end()) {
            reply = found->second;
        } else {
            reply.status = 404;
            reply.reason = "Not Found";
            reply.body = "no such path\n";
        }
    }
    std::string head_out = "HTTP/1.1 " + std::to_string(reply.status) + " " + reply.reason + "\r\n";
    if (reply.send_content_length)
        head_out += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    for (const auto &line : reply.headers)
        head_out += line + "\r\n";
    head_out += "Connection: close\r\n\r\n";
    if (!send_all(client, head_out))
        return;

    const std::string body = reply.stall ? reply.body.substr(0, reply.stall_after) : reply.body;
    const size_t chunk = reply.chunk_size == 0 ? (body.empty() ? 1 : body.size()) : reply.chunk_size;
    for (size_t at = 0; at < body.size(); at += chunk) {
        if (reply.chunk_delay_ms > 0) {
            pollfd stop = {stop_pipe_[0], POLLIN, 0};
            if (poll(&stop, 1, reply.chunk_delay_ms) != 0)
                return;
        }
        if (stopping_ || !send_all(client, body.substr(at, chunk)))
            return;
    }
    if (reply.stall) {
        // Silent until the server stops or the client goes away.
        while (!stopping_) {
            pollfd fds[2] = {{client, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
            if (poll(fds, 2, -1) < 0 || fds[1].revents != 0)
                return;
            if (::recv(client, buffer, sizeof buffer, 0) <= 0)
                return;
        }
    }
}

}  // namespace ku_test
