/* TCP and local datagram sockets.
 *
 * Every descriptor handed out is a plain file descriptor that the caller owns
 * and closes (ku_socket_close or close). TCP descriptors come back
 * non-blocking and close-on-exec with SO_REUSEADDR set; local datagram
 * descriptors come back blocking and without close-on-exec. IPv4 addresses
 * are in network byte order, ports in host byte order with only their low
 * 16 bits used. No failure path leaves a descriptor open.
 *
 * Threads: no shared state and no locks: every function may run on several
 * threads at once. ku_socket_tcpc blocks its caller for up to 3 seconds,
 * ku_sock_local_send as sendto() does on a blocking datagram socket. */
#ifndef KU_SOCKET_H
#define KU_SOCKET_H

#include <stddef.h>
#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* Listening TCP socket on every local interface at `port` (low 16 bits),
 * backlog 5. -1 on failure, for instance when the port is taken by another
 * listener. Nothing is logged. */
KU_API int ku_socket_tcps(int32_t port) KU_NOEXCEPT;

/* TCP client connected to `ip`:`port`, bound first to a kernel-chosen local
 * port. Blocks for at most 3 seconds. -1 on failure or timeout. The socket's
 * pending error is not read: a connection refused while it is being set up
 * also comes back as a descriptor, and the caller learns of it at the first
 * read or write. A descriptor at or above FD_SETSIZE that is not connected
 * at once cannot be waited for and is refused with -1. Nothing is logged. */
KU_API int ku_socket_tcpc(uint32_t ip, int32_t port) KU_NOEXCEPT;

/* close(fd); a negative fd is ignored, 0 is closed like any other. */
KU_API void ku_socket_close(int fd) KU_NOEXCEPT;

/* Adds O_NONBLOCK to fd's status flags. The result of F_SETFL: 0 or -1. */
KU_API int ku_sock_non_blocking(int fd) KU_NOEXCEPT;

/* Removes O_NONBLOCK from fd's status flags. The result of F_SETFL: 0 or -1. */
KU_API int ku_sock_blocking(int fd) KU_NOEXCEPT;

/* Local (AF_UNIX) datagram socket bound at `path`. Only the first 107 bytes
 * of `path` name the socket, but the whole `path` is unlinked first, also
 * when the call then fails. -1 on failure, with an error line in the log. */
KU_API int ku_sock_local_create(const char *path) KU_NOEXCEPT;

/* Sends `length` bytes from `data` as one datagram to the local socket at
 * `path` (first 107 bytes), from a fresh socket made and closed per call.
 * Blocks as a blocking sendto does. The number of bytes sent, or -1 with an
 * error line in the log; an empty datagram counts as a failure. */
KU_API int ku_sock_local_send(const char *path, const void *data, size_t length) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_SOCKET_H */
