// Redirects a descriptor (stdout, stderr) into an unlinked temporary file for
// the lifetime of the object, so a test reads exactly what the library wrote.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace ku_test {

class CaptureFd {
public:
    explicit CaptureFd(int fd) : fd_(fd), saved_(dup(fd))
    {
        fflush(nullptr);
        char path[] = "/tmp/ku-capture-XXXXXX";
        file_ = mkstemp(path);
        unlink(path);
        dup2(file_, fd_);
    }
    ~CaptureFd() { finish(); }
    CaptureFd(const CaptureFd &) = delete;
    CaptureFd &operator=(const CaptureFd &) = delete;

    // Restores the descriptor and returns everything written since
    // construction; later calls return the same text.
    std::string finish()
    {
        if (file_ >= 0) {
            fflush(nullptr);
            dup2(saved_, fd_);
            close(saved_);
            char chunk[4096];
            for (ssize_t got; (got = pread(file_, chunk, sizeof chunk, off_t(text_.size()))) > 0;) {
                text_.append(chunk, size_t(got));
            }
            close(file_);
            file_ = -1;
        }
        return text_;
    }

private:
    int fd_, saved_, file_;
    std::string text_;
};

struct CaptureStderr : CaptureFd {
    CaptureStderr() : CaptureFd(2) {}
};

struct CaptureStdout : CaptureFd {
    CaptureStdout() : CaptureFd(1) {}
};

}  // namespace ku_test
