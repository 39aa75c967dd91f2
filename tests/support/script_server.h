// A small HTTP server on 127.0.0.1 that follows a script per connection, for
// what a real server cannot stage: a trickled body, a connection dropped in
// the middle, exact bytes, a server that never answers. It records every
// request it read, so a test can see what the client sent.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace ku_test {

struct HttpRequest {
    std::string method;
    std::string target;
    std::string head;  // request line and headers as received, up to the blank line
    std::vector<std::pair<std::string, std::string>> headers;  // in order
    std::string body;  // by Content-Length
    // Value of the first header of that name (any case); empty when absent.
    std::string header(std::string_view name) const;
    bool has_header(std::string_view name) const;
};

class ScriptServer;

// One accepted connection, handed to the script on a thread of its own.
class ScriptConnection {
public:
    ScriptConnection(ScriptServer &server, int fd) : server_(server), fd_(fd) {}
    // Reads one request (head and Content-Length body) and records it in the
    // server. False when the peer closed first or the server stops.
    bool read_request(HttpRequest *request = nullptr);
    // Sends all bytes; false when the peer has gone.
    bool send(std::string_view bytes);
    // Sleeps, returning early (false) when the server stops.
    bool pause_ms(int ms);
    // Waits until the peer closes or the server stops, reading what comes.
    void hold();
    bool stopping() const;

private:
    ScriptServer &server_;
    int fd_;
    std::string pending_;
};

class ScriptServer {
public:
    using Script = std::function<void(ScriptConnection &)>;
    explicit ScriptServer(Script script);
    ~ScriptServer();
    ScriptServer(const ScriptServer &) = delete;
    ScriptServer &operator=(const ScriptServer &) = delete;

    int port() const { return port_; }
    // "http://127.0.0.1:PORT" + path
    std::string url(const std::string &path = "/") const;
    int connections() const { return connections_.load(); }
    std::vector<HttpRequest> requests() const;

    // A complete response with Content-Length.
    static std::string response(int status, const std::string &reason, const std::string &body,
                                const std::string &extra_headers = "");

private:
    friend class ScriptConnection;
    void accept_loop();
    void record(const HttpRequest &request);

    Script script_;
    int listen_fd_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::atomic<int> connections_{0};
    mutable std::mutex mutex_;
    std::vector<HttpRequest> requests_;
    std::vector<std::thread> workers_;
    std::thread acceptor_;
};

// Scripts for common cases.
// Answers every request with `full_response` and closes.
ScriptServer::Script answer_with(std::string full_response);
// Reads the request, sends `head` (status line and headers ending in a blank
// line) and then `body_bytes` bytes of `fill`, one every `interval_ms`, then
// holds the connection open.
ScriptServer::Script trickle(std::string head, size_t body_bytes, int interval_ms,
                             char fill = 'x');

// A port on 127.0.0.1 that nothing listens on right now.
int free_loopback_port();

}  // namespace ku_test
