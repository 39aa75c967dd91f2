#include "support/test_ca.h"

#include <cstdlib>
#include <fstream>

namespace ku_test {
namespace {

constexpr const char *kNewKey = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";

bool run(const std::string &command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace

TestCa::TestCa(const std::string &dir, const std::string &name)
    : dir_(dir), name_(name), certificate_(dir + "/" + name + "-ca.crt"),
      key_(dir + "/" + name + "-ca.key")
{
    ok_ = run("openssl req -x509 " + std::string(kNewKey) + " -days 2 -subj '/CN=" + name +
              " test CA' -keyout " + key_ + " -out " + certificate_);
}

TlsIdentity TestCa::issue_server(const std::string &name) const
{
    const std::string base = dir_ + "/" + name;
    std::ofstream(base + ".ext") << "subjectAltName=IP:127.0.0.1,DNS:localhost\n"
                                    "basicConstraints=CA:FALSE\n"
                                    "extendedKeyUsage=serverAuth\n";
    TlsIdentity identity{base + ".crt", base + ".key"};
    const bool made =
        run("openssl req " + std::string(kNewKey) + " -subj /CN=127.0.0.1 -keyout " +
            identity.key + " -out " + base + ".csr") &&
        run("openssl x509 -req -days 2 -in " + base + ".csr -CA " + certificate_ + " -CAkey " +
            key_ + " -CAcreateserial -extfile " + base + ".ext -out " + identity.certificate);
    if (!made) {
        identity = {};
    }
    return identity;
}

}  // namespace ku_test
