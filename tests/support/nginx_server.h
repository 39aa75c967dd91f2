// A real web server for the transfer tests: Debian's nginx, run as a child of
// the test with its own prefix and configuration in a private directory,
// serving one document root over HTTP and, per certificate, over HTTPS, on
// 127.0.0.1 ports picked at run time.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ku_test {

struct TlsIdentity {
    std::string certificate;  // PEM file, leaf first
    std::string key;          // PEM file
};

class NginxServer {
public:
    // Starts nginx serving `root`: one plain port, one TLS port per identity.
    // Check ok() before use; error() says why it failed.
    NginxServer(const std::string &work_dir, const std::string &root,
                const std::vector<TlsIdentity> &tls = {});
    ~NginxServer();
    NginxServer(const NginxServer &) = delete;
    NginxServer &operator=(const NginxServer &) = delete;

    bool ok() const { return pid_ > 0; }
    const std::string &error() const { return error_; }
    // "http://127.0.0.1:PORT" + path
    std::string http_url(const std::string &path) const;
    // "https://127.0.0.1:PORT" + path for TLS identity `index`
    std::string https_url(size_t index, const std::string &path) const;
    int http_port() const { return http_port_; }
    int https_port(size_t index) const { return https_ports_.at(index); }

private:
    void start(const std::string &prefix, const std::string &root,
               const std::vector<TlsIdentity> &tls);

    pid_t pid_ = -1;
    int http_port_ = 0;
    std::vector<int> https_ports_;
    std::string error_;
};

// True when a TCP connection to 127.0.0.1:port is accepted within
// timeout_ms; false early when the child `server` (if given) has exited.
bool wait_for_port(int port, int timeout_ms, pid_t server = -1);

}  // namespace ku_test
