// The child's streams are anonymous files: nothing to feed or drain while it
// runs, and a process it leaves behind cannot hold the caller up.
#include "subprocess.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace ku_test {

ProcessResult run_process(std::vector<std::string> argv, const std::string &input)
{
    std::vector<char *> args;  // made before fork, as is all the child needs
    for (auto &arg : argv)
        args.push_back(arg.data());
    args.push_back(nullptr);
    FILE *files[3] = {std::tmpfile(), std::tmpfile(), std::tmpfile()};
    if (!files[0] || !files[1] || !files[2] ||
        std::fwrite(input.data(), 1, input.size(), files[0]) != input.size() ||
        std::fflush(files[0]) != 0 || lseek(fileno(files[0]), 0, SEEK_SET) != 0)
        std::abort();
    const pid_t pid = fork();
    if (pid == 0) {
        if (dup2(fileno(files[0]), 0) < 0 || dup2(fileno(files[1]), 1) < 0 ||
            dup2(fileno(files[2]), 2) < 0)
            _exit(126);
        execvp(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (pid < 0 || wait4(pid, &status, 0, &usage) != pid)
        std::abort();
    ProcessResult result{WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), {}, {},
                         usage.ru_maxrss};
    for (int i = 1; i < 3; ++i) {
        std::rewind(files[i]);
        for (int c; (c = std::fgetc(files[i])) != EOF;)
            (i == 1 ? result.out : result.err) += static_cast<char>(c);
    }
    for (FILE *file : files)
        std::fclose(file);
    return result;
}

}  // namespace ku_test
