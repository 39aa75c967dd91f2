#include "support/private_namespaces.h"

#include "support/emulator.h"

#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace ku_test {
namespace {

// "1" inside the namespaces, else why they are missing.
constexpr const char *kMarker = "KU_TEST_PRIVATE_NS";

bool inside()
{
    return std::getenv(kMarker) != nullptr && std::strcmp(std::getenv(kMarker), "1") == 0;
}

bool refuse(const char *reason)
{
    return setenv(kMarker, reason, 1) != 0;
}

}  // namespace

std::string private_namespaces_missing_reason()
{
    return std::getenv(kMarker) != nullptr && !inside()
               ? std::getenv(kMarker)
               : "not running inside private mount and network namespaces";
}

bool enter_private_namespaces()
{
    if (std::getenv(kMarker) != nullptr) {
        return inside() && (std::system("ip link set lo up") == 0 ||
                            refuse("cannot bring the loopback interface up in the namespace"));
    }
    if (std::system("unshare -m -n --propagation private true >/dev/null 2>&1") != 0) {
        return refuse("unshare -m -n is not permitted here (needs root or user namespaces)");
    }
    // A cross-built test must start through its emulator again.
    std::vector<std::string> words = {"unshare", "-m", "-n", "--propagation", "private", "--"};
    std::istringstream emulator(kEmulatorCommand);
    for (std::string word; std::getline(emulator, word, '|');) {
        words.push_back(word);
    }
    words.push_back(std::filesystem::read_symlink("/proc/self/exe").string());
    std::ifstream own("/proc/self/cmdline", std::ios::binary);
    std::string word;
    std::getline(own, word, '\0');  // the program as it was started
    while (std::getline(own, word, '\0')) {
        words.push_back(word);
    }
    std::vector<char *> argv;
    for (std::string &argument : words) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    setenv(kMarker, "1", 1);
    execvp(argv[0], argv.data());
    return refuse("exec of unshare failed");
}

bool bind_over(const std::string &source, const std::string &target)
{
    return inside() && mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace ku_test
