// HTTP and HTTPS transfers against real servers on 127.0.0.1: nginx for
// ordinary transfers over HTTP and TLS, a scripted server for what nginx
// cannot stage (trickled, dropped or silent connections, recorded requests).
// The binary runs itself in private mount and network namespaces, so that the
// test CA can be bound over the fixed bundle path and no lookup leaves the
// machine; cases that need them skip elsewhere.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ku/https.h"
#include "ku/membuffer.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/curl_spy.h"
#include "support/fake_clock.h"
#include "support/nginx_server.h"
#include "support/private_namespaces.h"
#include "support/script_server.h"
#include "support/temp_dir.h"
#include "support/test_ca.h"

using ku_test::CaptureStderr;
using ku_test::CurlSpy;
using ku_test::ScriptConnection;
using ku_test::ScriptServer;
using ku_test::TempDir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

const bool kInNamespaces = ku_test::enter_private_namespaces();

constexpr const char *kBundle = "/etc/ssl/certs/ca-certificates.crt";
constexpr const char *kHello = "hello from nginx\n";
constexpr size_t kBlobSize = 300000;
constexpr size_t kBigSize = 1 << 20;

std::string pattern(size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    unsigned value = seed;
    for (char &byte : bytes) {
        value = value * 1103515245u + 12345u;
        byte = static_cast<char>(value >> 16);
    }
    return bytes;
}

// nginx over HTTP, and over HTTPS with a certificate from a CA bound into the
// fixed bundle (index 0) and one from a CA nobody trusts (index 1).
struct Servers {
    TempDir dir;
    std::string root;
    std::string blob = pattern(kBlobSize, 1);
    std::string big = pattern(kBigSize, 2);
    bool tls = false;
    std::string tls_missing;
    std::unique_ptr<ku_test::NginxServer> nginx;

    Servers() : root(dir.file("www"))
    {
        mkdir(root.c_str(), 0755);
        dir.write("www/hello.txt", kHello);
        dir.write("www/empty", "");
        dir.write("www/blob.bin", blob);
        dir.write("www/big.bin", big);

        std::vector<ku_test::TlsIdentity> identities;
        if (!kInNamespaces) {
            tls_missing = ku_test::private_namespaces_missing_reason();
        } else {
            const ku_test::TestCa trusted(dir.path(), "trusted");
            const ku_test::TestCa unknown(dir.path(), "unknown");
            if (trusted.ok() && unknown.ok()) {
                identities = {trusted.issue_server("trusted-server"),
                              unknown.issue_server("unknown-server")};
            }
            const std::string bundle = dir.write("bundle.crt", ku_test::read_file(trusted.certificate()));
            if (identities.size() != 2 || identities[0].key.empty() || identities[1].key.empty()) {
                tls_missing = "openssl could not make the test certificates";
                identities.clear();
            } else if (!ku_test::bind_over(bundle, kBundle)) {
                tls_missing = std::string("cannot bind the test CA over ") + kBundle;
                identities.clear();
            } else {
                tls = true;
            }
        }
        nginx = std::make_unique<ku_test::NginxServer>(dir.path(), root, identities);
    }
};

Servers &servers()
{
    static Servers shared;
    return shared;
}

// The nginx-backed cases; they skip when nginx cannot run here.
class HttpsNginx : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!servers().nginx->ok()) {
            GTEST_SKIP() << "nginx unavailable: " << servers().nginx->error();
        }
    }
    static std::string http(const std::string &path) { return servers().nginx->http_url(path); }
};

class HttpsTls : public HttpsNginx {
protected:
    void SetUp() override
    {
        HttpsNginx::SetUp();
        if (!IsSkipped() && !servers().tls) {
            GTEST_SKIP() << "TLS cases need the test CA in the bundle: " << servers().tls_missing;
        }
    }
};

struct ResponseDeleter {
    void operator()(HttpsResponse *response) const { HttpsFreeResponse(response); }
};
using Response = std::unique_ptr<HttpsResponse, ResponseDeleter>;

Response request(const std::string &url, char *headers = nullptr, const char *post = nullptr,
                 const char *save_path = nullptr, int timeout = 5)
{
    return Response(HttpsRequest(url.c_str(), headers, post, save_path, timeout));
}

Response request_nonblock(const std::string &url, HttpsOption *option, char *headers = nullptr,
                          const char *post = nullptr)
{
    return Response(HttpsRequestNonBlock(url.c_str(), headers, post, option));
}

std::string body_of(const Response &response)
{
    return response->body == nullptr ? std::string() : std::string(response->body, response->body_length);
}

std::string header_of(const Response &response)
{
    return response->header == nullptr ? std::string() : std::string(response->header, response->header_length);
}

HttpsOption file_option(const std::string &path, int32_t time_limit = 10)
{
    HttpsOption option{};
    option.save_path = path.c_str();
    option.time_limit = time_limit;
    return option;
}

int cancel_always(void *)
{
    return 1;
}

std::string closed_port_url()
{
    return "http://127.0.0.1:" + std::to_string(ku_test::free_loopback_port()) + "/";
}

// ---------------------------------------------------------------------------
// Blocking request: what comes back

TEST_F(HttpsNginx, GetReturnsHeadersAndTerminatedBody)
{
    const Response response = request(http("/hello.txt"));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(body_of(response), kHello);
    EXPECT_EQ(response->body[response->body_length], '\0');
    const std::string header = header_of(response);
    EXPECT_THAT(header, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(header, HasSubstr("Content-Length: 17\r\n"));
    EXPECT_EQ(header.substr(header.size() - 4), "\r\n\r\n");
    EXPECT_EQ(response->header[response->header_length], '\0');
}

TEST_F(HttpsNginx, BinaryBodyKeepsEveryByte)
{
    const Response response = request(http("/blob.bin"));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->body_length, kBlobSize);
    EXPECT_TRUE(body_of(response) == servers().blob);
}

