#include "support/capture.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace ku_test {

CaptureFd::CaptureFd(int fd) : fd_(fd), saved_(dup(fd))
{
    fflush(nullptr);
    char path[] = "/tmp/ku-capture-XXXXXX";
    file_ = mkstemp(path);
    if (file_ < 0) {
        throw std::runtime_error("mkstemp failed");
    }
    unlink(path);
    dup2(file_, fd_);
}

std::string CaptureFd::finish()
{
    if (file_ < 0) {
        return text_;
    }
    fflush(nullptr);
    dup2(saved_, fd_);
    close(saved_);
    char chunk[4096];
    for (ssize_t got; (got = pread(file_, chunk, sizeof chunk, off_t(text_.size()))) > 0;) {
        text_.append(chunk, size_t(got));
    }
    close(file_);
    file_ = -1;
    return text_;
}

}  // namespace ku_test
