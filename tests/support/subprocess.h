// Runs a program as a child process with its standard streams on pipes, the
// way a shell user would run it: bytes in on stdin, stdout and stderr
// captured apart, the exit status back. For tests of command-line programs.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ku_test {

struct ProcessOptions {
    std::string input;             // written to the child's stdin, which is then closed
    std::vector<std::string> env;  // "NAME=VALUE" entries set on top of this environment
    std::string cwd;               // working directory of the child; empty: ours
    int timeout_ms = 60000;        // the child is killed when it runs longer
};

struct ProcessResult {
    int status = -1;  // exit code; 128 + signal when killed by a signal; -1 on a time-out
    std::string out;
    std::string err;
};

// A started child; wait() collects it. The destructor kills and reaps a child
// that was never waited for, so a failing test leaves nothing running.
class Process {
public:
    Process(const std::vector<std::string> &argv, const ProcessOptions &options = {});
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t pid() const { return pid_; }
    // Sends `signal` to the child (only to it, by its id).
    void signal(int signal) const;
    // Feeds the input, reads both streams to their end and reaps the child.
    ProcessResult wait();

private:
    ProcessOptions options_;
    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    int err_ = -1;
};

// Starts `argv` and waits for it.
ProcessResult run_process(const std::vector<std::string> &argv, const ProcessOptions &options = {});

}  // namespace ku_test
