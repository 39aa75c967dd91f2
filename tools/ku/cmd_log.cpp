// ku log: one line of the library's diagnostic log from a shell script, so
// that scripts and applications on the device share one line format.
#include <ku/log.h>

#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku log LEVEL MESSAGE...\n"
    "\n"
    "Writes one time-stamped line to stderr in the library's log format,\n"
    "\"[YYYY-MM-DD#hh:mm:ss#TICK]PREFIX MESSAGE\", with UTC time and the monotonic\n"
    "millisecond tick. The words of MESSAGE are joined by blanks and a newline\n"
    "ends the line.\n"
    "\n"
    "levels:\n"
    "  err     prefix \"ERR: \"\n"
    "  debug   prefix \"DBG: \"\n"
    "  trace   prefix \" \"\n"
    "\n"
    "A message of 8127 characters or more (newline included) is refused.\n";

// The log loses a message of 8128 characters or more whole; the tool refuses
// it instead, so that the caller hears of it on stderr with a status.
constexpr size_t kLongestMessage = 8127;

}  // namespace

int run_log(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("log", argc, argv, {});
    if (!args)
        return kExitUsage;
    if (args->positional.size() < 2)
        return usage_error("log", "expected a level and a message");

    std::string message;
    for (size_t i = 1; i < args->positional.size(); ++i) {
        if (i > 1)
            message += ' ';
        message += args->positional[i];
    }
    message += '\n';
    if (message.size() > kLongestMessage)
        return fail("log", "message too long: the log takes at most 8126 characters");

    const std::string &level = args->positional[0];
    if (level == "err" || level == "error")
        ku_err("%s", message.c_str());
    else if (level == "debug")
        ku_debug("%s", message.c_str());
    else if (level == "trace")
        ku_trace("%s", message.c_str());
    else
        return usage_error("log", "unknown level '" + level + "' (err, debug, trace)");
    return std::fflush(stderr) == 0 ? kExitOk : kExitFailure;
}

}  // namespace ku_tool
