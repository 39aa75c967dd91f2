#include "support/mdns_tools.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace ku_test {
namespace {

constexpr const char *kBash = "/bin/bash";
constexpr const char *kBusybox = "/bin/busybox";

std::string process_file(pid_t pid, const char *name)
{
    return read_file("/proc/" + std::to_string(pid) + "/" + name);
}

}  // namespace

MdnsTools::MdnsTools()
{
    unique_ = dir_.path().substr(dir_.path().rfind('-') + 1);
    if (access(kBash, X_OK) != 0 || access(kBusybox, X_OK) != 0) {
        missing_ = "bash and busybox are needed for the mDNS tool stand-ins";
        return;
    }
    // exec -a keeps the process id that was recorded and a command line that
    // still shows "dns-sd -<flag> <arguments>" to ps.
    const std::string script = dir_.write("dns-sd", std::string("#!") + kBash +
                                                        "\n"
                                                        "echo \"$$ $*\" >> \"" +
                                                        dir_.file("dns-sd.log") +
                                                        "\"\n"
                                                        "exec -a \"$0 $*\" sleep 300\n");
    chmod(script.c_str(), 0755);
    if (symlink(kBusybox, dir_.file("ps").c_str()) != 0) {
        missing_ = "cannot link ps to busybox";
        return;
    }
    const char *path = getenv("PATH");
    saved_path_ = path == nullptr ? "/usr/bin:/bin" : path;
    setenv("PATH", (dir_.path() + ":" + saved_path_).c_str(), 1);
    ready_ = true;
}

MdnsTools::~MdnsTools()
{
    if (!ready_) {
        return;
    }
    setenv("PATH", saved_path_.c_str(), 1);
    std::istringstream log(read_file(dir_.file("dns-sd.log")));
    pid_t pid = 0;
    std::string rest;
    while (log >> pid && std::getline(log, rest)) {
        // Only a process that still runs our script: the id may be reused.
        if (running(pid) && process_file(pid, "cmdline").find(dir_.path()) != std::string::npos) {
            kill(pid, SIGKILL);
        }
    }
}

std::vector<MdnsTools::Started> MdnsTools::wait_for_started(size_t count) const
{
    std::vector<Started> started;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    do {
        started.clear();
        std::istringstream log(read_file(dir_.file("dns-sd.log")));
        pid_t pid = 0;
        std::string arguments;
        while (log >> pid && std::getline(log, arguments)) {
            started.push_back({pid, arguments.substr(arguments.empty() ? 0 : 1)});
        }
        if (started.size() >= count) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (std::chrono::steady_clock::now() < deadline);
    return started;
}

bool MdnsTools::running(pid_t pid)
{
    const std::string stat = process_file(pid, "stat");
    const size_t close = stat.rfind(") ");
    if (close == std::string::npos || close + 2 >= stat.size()) {
        return false;
    }
    const char state = stat[close + 2];
    return state != 'Z' && state != 'X';
}

bool MdnsTools::ended_soon(pid_t pid)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (running(pid)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

}  // namespace ku_test
