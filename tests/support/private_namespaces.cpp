#include "support/private_namespaces.h"

#include <sched.h>
#include <sys/mount.h>

#include <cstdlib>

namespace ku_test {

// Null inside the namespaces, else why they are missing.
static const char *missing = "not running inside private mount and network namespaces";

std::string private_namespaces_missing_reason()
{
    return missing != nullptr ? missing : "";
}

bool enter_private_namespaces()
{
    // A private / keeps the mounts made in here from the machine's namespace.
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0 ||
        mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0) {
        missing = "new mount and network namespaces are not permitted here (needs root)";
    } else if (std::system("ip link set lo up") != 0) {
        missing = "cannot bring the loopback interface up in the namespace";
    } else {
        missing = nullptr;
    }
    return missing == nullptr;
}

bool bind_over(const std::string &source, const std::string &target)
{
    return missing == nullptr &&
           mount(source.c_str(), target.c_str(), "", MS_BIND, nullptr) == 0;
}

}  // namespace ku_test
