// Runs a program as a child process the way a shell user would: bytes in on
// stdin, stdout and stderr captured apart, the exit status and the child's
// peak memory back. For tests and benchmarks of command-line programs.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ku_test {

struct ProcessOptions {
    std::string input;             // written to the child's stdin, which is then closed
    std::vector<std::string> env;  // "NAME=VALUE" entries set on top of this environment
    std::string cwd;               // working directory of the child; empty: ours
    std::string in_file, out_file; // stdin from, stdout to these files instead of pipes
};

struct ProcessResult {
    int status = -1;  // exit code; 128 + signal when killed by a signal
    std::string out;
    std::string err;
    long peak_kib = 0;  // peak resident memory, counting what the child had at fork
};

// A started child (the program is looked up on the PATH of `env`); wait()
// collects it. The destructor kills and reaps a child never waited for.
class Process {
public:
    Process(std::vector<std::string> argv, const ProcessOptions &options = {});
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    // Sends `signal` to the child only, by its id.
    void signal(int signal) const;
    // Feeds the input, reads both streams to their end and reaps the child.
    ProcessResult wait();

private:
    std::string input_;
    pid_t pid_ = -1;
    int in_ = -1, out_ = -1, err_ = -1;
};

ProcessResult run_process(const std::vector<std::string> &argv, const ProcessOptions &options = {});

}  // namespace ku_test
