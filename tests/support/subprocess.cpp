// Child processes for command-line tests: fork, exec, and one poll loop that
// feeds stdin while draining stdout and stderr, so neither side can block
// the other on a full pipe.
#include "subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

extern char **environ;

namespace ku_test {
namespace {

int64_t now_ms()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void close_fd(int &fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

int decode_status(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace

Process::Process(const std::vector<std::string> &argv, const ProcessOptions &options)
    : options_(options)
{
    // Everything the child needs is built before fork: after it, only
    // async-signal-safe calls are allowed in the child.
    std::vector<char *> args;
    for (const auto &arg : argv)
        args.push_back(const_cast<char *>(arg.c_str()));
    args.push_back(nullptr);

    std::vector<std::string> env_strings;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string current = *entry;
        const std::string name = current.substr(0, current.find('='));
        bool overridden = false;
        for (const auto &set : options.env)
            overridden = overridden || set.substr(0, set.find('=')) == name;
        if (!overridden)
            env_strings.push_back(current);
    }
    env_strings.insert(env_strings.end(), options.env.begin(), options.env.end());
    std::vector<char *> envp;
    for (auto &entry : env_strings)
        envp.push_back(entry.data());
    envp.push_back(nullptr);

    int in_pipe[2], out_pipe[2], err_pipe[2];
    if (pipe2(in_pipe, O_CLOEXEC) != 0 || pipe2(out_pipe, O_CLOEXEC) != 0 ||
        pipe2(err_pipe, O_CLOEXEC) != 0)
        std::abort();

    pid_ = fork();
    if (pid_ == 0) {
        dup2(in_pipe[0], 0);
        dup2(out_pipe[1], 1);
        dup2(err_pipe[1], 2);
        if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0)
            _exit(126);
        ::signal(SIGPIPE, SIG_DFL);
        execvpe(args[0], args.data(), envp.data());
        _exit(127);
    }
    close(in_pipe[0]);
    close(out_pipe[1]);
    close(err_pipe[1]);
    in_ = in_pipe[1];
    out_ = out_pipe[0];
    err_ = err_pipe[0];
    if (pid_ < 0)
        std::abort();
}

Process::~Process()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
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
    // A child that exits without reading its input must not kill us.
    struct sigaction ignore {};
    struct sigaction previous {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &previous);

    size_t written = 0;
    if (options_.input.empty())
        close_fd(in_);
    const int64_t deadline = now_ms() + options_.timeout_ms;
    bool timed_out = false;
    while (out_ >= 0 || err_ >= 0) {
        pollfd fds[3];
        int count = 0;
        if (in_ >= 0)
            fds[count++] = {in_, POLLOUT, 0};
        if (out_ >= 0)
            fds[count++] = {out_, POLLIN, 0};
        if (err_ >= 0)
            fds[count++] = {err_, POLLIN, 0};
        const int64_t left = deadline - now_ms();
        if (left <= 0) {
            timed_out = true;
            break;
        }
        if (poll(fds, count, static_cast<int>(left)) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < count; ++i) {
            if (fds[i].revents == 0)
                continue;
            if (fds[i].fd == in_) {
                const ssize_t n = ::write(in_, options_.input.data() + written,
                                          options_.input.size() - written);
                if (n > 0)
                    written += static_cast<size_t>(n);
                if (n < 0 || written == options_.input.size())
                    close_fd(in_);
                continue;
            }
            char buffer[65536];
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            std::string &sink = fds[i].fd == out_ ? result.out : result.err;
            if (n > 0)
                sink.append(buffer, static_cast<size_t>(n));
            else if (fds[i].fd == out_)
                close_fd(out_);
            else
                close_fd(err_);
        }
    }
    close_fd(in_);
    close_fd(out_);
    close_fd(err_);
    if (timed_out)
        kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    sigaction(SIGPIPE, &previous, nullptr);
    result.status = timed_out ? -1 : decode_status(status);
    return result;
}

ProcessResult run_process(const std::vector<std::string> &argv, const ProcessOptions &options)
{
    Process process(argv, options);
    return process.wait();
}

}  // namespace ku_test
