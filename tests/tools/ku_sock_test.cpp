// ku sock: datagrams between two ku processes through a socket file in a
// private directory, and TCP connect checks against 127.0.0.1 only.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "ku_tool.h"
#include "support/emulator.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using KuSock = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_SOCK

bool exists(const std::string &path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

// The bound only ends a wait for a receiver that never starts: a loaded
// machine (or the emulator) has 30 s to start one.
void wait_for_socket(const std::string &path)
{
    for (int i = 0; i < 1500 && !exists(path); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

TEST_F(KuSock, DatagramsPassBetweenTwoProcesses)
{
    const std::string path = dir.file("ctl.sock");
    ku_test::Process receiver({KU_TOOL_PATH, "sock", "recv", path, "--count", "2", "--timeout", "20"});
    wait_for_socket(path);
    ASSERT_TRUE(exists(path));
    EXPECT_EQ(ku({"sock", "send", path, "hello"}).status, 0);
    const auto second = ku({"sock", "send", path, "second message"});
    EXPECT_EQ(second.status, 0) << second.err;
    EXPECT_EQ(second.out, "");
    const auto result = receiver.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "hello\nsecond message\n");
    EXPECT_FALSE(exists(path));
}

TEST_F(KuSock, ReceiveGivesUpAfterItsTimeout)
{
    const std::string path = dir.file("quiet.sock");
    expect_one_line_error(ku({"sock", "recv", path, "--timeout", "1"}), 1, "sock");
    EXPECT_FALSE(exists(path));
}

TEST_F(KuSock, CtrlCEndsAReceiveAndRemovesTheSocket)
{
    const std::string path = dir.file("ctl.sock");
    ku_test::Process receiver({KU_TOOL_PATH, "sock", "recv", path});
    wait_for_socket(path);
    ASSERT_TRUE(exists(path));
    receiver.signal(SIGINT);
    const auto result = receiver.wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_FALSE(exists(path));
}

TEST_F(KuSock, SendFailsWithoutASocketThere)
{
    expect_one_line_error(ku({"sock", "send", dir.file("absent.sock"), "x"}), 1, "sock");
    expect_one_line_error(ku({"sock", "send", dir.write("plain", "text"), "x"}), 1, "sock");
}

TEST_F(KuSock, ConnectTellsAcceptedFromRefused)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 4), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length), 0);
    const std::string port = std::to_string(ntohs(address.sin_port));
    const auto accepted = ku({"sock", "connect", "127.0.0.1", port});
    EXPECT_EQ(accepted.status, 0) << accepted.err;
    EXPECT_EQ(accepted.out, "connected to 127.0.0.1:" + port + "\n");
    close(listener);

    // The port is free now: nothing listens there.
    const auto refused = ku({"sock", "connect", "127.0.0.1", port});
    expect_one_line_error(refused, 1, "sock");
    if (ku_test::under_emulator() && refused.err.find("refused") == std::string::npos) {
        GTEST_SKIP() << "qemu-user hands SO_ERROR over untranslated, so the tool names the "
                        "host's errno: " << refused.err;
    }
    EXPECT_NE(refused.err.find("refused"), std::string::npos) << refused.err;
}

TEST_F(KuSock, RefusesWrongArguments)
{
    expect_one_line_error(ku({"sock"}), 2, "sock");
    expect_one_line_error(ku({"sock", "listen", "x"}), 2, "sock");
    expect_one_line_error(ku({"sock", "send", dir.file("s")}), 2, "sock");
    expect_one_line_error(ku({"sock", "send", dir.file("s"), ""}), 2, "sock");
    expect_one_line_error(ku({"sock", "send", "/" + std::string(107, 'p'), "x"}), 2, "sock");
    expect_one_line_error(ku({"sock", "recv", dir.file("s"), "--count", "0"}), 2, "sock");
    expect_one_line_error(ku({"sock", "connect", "127.0.0.1", "0"}), 2, "sock");
    expect_one_line_error(ku({"sock", "connect", "localhost", "80"}), 2, "sock");
    expect_one_line_error(ku({"sock", "connect", "--count", "1", "127.0.0.1", "80"}), 2, "sock");
}

#endif  // KU_TOOL_HAVE_SOCK

}  // namespace
