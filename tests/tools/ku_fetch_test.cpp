// ku fetch against scripted servers on 127.0.0.1: bodies to stdout and to
// files, what the request carries, failures that must not touch an earlier
// file, the progress bar on a terminal (under script(1)) and none off it,
// Ctrl-C through the cancel test, and the time limit.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "ku_tool.h"
#ifdef KU_TOOL_HAVE_FETCH
#include "support/script_server.h"
#endif

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::read_file;
using KuFetch = ku_test::KuTool;

[[maybe_unused]] bool exists(const std::string &path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

// Runs ku with a pseudo-terminal as its standard streams; gives what the
// terminal showed.
[[maybe_unused]] ku_test::ProcessResult ku_on_terminal(const std::string &arguments)
{
    return ku_test::run_process({"script", "-qefc", std::string(KU_TOOL_PATH) + " " + arguments, "/dev/null"});
}

[[maybe_unused]] bool have_script()
{
    return ku_test::run_process({"script", "-qefc", "true", "/dev/null"}).status == 0;
}

#ifdef KU_TOOL_HAVE_FETCH

using ku_test::answer_with;
using ku_test::ScriptServer;

const std::string kHello = ScriptServer::response(200, "OK", "hello, world\n");

TEST_F(KuFetch, WritesTheBodyToStdoutAndNothingElse)
{
    ScriptServer server(answer_with(kHello));
    const auto result = ku({"fetch", server.url("/greeting")});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "hello, world\n");
    EXPECT_EQ(result.err, "");  // no terminal: no progress bar, no library trace
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].target, "/greeting");
}

TEST_F(KuFetch, BinaryBodyReachesAFileWhole)
{
    std::string body;
    for (int i = 0; i < 300000; ++i)
        body += static_cast<char>(i * 31 % 256);
    ScriptServer server(answer_with(ScriptServer::response(200, "OK", body)));
    const std::string file = dir.file("out.bin");
    const auto result = ku({"fetch", server.url("/blob"), "-o", file});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(read_file(file), body);
    EXPECT_FALSE(exists(file + ".part"));
}

TEST_F(KuFetch, IncludePrintsStatusLineAndHeadersFirst)
{
    ScriptServer server(answer_with(ScriptServer::response(200, "OK", "body", "X-Answer: 42\r\n")));
    const auto result = ku({"fetch", "-i", server.url("/")});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("HTTP/1.1 200 OK\r\n", 0), 0u) << result.out;
    EXPECT_NE(result.out.find("X-Answer: 42\r\n"), std::string::npos);
    EXPECT_EQ(result.out.substr(result.out.size() - 8), "\r\n\r\nbody");
}

TEST_F(KuFetch, PostsDataWithTheGivenHeaders)
{
    ScriptServer server(answer_with(kHello));
    const auto result = ku({"fetch", server.url("/submit"), "--post", "a=1&b=2", "-H", "X-One: first",
                            "--header", "X-Two: second"});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    const auto &request = requests[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, "a=1&b=2");
    EXPECT_EQ(request.header("X-One"), "first");
    EXPECT_EQ(request.header("X-Two"), "second");
}

TEST_F(KuFetch, ErrorStatusFailsAndLeavesAnEarlierFileAlone)
{
    ScriptServer server(answer_with(ScriptServer::response(404, "Not Found", "gone\n")));
    const std::string file = dir.write("page.html", "the old page\n");
    expect_one_line_error(ku({"fetch", server.url("/missing"), "-o", file}), 1, "fetch");
    const auto result = ku({"fetch", server.url("/missing")});
    EXPECT_NE(result.err.find("404 Not Found"), std::string::npos) << result.err;
    EXPECT_EQ(read_file(file), "the old page\n");
    EXPECT_FALSE(exists(file + ".part"));
}

