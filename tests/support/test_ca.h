// Throwaway certificate authorities for TLS tests, made with the openssl tool.
#pragma once

#include <string>

#include "support/nginx_server.h"

namespace ku_test {

class TestCa {
public:
    TestCa(const std::string &dir, const std::string &name);  // DIR/NAME-ca.crt and .key
    bool ok() const { return ok_; }
    const std::string &certificate() const { return certificate_; }
    // A certificate for 127.0.0.1 and localhost; empty paths on failure.
    TlsIdentity issue_server(const std::string &name) const;

private:
    std::string dir_, key_, certificate_;
    bool ok_ = false;
};

}  // namespace ku_test
