// Redirects a descriptor (stdout, stderr) into an unlinked temporary file for
// the lifetime of the object, so a test reads exactly what the library wrote.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace ku_test {

template <int kFd>
class Capture {
public:
    Capture()
    {
        fflush(nullptr);
        char path[] = "/tmp/ku-capture-XXXXXX";
        file_ = mkstemp(path);
        unlink(path);
        dup2(file_, kFd);
    }
    ~Capture() { finish(); }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;

    // Restores the descriptor and returns everything written since
    // construction; later calls return the same text.
    std::string finish()
    {
        if (file_ >= 0) {
            fflush(nullptr);
            dup2(saved_, kFd);
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
    int saved_ = dup(kFd), file_;
    std::string text_;
};

using CaptureStdout = Capture<1>;
using CaptureStderr = Capture<2>;

}  // namespace ku_test
