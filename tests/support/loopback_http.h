// A small HTTP/1.1 server on 127.0.0.1 for tests of HTTP clients: canned
// replies by path, bodies sent at once, in timed chunks, or stalled part
// way, and a record of the requests it received. One connection at a time,
// on a thread of its own; everything stops with the object.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ku_test {

struct HttpReply {
    int status = 200;
    std::string reason = "OK";
    std::vector<std::string> headers;  // extra header lines, without line ends
    std::string body;
    bool send_content_length = true;
    size_t chunk_size = 0;  // 0: the body in one write
    int chunk_delay_ms = 0; // pause before each chunk
    // When set, only the first `stall_after` body bytes are sent and the
    // connection then stays open, silent, until the server stops.
    bool stall = false;
    size_t stall_after = 0;
};

struct HttpRequestSeen {
    std::string method;
    std::string path;
    std::string headers;  // the header lines as received, CR LF included
    std::string body;
};

class LoopbackHttp {
public:
    LoopbackHttp();
    ~LoopbackHttp();
    LoopbackHttp(const LoopbackHttp &) = delete;
    LoopbackHttp &operator=(const LoopbackHttp &) = delete;

    // Paths without a route get 404.
    void route(const std::string &path, HttpReply reply);
    int port() const { return port_; }
    // "http://127.0.0.1:PORT" + path
    std::string url(const std::string &path) const;
    std::vector<HttpRequestSeen> requests() const;

private:
    void serve();
    void handle(int client);
    bool wait_readable(int fd, int timeout_ms) const;

    int listener_ = -1;
    int stop_pipe_[2] = {-1, -1};
    int port_ = 0;
    mutable std::mutex mutex_;
    std::map<std::string, HttpReply> routes_;
    std::vector<HttpRequestSeen> requests_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace ku_test
