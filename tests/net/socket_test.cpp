// Sockets on loopback and in a temp dir: flags, failures, no descriptor leaked.
#include "ku/socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <regex>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "support/capture.h"
#include "support/open_fds.h"
#include "support/temp_dir.h"

namespace {

const uint32_t kLoopback = inet_addr("127.0.0.1");

// 'n' O_NONBLOCK, 'c' close-on-exec, 'r' SO_REUSEADDR.
std::string traits(int fd)
{
    int reuse = 0;
    socklen_t length = sizeof reuse;
    getsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, &length);
    return std::string((fcntl(fd, F_GETFL) & O_NONBLOCK) ? "n" : "") +
           ((fcntl(fd, F_GETFD) & FD_CLOEXEC) ? "c" : "") + (reuse ? "r" : "");
}

TEST(Tcp, ListenerAndClientComeBackNonBlockingCloseOnExecAndReusable)
{
    const int before = ku_test::open_fd_count();
    const int listener = ku_socket_tcps(0x10000);  // the low 16 bits: any free port
    EXPECT_EQ(traits(listener), "ncr");
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    getsockname(listener, reinterpret_cast<sockaddr *>(&bound), &length);
    EXPECT_EQ(ku_socket_tcps(ntohs(bound.sin_port)), -1) << "the port is taken";
    EXPECT_EQ(ku_test::open_fd_count(), before + 1);
    const int client = ku_socket_tcpc(kLoopback, 0x10000 + ntohs(bound.sin_port));
    EXPECT_EQ(traits(client), "ncr");
    pollfd wait{listener, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, 5000), 1) << "the client is connected";
    EXPECT_EQ(ku_sock_blocking(listener), 0);
    EXPECT_EQ(traits(listener), "cr");
    EXPECT_EQ(ku_sock_non_blocking(listener), 0);
    EXPECT_EQ(traits(listener), "ncr");
    close(client);
    close(listener);
}

// select() cannot wait for a descriptor from FD_SETSIZE on.
TEST(Tcp, ClientPastTheSelectSetIsRefusedAndClosed)
{
    rlimit saved{};
    getrlimit(RLIMIT_NOFILE, &saved);
    rlimit raised{FD_SETSIZE + 8, saved.rlim_max};
    if (saved.rlim_max < raised.rlim_cur || setrlimit(RLIMIT_NOFILE, &raised) != 0) {
        GTEST_SKIP() << "cannot raise the descriptor limit past FD_SETSIZE";
    }
    std::vector<int> taken{open("/dev/null", O_RDONLY)};  // every free one below FD_SETSIZE
    while (taken.back() >= 0 && taken.back() < FD_SETSIZE - 1) {
        taken.push_back(dup(taken[0]));
    }
    EXPECT_EQ(ku_socket_tcpc(kLoopback, 1), -1);
    EXPECT_EQ(fcntl(FD_SETSIZE, F_GETFD), -1);
    raised.rlim_cur = FD_SETSIZE;  // now socket() itself finds no descriptor
    setrlimit(RLIMIT_NOFILE, &raised);
    EXPECT_EQ(ku_socket_tcpc(kLoopback, 1), -1);
    for (const int fd : taken) {
        close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &saved);
}

// A daemon that closed its standard input gets descriptor 0 from socket(), so
// every call here gets 0 and must close it again when it fails. Of a local
// socket's path, 107 bytes name it; the whole path is unlinked first.
TEST(Socket, DescriptorZeroIsHandedOutAndClosedLikeAnyOther)
{
    ku_test::TempDir dir;
    const std::string path = dir.write(std::string(128 - dir.path().size(), 's'), "stale socket");
    ku_test::CaptureStderr err;
    const int saved_stdin = dup(0);
    ku_socket_close(0);
    EXPECT_EQ(ku_socket_tcps(0), 0);
    close(0);
    EXPECT_EQ(ku_socket_tcpc(kLoopback, 1), 0) << "a refusal shows only at first use";
    close(0);
    EXPECT_EQ(ku_sock_local_create(path.c_str()), 0);
    EXPECT_EQ(traits(0), "");
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_EQ(access(path.substr(0, 107).c_str(), F_OK), 0);
    EXPECT_EQ(ku_sock_local_send(path.c_str(), "x", 1), 1);
    char text[4] = {};
    EXPECT_EQ(recv(0, text, sizeof text, 0), 1);
    EXPECT_STREQ(text, "x");
    errno = EACCES;  // left by an earlier call: not the text of a refused empty datagram
    EXPECT_EQ(ku_sock_local_send(path.c_str(), "", 0), -1);
    close(0);
    EXPECT_EQ(ku_sock_local_send(path.c_str(), "x", 1), -1) << "nobody is bound any more";
    EXPECT_EQ(ku_sock_local_create(dir.file("missing/sock").c_str()), -1);
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "the socket of a failed call is closed";
    dup2(saved_stdin, 0);
    close(saved_stdin);
    EXPECT_EQ(std::regex_replace(err.finish(), std::regex(R"(\[[^\]]*\])"), ""),
              "ERR:  Fail to send: error(" + std::string(strerror(ENODATA)) + ")\n" +
                  "ERR:  Fail to send: error(" + strerror(ECONNREFUSED) + ")\n" +
                  "ERR:  bind error(" + strerror(ENOENT) + ")\n");
}

}  // namespace
