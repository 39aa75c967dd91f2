// ku fetch against scripted servers on 127.0.0.1: bodies to stdout and to
// files, what the request carries, failures that must not touch an earlier
// file, the progress bar on a terminal (under script(1)) and none off it,
// Ctrl-C through the cancel test, and the time limit.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "ku_tool.h"
#ifdef KU_TOOL_HAVE_FETCH
#include "support/private_namespaces.h"
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
// Inside, a failed name lookup cannot reach any resolver off the machine.
const bool kInNamespaces = ku_test::enter_private_namespaces();

// The body reaches stdout as it arrives: the first half is there while the
// server still holds the second back.
TEST_F(KuFetch, StreamsTheBodyToStdoutAndNothingElse)
{
    std::atomic<bool> release{false};
    ScriptServer server([&](ku_test::ScriptConnection &connection) {
        if (!connection.read_request() || !connection.send("HTTP/1.1 200 OK\r\nContent-Length: 13\r\n\r\nhello, "))
            return;
        while (!release && connection.pause_ms(10)) {
        }
        connection.send("world\n");
    });
    const std::string out = dir.file("out");
    ku_test::Process fetch({"/bin/sh", "-c", std::string(KU_TOOL_PATH) + " fetch " + server.url("/greeting") + " > " + out});
    // The bound catches a tool that holds the body back; it is never reached
    // otherwise.
    for (int i = 0; i < 2500 && read_file(out) != "hello, "; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(read_file(out), "hello, ");
    release = true;
    const auto result = fetch.wait();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(out), "hello, world\n");
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
    EXPECT_EQ(read_file(file), "the old page\n");
    EXPECT_FALSE(exists(file + ".part"));
}

// A server that sends its head and the first byte of the body, then stalls
// until the test ends: only the time limit can end the transfer.
void first_byte_then_stall(ku_test::ScriptConnection &connection)
{
    if (connection.read_request() && connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nx"))
        connection.hold();
}

// Each failure names its cause; on stdout stands what arrived before it.
TEST_F(KuFetch, FailuresSayWhy)
{
    ScriptServer not_found(answer_with(ScriptServer::response(404, "Not Found", "gone\n")));
    ScriptServer redirect(answer_with(ScriptServer::response(302, "Found", "", "Location: /elsewhere\r\n")));
    ScriptServer short_body(answer_with("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"));
    ScriptServer stall(first_byte_then_stall);
    // Plain text where a TLS handshake should begin.
    ScriptServer plain([](ku_test::ScriptConnection &connection) { connection.send("HTTP/1.1 400 No TLS\r\n\r\n"); });
    const std::string refused = "http://127.0.0.1:" + std::to_string(ku_test::free_loopback_port()) + "/";
    const std::string plain_https = "https://127.0.0.1:" + std::to_string(plain.port()) + "/";
    struct Row {
        const char *cause;
        std::string url;
        const char *timeout;
        std::string out, message;
        bool needs_private_network = false;
    } rows[] = {
        {"status", not_found.url("/missing"), "30", "gone\n", "server answered 'HTTP/1.1 404 Not Found'"},
        {"redirect", redirect.url("/old"), "30", "", "see /elsewhere (redirects are not followed)"},
        {"short body", short_body.url("/"), "30", "only this", "transfer cut short: got 9 of 100 bytes"},
        {"time limit", stall.url("/slow"), "1", "", "timed out after 1 s"},
        {"connection", refused, "30", "", "cannot connect to 127.0.0.1 port "},
        {"TLS", plain_https, "30", "", "TLS handshake with 127.0.0.1 port " + std::to_string(plain.port()) + " failed"},
        {"name lookup", "http://no-such-host.invalid/", "30", "", "cannot resolve host 'no-such-host.invalid'", true},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.cause);
        if (row.needs_private_network && !kInNamespaces)
            continue;  // a lookup may only fail where it cannot leave the machine
        const auto start = std::chrono::steady_clock::now();
        const auto result = ku({"fetch", row.url, "--timeout", row.timeout});
        // The bound catches a hang only: a loaded machine has room to spare.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(25));
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
        if (row.cause != std::string("time limit")) {  // the first byte may or may not be in
            EXPECT_EQ(result.out, row.out);
        }
    }
    EXPECT_EQ(redirect.requests().size(), 1u);
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
    // lands inside the transfer loop; the 30 s bound only catches a hang.
    for (int i = 0; i < 1500 && server.requests().empty(); ++i)
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
    // No request goes out for a scheme the tool does not speak.
    ScriptServer server(answer_with(kHello));
    expect_one_line_error(ku({"fetch", "ftp://127.0.0.1:" + std::to_string(server.port()) + "/"}), 2, "fetch");
    expect_one_line_error(ku({"fetch", "file:///etc/passwd"}), 2, "fetch");
    EXPECT_EQ(server.requests().size(), 0u);
}

TEST_F(KuFetch, UnwritableOutputFailsBeforeAnyRequest)
{
    ScriptServer server(answer_with(kHello));
    expect_one_line_error(ku({"fetch", server.url("/"), "-o", dir.file("no/such/dir/f")}), 1, "fetch");
    EXPECT_EQ(server.requests().size(), 0u);
}

#endif  // KU_TOOL_HAVE_FETCH

}  // namespace
