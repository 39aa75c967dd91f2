// ku str: the library's string helpers over the lines of stdin, and its
// clock token. Each line goes through the helper without its line end, so
// that trimming sees the blanks at the end of the line.
#include <ku/str.h>

#include <cstdio>
#include <cstdlib>
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
    "          (unique per moment, not random)\n";

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

    std::string input;
    if (!read_all(stdin, input))
        return fail("str", "cannot read stdin");
    std::string output;
    size_t start = 0;
    while (start < input.size()) {
        size_t end = input.find('\n', start);
        const bool ended = end != std::string::npos;
        if (!ended)
            end = input.size();
        // The helpers stop at a zero byte; cut the line there rather than
        // pretend the rest was handled.
        std::string line = input.substr(start, end - start);
        if (line.find('\0') != std::string::npos)
            return fail("str", "input holds a zero byte");
        if (action == "upper")
            strupr(line.data());
        else if (action == "lower")
            strlwr(line.data());
        else
            ku_string_trim(line.data());
        output += line.c_str();
        if (ended)
            output += '\n';
        start = end + 1;
    }
    return write_all(stdout, output) ? kExitOk : fail("str", "cannot write stdout");
}

}  // namespace ku_tool
