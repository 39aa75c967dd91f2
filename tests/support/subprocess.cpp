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

namespace ku_test {

ProcessResult run_process(std::vector<std::string> argv, const ProcessOptions &options)
{
    std::vector<char *> args;  // built before fork, as is all the child needs
    for (auto &arg : argv)
        args.push_back(arg.data());
    args.push_back(nullptr);
    std::vector<std::string> env = options.env;
    int pipes[3][2], fds[3];
    for (auto &ends : pipes)
        if (pipe2(ends, O_CLOEXEC) != 0)
            std::abort();
    const pid_t pid = fork();
    if (pid == 0) {
        const auto &in = options.in_file, &out = options.out_file;
        const int out_fd =
            out.empty() ? pipes[1][1] : open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (dup2(in.empty() ? pipes[0][0] : open(in.c_str(), O_RDONLY), 0) < 0 || dup2(out_fd, 1) < 0 ||
            dup2(pipes[2][1], 2) < 0 || (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0))
            _exit(126);
        signal(SIGPIPE, SIG_DFL);
        for (auto &entry : env)  // glibc's allocator stays usable after fork
            putenv(entry.data());
        execvp(args[0], args.data());
        _exit(127);
    }
    if (pid < 0)
        std::abort();
    for (int i = 0; i < 3; ++i) {  // we write the child's stdin and read the others
        close(pipes[i][i == 0 ? 0 : 1]);
        fds[i] = pipes[i][i == 0 ? 1 : 0];
    }
    ProcessResult result;
    std::string *sinks[3] = {nullptr, &result.out, &result.err};
    signal(SIGPIPE, SIG_IGN);  // a child that leaves its input unread must not kill us
    for (size_t written = 0; fds[1] >= 0 || fds[2] >= 0;) {
        if (fds[0] >= 0 && written == options.input.size()) {
            close(fds[0]);
            fds[0] = -1;
        }
        pollfd polled[3] = {{fds[0], POLLOUT, 0}, {fds[1], POLLIN, 0}, {fds[2], POLLIN, 0}};
        if (poll(polled, 3, -1) < 0)
            continue;
        for (int i = 0; i < 3; ++i) {
            char buffer[65536];
            ssize_t n = 0;
            if (polled[i].revents == 0)
                continue;
            const std::string &input = options.input;
            if (i == 0 && (n = write(fds[0], input.data() + written, input.size() - written)) > 0)
                written += static_cast<size_t>(n);
            else if (i > 0 && (n = read(fds[i], buffer, sizeof buffer)) > 0)
                sinks[i]->append(buffer, static_cast<size_t>(n));
            if (n <= 0) {
                close(fds[i]);
                fds[i] = -1;
            }
        }
    }
    if (fds[0] >= 0)
        close(fds[0]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.peak_kib = usage.ru_maxrss;
    return result;
}

}  // namespace ku_test
