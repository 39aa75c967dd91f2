// ku net: the library's interface queries from a shell: an interface's
// hardware and IPv4 address, and whether an IPv4 address is this machine's.
#include <ku/netif.h>

#include <arpa/inet.h>
#include <net/if.h>

#include <cstdio>
#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku net if IFACE\n"
    "       ku net local IPV4\n"
    "\n"
    "  if      prints the interface's hardware address and IPv4 address:\n"
    "              mac 02:42:ac:11:00:02\n"
    "              ipv4 172.17.0.2\n"
    "          a part the interface lacks is shown as \"none\"; an interface\n"
    "          that does not exist fails with status 1\n"
    "  local   prints \"local\" when IPV4 is held by one of this machine's\n"
    "          interfaces (127.0.0.1 always is), else \"not local\". When the\n"
    "          interfaces cannot be listed the answer is \"local\".\n";

int do_if(const std::string &name)
{
    if (name.empty() || name.size() >= IFNAMSIZ)
        return usage_error("net", "an interface name has 1 to 15 bytes");
    unsigned char mac[6] = {};
    const bool have_mac = ku_get_mac(name.c_str(), mac) == 0;
    const uint32_t ip = ku_get_ip(name.c_str());
    if (!have_mac && ip == 0)
        return fail("net", "no interface '" + name + "' (or it has neither a MAC nor an IPv4 address)");
    char text[64];
    std::string out;
    if (have_mac) {
        std::snprintf(text, sizeof text, "mac %02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2],
                      mac[3], mac[4], mac[5]);
        out += text;
    } else {
        out += "mac none\n";
    }
    if (ip != 0) {
        in_addr address{};
        address.s_addr = ip;  // both in network byte order
        out += std::string("ipv4 ") + inet_ntop(AF_INET, &address, text, sizeof text) + "\n";
    } else {
        out += "ipv4 none\n";
    }
    return write_all(stdout, out) ? kExitOk : fail("net", "cannot write stdout");
}

int do_local(const std::string &text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        return usage_error("net", "'" + text + "' is not a dotted IPv4 address");
    const bool local = ku_is_local_ip(address.s_addr) != 0;
    return write_all(stdout, local ? "local\n" : "not local\n") ? kExitOk : fail("net", "cannot write stdout");
}

}  // namespace

int run_net(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("net", argc, argv, {});
    if (!args)
        return kExitUsage;
    const auto &pos = args->positional;
    if (pos.size() == 2 && pos[0] == "if")
        return do_if(pos[1]);
    if (pos.size() == 2 && pos[0] == "local")
        return do_local(pos[1]);
    if (!pos.empty() && pos[0] != "if" && pos[0] != "local")
        return usage_error("net", "unknown query '" + pos[0] + "' (if, local)");
    return usage_error("net", "expected 'if IFACE' or 'local IPV4'");
}

}  // namespace ku_tool