TEST_F(HttpsNginx, NotFoundIsARecordNotAFailure)
{
    const Response response = request(http("/missing"));
    ASSERT_NE(response, nullptr);
    EXPECT_THAT(header_of(response), StartsWith("HTTP/1.1 404 Not Found\r\n"));
}

TEST_F(HttpsNginx, EmptyBodyGivesNullBody)
{
    const Response response = request(http("/empty"));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->body, nullptr);
    EXPECT_EQ(response->body_length, 0u);
    EXPECT_THAT(header_of(response), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST_F(HttpsNginx, SaveFileReceivesBodyAndLengthIsItsSize)
{
    TempDir dir;
    const std::string path = dir.write("save.bin", std::string(kBlobSize + 1000, 'o'));
    const Response response = request(http("/blob.bin"), nullptr, nullptr, path.c_str());
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->body, nullptr);
    EXPECT_EQ(response->body_length, kBlobSize);
    EXPECT_TRUE(ku_test::read_file(path) == servers().blob);  // truncated first
    EXPECT_THAT(header_of(response), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(HttpsRequest, UncreatableSaveFileFailsBeforeLibcurl)
{
    const ku_test::CurlGlobalTally before = ku_test::curl_global_tally();
    CurlSpy spy;
    CaptureStderr err;
    const Response response = request("http://127.0.0.1:1/", nullptr, nullptr, "/nonexistent-dir/x");
    EXPECT_EQ(response, nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest create /nonexistent-dir/x failed\n");
    EXPECT_TRUE(spy.options().empty());
    EXPECT_EQ(ku_test::curl_global_tally().inits, before.inits);
}

TEST(HttpsRequest, FreeResponseAcceptsNullAndEmptyRecords)
{
    EXPECT_EXIT(
        {
            HttpsFreeResponse(nullptr);
            HttpsFreeResponse(static_cast<HttpsResponse *>(calloc(1, sizeof(HttpsResponse))));
            _exit(0);  // no exit handlers: the shared servers belong to the parent
        },
        ::testing::ExitedWithCode(0), "");
}

// ---------------------------------------------------------------------------
// Blocking request: what the server sees

class HttpsSent : public ::testing::Test {
protected:
    ScriptServer server{ku_test::answer_with(ScriptServer::response(200, "OK", "done"))};

    ku_test::HttpRequest only_request() const
    {
        const std::vector<ku_test::HttpRequest> seen = server.requests();
        EXPECT_EQ(seen.size(), 1u);
        return seen.empty() ? ku_test::HttpRequest{} : seen.front();
    }
};

TEST_F(HttpsSent, GetCarriesTheUserAgentAndNoBody)
{
    const Response response = request(server.url("/path?q=1"));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(body_of(response), "done");
    const ku_test::HttpRequest seen = only_request();
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(seen.target, "/path?q=1");
    EXPECT_THAT(seen.head, HasSubstr(" HTTP/1.1\r\n"));
    EXPECT_EQ(seen.header("User-Agent"), "libcurl-agent/1.0");
    EXPECT_EQ(seen.body, "");
}

TEST(HttpsRequest, PostSendsTheTextAsBodyAlsoWhenEmpty)
{
    for (const auto &[post, length] : {std::pair{"a=1&b=two words", "15"}, std::pair{"", "0"}}) {
        ScriptServer server(ku_test::answer_with(ScriptServer::response(200, "OK", "done")));
        const Response response = request(server.url("/form"), nullptr, post);
        ASSERT_NE(response, nullptr);
        const std::vector<ku_test::HttpRequest> seen = server.requests();
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(seen[0].method, "POST");
        EXPECT_EQ(seen[0].header("Content-Length"), length);
        EXPECT_EQ(seen[0].body, post);
    }
}

TEST_F(HttpsSent, HeadersAreCutInPlaceAndSent)
{
    char headers[] = "X-One: 1\r\nX-Two: two";
    CurlSpy spy;
    const Response response = request(server.url("/"), headers);
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(std::string(headers, sizeof headers), std::string("X-One: 1\0\0X-Two: two\0", 21));
    EXPECT_THAT(spy.last(CURLOPT_HTTPHEADER).list, ElementsAre("X-One: 1", "", "X-Two: two"));
    const ku_test::HttpRequest seen = only_request();
    EXPECT_EQ(seen.header("X-One"), "1");
    EXPECT_EQ(seen.header("X-Two"), "two");
}

TEST(HttpsRequest, HeaderListKeepsEveryEmptyPiece)
{
    ScriptServer server(ku_test::answer_with(ScriptServer::response(200, "OK", "")));
    CurlSpy spy;
    char trailing[] = "X-A: a\r\n";
    request(server.url("/"), trailing);
    EXPECT_THAT(spy.last(CURLOPT_HTTPHEADER).list, ElementsAre("X-A: a", "", ""));
    char empty[] = "";
    request(server.url("/"), empty);
    EXPECT_THAT(spy.last(CURLOPT_HTTPHEADER).list, ElementsAre(""));
    char lone[] = "X-B: b\nX-C: c\r";
    request(server.url("/"), lone);
    EXPECT_THAT(spy.last(CURLOPT_HTTPHEADER).list, ElementsAre("X-B: b", "X-C: c", ""));
}

TEST(HttpsRequest, HeadersAreCutAlsoWhenTheTransferFails)
{
    char headers[] = "X-One: 1\r\nX-Two: 2";
    CaptureStderr err;
    EXPECT_EQ(request("http://[", headers), nullptr);
    EXPECT_EQ(std::string(headers, sizeof headers), std::string("X-One: 1\0\0X-Two: 2\0", 19));
}

// ---------------------------------------------------------------------------
// Options handed to libcurl

std::vector<CURLoption> option_names(const CurlSpy &spy)
{
    std::vector<CURLoption> names;
    for (const ku_test::CurlOption &option : spy.options()) {
        names.push_back(option.option);
    }
    return names;
}

TEST(HttpsOptions, BlockingRequestSetsTheTableInOrder)
{
    ScriptServer server(ku_test::answer_with(ScriptServer::response(200, "OK", "")));
    CurlSpy spy;
    char headers[] = "X-A: 1";
    request(server.url("/"), headers, "p=1", nullptr, 0);
    EXPECT_THAT(option_names(spy),
                ElementsAre(CURLOPT_URL, CURLOPT_HTTP_VERSION, CURLOPT_SSL_VERIFYPEER, CURLOPT_CAINFO,
                            CURLOPT_SSL_VERIFYHOST, CURLOPT_DNS_CACHE_TIMEOUT, CURLOPT_CONNECTTIMEOUT,
                            CURLOPT_MAXCONNECTS, CURLOPT_TIMEOUT, CURLOPT_SERVER_RESPONSE_TIMEOUT,
                            CURLOPT_DEBUGFUNCTION, CURLOPT_DEBUGDATA, CURLOPT_WRITEFUNCTION,
                            CURLOPT_WRITEDATA, CURLOPT_HEADERFUNCTION, CURLOPT_HEADERDATA,
                            CURLOPT_USERAGENT, CURLOPT_NOSIGNAL, CURLOPT_VERBOSE, CURLOPT_HTTPHEADER,
                            CURLOPT_POST, CURLOPT_POSTFIELDS, CURLOPT_POSTFIELDSIZE));
    EXPECT_EQ(spy.last(CURLOPT_URL).text, server.url("/"));
    EXPECT_EQ(spy.last(CURLOPT_HTTP_VERSION).number, CURL_HTTP_VERSION_1_1);
    EXPECT_EQ(spy.last(CURLOPT_SSL_VERIFYPEER).number, 1);
    EXPECT_EQ(spy.last(CURLOPT_CAINFO).text, "/etc/ssl/certs/ca-certificates.crt");
    EXPECT_EQ(spy.last(CURLOPT_SSL_VERIFYHOST).number, 2);
    EXPECT_EQ(spy.last(CURLOPT_DNS_CACHE_TIMEOUT).number, 3600);
    EXPECT_EQ(spy.last(CURLOPT_CONNECTTIMEOUT).number, 30);
    EXPECT_EQ(spy.last(CURLOPT_MAXCONNECTS).number, 10);
    EXPECT_EQ(spy.last(CURLOPT_TIMEOUT).number, 15);
    EXPECT_EQ(spy.last(CURLOPT_SERVER_RESPONSE_TIMEOUT).number, 15);
    EXPECT_EQ(spy.last(CURLOPT_USERAGENT).text, "libcurl-agent/1.0");
    EXPECT_EQ(spy.last(CURLOPT_NOSIGNAL).number, 1);
    EXPECT_EQ(spy.last(CURLOPT_VERBOSE).number, 0);
    EXPECT_EQ(spy.last(CURLOPT_POST).number, 1);
    EXPECT_EQ(spy.last(CURLOPT_POSTFIELDS).text, "p=1");
    EXPECT_EQ(spy.last(CURLOPT_POSTFIELDSIZE).number, 3);
}

TEST(HttpsOptions, TimeoutBelowOneMeansFifteenAndConnectStaysThirty)
{
    TempDir dir;
    for (const auto &[given, expected] : {std::pair{0, 15}, std::pair{-4, 15}, std::pair{1, 1}}) {
        CurlSpy spy;
        CaptureStderr err;
        request("http://[", nullptr, nullptr, nullptr, given);
        EXPECT_EQ(spy.last(CURLOPT_TIMEOUT).number, expected) << "timeout " << given;
        EXPECT_EQ(spy.last(CURLOPT_CONNECTTIMEOUT).number, 30) << "timeout " << given;
    }
}

TEST(HttpsOptions, SaveFileIsWrittenByFwrite)
{
    TempDir dir;
    CurlSpy spy;
    CaptureStderr err;
    request("http://[", nullptr, nullptr, dir.file("out").c_str());
    EXPECT_EQ(spy.last(CURLOPT_WRITEFUNCTION).pointer, reinterpret_cast<const void *>(&fwrite));
    EXPECT_NE(spy.last(CURLOPT_WRITEDATA).pointer, nullptr);
}

TEST(HttpsOptions, SchemeIsKeptInAnyCaseElseHttpsIsPutInFront)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"HTTP://[", "HTTP://["},
        {"hTTpS://[", "hTTpS://["},
        {"[", "https://["},
        {"ftp://[", "https://ftp://["},
    };
    for (const auto &[given, expected] : cases) {
        CurlSpy spy;
        CaptureStderr err;
        request(given);
        EXPECT_EQ(spy.last(CURLOPT_URL).text, expected);
    }
}

