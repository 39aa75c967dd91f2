/* Questions to the kernel about this machine's own network interfaces.
 *
 * IPv4 addresses are 32-bit words in network byte order, the form of
 * sin_addr and inet_addr(). Each call opens and closes a datagram socket of
 * its own; nothing is kept between calls and nothing is logged. Interface
 * names stay the caller's; only their first 15 bytes are used.
 *
 * Threads: no shared state: every function may run on several threads at once. */
#ifndef KU_NETIF_H
#define KU_NETIF_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* Writes the 6 raw bytes of the hardware address of interface `ifname` to
 * `mac` (6 bytes of room, wire order, not text) and gives 0. -1 on any
 * failure, with `mac` left untouched. */
KU_API int ku_get_mac(const char *ifname, uint8_t *mac) KU_NOEXCEPT;

/* IPv4 address of interface `ifname` (an alias label such as "eth0:1" works
 * too). 0 on any failure, which cannot be told from an all-zero address. */
KU_API uint32_t ku_get_ip(const char *ifname) KU_NOEXCEPT;

/* 1 when `ip` is an address of this machine, else 0. inet_addr("127.0.0.1")
 * is local without asking; other 127.x addresses only when an interface
 * holds them. Only the interface records that fit a 512-byte SIOCGIFCONF
 * answer are searched (16 on a 32-bit machine): an address held only past
 * them gives 0. When the socket or the query fails the answer is 1. */
KU_API int ku_is_local_ip(uint32_t ip) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_NETIF_H */
