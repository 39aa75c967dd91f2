// ku mdns with stand-in tools first on PATH in a private directory: dns-sd
// records its arguments, ps shows a scripted process list and kill records
// whom it was asked to kill. Nothing outside the directory is touched.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::read_file;

class KuMdns : public ku_test::KuTool {
protected:
    void SetUp() override
    {
        ku_test::KuTool::SetUp();
        if (IsSkipped())
            return;
        // One line per run: each argument the shell passed, ended by '|'.
        tool("dns-sd", "line=$(printf '%s|' \"$@\")\necho \"$line\" >> \"" + dir.file("dns-sd.log") + "\"\n");
        tool("ps", "cat \"" + dir.file("ps.txt") + "\"\n");
        tool("kill", "echo \"$*\" >> \"" + dir.file("kill.log") + "\"\n");
        options.cwd = dir.path();
        options.env = {"PATH=" + dir.path() + ":" + std::getenv("PATH")};
    }

    void tool(const std::string &name, const std::string &body)
    {
        const auto path = dir.write(name, "#!/bin/sh\n" + body);
        chmod(path.c_str(), 0755);
    }

    // dns-sd runs in the background: wait for its record.
    std::string wait_for(const std::string &name)
    {
        for (int i = 0; i < 3000 && read_file(dir.file(name)).empty(); ++i)  // 30 s: a hang only
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return read_file(dir.file(name));
    }

    ku_test::ProcessOptions options;
};

#ifdef KU_TOOL_HAVE_MDNS

TEST_F(KuMdns, RegisterRunsDnsSdWithTheFiveValues)
{
    const auto result = ku({"mdns", "register", "box", "_http._tcp", "local", "8080", "path=/index"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(wait_for("dns-sd.log"), "-R|box|_http._tcp|local|8080|path=/index|\n");
}

TEST_F(KuMdns, RegisterWithoutTxtLeavesItEmpty)
{
    ASSERT_EQ(ku({"mdns", "register", "box", "_ssh._tcp", "local", "22"}, options).status, 0);
    // The empty TXT leaves only a blank in the command line, which the shell drops.
    EXPECT_EQ(wait_for("dns-sd.log"), "-R|box|_ssh._tcp|local|22|\n");
}

TEST_F(KuMdns, BrowseRunsDnsSdWithTypeAndDomain)
{
    ASSERT_EQ(ku({"mdns", "browse", "_http._tcp", "local"}, options).status, 0);
    EXPECT_EQ(wait_for("dns-sd.log"), "-B|_http._tcp|local|\n");
}

TEST_F(KuMdns, DeregisterKillsOnlyMatchingPublications)
{
    dir.write("ps.txt", "101 root dns-sd -R box _http._tcp local 80\n"
                        "102 root dns-sd -R cam _rtsp._tcp local 554\n"
                        "103 root dns-sd -B _http._tcp local\n");
    const auto result = ku({"mdns", "deregister", "cam"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(dir.file("kill.log")), "-9 102\n");
}

TEST_F(KuMdns, DeregisterWithoutMatchKillsEveryPublicationOfItsKind)
{
    dir.write("ps.txt", "101 root dns-sd -R box _http._tcp local 80\n"
                        "102 root dns-sd -R cam _rtsp._tcp local 554\n"
                        "103 root dns-sd -B _http._tcp local\n");
    ASSERT_EQ(ku({"mdns", "deregister"}, options).status, 0);
    EXPECT_EQ(read_file(dir.file("kill.log")), "-9 101 102\n");
    ASSERT_EQ(ku({"mdns", "deregister", "--browse"}, options).status, 0);
    EXPECT_EQ(read_file(dir.file("kill.log")), "-9 101 102\n-9 103\n");
}

TEST_F(KuMdns, RefusesTokensTheShellWouldInterpret)
{
    for (const char *name : {"my box", "a;b", "$(id)", "a'b", "x|y"}) {
        SCOPED_TRACE(name);
        expect_one_line_error(ku({"mdns", "register", name, "_http._tcp", "local", "80"}, options), 2, "mdns");
    }
    expect_one_line_error(ku({"mdns", "deregister", "a b"}, options), 2, "mdns");
    EXPECT_EQ(read_file(dir.file("dns-sd.log")), "");
}

TEST_F(KuMdns, RefusesCommandsOfTheLibrarysLengthLimit)
{
    // "dns-sd -R NAME _t local 80  &" has 25 bytes besides NAME: 231 bytes
    // of name make 256, one more than the library's room.
    const std::string name(231, 'n');
    expect_one_line_error(ku({"mdns", "register", name, "_t", "local", "80"}, options), 2, "mdns");
    const auto fits = ku({"mdns", "register", name.substr(1), "_t", "local", "80"}, options);
    EXPECT_EQ(fits.status, 0) << fits.err;
    EXPECT_FALSE(wait_for("dns-sd.log").empty());
}

TEST_F(KuMdns, RefusesWrongArguments)
{
    expect_one_line_error(ku({"mdns"}, options), 2, "mdns");
    expect_one_line_error(ku({"mdns", "start"}, options), 2, "mdns");
    expect_one_line_error(ku({"mdns", "register", "box", "_http._tcp", "local"}, options), 2, "mdns");
    expect_one_line_error(ku({"mdns", "register", "box", "_http._tcp", "local", "http"}, options), 2, "mdns");
    expect_one_line_error(ku({"mdns", "register", "box", "_http._tcp", "local", "70000"}, options), 2, "mdns");
    expect_one_line_error(ku({"mdns", "browse"}, options), 2, "mdns");
    expect_one_line_error(ku({"mdns", "register", "--browse", "b", "t", "d", "1"}, options), 2, "mdns");
}

#endif  // KU_TOOL_HAVE_MDNS

}  // namespace
