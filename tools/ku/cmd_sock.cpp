// ku sock: the library's sockets from a shell: datagrams between processes
// through local socket files, and a TCP connect check with the library's
// bounded connect. The connect reports success as soon as the socket turns
// writable, so the tool reads the socket's pending error to tell a refusal.
#include <ku/socket.h>

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku sock send PATH TEXT\n"
    "       ku sock recv PATH [--count N] [--timeout S]\n"
    "       ku sock connect IPV4 PORT\n"
    "\n"
    "  send      sends TEXT as one datagram to the local socket file PATH\n"
    "  recv      binds a local datagram socket at PATH (a stale socket file\n"
    "            there is replaced), prints each datagram that arrives on a line\n"
    "            of its own, and removes PATH again. It stops after N datagrams\n"
    "            (default 1), and fails when S seconds pass without one\n"
    "            (default: waits for ever; Ctrl-C ends it)\n"
    "  connect   opens a TCP connection to IPV4:PORT, waiting up to 3 seconds,\n"
    "            tells whether it was accepted, and closes it\n"
    "\n"
    "A socket path holds at most 107 bytes.\n";

constexpr size_t kLongestPath = 107;

volatile sig_atomic_t g_stop = 0;

void on_stop(int)
{
    g_stop = 1;
}

int do_send(const std::string &path, const std::string &text)
{
    if (text.empty())
        return usage_error("sock", "TEXT must not be empty: an empty datagram counts as a failure");
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode))
        return fail("sock", "no socket at " + path);
    if (ku_sock_local_send(path.c_str(), text.data(), text.size()) <= 0)
        return fail("sock", "cannot send to " + path);
    return kExitOk;
}

int do_recv(const std::string &path, long long count, long long timeout_s)
{
    const int fd = ku_sock_local_create(path.c_str());
    if (fd < 0)
        return fail("sock", "cannot bind a socket at " + path);
    struct sigaction stop {};
    stop.sa_handler = on_stop;
    sigemptyset(&stop.sa_mask);
    sigaction(SIGINT, &stop, nullptr);
    sigaction(SIGTERM, &stop, nullptr);

    int status = kExitOk;
    std::vector<char> datagram(65536);
    for (long long received = 0; received < count;) {
        pollfd ready = {fd, POLLIN, 0};
        const int waited = poll(&ready, 1, timeout_s > 0 ? static_cast<int>(timeout_s * 1000) : -1);
        if (g_stop) {
            status = 130;
            break;
        }
        if (waited == 0) {
            status = fail("sock", "no datagram within " + std::to_string(timeout_s) + " s");
            break;
        }
        if (waited < 0) {
            if (errno == EINTR)
                continue;
            status = fail("sock", std::string("cannot wait: ") + std::strerror(errno));
            break;
        }
        const ssize_t got = recv(fd, datagram.data(), datagram.size(), 0);
        if (got < 0) {
            status = fail("sock", std::string("cannot receive: ") + std::strerror(errno));
            break;
        }
        if (!write_all(stdout, std::string(datagram.data(), static_cast<size_t>(got)) + "\n")) {
            status = fail("sock", "cannot write stdout");
            break;
        }
        ++received;
    }
    ku_socket_close(fd);
    unlink(path.c_str());
    return status;
}

int do_connect(const std::string &address_text, const std::string &port_text)
{
    in_addr address{};
    if (inet_pton(AF_INET, address_text.c_str(), &address) != 1)
        return usage_error("sock", "'" + address_text + "' is not a dotted IPv4 address");
    const auto port = parse_int(port_text, 1, 65535);
    if (!port)
        return usage_error("sock", "PORT must be a number from 1 to 65535");
    const std::string peer = address_text + ":" + port_text;
    const int fd = ku_socket_tcpc(address.s_addr, static_cast<int>(*port));
    if (fd < 0)
        return fail("sock", "no connection to " + peer + " within 3 s");
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0)
        error = errno;
    ku_socket_close(fd);
    if (error != 0)
        return fail("sock", "connection to " + peer + " failed: " + std::strerror(error));
    return write_all(stdout, "connected to " + peer + "\n") ? kExitOk : fail("sock", "cannot write stdout");
}

}  // namespace

int run_sock(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("sock", argc, argv, {{"--count", "-n", true}, {"--timeout", "", true}});
    if (!args)
        return kExitUsage;
    const auto &pos = args->positional;
    if (pos.empty())
        return usage_error("sock", "expected send, recv or connect");
    const std::string &action = pos[0];
    if ((args->has("--count") || args->has("--timeout")) && action != "recv")
        return usage_error("sock", "--count and --timeout belong to 'recv'");
    if ((action == "send" || action == "recv") && pos.size() >= 2 && pos[1].size() > kLongestPath)
        return usage_error("sock", "PATH is longer than 107 bytes");
    if (action == "send" && pos.size() == 3)
        return do_send(pos[1], pos[2]);
    if (action == "recv" && pos.size() == 2) {
        long long count = 1, timeout = 0;
        if (const auto text = args->value("--count")) {
            const auto value = parse_int(*text, 1, INT32_MAX);
            if (!value)
                return usage_error("sock", "--count takes a number from 1");
            count = *value;
        }
        if (const auto text = args->value("--timeout")) {
            const auto value = parse_int(*text, 1, 86400);
            if (!value)
                return usage_error("sock", "--timeout takes whole seconds from 1");
            timeout = *value;
        }
        return do_recv(pos[1], count, timeout);
    }
    if (action == "connect" && pos.size() == 3)
        return do_connect(pos[1], pos[2]);
    if (action != "send" && action != "recv" && action != "connect")
        return usage_error("sock", "unknown action '" + action + "' (send, recv, connect)");
    return usage_error("sock", "wrong number of arguments for '" + action + "'");
}

}  // namespace ku_tool
