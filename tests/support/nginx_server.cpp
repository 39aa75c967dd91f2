#include "support/nginx_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "support/script_server.h"
#include "support/temp_dir.h"

namespace ku_test {
namespace {

constexpr const char *kNginx = "/usr/sbin/nginx";
constexpr int kStartMs = 5000;
constexpr int kStartAttempts = 3;

}  // namespace

bool wait_for_port(int port, int timeout_ms, pid_t server)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    do {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        const bool connected =
            connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        close(fd);
        if (connected) {
            return true;
        }
        siginfo_t info{};
        if (server > 0 &&
            waitid(P_PID, static_cast<id_t>(server), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == server) {
            return false;  // exited; left for the caller to reap
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    } while (std::chrono::steady_clock::now() < until);
    return false;
}

NginxServer::NginxServer(const std::string &work_dir, const std::string &root,
                         const std::vector<TlsIdentity> &tls)
{
    if (access(kNginx, X_OK) != 0) {
        error_ = std::string(kNginx) + " is not installed";
        return;
    }
    const std::string prefix = work_dir + "/nginx";
    mkdir(prefix.c_str(), 0700);
    mkdir((prefix + "/tmp").c_str(), 0700);
    // A port found free can be taken by someone else before nginx binds it;
    // then nginx exits and the next try picks other ports.
    for (int attempt = 0; attempt < kStartAttempts && pid_ <= 0; ++attempt) {
        start(prefix, root, tls);
    }
}

void NginxServer::start(const std::string &prefix, const std::string &root,
                        const std::vector<TlsIdentity> &tls)
{
    http_port_ = free_loopback_port();
    https_ports_.clear();
    std::ostringstream conf;
    // One process, no daemon: the test owns it and stops it by its pid. All
    // paths point into the prefix so nothing outside it is written.
    conf << "daemon off;\nmaster_process off;\nworker_processes 1;\n"
         << "pid " << prefix << "/nginx.pid;\n"
         << "error_log " << prefix << "/error.log warn;\n"
         << "events { worker_connections 512; }\n"
         << "http {\n  access_log off;\n  default_type application/octet-stream;\n"
         << "  sendfile on;\n  tcp_nopush on;\n  keepalive_timeout 5;\n";
    for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        conf << "  " << kind << "_temp_path " << prefix << "/tmp/" << kind << ";\n";
    }
    conf << "  server { listen 127.0.0.1:" << http_port_ << "; root " << root << "; }\n";
    for (const TlsIdentity &identity : tls) {
        https_ports_.push_back(free_loopback_port());
        conf << "  server { listen 127.0.0.1:" << https_ports_.back() << " ssl; root " << root
             << "; ssl_certificate " << identity.certificate << "; ssl_certificate_key "
             << identity.key << "; }\n";
    }
    conf << "}\n";
    const std::string conf_path = prefix + "/nginx.conf";
    std::ofstream(conf_path) << conf.str();

    const std::string error_log = prefix + "/error.log";
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        // A test that crashes or is stopped by its watchdog never reaches
        // the destructor: nginx then goes with it instead of staying on.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) {
            _exit(127);
        }
        execl(kNginx, kNginx, "-p", (prefix + "/").c_str(), "-c", conf_path.c_str(), "-e",
              error_log.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    if (child < 0) {
        error_ = "fork failed";
        return;
    }
    bool ready = wait_for_port(http_port_, kStartMs, child);
    for (int port : https_ports_) {
        ready = ready && wait_for_port(port, kStartMs, child);
    }
    if (!ready) {
        error_ = "nginx did not start: " + read_file(error_log);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        return;
    }
    pid_ = child;
}

NginxServer::~NginxServer()
{
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
}

std::string NginxServer::http_url(const std::string &path) const
{
    return "http://127.0.0.1:" + std::to_string(http_port_) + path;
}

std::string NginxServer::https_url(size_t index, const std::string &path) const
{
    return "https://127.0.0.1:" + std::to_string(https_ports_.at(index)) + path;
}

}  // namespace ku_test
