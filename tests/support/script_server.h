// An HTTP server on 127.0.0.1 running a script per connection, one after the
// other, to stage a trickled body, a dropped or silent connection, exact bytes.
// It records each request read. Its end shuts down a socket a script is in.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ku_test {

struct HttpRequest {
    std::string method, target, head, body;  // head: up to the blank line
    std::string header(const std::string &name) const;  // any case; empty when absent
};

class ScriptServer;

struct ScriptConnection {
    bool read_request();                  // false when the peer closed or the server stops
    bool send(const std::string &bytes);  // false when the peer has gone
    bool pause_ms(int ms);  // false (early) once the socket stirs; a negative `ms`: no limit
    ScriptServer &server;
    int fd;
};

class ScriptServer {
public:
    using Script = std::function<void(ScriptConnection &)>;
    explicit ScriptServer(Script script);
    ~ScriptServer();
    int port() const { return port_; }
    std::string url(const std::string &path = "/") const  // "http://127.0.0.1:PORT" + path
    {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }
    std::vector<HttpRequest> requests() const;
    static std::string response(int status, const std::string &reason, const std::string &body,
                                const std::string &extra_headers = "");  // with Content-Length

private:
    friend struct ScriptConnection;
    int port_ = 0, listen_fd_ = -1;
    bool stopping_ = false;  // under mutex_
    int current_ = -1;  // the connection in hand, under mutex_
    mutable std::mutex mutex_;
    std::vector<HttpRequest> requests_;
    std::thread acceptor_;
};

ScriptServer::Script answer_with(std::string full_response);  // to every request, then close
// Reads the request, sends `head`, then `body_bytes` bytes 'x', one every
// `interval_ms`, then holds the connection open.
ScriptServer::Script trickle(std::string head, size_t body_bytes, int interval_ms);
int free_loopback_port();  // on 127.0.0.1, nothing listens there right now

}  // namespace ku_test
