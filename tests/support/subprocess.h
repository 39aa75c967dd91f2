// Runs a program as a child process the way a shell user would: bytes in on
// stdin, stdout and stderr captured apart; the exit status and peak memory back.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ku_test {

struct ProcessOptions {
    std::string input{};                // written to stdin, which is then closed
    std::vector<std::string> env{};     // "NAME=VALUE" on top of ours; PATH finds the program
    std::string cwd{};                  // working directory; empty: ours
    std::string in_file{}, out_file{};  // stdin from, stdout to these files instead
};

struct ProcessResult {
    int status = -1;  // exit code; 128 + signal when killed by one
    std::string out, err;
    long peak_kib = 0;  // peak resident memory, which counts what the child had at fork
};

// A started child; the destructor kills and reaps one never waited for.
class Process {
public:
    Process(std::vector<std::string> argv, const ProcessOptions &options = {});
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;
    void signal(int signal) const;
    ProcessResult wait();  // feeds stdin, reads both streams to their end, reaps

private:
    std::string input_;
    pid_t pid_ = -1;
    int fds_[3] = {-1, -1, -1};  // the ends of the child's stdin, stdout and stderr
};

ProcessResult run_process(const std::vector<std::string> &argv, const ProcessOptions &options = {});

}  // namespace ku_test
