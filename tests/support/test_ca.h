// Throwaway certificate authorities for TLS tests, made with the openssl
// command-line tool in a directory of the test's own.
#pragma once

#include <string>

#include "support/nginx_server.h"

namespace ku_test {

class TestCa {
public:
    // Makes a CA named `name` under `dir` (files NAME-ca.crt, NAME-ca.key).
    // Check ok() before use.
    TestCa(const std::string &dir, const std::string &name);
    bool ok() const { return ok_; }
    const std::string &certificate() const { return certificate_; }
    // A server certificate for 127.0.0.1 and localhost signed by this CA.
    TlsIdentity issue_server(const std::string &name) const;

private:
    std::string dir_;
    std::string name_;
    std::string certificate_;
    std::string key_;
    bool ok_ = false;
};

}  // namespace ku_test
