// Redirects a descriptor (stdout, stderr) into an unlinked temporary file for
// the lifetime of the object, so a test reads exactly what the library wrote.
#pragma once

#include <string>

namespace ku_test {

class CaptureFd {
public:
    explicit CaptureFd(int fd);
    ~CaptureFd() { finish(); }
    CaptureFd(const CaptureFd &) = delete;
    CaptureFd &operator=(const CaptureFd &) = delete;
    // Restores the descriptor and returns everything written since
    // construction; later calls return the same text.
    std::string finish();

private:
    int fd_, saved_, file_ = -1;
    std::string text_;
};

struct CaptureStderr : CaptureFd {
    CaptureStderr() : CaptureFd(2) {}
};

struct CaptureStdout : CaptureFd {
    CaptureStdout() : CaptureFd(1) {}
};

}  // namespace ku_test
