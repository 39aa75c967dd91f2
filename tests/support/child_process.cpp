#include "support/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

namespace ku_test {

std::string run_in_child(const std::function<std::string()> &body)
{
    int channel[2];
    if (pipe(channel) != 0) {
        return "pipe failed";
    }
    const pid_t child = fork();
    if (child < 0) {
        close(channel[0]);
        close(channel[1]);
        return "fork failed";
    }
    if (child == 0) {
        close(channel[0]);
        const std::string result = body();
        size_t written = 0;
        while (written < result.size()) {
            const ssize_t step = write(channel[1], result.data() + written, result.size() - written);
            if (step <= 0) {
                break;
            }
            written += static_cast<size_t>(step);
        }
        _exit(0);
    }
    close(channel[1]);
    std::string text;
    char chunk[256];
    ssize_t got = 0;
    while ((got = read(channel[0], chunk, sizeof chunk)) > 0) {
        text.append(chunk, static_cast<size_t>(got));
    }
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return text + "[child ended abnormally, status " + std::to_string(status) + "]";
    }
    return text;
}

}  // namespace ku_test