TEST_F(KuFetch, RedirectIsReportedNotFollowed)
{
    ScriptServer server(answer_with(ScriptServer::response(302, "Found", "", "Location: /elsewhere\r\n")));
    const auto result = ku({"fetch", server.url("/old")});
    expect_one_line_error(result, 1, "fetch");
    EXPECT_NE(result.err.find("/elsewhere"), std::string::npos) << result.err;
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(KuFetch, NoServerIsNoResponse)
{
    const std::string url = "http://127.0.0.1:" + std::to_string(ku_test::free_loopback_port()) + "/";
    const auto result = ku({"fetch", url, "-o", dir.file("x")});
    expect_one_line_error(result, 1, "fetch");
    EXPECT_NE(result.err.find("no response"), std::string::npos) << result.err;
    EXPECT_FALSE(exists(dir.file("x")));
    EXPECT_FALSE(exists(dir.file("x.part")));
}

TEST_F(KuFetch, BodyShorterThanContentLengthFails)
{
    ScriptServer server(answer_with("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"));
    const auto result = ku({"fetch", server.url("/")});
    expect_one_line_error(result, 1, "fetch");
    EXPECT_NE(result.err.find("got 9 of 100 bytes"), std::string::npos) << result.err;
}

TEST_F(KuFetch, TimeLimitEndsAStalledTransfer)
{
    ScriptServer server(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n", 1000, 500));
    const auto start = std::chrono::steady_clock::now();
    const auto result = ku({"fetch", server.url("/slow"), "--timeout", "1"});
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    expect_one_line_error(result, 1, "fetch");
    EXPECT_NE(result.err.find("timed out after 1 s"), std::string::npos) << result.err;
    EXPECT_LT(seconds, 5.0);
}

TEST_F(KuFetch, VerboseLetsTheLibraryLogThrough)
{
    ScriptServer server(answer_with(kHello));
    const auto result = ku({"fetch", "-v", server.url("/")});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("curl_multi_perform CURLMSG_DONE"), std::string::npos) << result.err;
}

TEST_F(KuFetch, CtrlCCancelsCleanly)
{
    ScriptServer server(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", 100000, 20));
    const std::string file = dir.write("keep.bin", "earlier download\n");
    ku_test::Process fetch({KU_TOOL_PATH, "fetch", server.url("/stream"), "-o", file});
    // Wait until the request is in and bytes flow, so that the interrupt
    // lands inside the transfer loop.
    for (int i = 0; i < 250 && server.requests().empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(server.requests().size(), 1u);
    ASSERT_TRUE(exists(file + ".part"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    fetch.signal(SIGINT);
    const auto result = fetch.wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.err, "ku fetch: cancelled\n");
    EXPECT_EQ(read_file(file), "earlier download\n");
    EXPECT_FALSE(exists(file + ".part"));
}

TEST_F(KuFetch, TerminalShowsPercentWhenTheSizeIsKnown)
{
    if (!have_script())
        GTEST_SKIP() << "script(1) is not available";
    ScriptServer server(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n", 40, 25));
    const auto result = ku_on_terminal("fetch " + server.url("/") + " -o " + dir.file("f") + " --size 40");
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_NE(result.out.find('\r'), std::string::npos);
    EXPECT_NE(result.out.find("] 100%  40 B of 40 B"), std::string::npos) << result.out;
    EXPECT_EQ(read_file(dir.file("f")), std::string(40, 'x'));
}

TEST_F(KuFetch, TerminalShowsBytesAndRateWhenTheSizeIsUnknown)
{
    if (!have_script())
        GTEST_SKIP() << "script(1) is not available";
    ScriptServer server(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 30\r\n\r\n", 30, 20));
    const auto result = ku_on_terminal("fetch " + server.url("/") + " -o " + dir.file("f"));
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_NE(result.out.find("\r30 B  "), std::string::npos) << result.out;
    EXPECT_NE(result.out.find(" B/s"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find('%'), std::string::npos) << result.out;
}

TEST_F(KuFetch, RefusesWrongArguments)
{
    expect_one_line_error(ku({"fetch"}), 2, "fetch");
    expect_one_line_error(ku({"fetch", "http://127.0.0.1:1/", "http://127.0.0.1:2/"}), 2, "fetch");
    expect_one_line_error(ku({"fetch", "http://127.0.0.1:1/", "--timeout", "0"}), 2, "fetch");
    expect_one_line_error(ku({"fetch", "http://127.0.0.1:1/", "--size", "lots"}), 2, "fetch");
    expect_one_line_error(ku({"fetch", "http://127.0.0.1:1/", "-H", "no colon"}), 2, "fetch");
    expect_one_line_error(ku({"fetch", "http://127.0.0.1:1/", "-o"}), 2, "fetch");
    expect_one_line_error(ku({"fetch", "http://127.0.0.1:1/", "--resume"}), 2, "fetch");
}

TEST_F(KuFetch, UnwritableOutputFailsBeforeAnyRequest)
{
    ScriptServer server(answer_with(kHello));
    expect_one_line_error(ku({"fetch", server.url("/"), "-o", dir.file("no/such/dir/f")}), 1, "fetch");
    EXPECT_EQ(server.requests().size(), 0u);
}

#endif  // KU_TOOL_HAVE_FETCH

}  // namespace
