#include "support/private_namespaces.h"

#include "support/emulator.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace ku_test {
namespace {

constexpr const char *kMarker = "KU_TEST_PRIVATE_NS";
constexpr const char *kUnshare = "unshare";

bool loopback_up()
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    if (up) {
        request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
        up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    }
    close(fd);
    return up;
}

std::vector<std::string> own_arguments()
{
    std::ifstream in("/proc/self/cmdline", std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<std::string> arguments;
    size_t start = 0;
    while (start < all.size()) {
        const size_t end = all.find('\0', start);
        arguments.push_back(all.substr(start, end - start));
        start = end == std::string::npos ? all.size() : end + 1;
    }
    return arguments;
}

}  // namespace

bool in_private_namespaces()
{
    const char *marker = std::getenv(kMarker);
    return marker != nullptr && std::strcmp(marker, "1") == 0;
}

std::string private_namespaces_missing_reason()
{
    const char *marker = std::getenv(kMarker);
    if (marker != nullptr && std::strcmp(marker, "1") != 0) {
        return marker;
    }
    return "not running inside private mount and network namespaces";
}

bool enter_private_namespaces()
{
    const char *marker = std::getenv(kMarker);
    if (marker != nullptr) {
        if (std::strcmp(marker, "1") != 0) {
            return false;
        }
        if (!loopback_up()) {
            setenv(kMarker, "cannot bring the loopback interface up in the namespace", 1);
            return false;
        }
        return true;
    }
    if (std::system("unshare -m -n --propagation private true >/dev/null 2>&1") != 0) {
        setenv(kMarker, "unshare -m -n is not permitted here (needs root or user namespaces)", 1);
        return false;
    }
    char exe[4096];
    const ssize_t length = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (length <= 0) {
        setenv(kMarker, "cannot read /proc/self/exe", 1);
        return false;
    }
    exe[length] = '\0';
    std::vector<std::string> arguments = {kUnshare, "-m", "-n", "--propagation", "private", "--"};
    // A cross-built test runs under a user-mode emulator that the kernel
    // does not know about: the new process must start through it again.
    for (const std::string &word : emulator_command()) {
        arguments.push_back(word);
    }
    arguments.push_back(exe);
    const std::vector<std::string> own = own_arguments();
    for (size_t i = 1; i < own.size(); ++i) {
        arguments.push_back(own[i]);
    }
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    setenv(kMarker, "1", 1);
    execvp(kUnshare, argv.data());
    setenv(kMarker, "exec of unshare failed", 1);
    return false;
}

bool bind_over(const std::string &source, const std::string &target)
{
    if (!in_private_namespaces()) {
        return false;
    }
    return mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace ku_test
