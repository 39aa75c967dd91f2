// Transfers from a scripted server and, for TLS, nginx on 127.0.0.1, in private
// namespaces: a self-signed certificate is bound over the fixed bundle, no lookup leaves here.
#include <curl/curl.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>

#include "ku/https.h"
#include "support/capture.h"
#include "support/fake_clock.h"
#include "support/nginx_server.h"
#include "support/private_namespaces.h"
#include "support/script_server.h"
#include "support/temp_dir.h"

using namespace ku_test;
using ::testing::HasSubstr;

// What the library hands to libcurl, seen by stand-ins that forward to it.
static std::map<int, void *> values;  // the last value given for each option
static std::string url_set;           // a copy: the library frees its URL right after
static std::atomic<int> performs{0}, inits{0};
static std::mutex spy_mutex;  // the first test runs requests on two threads

// curl.h gives the option an enum type, after which va_start is undefined:
// the stand-in takes an int and gets the exported name by an assembler label.
extern "C" CURLcode spy_setopt(CURL *curl, int option, ...) __asm__("curl_easy_setopt");
extern "C" CURLcode spy_setopt(CURL *curl, int option, ...)
{
    using Setopt = CURLcode (*)(CURL *, CURLoption, ...);
    static const auto forward = reinterpret_cast<Setopt>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
    std::lock_guard<std::mutex> lock(spy_mutex);
    va_list args;
    va_start(args, option);
    // A long travels as a pointer does; the library sets no curl_off_t option.
    void *value = values[option] = va_arg(args, void *);
    va_end(args);
    url_set = option == CURLOPT_URL ? static_cast<const char *>(value) : url_set;
    return forward(curl, static_cast<CURLoption>(option), value);
}

extern "C" CURLcode curl_easy_perform(CURL *curl)
{
    ++performs;
    return reinterpret_cast<CURLcode (*)(CURL *)>(dlsym(RTLD_NEXT, "curl_easy_perform"))(curl);
}

extern "C" CURLcode curl_global_init(long flags)
{
    ++inits;
    return reinterpret_cast<CURLcode (*)(long)>(dlsym(RTLD_NEXT, "curl_global_init"))(flags);
}

