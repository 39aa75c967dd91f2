// ku mdns: publish or withdraw mDNS services through the library, which runs
// dns-sd through the shell. The library passes its arguments to the shell
// unquoted and reports nothing back, so the tool admits only plain tokens
// and checks the command length up front.
//
// The daemon calls (ku_mdnsd_init, ku_mdnsd_destroy) are left out on purpose:
// their kill command line, as sh and bash parse it, also sends SIGKILL to
// process 2, which is no safe thing to offer from a shell tool.
#include <ku/mdns.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku mdns register NAME TYPE DOMAIN PORT [TXT]\n"
    "       ku mdns browse TYPE [DOMAIN]\n"
    "       ku mdns deregister [--browse] [MATCH]\n"
    "\n"
    "  register     publishes a service: runs 'dns-sd -R NAME TYPE DOMAIN PORT TXT'\n"
    "               in the background, e.g. ku mdns register box _http._tcp local 80\n"
    "  browse       runs 'dns-sd -B TYPE DOMAIN' in the background\n"
    "  deregister   kills the dns-sd -R processes (with --browse: -B) whose\n"
    "               command line holds MATCH; without MATCH, all of them\n"
    "\n"
    "Arguments reach the shell as they stand, so only letters, digits and\n"
    "._-:/=,+@ are accepted, and a command must stay under 256 bytes. Whether\n"
    "dns-sd reached a daemon is not known to the tool. The mdnsd daemon must be\n"
    "running already.\n";

constexpr int kCommandRoom = 256;

bool plain(const std::string &token)
{
    for (const char c : token) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                        std::string_view("._-:/=,+@").find(c) != std::string_view::npos;
        if (!ok)
            return false;
    }
    return true;
}

int check_tokens(const std::vector<std::string> &tokens)
{
    for (const auto &token : tokens)
        if (!plain(token))
            return usage_error("mdns", "'" + token + "' holds a character the shell would interpret");
    return kExitOk;
}

int do_register(char flag, const std::string &name, const std::string &type, const std::string &domain,
                const std::string &port, const std::string &txt)
{
    // The library's command line, measured the same way, so that a refusal
    // becomes a status here rather than a log line only.
    const int length = std::snprintf(nullptr, 0, "dns-sd -%c %s %s %s %s %s &", flag, name.c_str(),
                                     type.c_str(), domain.c_str(), port.c_str(), txt.c_str());
    if (length >= kCommandRoom)
        return usage_error("mdns", "the dns-sd command would be longer than 255 bytes");
    ku_mdns_service_register(flag, name.c_str(), type.c_str(), domain.c_str(), port.c_str(), txt.c_str());
    return kExitOk;
}

int do_deregister(char flag, const std::string &match)
{
    const int length = std::snprintf(
        nullptr, 0, "ps -ef|grep 'dns-sd -%c'|grep '%s'|grep -v 'grep'|awk '{print $1}'|xargs kill -9", flag,
        match.c_str());
    if (length >= kCommandRoom)
        return usage_error("mdns", "MATCH is too long for the kill command");
    ku_mdns_service_deregister(flag, match.c_str());
    return kExitOk;
}

}  // namespace

int run_mdns(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("mdns", argc, argv, {{"--browse", "", false}});
    if (!args)
        return kExitUsage;
    const auto &pos = args->positional;
    if (pos.empty())
        return usage_error("mdns", "expected register, browse or deregister");
    const std::string &action = pos[0];
    const std::vector<std::string> tokens(pos.begin() + 1, pos.end());
    if (args->has("--browse") && action != "deregister")
        return usage_error("mdns", "--browse belongs to 'deregister'");
    if (action == "register") {
        if (tokens.size() < 4 || tokens.size() > 5)
            return usage_error("mdns", "register takes NAME TYPE DOMAIN PORT [TXT]");
        if (const int status = check_tokens(tokens); status != kExitOk)
            return status;
        if (!parse_int(tokens[3], 1, 65535))
            return usage_error("mdns", "PORT must be a number from 1 to 65535");
        return do_register('R', tokens[0], tokens[1], tokens[2], tokens[3], tokens.size() == 5 ? tokens[4] : "");
    }
    if (action == "browse") {
        if (tokens.empty() || tokens.size() > 2)
            return usage_error("mdns", "browse takes TYPE [DOMAIN]");
        if (const int status = check_tokens(tokens); status != kExitOk)
            return status;
        return do_register('B', "", tokens[0], tokens.size() == 2 ? tokens[1] : "", "", "");
    }
    if (action == "deregister") {
        if (tokens.size() > 1)
            return usage_error("mdns", "deregister takes at most one MATCH");
        if (const int status = check_tokens(tokens); status != kExitOk)
            return status;
        return do_deregister(args->has("--browse") ? 'B' : 'R', tokens.empty() ? "" : tokens[0]);
    }
    return usage_error("mdns", "unknown action '" + action + "' (register, browse, deregister)");
}

}  // namespace ku_tool