TEST(HttpsOptions, NonBlockingRequestSetsItsTableInOrder)
{
    TempDir dir;
    const std::string path = dir.file("out");
    HttpsOption option = file_option(path);
    option.cancel_test = cancel_always;
    char headers[] = "X-A: 1";
    CurlSpy spy;
    CaptureStderr err;
    EXPECT_EQ(request_nonblock("127.0.0.1:1/", &option, headers, "p"), nullptr);
    EXPECT_THAT(option_names(spy),
                ElementsAre(CURLOPT_HTTP_VERSION, CURLOPT_URL, CURLOPT_SSL_VERIFYPEER, CURLOPT_CAINFO,
                            CURLOPT_SSL_VERIFYHOST, CURLOPT_DNS_CACHE_TIMEOUT, CURLOPT_CONNECTTIMEOUT,
                            CURLOPT_DEBUGFUNCTION, CURLOPT_DEBUGDATA, CURLOPT_WRITEFUNCTION,
                            CURLOPT_WRITEDATA, CURLOPT_HEADERFUNCTION, CURLOPT_HEADERDATA,
                            CURLOPT_USERAGENT, CURLOPT_NOSIGNAL, CURLOPT_VERBOSE, CURLOPT_HTTPHEADER,
                            CURLOPT_POST, CURLOPT_POSTFIELDS, CURLOPT_POSTFIELDSIZE));
    EXPECT_EQ(spy.last(CURLOPT_URL).text, "https://127.0.0.1:1/");
    EXPECT_EQ(spy.last(CURLOPT_CONNECTTIMEOUT).number, 30);
    EXPECT_EQ(spy.last(CURLOPT_WRITEDATA).pointer, &option);
    EXPECT_NE(spy.last(CURLOPT_WRITEFUNCTION).pointer, reinterpret_cast<const void *>(&fwrite));
}

