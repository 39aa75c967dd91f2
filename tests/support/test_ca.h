// Throwaway certificate authorities for TLS tests, made with the openssl tool.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

#include "support/nginx_server.h"

namespace ku_test {

class TestCa {
public:
    // Makes DIR/NAME-ca.crt and DIR/NAME-ca.key.
    TestCa(const std::string &dir, const std::string &name)
        : dir_(dir), key_(dir + "/" + name + "-ca.key"), certificate_(dir + "/" + name + "-ca.crt")
    {
        ok_ = openssl("req -x509 -days 2 -subj '/CN=" + name + " test CA' -keyout " + key_ +
                      " -out " + certificate_ + kNewKey);
    }
    bool ok() const { return ok_; }
    const std::string &certificate() const { return certificate_; }

    // A certificate for 127.0.0.1 and localhost; empty paths on failure.
    TlsIdentity issue_server(const std::string &name) const
    {
        const std::string base = dir_ + "/" + name;
        std::ofstream(base + ".ext") << "subjectAltName=IP:127.0.0.1,DNS:localhost\n"
                                        "basicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n";
        if (openssl("req -subj /CN=127.0.0.1 -keyout " + base + ".key -out " + base + ".csr" +
                    kNewKey) &&
            openssl("x509 -req -days 2 -in " + base + ".csr -CA " + certificate_ + " -CAkey " +
                    key_ + " -CAcreateserial -extfile " + base + ".ext -out " + base + ".crt"))
            return {base + ".crt", base + ".key"};
        return {};
    }

private:
    static constexpr const char *kNewKey =
        " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";
    static bool openssl(const std::string &arguments)
    {
        return std::system(("openssl " + arguments + " >/dev/null 2>&1").c_str()) == 0;
    }
    std::string dir_, key_, certificate_;
    bool ok_ = false;
};

}  // namespace ku_test
