// Runs a program as a child process, as a shell user would: bytes in on stdin,
// stdout and stderr caught apart; the exit status and peak memory back.
#pragma once

#include <string>
#include <vector>

namespace ku_test {

struct ProcessOptions {
    std::string input{};             // the child's stdin
    std::vector<std::string> env{};  // "NAME=VALUE" on top of ours; PATH finds the program
};

struct ProcessResult {
    int status = -1;  // exit code; 128 + signal when killed by one
    std::string out, err;
    long peak_kib = 0;  // peak resident memory, which counts what the child had at fork
};

ProcessResult run_process(std::vector<std::string> argv, ProcessOptions options = {});

}  // namespace ku_test
