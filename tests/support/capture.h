// Redirects a file descriptor (stdout, stderr) into a temporary file for the
// lifetime of the object, so a test can read exactly what the library wrote.
#pragma once

#include <string>

namespace ku_test {

class CaptureFd {
public:
    explicit CaptureFd(int fd);
    ~CaptureFd();
    CaptureFd(const CaptureFd &) = delete;
    CaptureFd &operator=(const CaptureFd &) = delete;

    // Flushes stdio, restores the descriptor and returns everything written
    // since construction. Further calls return the same text.
    std::string finish();

private:
    int fd_;
    int saved_ = -1;
    int file_ = -1;
    bool finished_ = false;
    std::string text_;
};

struct CaptureStderr : CaptureFd {
    CaptureStderr();
};

struct CaptureStdout : CaptureFd {
    CaptureStdout();
};

}  // namespace ku_test