// ---------------------------------------------------------------------------
// Blocking request: attempts

TEST(HttpsRetry, UnresolvableNameCostsThreeAttemptsAndOneMessage)
{
    if (!kInNamespaces) {
        GTEST_SKIP() << "needs a private network namespace: "
                     << ku_test::private_namespaces_missing_reason();
    }
    CurlSpy spy;
    CaptureStderr err;
    EXPECT_EQ(request("http://no-such-host.invalid/", nullptr, nullptr, nullptr, 2), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=6\n");
    EXPECT_EQ(spy.performs(), 3);
}

TEST(HttpsRetry, RefusedConnectionCostsThreeAttempts)
{
    CurlSpy spy;
    CaptureStderr err;
    EXPECT_EQ(request(closed_port_url()), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=7\n");
    EXPECT_EQ(spy.performs(), 3);
}

TEST(HttpsRetry, TimedOutAttemptIsRepeatedThreeTimes)
{
    ScriptServer server([](ScriptConnection &connection) {
        if (connection.read_request()) {
            connection.hold();
        }
    });
    CaptureStderr err;
    EXPECT_EQ(request(server.url("/"), nullptr, nullptr, nullptr, 1), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=28\n");
    EXPECT_EQ(server.connections(), 3);
}

TEST(HttpsRetry, FailedTlsHandshakeIsRepeated)
{
    ScriptServer server([](ScriptConnection &connection) {
        connection.pause_ms(20);
        connection.send("this is no TLS server\r\n\r\n");
    });
    const std::string url = "https://127.0.0.1:" + std::to_string(server.port()) + "/";
    CaptureStderr err;
    EXPECT_EQ(request(url), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=35\n");
    EXPECT_EQ(server.connections(), 3);
}

TEST(HttpsRetry, RejectedUrlCostsOneAttempt)
{
    CurlSpy spy;
    CaptureStderr err;
    EXPECT_EQ(request("http://["), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=3\n");
    EXPECT_EQ(spy.performs(), 1);
}

TEST(HttpsRetry, DroppedConnectionIsNotRepeatedAndTheFileKeepsItsPart)
{
    ScriptServer server([](ScriptConnection &connection) {
        if (connection.read_request()) {
            connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + std::string(400, 'p'));
        }
    });
    TempDir dir;
    const std::string path = dir.file("part");
    CaptureStderr err;
    EXPECT_EQ(request(server.url("/"), nullptr, nullptr, path.c_str()), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=18\n");
    EXPECT_EQ(server.connections(), 1);
    EXPECT_EQ(ku_test::read_file(path), std::string(400, 'p'));
}

TEST(HttpsRetry, BytesOfAFailedAttemptAreDropped)
{
    const std::string body = "the whole body";
    std::atomic<int> attempt{0};
    ScriptServer server([&](ScriptConnection &connection) {
        if (!connection.read_request()) {
            return;
        }
        if (attempt.fetch_add(1) == 0) {
            connection.send("HTTP/1.1 200 OK\r\nX-First: 1\r\nContent-Length: 14\r\n\r\nthe wh");
            connection.hold();
            return;
        }
        connection.send(ScriptServer::response(200, "OK", body));
    });
    TempDir dir;
    const std::string path = dir.file("retried");
    const Response in_memory = request(server.url("/"), nullptr, nullptr, nullptr, 1);
    ASSERT_NE(in_memory, nullptr);
    EXPECT_EQ(body_of(in_memory), body);
    EXPECT_THAT(header_of(in_memory), Not(HasSubstr("X-First")));
    EXPECT_THAT(header_of(in_memory), StartsWith("HTTP/1.1 200 OK\r\n"));

    attempt = 0;
    const Response to_file = request(server.url("/"), nullptr, nullptr, path.c_str(), 1);
    ASSERT_NE(to_file, nullptr);
    EXPECT_EQ(to_file->body_length, body.size());
    EXPECT_EQ(ku_test::read_file(path), body);
}

// ---------------------------------------------------------------------------
// TLS against the test CA

TEST_F(HttpsTls, CertificateFromTheBundledCaIsAccepted)
{
    const Response response = request(servers().nginx->https_url(0, "/hello.txt"));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(body_of(response), kHello);
}

TEST_F(HttpsTls, UrlWithoutSchemeGoesOverHttps)
{
    const std::string url = "127.0.0.1:" + std::to_string(servers().nginx->https_port(0)) + "/blob.bin";
    const Response response = request(url);
    ASSERT_NE(response, nullptr);
    EXPECT_TRUE(body_of(response) == servers().blob);
}

TEST_F(HttpsTls, CertificateFromAnUnknownCaIsRefused)
{
    CurlSpy spy;
    CaptureStderr err;
    EXPECT_EQ(request(servers().nginx->https_url(1, "/hello.txt")), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=60\n");
    EXPECT_EQ(spy.performs(), 1);
}

TEST_F(HttpsTls, NonBlockingRequestVerifiesToo)
{
    const Response good = request_nonblock(servers().nginx->https_url(0, "/hello.txt"), nullptr);
    ASSERT_NE(good, nullptr);
    EXPECT_EQ(body_of(good), kHello);

    CaptureStderr err;
    const Response refused = request_nonblock(servers().nginx->https_url(1, "/hello.txt"), nullptr);
    ASSERT_NE(refused, nullptr);
    EXPECT_EQ(refused->header, nullptr);
    EXPECT_EQ(refused->body, nullptr);
}

// ---------------------------------------------------------------------------
// The callbacks, reached through the pointers the library gives libcurl

using TraceFunction = int (*)(CURL *, curl_infotype, char *, size_t, void *);
using WriteFunction = size_t (*)(char *, size_t, size_t, void *);

struct Callbacks {
    TraceFunction trace = nullptr;
    WriteFunction header = nullptr;
    WriteFunction body = nullptr;
    WriteFunction file = nullptr;
};

// Runs set-ups that are cancelled before any transfer and keeps the callback
// pointers they handed to libcurl.
const Callbacks &library_callbacks()
{
    static const Callbacks callbacks = [] {
        Callbacks found;
        TempDir dir;
        const std::string path = dir.file("cb");
        HttpsOption to_file = file_option(path);
        to_file.cancel_test = cancel_always;
        HttpsOption to_memory{};
        to_memory.cancel_test = cancel_always;
        CaptureStderr quiet;
        {
            CurlSpy spy;
            HttpsRequestNonBlock("http://127.0.0.1:1/", nullptr, nullptr, &to_file);
            found.trace = reinterpret_cast<TraceFunction>(
                const_cast<void *>(spy.last(CURLOPT_DEBUGFUNCTION).pointer));
            found.header = reinterpret_cast<WriteFunction>(
                const_cast<void *>(spy.last(CURLOPT_HEADERFUNCTION).pointer));
            found.file = reinterpret_cast<WriteFunction>(
                const_cast<void *>(spy.last(CURLOPT_WRITEFUNCTION).pointer));
        }
        {
            CurlSpy spy;
            HttpsRequestNonBlock("http://127.0.0.1:1/", nullptr, nullptr, &to_memory);
            found.body = reinterpret_cast<WriteFunction>(
                const_cast<void *>(spy.last(CURLOPT_WRITEFUNCTION).pointer));
        }
        return found;
    }();
    return callbacks;
}

std::string trace(curl_infotype type, const std::string &data, unsigned char text_mode,
                  int *result = nullptr)
{
    TraceFunction function = library_callbacks().trace;
    EXPECT_NE(function, nullptr);
    if (function == nullptr) {
        return {};
    }
    std::string copy = data;
    CaptureStderr err;
    const int got = function(nullptr, type, copy.data(), copy.size(), &text_mode);
    if (result != nullptr) {
        *result = got;
    }
    return err.finish();
}

TEST(HttpsTrace, TextModeEndsLinesAtCrLf)
{
    int result = -1;
    EXPECT_EQ(trace(CURLINFO_HEADER_IN, "HTTP/1.1 200 OK\r\nA: b\r\n", 1, &result),
              "<= Recv header, 0000000023 bytes (0x00000017)\n"
              "0000: HTTP/1.1 200 OK\n"
              "0011: A: b\n");
    EXPECT_EQ(result, 0);
}

TEST(HttpsTrace, TextModeBlankLineAndLongLines)
{
    EXPECT_EQ(trace(CURLINFO_HEADER_OUT, "\r\nx", 1),
              "=> Send header, 0000000003 bytes (0x00000003)\n"
              "0000: \n"
              "0002: x\n");
    EXPECT_EQ(trace(CURLINFO_DATA_OUT, std::string(70, 'a'), 1),
              "=> Send data, 0000000070 bytes (0x00000046)\n"
              "0000: " + std::string(64, 'a') + "\n"
              "0040: aaaaaa\n");
}

TEST(HttpsTrace, UnprintableBytesBecomePoints)
{
    EXPECT_EQ(trace(CURLINFO_DATA_IN, std::string("\x1f\x20\x7e\x7f\x80\xff\0z", 8), 1),
              "<= Recv data, 0000000008 bytes (0x00000008)\n"
              "0000: . ~\x7f...z\n");
}

TEST(HttpsTrace, HexModeShowsSixteenCellsALine)
{
    EXPECT_EQ(trace(CURLINFO_SSL_DATA_IN, "AB\x01", 0),
              "<= Recv SSL data, 0000000003 bytes (0x00000003)\n"
              "0000: 41 42 01 " + std::string(13 * 3, ' ') + "AB.\n");
    EXPECT_EQ(trace(CURLINFO_SSL_DATA_OUT, "0123456789abcdefXY\r\n", 0),
              "=> Send SSL data, 0000000020 bytes (0x00000014)\n"
              "0000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 0123456789abcdef\n"
              "0010: 58 59 0d 0a " + std::string(12 * 3, ' ') + "XY..\n");
}

TEST(HttpsTrace, OtherKindsPrintNothing)
{
    for (curl_infotype type : {CURLINFO_TEXT, CURLINFO_END}) {
        int result = -1;
        EXPECT_EQ(trace(type, "ignored\r\n", 1, &result), "");
        EXPECT_EQ(result, 0);
    }
}

TEST(HttpsCallbacks, HeaderAndBodyAppendAndAlwaysClaimEveryByte)
{
    KU_REQUIRE_ALLOC_CONTROL();
    for (WriteFunction function : {library_callbacks().header, library_callbacks().body}) {
        ASSERT_NE(function, nullptr);
        membuffer buffer;
        membuffer_init(&buffer);
        char data[] = "abcdef";
        EXPECT_EQ(function(data, 1, 6, &buffer), 6u);
        EXPECT_EQ(function(data, 2, 2, &buffer), 4u);
        EXPECT_EQ(std::string(buffer.data, buffer.length), "abcdefabcd");
        {
            ku_test::AllocControl alloc;
            alloc.fail(ku_test::kAnyAlloc, 0, -1);
            EXPECT_EQ(function(data, 1, 6, &buffer), 6u);  // lost, still claimed
        }
        EXPECT_EQ(buffer.length, 10u);
        membuffer_destroy(&buffer);
    }
}

struct ProgressLog {
    std::vector<int> percents;
    std::vector<std::pair<uintptr_t, uintptr_t>> words;
};

int record_progress(uintptr_t log, uintptr_t tag, int percent)
{
    auto *progress = reinterpret_cast<ProgressLog *>(log);
    progress->percents.push_back(percent);
    progress->words.emplace_back(log, tag);
    return 0;
}

class HttpsFileCallback : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(library_callbacks().file, nullptr);
        option.file = fopen(dir.file("f").c_str(), "w+");
        option.progress = record_progress;
        option.progress_arg1 = reinterpret_cast<uintptr_t>(&log);
        option.progress_arg2 = 77;
    }
    void TearDown() override
    {
        if (option.file != nullptr) {
            fclose(option.file);
        }
    }
    size_t write(size_t bytes)
    {
        std::string data(bytes, 'w');
        return library_callbacks().file(data.data(), 1, bytes, &option);
    }

    TempDir dir;
    HttpsOption option{};
    ProgressLog log;
};

TEST_F(HttpsFileCallback, PercentIsRoundedDown)
{
    option.total_size = 3;
    EXPECT_EQ(write(1), 1u);
    EXPECT_EQ(option.done_size, 1u);
    EXPECT_THAT(log.percents, ElementsAre(33));
    EXPECT_EQ(log.words.front(), std::make_pair(reinterpret_cast<uintptr_t>(&log), uintptr_t{77}));
}

TEST_F(HttpsFileCallback, PercentOfLargeSizesDoesNotOverflow)
{
    option.total_size = 100000000;
    option.done_size = 49999999;  // carries on from the caller's value
    EXPECT_EQ(write(1), 1u);
    EXPECT_EQ(option.done_size, 50000000u);
    EXPECT_THAT(log.percents, ElementsAre(50));
}

TEST_F(HttpsFileCallback, PercentIsNotCappedAndRepeats)
{
    option.total_size = 100;
    option.done_size = 149;
    write(1);
    option.done_size = 0;
    write(1);
    EXPECT_THAT(log.percents, ElementsAre(150, 1));
}

TEST_F(HttpsFileCallback, ZeroTotalTurnsCountingOff)
{
    option.total_size = 0;
    option.done_size = 5;
    EXPECT_EQ(write(10), 10u);
    EXPECT_EQ(option.done_size, 5u);
    EXPECT_TRUE(log.percents.empty());
}

TEST_F(HttpsFileCallback, NullProgressStillCounts)
{
    option.total_size = 10;
    option.progress = nullptr;
    EXPECT_EQ(write(4), 4u);
    EXPECT_EQ(option.done_size, 4u);
}

TEST_F(HttpsFileCallback, NoFileOrNoOptionWritesNothing)
{
    char data[] = "x";
    EXPECT_EQ(library_callbacks().file(data, 1, 1, nullptr), 0u);
    fclose(option.file);
    option.file = nullptr;
    option.total_size = 1;
    EXPECT_EQ(write(1), 0u);
    EXPECT_TRUE(log.percents.empty());
}

// ---------------------------------------------------------------------------
// Cancellable request

TEST_F(HttpsNginx, NonBlockWithoutOptionCollectsInMemory)
{
    CaptureStderr err;
    const Response response = request_nonblock(http("/hello.txt"), nullptr);
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(body_of(response), kHello);
    EXPECT_THAT(header_of(response), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(err.finish(), HasSubstr("curl_multi_perform CURLMSG_DONE msgs_left=0\n"));
}

TEST_F(HttpsNginx, NonBlockSaveFileReportsProgress)
{
    TempDir dir;
    const std::string path = dir.file("blob");
    ProgressLog log;
    HttpsOption option = file_option(path);
    option.progress = record_progress;
    option.progress_arg1 = reinterpret_cast<uintptr_t>(&log);
    option.total_size = kBlobSize;
    const Response response = request_nonblock(http("/blob.bin"), &option);
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->body, nullptr);
    EXPECT_EQ(response->body_length, kBlobSize);
    EXPECT_EQ(option.done_size, kBlobSize);
    EXPECT_NE(option.file, nullptr);
    EXPECT_TRUE(ku_test::read_file(path) == servers().blob);
    ASSERT_FALSE(log.percents.empty());
    EXPECT_EQ(log.percents.back(), 100);
    EXPECT_TRUE(std::is_sorted(log.percents.begin(), log.percents.end()));
}

TEST_F(HttpsNginx, NonBlockNotFoundAndEmptyBody)
{
    const Response missing = request_nonblock(http("/missing"), nullptr);
    ASSERT_NE(missing, nullptr);
    EXPECT_THAT(header_of(missing), StartsWith("HTTP/1.1 404 Not Found\r\n"));
    const Response empty = request_nonblock(http("/empty"), nullptr);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->body, nullptr);
    EXPECT_EQ(empty->body_length, 0u);
}

// A save file on a full file system: 200 KiB served to a tmpfs of 100 KiB.
// Neither request may call that a success, and a length or a count must
// never exceed what is on disk.
TEST(HttpsSaveFile, FullFileSystemIsAFailedTransfer)
{
    if (!kInNamespaces) {
        GTEST_SKIP() << ku_test::private_namespaces_missing_reason();
    }
    constexpr size_t kServed = 200 * 1024;
    ScriptServer server(ku_test::answer_with(ScriptServer::response(200, "OK", std::string(kServed, 'f'))));
    TempDir dir;
    const std::string mount_point = dir.file("fs");
    ASSERT_EQ(mkdir(mount_point.c_str(), 0700), 0);
    ASSERT_EQ(mount("tmpfs", mount_point.c_str(), "tmpfs", 0, "size=100k"), 0);
    const std::string path = mount_point + "/save.bin";
    const auto on_disk = [&] {
        struct stat st {};
        return stat(path.c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : kServed + 1;
    };

    CaptureStderr err;
    EXPECT_EQ(request(server.url("/"), nullptr, nullptr, path.c_str()), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequest failed, res=23\n");  // CURLE_WRITE_ERROR
    EXPECT_LT(on_disk(), kServed);

    HttpsOption option = file_option(path);
    option.total_size = kServed;
    const Response partial = request_nonblock(server.url("/"), &option);
    ASSERT_NE(partial, nullptr);
    EXPECT_LT(on_disk(), kServed);
    EXPECT_EQ(partial->body_length, on_disk());
    EXPECT_LE(option.done_size, on_disk());
    EXPECT_EQ(umount2(mount_point.c_str(), MNT_DETACH), 0);
}

TEST(HttpsNonBlock, PostAndHeadersReachTheServer)
{
    ScriptServer server(ku_test::answer_with(ScriptServer::response(201, "Created", "ok")));
    char headers[] = "X-Key: v1\r\nX-Other: v2";
    const Response response = request_nonblock(server.url("/post"), nullptr, headers, "body text");
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(body_of(response), "ok");
    EXPECT_EQ(std::string(headers, sizeof headers), std::string("X-Key: v1\0\0X-Other: v2\0", 23));
    const std::vector<ku_test::HttpRequest> seen = server.requests();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].body, "body text");
    EXPECT_EQ(seen[0].header("X-Key"), "v1");
    EXPECT_EQ(seen[0].header("X-Other"), "v2");
    EXPECT_EQ(seen[0].header("User-Agent"), "libcurl-agent/1.0");

    const Response empty_post = request_nonblock(server.url("/post"), nullptr, nullptr, "");
    ASSERT_NE(empty_post, nullptr);
    ASSERT_EQ(server.requests().size(), 2u);
    EXPECT_EQ(server.requests()[1].method, "POST");
    EXPECT_EQ(server.requests()[1].header("Content-Length"), "0");
}

TEST(HttpsNonBlock, CancelBeforeAnyTransferLeavesAnEmptyFile)
{
    ScriptServer server(ku_test::answer_with(ScriptServer::response(200, "OK", "never")));
    TempDir dir;
    const std::string path = dir.write("cancelled", "old content");
    int asked = 0;
    HttpsOption option = file_option(path);
    option.cancel_test = [](void *count) {
        ++*static_cast<int *>(count);
        return 1;
    };
    option.cancel_arg = &asked;
    CaptureStderr err;
    EXPECT_EQ(request_nonblock(server.url("/"), &option), nullptr);
    EXPECT_THAT(err.finish(), HasSubstr(" got cancel command, exit\n"));
    EXPECT_EQ(asked, 1);
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, 0);
    EXPECT_EQ(server.connections(), 0);
}

TEST(HttpsNonBlock, CancelDuringTransferKeepsWhatArrived)
{
    ScriptServer server(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", 100000, 20));
    TempDir dir;
    const std::string path = dir.file("partial");
    HttpsOption option = file_option(path);
    option.total_size = 100000;
    option.cancel_test = [](void *arg) { return static_cast<HttpsOption *>(arg)->done_size >= 3 ? 1 : 0; };
    option.cancel_arg = &option;
    CaptureStderr err;
    EXPECT_EQ(request_nonblock(server.url("/"), &option), nullptr);
    EXPECT_THAT(err.finish(), HasSubstr(" got cancel command, exit\n"));
    const std::string kept = ku_test::read_file(path);
    EXPECT_GE(kept.size(), 3u);
    EXPECT_EQ(kept, std::string(kept.size(), 'x'));
    EXPECT_EQ(kept.size(), option.done_size);
}

TEST(HttpsNonBlock, TimeLimitEndsWithPartialDataAndALogLine)
{
    ScriptServer server(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", 100000, 50));
    TempDir dir;
    const std::string path = dir.file("slow");
    HttpsOption option = file_option(path, 2);
    const auto started = std::chrono::steady_clock::now();
    CaptureStderr err;
    const Response response = request_nonblock(server.url("/"), &option);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    ASSERT_NE(response, nullptr);
    EXPECT_THAT(err.finish(), HasSubstr("ERR:  download timeout after 2 seconds\n"));
    EXPECT_GE(elapsed, std::chrono::seconds(1));
    EXPECT_LT(elapsed, std::chrono::seconds(4));
    EXPECT_THAT(header_of(response), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_EQ(response->body, nullptr);
    EXPECT_GT(response->body_length, 0u);
    EXPECT_LT(response->body_length, 100000u);
    EXPECT_EQ(ku_test::read_file(path), std::string(response->body_length, 'x'));
}

TEST(HttpsNonBlock, TimeLimitCountsWholeSecondsOfTheMonotonicClock)
{
    // A body byte every 20 ms keeps the passes short; the server sleeps with
    // nanosleep, which the fake clock leaves alone.
    ScriptServer server([](ScriptConnection &connection) {
        if (!connection.read_request() ||
            !connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n")) {
            return;
        }
        while (!connection.stopping() && connection.send("x")) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    ku_test::FakeClock clock;
    clock.set_ms(100900);  // second 100, nearly 101
    struct Passes {
        ku_test::FakeClock *clock;
        int64_t ms = 100900;
        int count = 0;
    } passes{&clock};
    HttpsOption option{};
    option.time_limit = 3;
    option.cancel_arg = &passes;
    // Each pass moves the clock on by 0.7 seconds: 101.6, 102.3, 103.0, ...
    option.cancel_test = [](void *arg) {
        auto *state = static_cast<Passes *>(arg);
        ++state->count;
        state->ms += 700;
        state->clock->set_ms(state->ms);
        return 0;
    };
    CaptureStderr err;
    const Response response = request_nonblock(server.url("/"), &option);
    ASSERT_NE(response, nullptr);
    EXPECT_THAT(err.finish(), HasSubstr("ERR:  download timeout after 3 seconds\n"));
    // The passes end when the clock reads second 103, after the third pass,
    // although only 2.1 seconds separate 100.9 from 103.0.
    EXPECT_EQ(passes.count, 3);
}

TEST(HttpsNonBlock, ZeroTimeLimitEndsAfterTheFirstWait)
{
    ScriptServer server(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n", 1000, 50));
    HttpsOption option{};
    option.time_limit = 0;
    CaptureStderr err;
    const Response response = request_nonblock(server.url("/"), &option);
    ASSERT_NE(response, nullptr);
    EXPECT_THAT(err.finish(), HasSubstr("ERR:  download timeout after 0 seconds\n"));
    EXPECT_LT(response->body_length, 1000u);
}

TEST(HttpsNonBlock, FailedTransferStillGivesARecord)
{
    CaptureStderr err;
    HttpsOption option{};
    option.time_limit = 10;
    const Response refused = request_nonblock(closed_port_url(), &option);
    ASSERT_NE(refused, nullptr);
    EXPECT_EQ(refused->header, nullptr);
    EXPECT_EQ(refused->body, nullptr);
    EXPECT_THAT(err.finish(), Not(HasSubstr("failed")));

    ScriptServer dropping([](ScriptConnection &connection) {
        if (connection.read_request()) {
            connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + std::string(400, 'd'));
        }
    });
    const Response dropped = request_nonblock(dropping.url("/"), &option);
    ASSERT_NE(dropped, nullptr);
    EXPECT_EQ(body_of(dropped), std::string(400, 'd'));
}

TEST(HttpsNonBlock, UncreatableSaveFileFailsBeforeLibcurl)
{
    const ku_test::CurlGlobalTally before = ku_test::curl_global_tally();
    const std::string path = "/nonexistent-dir/y";
    HttpsOption option = file_option(path);
    CaptureStderr err;
    EXPECT_EQ(request_nonblock("http://127.0.0.1:1/", &option), nullptr);
    EXPECT_EQ(err.finish(), "HttpsRequestNonBlock create /nonexistent-dir/y failed\n");
    EXPECT_EQ(ku_test::curl_global_tally().inits, before.inits);
    EXPECT_EQ(option.file, nullptr);
}

// ---------------------------------------------------------------------------
// Several requests at once

TEST(HttpsGlobal, EachRequestInitialisesAndCleansUpLibcurl)
{
    const ku_test::CurlGlobalTally before = ku_test::curl_global_tally();
    CaptureStderr err;
    request("http://[");
    HttpsOption option{};
    option.cancel_test = cancel_always;
    request_nonblock("http://[", &option);
    const ku_test::CurlGlobalTally after = ku_test::curl_global_tally();
    EXPECT_EQ(after.inits, before.inits + 2);
    EXPECT_EQ(after.cleanups, before.cleanups + 2);
    EXPECT_FALSE(after.initialised);
    EXPECT_EQ(after.violations, 0);
}

TEST_F(HttpsNginx, EightConcurrentDownloadsOnEightThreads)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 4;
    TempDir dir;
    std::atomic<int> ready{0};
    std::vector<std::string> problems(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) {
                std::this_thread::yield();
            }
            for (int round = 0; round < kRounds; ++round) {
                const std::string path = dir.file("t" + std::to_string(t) + "-" + std::to_string(round));
                const bool to_file = (t + round) % 2 == 0;
                Response response;
                HttpsOption option = file_option(path);
                option.total_size = kBigSize;
                if (t % 2 == 0) {
                    response = request(http("/big.bin"), nullptr, nullptr, to_file ? path.c_str() : nullptr);
                } else {
                    if (!to_file) {
                        option.save_path = nullptr;
                    }
                    response = request_nonblock(http("/big.bin"), &option);
                }
                if (response == nullptr) {
                    problems[t] += "null response; ";
                    continue;
                }
                const std::string got = to_file ? ku_test::read_file(path) : body_of(response);
                if (response->body_length != kBigSize || got != servers().big) {
                    problems[t] += "wrong body in round " + std::to_string(round) + "; ";
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(problems[t], "") << "thread " << t;
    }
    const ku_test::CurlGlobalTally tally = ku_test::curl_global_tally();
    EXPECT_EQ(tally.violations, 0);
    EXPECT_EQ(tally.inits, tally.cleanups);
    EXPECT_FALSE(tally.initialised);
}

}  // namespace
