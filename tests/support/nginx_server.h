// Debian's nginx as a child of the test, configured in the test's directory,
// serving one root over HTTP and, per TLS name, over HTTPS, on 127.0.0.1.
#pragma once

#include <string>
#include <vector>

namespace ku_test {

class NginxServer {
public:
    // Each name in `tls` gets a self-signed certificate for 127.0.0.1,
    // work_dir/NAME.crt: its own CA once a bundle holds it.
    NginxServer(const std::string &work_dir, const std::string &root,
                const std::vector<std::string> &tls = {});
    ~NginxServer();
    bool ok() const { return pid_ > 0; }
    const std::string &error() const { return error_; }  // why not ok()
    std::string http_url(const std::string &path) const { return url(0, path); }
    std::string https_url(size_t tls, const std::string &path) const { return url(tls + 1, path); }

private:
    std::string url(size_t port, const std::string &path) const;
    int pid_ = -1;  // of the child
    std::vector<int> ports_;  // the plain port, then one per TLS name
    std::string error_;
};

}  // namespace ku_test
