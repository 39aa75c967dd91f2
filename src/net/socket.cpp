// TCP listener/client factories and local datagram sockets over plain
// descriptors. Every path that fails after socket() closes what it made, so
// the only resource a caller ever holds is a descriptor that came back.
#include "ku/socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "ku/log.h"

namespace {

constexpr const char *kCreateFailed = "Fail to create socket: error(%s)\n";
constexpr const char *kBindFailed = "bind error(%s)\n";
constexpr const char *kSendFailed = "Fail to send: error(%s)\n";

constexpr int kListenBacklog = 5;
constexpr time_t kConnectSeconds = 3;
// sun_path keeps its last byte as the terminator.
constexpr size_t kLocalPathMax = sizeof(sockaddr_un::sun_path) - 1;

// Closes the descriptor unless it was released to the caller.
struct SocketOwner {
    int fd;
    ~SocketOwner()
    {
        if (fd >= 0) {
            close(fd);
        }
    }
    int release() noexcept
    {
        const int out = fd;
        fd = -1;
        return out;
    }
};

int set_nonblocking_flag(int fd, bool on) noexcept
{
    const int flags = fcntl(fd, F_GETFL);
    return fcntl(fd, F_SETFL, on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK));
}

// socket, O_NONBLOCK, FD_CLOEXEC, SO_REUSEADDR: the part both TCP factories share.
int tcp_socket() noexcept
{
    SocketOwner sock{socket(AF_INET, SOCK_STREAM, 0)};
    if (sock.fd < 0) {
        return -1;
    }
    if (set_nonblocking_flag(sock.fd, true) == -1) {
        return -1;
    }
    fcntl(sock.fd, F_SETFD, FD_CLOEXEC);
    const int reuse = 1;
    setsockopt(sock.fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    return sock.release();
}

sockaddr_in inet_address(uint32_t ip, int32_t port) noexcept
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = ip;
    return address;
}

sockaddr_un local_address(const char *path) noexcept
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, kLocalPathMax);
    return address;
}

int local_socket() noexcept
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd < 0) {
        ku_err(kCreateFailed, strerror(errno));
    }
    return fd;
}

}  // namespace

extern "C" {

KU_API int ku_socket_tcps(int32_t port) noexcept
{
    SocketOwner sock{tcp_socket()};
    if (sock.fd < 0) {
        return -1;
    }
    const sockaddr_in address = inet_address(INADDR_ANY, port);
    if (bind(sock.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        return -1;
    }
    if (listen(sock.fd, kListenBacklog) < 0) {
        return -1;
    }
    return sock.release();
}

KU_API int ku_socket_tcpc(uint32_t ip, int32_t port) noexcept
{
    SocketOwner sock{tcp_socket()};
    if (sock.fd < 0) {
        return -1;
    }
    // Bound before connecting so the kernel picks the local port at once.
    const sockaddr_in local = inet_address(INADDR_ANY, 0);
    if (bind(sock.fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) < 0) {
        return -1;
    }
    const sockaddr_in peer = inet_address(ip, port);
    if (connect(sock.fd, reinterpret_cast<const sockaddr *>(&peer), sizeof peer) >= 0) {
        return sock.release();
    }
    // FD_SET on a descriptor past the set would write outside it.
    if (sock.fd >= FD_SETSIZE) {
        return -1;
    }
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(sock.fd, &writable);
    timeval timeout{kConnectSeconds, 0};
    if (select(sock.fd + 1, nullptr, &writable, nullptr, &timeout) <= 0) {
        return -1;
    }
    if (!FD_ISSET(sock.fd, &writable)) {
        return -1;
    }
    return sock.release();
}

KU_API void ku_socket_close(int fd) noexcept
{
    if (fd >= 0) {
        close(fd);
    }
}

KU_API int ku_sock_non_blocking(int fd) noexcept
{
    return set_nonblocking_flag(fd, true);
}

KU_API int ku_sock_blocking(int fd) noexcept
{
    return set_nonblocking_flag(fd, false);
}

KU_API int ku_sock_local_create(const char *path) noexcept
{
    const sockaddr_un address = local_address(path);
    // The whole path, not the cut one: a stale file goes even if bind fails.
    unlink(path);
    SocketOwner sock{local_socket()};
    if (sock.fd < 0) {
        return -1;
    }
    // The full record length, not the path's: the kernel stops at the zero byte.
    const int bound = bind(sock.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    if (bound != 0) {
        ku_err(kBindFailed, strerror(errno));
        return bound;
    }
    return sock.release();
}

KU_API int ku_sock_local_send(const char *path, const void *data, size_t length) noexcept
{
    const sockaddr_un address = local_address(path);
    SocketOwner sock{local_socket()};
    if (sock.fd < 0) {
        return -1;
    }
    const ssize_t sent = sendto(sock.fd, data, length, 0,
                                reinterpret_cast<const sockaddr *>(&address), sizeof address);
    if (sent <= 0) {
        // A datagram of no bytes goes out with no error: errno still holds
        // whatever an earlier call left, so name the refusal itself.
        ku_err(kSendFailed, strerror(sent == 0 ? ENODATA : errno));
        return -1;
    }
    return static_cast<int>(sent);
}

}  // extern "C"
