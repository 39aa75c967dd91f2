// fork and exec, then one poll loop that feeds stdin while it drains stdout
// and stderr, so that neither side can block the other on a full pipe.
#include "subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

extern char **environ;

namespace ku_test {
namespace {

std::vector<char *> pointers(std::vector<std::string> &strings)
{
    std::vector<char *> list;
    for (auto &string : strings)
        list.push_back(string.data());
    list.push_back(nullptr);
    return list;
}

void close_fd(int &fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

}  // namespace

Process::Process(std::vector<std::string> argv, const ProcessOptions &options) : input_(options.input)
{
    std::vector<std::string> env = options.env;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string name(*entry, std::string_view(*entry).find('=') + 1);
        if (std::none_of(options.env.begin(), options.env.end(),
                         [&](const std::string &set) { return set.starts_with(name); }))
            env.emplace_back(*entry);
    }
    // Built before fork: the child may make async-signal-safe calls only.
    auto args = pointers(argv), envp = pointers(env);
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        std::abort();
    pid_ = fork();
    if (pid_ == 0) {
        const int in_fd = options.in_file.empty() ? in[0] : open(options.in_file.c_str(), O_RDONLY);
        const int out_fd = options.out_file.empty()
                               ? out[1]
                               : open(options.out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (dup2(in_fd, 0) < 0 || dup2(out_fd, 1) < 0 || dup2(err[1], 2) < 0 ||
            (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0))
            _exit(126);
        ::signal(SIGPIPE, SIG_DFL);
        environ = envp.data();  // execvp looks the program up on this PATH
        execvp(args[0], args.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    in_ = in[1];
    out_ = out[0];
    err_ = err[0];
    if (pid_ < 0)
        std::abort();
}

Process::~Process()
{
    signal(SIGKILL);
    if (pid_ > 0)
        waitpid(pid_, nullptr, 0);
    close_fd(in_);
    close_fd(out_);
    close_fd(err_);
}

void Process::signal(int signal) const
{
    if (pid_ > 0)
        kill(pid_, signal);
}

ProcessResult Process::wait()
{
    ProcessResult result;
    ::signal(SIGPIPE, SIG_IGN);  // a child that leaves its input unread must not kill us
    size_t written = 0;
    if (input_.empty())
        close_fd(in_);
    while (out_ >= 0 || err_ >= 0) {
        pollfd fds[3] = {{in_, POLLOUT, 0}, {out_, POLLIN, 0}, {err_, POLLIN, 0}};
        if (poll(fds, 3, -1) < 0)
            continue;
        if (fds[0].revents != 0) {
            const ssize_t n = write(in_, input_.data() + written, input_.size() - written);
            written += n > 0 ? static_cast<size_t>(n) : 0;
            if (n < 0 || written == input_.size())
                close_fd(in_);
        }
        for (int i = 1; i < 3; ++i) {
            char buffer[65536];
            if (fds[i].revents == 0)
                continue;
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0)
                (i == 1 ? result.out : result.err).append(buffer, static_cast<size_t>(n));
            else
                close_fd(i == 1 ? out_ : err_);
        }
    }
    close_fd(in_);
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
