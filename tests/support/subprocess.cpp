// fork and exec, then one poll loop that feeds stdin while it drains stdout
// and stderr, so that neither side can block the other on a full pipe.
#include "subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

extern char **environ;

namespace ku_test {

static std::vector<char *> pointers(std::vector<std::string> &strings)
{
    std::vector<char *> list;
    for (auto &string : strings)
        list.push_back(string.data());
    list.push_back(nullptr);
    return list;
}

Process::Process(std::vector<std::string> argv, const ProcessOptions &options) : input_(options.input)
{
    std::vector<std::string> env = options.env;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string name(*entry, std::strcspn(*entry, "=") + 1);
        bool set = false;
        for (const auto &own : options.env)
            set = set || own.starts_with(name);
        if (!set)
            env.emplace_back(*entry);
    }
    auto args = pointers(argv), envp = pointers(env);  // after fork only async-signal-safe calls
    int pipes[3][2];
    for (auto &ends : pipes)
        if (pipe2(ends, O_CLOEXEC) != 0)
            std::abort();
    pid_ = fork();
    if (pid_ == 0) {
        const auto &in = options.in_file, &out = options.out_file;
        if (dup2(in.empty() ? pipes[0][0] : open(in.c_str(), O_RDONLY), 0) < 0 ||
            dup2(out.empty() ? pipes[1][1] : open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1) < 0 ||
            dup2(pipes[2][1], 2) < 0 || (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0))
            _exit(126);
        ::signal(SIGPIPE, SIG_DFL);
        environ = envp.data();  // execvp looks on this PATH
        execvp(args[0], args.data());
        _exit(127);
    }
    if (pid_ < 0)
        std::abort();
    for (int i = 0; i < 3; ++i) {  // the parent writes stdin and reads the others
        close(pipes[i][i == 0 ? 0 : 1]);
        fds_[i] = pipes[i][i == 0 ? 1 : 0];
    }
}

Process::~Process()
{
    signal(SIGKILL);
    if (pid_ > 0)
        waitpid(pid_, nullptr, 0);
    for (const int fd : fds_)
        if (fd >= 0)
            close(fd);
}

void Process::signal(int signal) const
{
    if (pid_ > 0)
        kill(pid_, signal);
}

ProcessResult Process::wait()
{
    ProcessResult result;
    std::string *sinks[3] = {nullptr, &result.out, &result.err};
    ::signal(SIGPIPE, SIG_IGN);  // a child that leaves its input unread must not kill us
    for (size_t written = 0; fds_[1] >= 0 || fds_[2] >= 0;) {
        if (fds_[0] >= 0 && written == input_.size()) {
            close(fds_[0]);
            fds_[0] = -1;
        }
        pollfd polled[3] = {{fds_[0], POLLOUT, 0}, {fds_[1], POLLIN, 0}, {fds_[2], POLLIN, 0}};
        if (poll(polled, 3, -1) < 0)
            continue;
        for (int i = 0; i < 3; ++i) {
            char buffer[65536];
            ssize_t n = 0;
            if (polled[i].revents == 0)
                continue;
            if (i == 0 && (n = write(fds_[0], input_.data() + written, input_.size() - written)) > 0)
                written += static_cast<size_t>(n);
            else if (i > 0 && (n = read(fds_[i], buffer, sizeof buffer)) > 0)
                sinks[i]->append(buffer, static_cast<size_t>(n));
            if (n <= 0) {
                close(fds_[i]);
                fds_[i] = -1;
            }
        }
    }
    int status = 0;
    rusage usage{};
    wait4(pid_, &status, 0, &usage);
    pid_ = -1;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.peak_kib = usage.ru_maxrss;
    return result;
}

ProcessResult run_process(const std::vector<std::string> &argv, const ProcessOptions &options)
{
    return Process(argv, options).wait();
}

}  // namespace ku_test
