// ku: the command-line front end of libku, one subcommand per family, for
// trying the library from a shell and poking at a device. Every subcommand
// goes through the public API only.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "cli.h"
#include "commands.h"

namespace {

struct Command {
    const char *name;
    const char *summary;
    int (*run)(int argc, char **argv);
};

constexpr Command kCommands[] = {
#ifdef KU_TOOL_HAVE_STR
    {"str", "upper-case, lower-case or trim lines; a clock token", ku_tool::run_str},
#endif
#ifdef KU_TOOL_HAVE_CODEC
    {"b64", "Base64 encode or decode stdin to stdout", ku_tool::run_b64},
    {"hex", "hexadecimal encode or decode stdin to stdout", ku_tool::run_hex},
#endif
#ifdef KU_TOOL_HAVE_DES
    {"des", "Triple-DES encrypt or decrypt stdin to stdout", ku_tool::run_des},
#endif
#ifdef KU_TOOL_HAVE_JSON
    {"json", "read, change and print fields of a JSON file", ku_tool::run_json},
#endif
#ifdef KU_TOOL_HAVE_TABLE
    {"table", "show and edit a space-separated text table file", ku_tool::run_table},
#endif
#ifdef KU_TOOL_HAVE_INI
    {"ini", "read or replace a key of an INI file", ku_tool::run_ini},
#endif
#ifdef KU_TOOL_HAVE_FETCH
    {"fetch", "download a URL over HTTP or HTTPS, with progress", ku_tool::run_fetch},
#endif
#ifdef KU_TOOL_HAVE_RESAMPLE
    {"resample", "convert 16-bit PCM or WAV to mono at another rate", ku_tool::run_resample},
#endif
#ifdef KU_TOOL_HAVE_NET
    {"net", "an interface's MAC and IPv4 address; is an address local", ku_tool::run_net},
#endif
#ifdef KU_TOOL_HAVE_SOCK
    {"sock", "local datagrams between processes; a TCP connect check", ku_tool::run_sock},
#endif
#ifdef KU_TOOL_HAVE_PLUGIN
    {"plugin", "load a named plug-in and report what it offers", ku_tool::run_plugin},
#endif
#ifdef KU_TOOL_HAVE_MDNS
    {"mdns", "publish or withdraw mDNS services through dns-sd", ku_tool::run_mdns},
#endif
#ifdef KU_TOOL_HAVE_LOCK
    {"lock", "take, release or query the /dev/plock process lock", ku_tool::run_lock},
#endif
    {"log", "write one time-stamped log line to stderr", ku_tool::run_log},
    {"clock", "print the monotonic tick clocks and calendar time", ku_tool::run_clock},
};

void print_usage(FILE *stream)
{
    std::fprintf(stream,
                 "usage: ku COMMAND [ARGS...]\n"
                 "       ku COMMAND --help\n"
                 "       ku --version\n"
                 "\n"
                 "The command-line front end of libku. Data goes to stdout, diagnostics to\n"
                 "stderr; the exit status is 0 on success, 1 when the work failed and 2 for a\n"
                 "wrong command line.\n"
                 "\n"
                 "commands:\n");
    for (const Command &command : kCommands)
        std::fprintf(stream, "  %-9s %s\n", command.name, command.summary);
    std::fprintf(stream,
                 "\n"
                 "The threads and recursive locks and the in-memory containers (byte\n"
                 "buffer, ring buffer, reassembly cache, FIFO list) work inside a program\n"
                 "and have no command; see the API reference (cmake --build BUILD --target\n"
                 "docs).\n");
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        print_usage(stderr);
        return ku_tool::kExitUsage;
    }
    const std::string_view first = argv[1];
    if (first == "--help" || first == "-h" || first == "help") {
        print_usage(stdout);
        return std::fflush(stdout) == 0 ? ku_tool::kExitOk : ku_tool::kExitFailure;
    }
    if (first == "--version" || first == "-V") {
        if (argc > 2) {
            std::fprintf(stderr, "ku: --version takes no arguments (try 'ku --help')\n");
            return ku_tool::kExitUsage;
        }
        std::printf("ku %s\n", KU_TOOL_VERSION);
        return std::fflush(stdout) == 0 ? ku_tool::kExitOk : ku_tool::kExitFailure;
    }
    for (const Command &command : kCommands)
        if (first == command.name)
            return command.run(argc - 1, argv + 1);
    std::fprintf(stderr, "ku: unknown command '%s' (try 'ku --help')\n", argv[1]);
    return ku_tool::kExitUsage;
}
