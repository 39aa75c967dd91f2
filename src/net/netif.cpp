// Interface queries: one throwaway datagram socket and one ioctl per call.
// ku_is_local_ip answers "local" on every path that cannot finish the search,
// so a caller that guards local-only features errs on the safe side.
#include "ku/netif.h"

#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Fixed by contract: on the 32-bit target it holds 16 records of 32 bytes.
constexpr size_t kIfconfBuffer = 512;
constexpr size_t kMacBytes = 6;

struct SocketCloser {
    int fd;
    ~SocketCloser()
    {
        if (fd >= 0) {
            close(fd);
        }
    }
};

// ifr_name holds IFNAMSIZ bytes and must stay terminated: longer names are cut.
void set_name(ifreq &request, const char *ifname) noexcept
{
    strncpy(request.ifr_name, ifname, IFNAMSIZ - 1);
    request.ifr_name[IFNAMSIZ - 1] = '\0';
}

uint32_t inet_of(const sockaddr &address) noexcept
{
    sockaddr_in inet{};
    memcpy(&inet, &address, sizeof inet);
    return inet.sin_addr.s_addr;
}

}  // namespace

extern "C" {

KU_API int ku_get_mac(const char *ifname, uint8_t *mac) noexcept
{
    const SocketCloser sock{socket(AF_INET, SOCK_DGRAM, 0)};
    if (sock.fd < 0) {
        return -1;
    }
    ifreq request{};
    set_name(request, ifname);
    if (ioctl(sock.fd, SIOCGIFHWADDR, &request) < 0) {
        return -1;
    }
    memcpy(mac, request.ifr_hwaddr.sa_data, kMacBytes);
    return 0;
}

KU_API uint32_t ku_get_ip(const char *ifname) noexcept
{
    const SocketCloser sock{socket(AF_INET, SOCK_DGRAM, 0)};
    if (sock.fd < 0) {
        return 0;
    }
    ifreq request{};
    set_name(request, ifname);
    if (ioctl(sock.fd, SIOCGIFADDR, &request) != 0) {
        return 0;
    }
    return inet_of(request.ifr_addr);
}

KU_API int ku_is_local_ip(uint32_t ip) noexcept
{
    if (ip == inet_addr("127.0.0.1")) {
        return 1;
    }
    const SocketCloser sock{socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP)};
    if (sock.fd < 0) {
        return 1;
    }
    alignas(ifreq) char buffer[kIfconfBuffer];
    ifconf config{};
    config.ifc_len = static_cast<int>(sizeof buffer);
    config.ifc_buf = buffer;
    if (ioctl(sock.fd, SIOCGIFCONF, &config) < 0) {
        return 1;
    }
    // The kernel writes whole records only, so every step lands on one.
    for (size_t offset = 0; offset + sizeof(ifreq) <= static_cast<size_t>(config.ifc_len);
         offset += sizeof(ifreq)) {
        ifreq record;
        memcpy(&record, buffer + offset, sizeof record);
        if (record.ifr_addr.sa_family == AF_INET && inet_of(record.ifr_addr) == ip) {
            return 1;
        }
    }
    return 0;
}

}  // extern "C"
