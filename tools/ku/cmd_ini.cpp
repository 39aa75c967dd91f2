// ku ini: read or replace one key of an INI file through the library's INI
// functions. The library replaces keys that exist and silently keeps the
// file as it was otherwise, so the tool looks the key up first and reports
// a missing one instead of claiming success.
#include <ku/ini.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku ini get FILE SECTION KEY\n"
    "       ku ini put FILE SECTION KEY VALUE\n"
    "\n"
    "  get   prints the value of KEY, the first key line of that name behind the\n"
    "        line [SECTION] (the section does not end at the next header)\n"
    "  put   replaces the value of that key line and rewrites FILE through\n"
    "        FILE.tmp; a key that is not in the file is not added: it fails\n"
    "\n"
    "Keys and values are compared and kept byte for byte, blanks included.\n"
    "Limits: SECTION up to 29 bytes; a key line (KEY=VALUE) up to 1022 bytes;\n"
    "FILE up to 1019 bytes; VALUE without line ends.\n";

constexpr size_t kLongestSection = 29;
constexpr size_t kLongestKeyLine = 1022;  // the line buffer also holds the newline and terminator
constexpr size_t kLongestPath = 1019;     // the buffer also holds ".tmp" and the terminator

}  // namespace

int run_ini(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("ini", argc, argv, {});
    if (!args)
        return kExitUsage;
    const auto &pos = args->positional;
    if (pos.empty())
        return usage_error("ini", "expected get or put");
    const std::string &action = pos[0];
    if (action != "get" && action != "put")
        return usage_error("ini", "unknown action '" + action + "' (get, put)");
    if ((action == "get" && pos.size() != 4) || (action == "put" && pos.size() != 5))
        return usage_error("ini", "wrong number of arguments for '" + action + "'");
    const std::string &file = pos[1], &section = pos[2], &key = pos[3];
    if (section.size() > kLongestSection)
        return usage_error("ini", "SECTION is longer than 29 bytes");
    if (file.size() > kLongestPath)
        return usage_error("ini", "FILE is longer than 1019 bytes");
    if (key.empty() || key.find_first_of("=\r\n") != std::string::npos)
        return usage_error("ini", "KEY must be non-empty, without '=' or line ends");

    if (!can_read(file))
        return fail("ini", "cannot open " + file + reason());

    const char *found = GetIniKeyString(section.c_str(), key.c_str(), file.c_str());
    if (found == nullptr)
        return fail("ini", "no key '" + key + "' in section [" + section + "] of " + file);
    if (action == "get")
        return write_all(stdout, std::string(found) + "\n") ? kExitOk : fail("ini", "cannot write stdout");

    const std::string &value = pos[4];
    if (value.find_first_of("\r\n") != std::string::npos)
        return usage_error("ini", "VALUE must not hold line ends");
    if (key.size() + 1 + value.size() > kLongestKeyLine)
        return usage_error("ini", "KEY=VALUE is longer than 1022 bytes");
    errno = 0;
    if (PutIniKeyString(section.c_str(), key.c_str(), value.c_str(), file.c_str()) != 0)
        return fail("ini", "cannot rewrite " + file + reason());
    return kExitOk;
}

}  // namespace ku_tool
