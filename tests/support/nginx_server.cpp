#include "support/nginx_server.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "support/script_server.h"
#include "support/temp_dir.h"

namespace ku_test {

NginxServer::NginxServer(const std::string &work_dir, const std::string &root,
                         const std::vector<std::string> &tls)
    : error_("/usr/sbin/nginx is not installed")
{
    const std::string conf = work_dir + "/nginx.conf", pid_file = work_dir + "/nginx.pid";
    // Without its certificate nginx does not start, and its log says why.
    for (const std::string &name : tls)
        if (std::system(("cd " + work_dir + " && openssl req -x509 -days 2 -subj /CN=127.0.0.1 "
                         "-addext subjectAltName=IP:127.0.0.1 -newkey ec -pkeyopt "
                         "ec_paramgen_curve:prime256v1 -nodes -out " + name + ".crt -keyout " +
                         name + ".key >/dev/null 2>&1").c_str()) != 0)
            break;
    // A port found free may be taken before nginx binds it; nginx then exits
    // and the next attempt picks other ports.
    for (int attempt = 0; attempt < 3 && pid_ < 0 && access("/usr/sbin/nginx", X_OK) == 0;
         ++attempt) {
        ports_.assign(tls.size() + 1, 0);
        // One process in the foreground, stopped by its pid; every path in work_dir.
        std::ofstream out(conf);
        out << "daemon off;\nmaster_process off;\npid " << pid_file << ";\nevents {}\nhttp {\n"
            << "access_log off;\nsendfile on;\ndefault_type application/octet-stream;\n";
        for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            out << kind << "_temp_path " << work_dir << "/nginx-" << kind << ";\n";
        for (size_t i = 0; i < ports_.size(); ++i) {
            ports_[i] = free_loopback_port();
            out << "server { root " << root << "; listen 127.0.0.1:" << ports_[i];
            if (i > 0)
                out << " ssl; ssl_certificate " << work_dir << "/" << tls[i - 1]
                    << ".crt; ssl_certificate_key " << work_dir << "/" << tls[i - 1] << ".key";
            out << "; }\n";
        }
        out << "}\n";
        out.close();
        unlink(pid_file.c_str());
        const pid_t parent = getpid(), child = fork();
        if (child == 0) {
            // A test that crashes never reaches the destructor: nginx goes with it.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() == parent)
                execl("/usr/sbin/nginx", "nginx", "-p", (work_dir + "/").c_str(), "-c",
                      conf.c_str(), "-e", "nginx-error.log", static_cast<char *>(nullptr));
            _exit(127);
        }
        // nginx writes its pid file once it listens on every port. Tries, not
        // a deadline (about 5 s): a test may have faked the clock.
        int tries = 0;
        while (child > 0 && access(pid_file.c_str(), F_OK) != 0 &&
               waitpid(child, nullptr, WNOHANG) == 0 && ++tries < 500)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (access(pid_file.c_str(), F_OK) == 0)
            pid_ = child;
        else
            error_ = "nginx did not start: " + read_file(work_dir + "/nginx-error.log");
        if (tries == 500 && kill(child, SIGKILL) == 0)
            waitpid(child, nullptr, 0);
    }
}

NginxServer::~NginxServer()
{
    if (pid_ > 0 && kill(pid_, SIGTERM) == 0)
        waitpid(pid_, nullptr, 0);
}

std::string NginxServer::url(size_t port, const std::string &path) const
{
    return (port > 0 ? "https" : "http") +
           ("://127.0.0.1:" + std::to_string(ports_.at(port))) + path;
}

}  // namespace ku_test
