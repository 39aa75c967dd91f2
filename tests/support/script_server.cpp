#include "support/script_server.h"

#include <arpa/inet.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace ku_test {

// No std::regex: server threads compiling patterns at once race on the
// locale's narrow() cache, which ThreadSanitizer reports.
std::string HttpRequest::header(const std::string &name) const
{
    const std::string key = "\r\n" + name + ":";
    const auto at = std::search(head.begin(), head.end(), key.begin(), key.end(),
                                [](char a, char b) { return tolower(a) == tolower(b); });
    const size_t from = head.find_first_not_of(' ', (at - head.begin()) + key.size());
    return at == head.end() ? "" : head.substr(from, head.find("\r\n", from) - from);
}

bool ScriptConnection::read_request()
{
    HttpRequest got;
    for (char byte = 0; got.head.find("\r\n\r\n") == std::string::npos; got.head += byte)
        if (recv(fd, &byte, 1, 0) != 1)
            return false;
    got.head.resize(got.head.size() - 2);
    std::istringstream(got.head) >> got.method >> got.target;
    got.body.resize(std::strtoul(got.header("Content-Length").c_str(), nullptr, 10));
    const auto length = static_cast<ssize_t>(got.body.size());
    if (length > 0 && recv(fd, got.body.data(), got.body.size(), MSG_WAITALL) != length)
        return false;
    std::lock_guard<std::mutex> lock(server.mutex_);
    server.requests_.push_back(got);
    return true;
}

// A blocking send returns short only when the peer has gone.
bool ScriptConnection::send(const std::string &bytes)
{
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
}

// Waits on the socket, not on a clock that a test may have faked. The
// server's end shuts the socket down, which ends the wait.
bool ScriptConnection::pause_ms(int ms)
{
    pollfd event{fd, POLLIN, 0};
    return poll(&event, 1, ms) == 0;
}

ScriptServer::ScriptServer(Script script)
    : listen_fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    auto *any = reinterpret_cast<sockaddr *>(&address);
    if (listen_fd_ < 0 || bind(listen_fd_, any, length) != 0 || listen(listen_fd_, 64) != 0 ||
        getsockname(listen_fd_, any, &length) != 0)
        throw std::runtime_error("cannot listen on 127.0.0.1");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this, script] {
        for (int fd; (fd = accept(listen_fd_, nullptr, nullptr)) >= 0; close(fd)) {
            std::unique_lock<std::mutex> lock(mutex_);
            current_ = fd;
            const bool stopped = stopping_;
            lock.unlock();
            ScriptConnection connection{*this, fd};
            if (!stopped)
                script(connection);
            lock.lock();
            current_ = -1;  // before the close: the number may come back for another file
        }
    });
}

ScriptServer::~ScriptServer()
{
    std::unique_lock<std::mutex> lock(mutex_);
    stopping_ = true;
    shutdown(current_, SHUT_RDWR);
    shutdown(listen_fd_, SHUT_RDWR);
    lock.unlock();
    acceptor_.join();
    close(listen_fd_);
}

std::vector<HttpRequest> ScriptServer::requests() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::string ScriptServer::response(int status, const std::string &reason, const std::string &body,
                                   const std::string &extra_headers)
{
    return "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\nConnection: close\r\n" + extra_headers + "\r\n" +
           body;
}

ScriptServer::Script answer_with(std::string full_response)
{
    return [full_response](ScriptConnection &connection) {
        if (connection.read_request())
            connection.send(full_response);
    };
}

ScriptServer::Script trickle(std::string head, size_t body_bytes, int interval_ms)
{
    return [head, body_bytes, interval_ms](ScriptConnection &connection) {
        bool going = connection.read_request() && connection.send(head);
        for (size_t sent = 0; going && sent < body_bytes; ++sent)
            going = connection.send("x") && connection.pause_ms(interval_ms);
        if (going)
            connection.pause_ms(-1);
    };
}

int free_loopback_port()
{
    return ScriptServer([](ScriptConnection &) {}).port();  // closed again at once
}

}  // namespace ku_test
