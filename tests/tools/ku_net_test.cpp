// ku net: interface facts of this machine, asked through the kernel only
// (no traffic leaves it): the loopback interface, an interface that does
// not exist, and the local-address test.
#include <gtest/gtest.h>

#include <dirent.h>

#include <string>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using KuNet = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_NET

TEST_F(KuNet, LoopbackHasAZeroMacAndLoopbackAddress)
{
    const auto result = ku({"net", "if", "lo"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "mac 00:00:00:00:00:00\nipv4 127.0.0.1\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(KuNet, UnknownInterfaceFails)
{
    expect_one_line_error(ku({"net", "if", "nosuchif0"}), 1, "net");
    expect_one_line_error(ku({"net", "if", std::string(16, 'e')}), 2, "net");
}

TEST_F(KuNet, LoopbackAddressIsLocalAndADocumentationAddressIsNot)
{
    EXPECT_EQ(ku({"net", "local", "127.0.0.1"}).out, "local\n");
    // 198.51.100.0/24 is reserved for documentation: no interface should hold it.
    const auto result = ku({"net", "local", "198.51.100.77"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "not local\n");
}

TEST_F(KuNet, AnAddressOfAnInterfaceHereIsLocal)
{
    DIR *interfaces = opendir("/sys/class/net");
    if (interfaces == nullptr)
        GTEST_SKIP() << "no /sys/class/net";
    std::string address;
    while (dirent *entry = readdir(interfaces)) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || name == "lo")
            continue;
        const auto facts = ku({"net", "if", name});
        const auto at = facts.out.find("ipv4 ");
        if (facts.status == 0 && at != std::string::npos && facts.out.find("ipv4 none") == std::string::npos) {
            address = facts.out.substr(at + 5, facts.out.find('\n', at) - at - 5);
            break;
        }
    }
    closedir(interfaces);
    if (address.empty())
        GTEST_SKIP() << "no interface besides lo has an IPv4 address";
    EXPECT_EQ(ku({"net", "local", address}).out, "local\n") << address;
}

TEST_F(KuNet, RefusesWrongArguments)
{
    expect_one_line_error(ku({"net"}), 2, "net");
    expect_one_line_error(ku({"net", "route"}), 2, "net");
    expect_one_line_error(ku({"net", "if"}), 2, "net");
    expect_one_line_error(ku({"net", "local", "300.1.1.1"}), 2, "net");
    expect_one_line_error(ku({"net", "local", "localhost"}), 2, "net");
}

#endif  // KU_TOOL_HAVE_NET

}  // namespace