namespace {

const bool kInNamespaces = enter_private_namespaces();

using Response = std::unique_ptr<HttpsResponse, void (*)(HttpsResponse *)>;

// Request 0 is the blocking one, which takes only the save path of `option`;
// request 1 the cancellable one.
Response fetch(int which, const std::string &url, HttpsOption *option = nullptr, int timeout = 5,
               char *headers = nullptr, const char *post = nullptr)
{
    return Response(which == 0 ? HttpsRequest(url.c_str(), headers, post,
                                              option ? option->save_path : nullptr, timeout)
                               : HttpsRequestNonBlock(url.c_str(), headers, post, option),
                    HttpsFreeResponse);
}

// A field of the record as text, checking the zero byte behind it; "-" for null.
std::string text(const char *field, size_t length)
{
    EXPECT_TRUE(field == nullptr || field[length] == '\0');
    return field == nullptr ? "-" : std::string(field, length);
}

// Both requests at once, on two threads, each with servers of its own.
TEST(Https, RequestAndResponseCarryEveryByteAndAnErrorStatusIsNoFailure)
{
    std::string binary;
    for (int i = 0; i < 300000; ++i)
        binary += static_cast<char>(i * 7 % 251);
    const std::tuple<const char *, const char *, const char *, std::string, bool> rows[] = {
        {nullptr, "GET", "", "gone", false},
        {"a=1&b=two words", "POST", "15", "", false},
        {"", "POST", "0", binary, false},
        {nullptr, "GET", "", binary, true}};  // to a save file, truncated first
    const auto run = [&](int which) {
        for (const auto &[post, method, length, body, to_file] : rows) {
            TempDir dir;
            const std::string save = dir.write("save", std::string(400000, 'o'));
            HttpsOption saving{.save_path = save.c_str(), .time_limit = 10};
            ScriptServer server(answer_with(ScriptServer::response(404, "Not Found", body)));
            char headers[] = "X-One: 1\r\nX-Two: two";
            const Response response =
                fetch(which, server.url("/p"), to_file ? &saving : nullptr, 5, headers, post);
            ASSERT_NE(response, nullptr) << which;
            EXPECT_THAT(text(response->header, response->header_length),
                        HasSubstr("HTTP/1.1 404 Not Found\r\n"));
            EXPECT_EQ(response->body_length, body.size());
            EXPECT_EQ(text(response->body, body.size()), to_file || body.empty() ? "-" : body);
            EXPECT_TRUE(!to_file || read_file(save) == body) << which;
            EXPECT_EQ(std::string(headers, 21), std::string("X-One: 1\0\0X-Two: two", 21));
            const std::vector<HttpRequest> seen = server.requests();
            ASSERT_EQ(seen.size(), 1u);
            EXPECT_EQ(seen[0].method + " " + seen[0].target, std::string(method) + " /p");
            EXPECT_EQ(seen[0].header("Content-Length"), length) << which;
            EXPECT_EQ(seen[0].header("User-Agent"), "libcurl-agent/1.0");
            EXPECT_EQ(seen[0].header("X-One") + seen[0].header("X-Two"), "1two");
            EXPECT_EQ(seen[0].body, post == nullptr ? "" : post);
        }
    };
    std::thread other(run, 1);
    run(0);
    other.join();
    HttpsFreeResponse(nullptr);
}

// Progress after each write: done_size * 100 / total_size in 64 bits, rounded
// down and not capped; done_size goes on from where the caller left it. On a
// full flash (a link to /dev/full) the blocking request fails, the cancellable
// one counts only bytes that reached the file.
TEST(Https, ProgressCountsTheBytesWrittenToTheSaveFile)
{
    ASSERT_EQ(access("/dev/full", W_OK), 0);
    ScriptServer server(answer_with(ScriptServer::response(200, "OK", std::string(300001, 'p'))));
    TempDir dir;
    const std::string path = dir.file("p"), full = dir.file("full");
    static std::vector<int> seen;
    for (auto [start, total, last] : {std::tuple{0u, 200000u, 150}, {50000000u, 100000000u, 50}}) {
        seen.clear();
        HttpsOption option{.progress = [](uintptr_t one, uintptr_t two, int percent) {
                               seen.push_back(one == 1 && two == 2 ? percent : -1);
                               return 0;
                           },
                           .progress_arg1 = 1, .progress_arg2 = 2, .total_size = total,
                           .done_size = start, .save_path = path.c_str(), .time_limit = 10};
        ASSERT_NE(fetch(1, server.url(), &option), nullptr);
        EXPECT_EQ(option.done_size, start + 300001);
        EXPECT_TRUE(!seen.empty() && std::is_sorted(seen.begin(), seen.end()) && seen[0] >= 0);
        EXPECT_EQ(seen.empty() ? -2 : seen.back(), last);
    }
    ASSERT_EQ(symlink("/dev/full", full.c_str()), 0);
    HttpsOption option{.total_size = 300001, .save_path = full.c_str(), .time_limit = 10};
    CaptureStderr err;
    EXPECT_EQ(fetch(0, server.url(), &option), nullptr);
    EXPECT_THAT(err.finish(), HasSubstr("HttpsRequest failed, res=23\n"));  // a write error
    const Response partial = fetch(1, server.url(), &option);
    ASSERT_NE(partial, nullptr);
    EXPECT_EQ(partial->body_length + option.done_size, 0u);
}

// Some URLs are looked up and the bundle is bound over: only in private
// namespaces. nginx serves a certificate bound over the bundle and one nobody trusts.
TEST(Https, UrlGetsHttpsUnlessItHasAnHttpSchemeAndConnectionFailuresCostThreeAttempts)
{
    if (!kInNamespaces)
        GTEST_SKIP() << private_namespaces_missing_reason();
    TempDir dir;
    dir.write("hello.txt", "hello over TLS\n");
    const NginxServer nginx(dir.path(), dir.path(), {"good", "bad"});
    if (!nginx.ok())
        GTEST_SKIP() << "nginx unavailable: " << nginx.error();
    ASSERT_TRUE(bind_over(dir.file("good.crt"), "/etc/ssl/certs/ca-certificates.crt"));
    const std::string good = nginx.https_url(0, "/hello.txt"), bad = nginx.https_url(1, "/");
    for (const Response &r : {fetch(0, good), fetch(0, good.substr(8)), fetch(1, good)})
        EXPECT_EQ(r ? text(r->body, r->body_length) : "-", "hello over TLS\n");  // no scheme: HTTPS
    const Response untrusted = fetch(1, bad);  // a failed transfer still gives a record
    ASSERT_NE(untrusted, nullptr);
    EXPECT_EQ(untrusted->header, nullptr);
    ScriptServer partial([](ScriptConnection &c) {
        if (c.read_request() && c.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart"))
            c.pause_ms(-1);
    });
    const std::string refused = "http://127.0.0.1:" + std::to_string(free_loopback_port()) + "/";
    // URL, timeout given and set, URL set, code, attempts, what the save file keeps
    const std::tuple<std::string, int, long, std::string, int, int, std::string> rows[] = {
        {"HTTP://[", 0, 15, "HTTP://[", 3, 1, ""},
        {"hTTpS://[", -4, 15, "hTTpS://[", 3, 1, ""},
        {"[", 1, 1, "https://[", 3, 1, ""},
        {"http:/[", 3, 3, "https://http:/[", 6, 3, ""},
        {"http://no-such-host.invalid/", 2, 2, "http://no-such-host.invalid/", 6, 3, ""},
        {refused, 5, 5, refused, 7, 3, ""},
        {bad, 5, 5, bad, 60, 1, ""},  // an untrusted peer is no connection failure
        {partial.url(), 1, 1, partial.url(), 28, 3, "part"}};  // only the last attempt's
    const std::string file = dir.file("f");
    HttpsOption saving{.save_path = file.c_str()};
    const int before = inits;
    for (const auto &[url, timeout, limit, sent, code, attempts, kept] : rows) {
        performs = 0;
        CaptureStderr err;
        EXPECT_EQ(fetch(0, url, &saving, timeout), nullptr);
        EXPECT_EQ(err.finish(), "HttpsRequest failed, res=" + std::to_string(code) + "\n");
        EXPECT_EQ(url_set, sent);
        EXPECT_EQ(reinterpret_cast<long>(values[CURLOPT_TIMEOUT]), limit);
        EXPECT_EQ(performs, attempts) << url;
        EXPECT_EQ(read_file(file), kept) << url;
    }
    EXPECT_EQ(inits - before, 8);  // libcurl is cleaned up after each request
}

TEST(Https, CancelGivesNullTheTimeLimitARecordAndTheTraceShowsTracedKinds)
{
    ScriptServer server(trickle("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", 3, 20));
    TempDir dir;
    const std::string path = dir.write("f", "old content");
    int asked = 0;
    HttpsOption option{.cancel_test = [](void *count) { return ++*static_cast<int *>(count); },
                       .cancel_arg = &asked, .total_size = 100000, .save_path = path.c_str(),
                       .time_limit = 10};
    CaptureStderr err;
    EXPECT_EQ(fetch(1, server.url(), &option), nullptr);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(read_file(path), "");
    option.cancel_arg = &option;
    option.cancel_test = [](void *self) -> int {
        return static_cast<HttpsOption *>(self)->done_size >= 3;
    };
    EXPECT_EQ(fetch(1, server.url(), &option), nullptr);
    EXPECT_EQ(read_file(path), std::string(option.done_size, 'x'));
    // Without a record the limit is 15 s: the clock jumps that far once the server has the request.
    FakeClock clock;
    ScriptServer jump([&clock](ScriptConnection &connection) {
        connection.read_request();
        clock.set_ms(15000);
        connection.pause_ms(-1);
    });
    EXPECT_NE(fetch(1, jump.url()), nullptr);
    const std::string log = err.finish();
    EXPECT_THAT(log, HasSubstr(" got cancel command, exit\n"));
    EXPECT_THAT(log, HasSubstr("ERR:  download timeout after 15 seconds\n"));
    // The trace callback, reached through the pointer the library gave libcurl.
    const auto trace = reinterpret_cast<int (*)(CURL *, curl_infotype, char *, size_t, void *)>(
        values[CURLOPT_DEBUGFUNCTION]);
    const std::tuple<curl_infotype, unsigned char, std::string, std::string> rows[] = {
        {CURLINFO_HEADER_IN, 1, "HTTP/1.1 200 OK\r\nA: b\r\n",
         "<= Recv header, 0000000023 bytes (0x00000017)\n0000: HTTP/1.1 200 OK\n0011: A: b\n"},
        {CURLINFO_DATA_IN, 1, std::string("\x1f\x20\x7e\x7f\x80\xff\0z", 8),
         "<= Recv data, 0000000008 bytes (0x00000008)\n0000: . ~\x7f...z\n"},
        {CURLINFO_SSL_DATA_OUT, 0, "0123456789abcdefXY\r",
         "=> Send SSL data, 0000000019 bytes (0x00000013)\n0000: 30 31 32 33 34 35 36 37 38 39 "
         "61 62 63 64 65 66 0123456789abcdef\n0010: 58 59 0d " + std::string(39, ' ') + "XY.\n"},
        {CURLINFO_TEXT, 1, "not shown\r\n", ""}};
    for (auto [type, text_mode, data, printed] : rows) {
        CaptureStderr shown;
        EXPECT_EQ(trace(nullptr, type, data.data(), data.size(), &text_mode), 0);
        EXPECT_EQ(shown.finish(), printed);
    }
}

}  // namespace
