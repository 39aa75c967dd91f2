#include "ku/netif.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "support/open_fds.h"
#include "support/private_namespaces.h"

// Failure injection: while the switch is set, the next socket() or ioctl()
// of this process fails with EMFILE or ENODEV. Everything else goes to libc.
namespace {
bool fail_socket = false;
bool fail_ioctl = false;
int socket_calls = 0;
}  // namespace

extern "C" int socket(int domain, int type, int protocol)
{
    using Real = int (*)(int, int, int);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "socket"));
    ++socket_calls;
    if (fail_socket) {
        errno = EMFILE;
        return -1;
    }
    return real(domain, type, protocol);
}

extern "C" int ioctl(int fd, unsigned long request, ...)
{
    using Real = int (*)(int, unsigned long, void *);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "ioctl"));
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (fail_ioctl) {
        errno = ENODEV;
        return -1;
    }
    return real(fd, request, argument);
}

namespace {

using ku_test::open_fd_count;

const bool kInNamespaces = ku_test::enter_private_namespaces();

struct FailSwitch {
    bool &flag;
    explicit FailSwitch(bool &which) : flag(which) { flag = true; }
    ~FailSwitch() { flag = false; }
};

// Gives the loopback device one more IPv4 address under an alias label, the
// old ioctl way, so no tool is needed. Only inside the private namespace.
bool add_alias(const std::string &label, const char *address)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    strncpy(request.ifr_name, label.c_str(), IFNAMSIZ - 1);
    sockaddr_in inet{};
    inet.sin_family = AF_INET;
    inet.sin_addr.s_addr = inet_addr(address);
    memcpy(&request.ifr_addr, &inet, sizeof inet);
    const bool added = ioctl(fd, SIOCSIFADDR, &request) == 0;
    close(fd);
    return added;
}

// Every IPv4 record of SIOCGIFCONF in the kernel's order, from a buffer
// large enough for all of them.
std::vector<uint32_t> all_records()
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    std::vector<ifreq> records(256);
    ifconf config{};
    config.ifc_len = static_cast<int>(records.size() * sizeof(ifreq));
    config.ifc_req = records.data();
    ioctl(fd, SIOCGIFCONF, &config);
    close(fd);
    std::vector<uint32_t> addresses;
    for (size_t i = 0; i < config.ifc_len / sizeof(ifreq); ++i) {
        sockaddr_in inet{};
        memcpy(&inet, &records[i].ifr_addr, sizeof inet);
        addresses.push_back(inet.sin_addr.s_addr);
    }
    return addresses;
}

#define REQUIRE_NAMESPACE()                                                                     \
    if (!kInNamespaces) {                                                                       \
        GTEST_SKIP() << ku_test::private_namespaces_missing_reason();                           \
    }

TEST(InterfaceAddress, LoopbackHasItsAddressAndFailuresGiveZero)
{
    EXPECT_EQ(ku_get_ip("lo"), inet_addr("127.0.0.1"));
    EXPECT_EQ(ku_get_ip("ku-nosuch0"), 0u);
    const FailSwitch failing(fail_socket);
    EXPECT_EQ(ku_get_ip("lo"), 0u);
}

TEST(InterfaceAddress, NameOf16OrMoreBytesIsCutAt15)
{
    REQUIRE_NAMESPACE();
    const std::string label = "lo:abcdefghijkl";
    ASSERT_EQ(label.size(), 15u);
    ASSERT_TRUE(add_alias(label, "127.1.0.99"));
    EXPECT_EQ(ku_get_ip((label + "X").c_str()), inet_addr("127.1.0.99"));
    EXPECT_EQ(ku_get_ip((label + "XYZXYZXYZ").c_str()), inet_addr("127.1.0.99"));
}

TEST(HardwareAddress, LoopbackIsAllZeros)
{
    std::array<uint8_t, 8> room;
    room.fill(0xAA);
    ASSERT_EQ(ku_get_mac("lo", room.data()), 0);
    EXPECT_EQ(room, (std::array<uint8_t, 8>{0, 0, 0, 0, 0, 0, 0xAA, 0xAA}));
}

TEST(HardwareAddress, MissingInterfaceLeavesRoomAlone)
{
    std::array<uint8_t, 6> room;
    room.fill(0xAA);
    const int before = open_fd_count();
    EXPECT_EQ(ku_get_mac("ku-nosuch0", room.data()), -1);
    EXPECT_EQ(room, (std::array<uint8_t, 6>{0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
    EXPECT_EQ(open_fd_count(), before);
}

TEST(HardwareAddress, SocketFailureGivesMinusOne)
{
    std::array<uint8_t, 6> room;
    room.fill(0xAA);
    const FailSwitch failing(fail_socket);
    EXPECT_EQ(ku_get_mac("lo", room.data()), -1);
    EXPECT_EQ(room[0], 0xAA);
}

TEST(LocalAddress, OnlyTheLoopbackAddressIsLocalWithoutAnInterface)
{
    socket_calls = 0;
    EXPECT_EQ(ku_is_local_ip(inet_addr("127.0.0.1")), 1);
    EXPECT_EQ(socket_calls, 0) << "no system call for 127.0.0.1";
    EXPECT_EQ(ku_is_local_ip(inet_addr("127.0.0.2")), 0);
    const int before = open_fd_count();
    EXPECT_EQ(ku_is_local_ip(inet_addr("192.0.2.1")), 0);
    EXPECT_EQ(open_fd_count(), before);
}

TEST(LocalAddress, SocketFailureCountsAsLocal)
{
    const FailSwitch failing(fail_socket);
    EXPECT_EQ(ku_is_local_ip(inet_addr("192.0.2.1")), 1);
}

TEST(LocalAddress, QueryFailureCountsAsLocalAndClosesSocket)
{
    const int before = open_fd_count();
    {
        const FailSwitch failing(fail_ioctl);
        EXPECT_EQ(ku_is_local_ip(inet_addr("192.0.2.1")), 1);
    }
    EXPECT_EQ(open_fd_count(), before);
}

TEST(LocalAddress, AddressOfConfiguredInterfaceIsLocal)
{
    REQUIRE_NAMESPACE();
    ASSERT_TRUE(add_alias("lo:7", "127.7.0.1"));
    ASSERT_EQ(ku_get_ip("lo:7"), inet_addr("127.7.0.1"));
    EXPECT_EQ(ku_is_local_ip(ku_get_ip("lo:7")), 1);
}

TEST(LocalAddress, RecordsPastThe512ByteAnswerAreNotSeen)
{
    REQUIRE_NAMESPACE();
    const size_t visible = 512 / sizeof(ifreq);
    for (size_t i = 0; i < visible + 2; ++i) {
        const std::string address = "127.2.0." + std::to_string(i + 1);
        ASSERT_TRUE(add_alias("lo:" + std::to_string(i + 10), address.c_str()));
    }
    const std::vector<uint32_t> records = all_records();
    ASSERT_GT(records.size(), visible + 1);
    EXPECT_EQ(ku_is_local_ip(records[visible - 1]), 1);
    EXPECT_EQ(ku_is_local_ip(records[visible]), 0);
    EXPECT_EQ(ku_is_local_ip(records[visible + 1]), 0);
}

}  // namespace
