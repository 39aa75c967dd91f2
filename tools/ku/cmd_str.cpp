// ku str: the library's string helpers over the lines of stdin, and its
// clock token. Each line goes through the helper without its line end, so
// that trimming sees the blanks at the end of the line.
#include <ku/str.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku str upper|lower|trim < INPUT > OUTPUT\n"
    "       ku str token\n"
    "\n"
    "  upper   turns a..z into A..Z in each line; other bytes stay\n"
    "  lower   turns A..Z into a..z in each line\n"
    "  trim    removes blanks (spaces only, not tabs) at both ends of each line\n"
    "  token   prints the library's short token: the nanosecond clock in hex\n"
    "          (unique per moment, not random)\n"
    "\n"
    "Lines are read and written one at a time: memory holds the longest line.\n";

}  // namespace

int run_str(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("str", argc, argv, {});
    if (!args)
        return kExitUsage;
    if (args->positional.size() != 1)
        return usage_error("str", "expected upper, lower, trim or token");
    const std::string &action = args->positional[0];
    if (action == "token") {
        char *token = ku_string_random();
        if (token == nullptr)
            return fail("str", "out of memory");
        const std::string line = std::string(token) + "\n";
        std::free(token);
        return write_all(stdout, line) ? kExitOk : fail("str", "cannot write stdout");
    }
    if (action != "upper" && action != "lower" && action != "trim")
        return usage_error("str", "unknown action '" + action + "' (upper, lower, trim, token)");

    // Line by line: memory holds one line, however long the input.
    char *line = nullptr;
    size_t room = 0;
    ssize_t length;
    errno = 0;
    while ((length = getline(&line, &room, stdin)) > 0) {
        const bool ended = line[length - 1] == '\n';
        if (ended)
            line[--length] = '\0';
        // The helpers stop at a zero byte; fail rather than pretend the rest
        // of the line was handled.
        if (std::memchr(line, '\0', static_cast<size_t>(length)) != nullptr) {
            std::free(line);
            return fail("str", "input holds a zero byte");
        }
        if (action == "upper")
            strupr(line);
        else if (action == "lower")
            strlwr(line);
        else
            ku_string_trim(line);
        if (std::fputs(line, stdout) == EOF || (ended && std::fputc('\n', stdout) == EOF))
            break;
    }
    std::free(line);
    if (std::ferror(stdin))
        return fail("str", "cannot read stdin: " + std::string(std::strerror(errno)));
    if (std::ferror(stdout) || std::fflush(stdout) != 0)
        return fail("str", "cannot write stdout: " + std::string(std::strerror(errno)));
    return kExitOk;
}

}  // namespace ku_tool
