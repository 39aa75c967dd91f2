#include "support/capture.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace ku_test {

CaptureFd::CaptureFd(int fd) : fd_(fd)
{
    fflush(stdout);
    fflush(stderr);
    char path[] = "/tmp/ku-capture-XXXXXX";
    file_ = mkstemp(path);
    if (file_ < 0) {
        throw std::runtime_error("mkstemp failed");
    }
    unlink(path);
    saved_ = dup(fd_);
    dup2(file_, fd_);
}

CaptureFd::~CaptureFd()
{
    finish();
}

std::string CaptureFd::finish()
{
    if (finished_) {
        return text_;
    }
    finished_ = true;
    fflush(stdout);
    fflush(stderr);
    dup2(saved_, fd_);
    close(saved_);
    lseek(file_, 0, SEEK_SET);
    char chunk[4096];
    ssize_t got;
    while ((got = read(file_, chunk, sizeof chunk)) > 0) {
        text_.append(chunk, static_cast<size_t>(got));
    }
    close(file_);
    return text_;
}

CaptureStderr::CaptureStderr() : CaptureFd(STDERR_FILENO) {}
CaptureStdout::CaptureStdout() : CaptureFd(STDOUT_FILENO) {}

}  // namespace ku_test
