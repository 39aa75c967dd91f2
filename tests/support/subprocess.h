// Runs a program found on PATH as a child process: `input` on stdin,
// stdout and stderr caught apart; the exit status and peak memory back.
#pragma once

#include <string>
#include <vector>

namespace ku_test {

struct ProcessResult {
    int status = -1;  // exit code; 128 + signal when killed by one
    std::string out, err;
    long peak_kib = 0;  // peak resident memory, which counts what the child had at fork
};

ProcessResult run_process(std::vector<std::string> argv, const std::string &input = "");

}  // namespace ku_test
