// Interface queries on lo, with socket() (AllocControl) and ioctl() (defined
// here) failing on demand, and an alias on lo in a private network namespace.
#include "ku/netif.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>  // names ioctl as the library calls it (__ioctl_time64 on MIPS32)
#include <vector>

#include "support/alloc_control.h"
#include "support/open_fds.h"
#include "support/private_namespaces.h"

static int failing = 0;  // EMFILE fails socket(), ENODEV fails ioctl()

extern "C" int ioctl(int fd, unsigned long request, ...)
{
    using Real = int (*)(int, unsigned long, void *);
    static const auto real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "ioctl"));
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    return failing == ENODEV ? -1 : real(fd, request, argument);
}

namespace {

const bool kInNamespaces = ku_test::enter_private_namespaces();

// After lo: an unknown interface, socket() failing, ioctl() failing. The mac
// stays untouched, and a search that cannot finish errs on the side of local.
TEST(Netif, LoopbackAnswersFailuresGiveTheirValueAndNoDescriptorIsLeft)
{
    const int before = ku_test::open_fd_count();
    ku_test::AllocControl alloc;
    for (const int error : {-1, 0, EMFILE, ENODEV}) {
        const char *ifname = error == 0 ? "ku-nosuch0" : "lo";
        std::vector<uint8_t> mac(8, 0xAA);
        failing = error;
        alloc.fail(error == EMFILE ? ku_test::kSocket : 0u, 0, -1);
        const int mac_result = ku_get_mac(ifname, mac.data());
        const uint32_t address = ku_get_ip(ifname);
        const int local = ku_is_local_ip(inet_addr("192.0.2.1"));
        failing = 0;
        const uint8_t byte = error < 0 ? 0 : 0xAA;  // lo's hardware address is all zeros
        EXPECT_EQ(mac, (std::vector<uint8_t>{byte, byte, byte, byte, byte, byte, 0xAA, 0xAA}));
        EXPECT_EQ(mac_result, error < 0 ? 0 : -1) << error;
        EXPECT_EQ(address, error < 0 ? inet_addr("127.0.0.1") : 0) << error;
        EXPECT_EQ(local, error > 0 ? 1 : 0) << error;
        EXPECT_EQ(ku_test::open_fd_count(), before) << error;
    }
    alloc.reset();
    EXPECT_EQ(ku_is_local_ip(inet_addr("127.0.0.1")), 1);
    EXPECT_EQ(alloc.count(ku_test::kSocket), 0) << "127.0.0.1 is local without asking";
}

TEST(Netif, AnAliasOnLoIsLocalAndItsNameIsCutAt15Bytes)
{
    if (!kInNamespaces) {
        GTEST_SKIP() << ku_test::private_namespaces_missing_reason();
    }
    ASSERT_EQ(std::system("ip address add 127.1.0.2/8 dev lo label lo:abcdefghijkl"), 0);
    EXPECT_EQ(ku_get_ip("lo:abcdefghijklXYZ"), inet_addr("127.1.0.2"));
    EXPECT_EQ(ku_is_local_ip(inet_addr("127.1.0.2")), 1);
}

}  // namespace
