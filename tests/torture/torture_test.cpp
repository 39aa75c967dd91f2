// Allocation-failure torture: each case runs once to count the fallible calls
// its library calls make, then once more per call with exactly that call
// failing. Every round must end in the documented result, leave no block
// (LeakSanitizer, per round) and no descriptor behind, and beat the watchdog.
// Only calls from libku and from the libraries whose failures it passes on
// (json-c, libcurl) fail: their own dependencies (OpenSSL, libc) are out of
// scope, as in curl's own torture runs.
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/nginx_server.h"
#include "support/open_fds.h"
#include "support/temp_dir.h"

#include "ku.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>

#include <functional>

using namespace ku_test;

namespace {

// One round: the library calls inside armed() count, and the `target`-th of
// them (from 0) fails; -1 fails none.
struct Round {
    long target;
    unsigned calls;
    long seen = 0;
    bool failed_last = false;  // the failure happened in the last armed() call
    AllocControl control;
    CaptureStdout out;  // capturing ends at the first finish()
    CaptureStderr err;

    Round(long target, unsigned calls) : target(target), calls(calls) {}
    template <typename Call>
    auto armed(Call call)
    {
        control.reset();
        control.fail(target >= seen ? calls : 0, target - seen, 1);
        const auto result = call();
        failed_last = target >= seen && target < seen + control.count(calls);
        seen += control.count(calls);
        control.allow();
        return result;
    }
    // armed(call), which gives `failure` only when one of its calls failed,
    // and then always unless the library may absorb the failure.
    template <typename Call, typename Result>
    auto check(Call call, Result failure, bool absorbs = false)
    {
        const auto result = armed(call);
        EXPECT_TRUE(result == failure ? failed_last : absorbs || !failed_last);
        return result;
    }
    bool failed() const { return target >= 0 && target < seen; }
    bool said(const std::string &text) { return err.finish().find(text) != std::string::npos; }
};

struct Case {
    const char *family, *name;
    std::function<void(Round &)> run;
    const char *partner = "libku.so";  // the other library whose calls may fail, if any
};

const TempDir scratch;
// The served document and its URL, set up before the first round counts
// descriptors. Over TLS a transfer walks the same library code: only
// libcurl's own calls would add rounds.
std::string body, url;

std::string text(const char *chars)
{
    return chars ? chars : "(null)";
}

// One transfer of the served document, to memory (with two extra headers) or
// to a save file. The record holds what the caller finds, never more; a failed
// non-blocking transfer may leave a partial one.
void download(Round &r, bool blocking, bool save)
{
    char headers[] = "X-One: 1\r\nX-Two: 2";
    const std::string path = scratch.file("saved.bin");
    HttpsOption option{};
    option.save_path = path.c_str();
    option.time_limit = 20;
    option.total_size = static_cast<uint32_t>(body.size());
    HttpsResponse *response = r.armed([&] {
        return blocking ? HttpsRequest(url.c_str(), save ? nullptr : headers, nullptr,
                                       save ? path.c_str() : nullptr, 10)
                        : HttpsRequestNonBlock(url.c_str(), save ? nullptr : headers, nullptr,
                                               save ? &option : nullptr);
    });
    const std::string got = !response ? "" : save ? read_file(path)
                                          : std::string(response->body ? response->body : "",
                                                        response->body_length);
    EXPECT_TRUE(response != nullptr || r.failed());
    EXPECT_EQ(got.size(), response ? response->body_length : 0);
    EXPECT_EQ(got, body.substr(0, got.size()));
    if (response && (!r.failed() || blocking)) {
        EXPECT_EQ(got.size(), body.size()) << "a record for a transfer that ended early";
        EXPECT_EQ(text(response->header).rfind("HTTP/1.1 200", 0), 0u);
    }
    EXPECT_TRUE(!response || !save || (response->body == nullptr &&
                                       (blocking || option.done_size == response->body_length)));
    HttpsFreeResponse(response);
}

constexpr const char *kIni = "# settings\n[net]\nhost=a.example\nport=80\n[audio]\nrate=8000\n";
constexpr const char *kJson = R"({"name":"ku","list":[{"id":1},{"id":2}],"n":7})";
const std::string kTable = "# rows\nalpha 1 2\nbeta 3\n\ngamma 4 5 6\n";

const std::vector<Case> kCases = {
    {"json", "documents: load, create, save", [](Round &r) {
         // json-c may absorb a failure of its own. A failed copy of the path
         // still gives a document.
         const std::string path = scratch.write("doc.json", kJson);
         ku_json_destroy(
             r.check([&] { return ku_json_load_from_file(path.c_str()); }, nullptr, true));
         ku_json_destroy(r.check([] { return ku_json_load_from_buf(kJson); }, nullptr, true));
         ku_json_doc *made = r.check([] { return ku_json_create(); }, nullptr, true);
         if (made == nullptr) {
             return;
         }
         const std::string target = scratch.write("made.json", "{\"old\":1}");
         const bool tree = ku_json_set_obj(made, "data", kJson) == 0;
         const int saved = r.armed([&] { return ku_json_file_save(made, target.c_str()); });
         EXPECT_TRUE(saved == 0 || r.failed_last || !tree);
         EXPECT_EQ(read_file(target), saved ? "{\"old\":1}" : "{\"data\":" + text(kJson) + "}");
         ku_json_destroy(made);
         r.check([&] { return json_file_get_int(path.c_str(), "n"); }, 0, true);
         r.check([] { return json_buf_get_int(kJson, "n"); }, 0, true);
     }, "libjson-c.so"},
    {"json", "fields: writers, copies, array setters", [](Round &r) {
         ku_json_doc *doc = ku_json_load_from_buf(kJson);
         // A failed writer leaves the old value, or none when json-c could
         // not store the new entry after the old one was deleted.
         auto expect_set = [&r, doc](const char *key, const char *value, auto writer) {
             const int result = r.armed(writer);
             const std::string now = text(ku_json_get_string(doc, key));
             EXPECT_TRUE(result == 0 ? now == value : r.failed_last && now != value) << now;
         };
         expect_set("name", "libku", [&] { return ku_json_set_string(doc, "name", "libku"); });
         expect_set("n", "8", [&] { return ku_json_set_int(doc, "n", 8); });
         expect_set("big", "1099511627776",
                    [&] { return ku_json_set_int64(doc, "big", 1LL << 40); });
         expect_set("obj", "{ \"a\": [ 1, 2 ] }",
                    [&] { return ku_json_set_obj(doc, "obj", "{\"a\":[1,2]}"); });
         // An earlier failure may have taken "n" away: r.failed(), not failed_last.
         char *copy = r.armed([&] { return ku_json_dup_string(doc, "n"); });
         EXPECT_TRUE(copy != nullptr || r.failed());
         free(copy);
         free(r.check([&] { return ku_json_string_dup(doc); }, nullptr, true));
         r.check([&] { return ku_json_string_ref(doc); }, nullptr, true);
         free(r.check([&] { return ku_json_obj_dup_obj_string(ku_json_get_obj(doc, "list")); },
                      nullptr, true));
         const int old = r.armed([&] { return ku_json_array_set_int(doc, "list", 1, "id", 5); });
         json_object *second = ku_json_array_get_obj(doc, "list", 1);
         EXPECT_EQ(ku_json_obj_get_int(second, "id"), old ? 2 : 5);
         const int added =
             r.armed([&] { return ku_json_array_set_string(doc, "list", 9, "id", "x"); });
         EXPECT_EQ(ku_json_array_get_num(doc, "list"), added ? 2 : 3);
         const int fresh = r.armed([&] { return ku_json_array_set_int(doc, "new", 0, "v", 1); });
         EXPECT_EQ(ku_json_is_key_exist(doc, "new"), fresh ? 0 : 1) << "a failed setter left a key";
         EXPECT_TRUE((old == 0 && added == 0 && fresh == 0) || r.failed());
         ku_json_destroy(doc);
     }, "libjson-c.so"},
    {"table", "load, edit and save", [](Round &r) {
         const std::string path = scratch.write("rows.txt", kTable);
         kutable *table = r.check([&] { return kutable_load(path.c_str()); }, nullptr);
         if (table == nullptr) {
             EXPECT_TRUE(r.said("ERR: "));
             return;
         }
         const int set = r.check([&] { return kutable_set(table, 1, 1, "three and more"); }, -1);
         const int appended = r.check([&] { return kutable_append(table, "delta 7"); }, -1);
         const int saved = r.check([&] { return kutable_save(table); }, -1);
         const std::string edited = "alpha 1 2 \nbeta " + text(set ? "3" : "three and more") +
                                    " \ngamma 4 5 6 \n" + (appended ? "" : "delta 7 \n");
         EXPECT_EQ(read_file(path), saved ? kTable : edited);
         kutable_close(table);
     }},
    {"ini", "read and replace a key", [](Round &r) {
         const std::string path = scratch.write("set.ini", kIni);
         r.check([&] { return GetIniKeyInt("net", "port", path.c_str()); }, 0);
         // A failed read of the original may still leave a good rewrite.
         const int put = r.check(
             [&] { return PutIniKeyString("net", "host", "b.example", path.c_str()); }, -1, true);
         EXPECT_TRUE(put == 0 || r.said("Fail to open INI"));
         const int put_int = r.check(
             [&] { return PutIniKeyInt("audio", "rate", 16000, path.c_str()); }, -1, true);
         std::string expected = kIni;
         expected.replace(expected.find("8000"), 4, put_int ? "8000" : "16000");
         expected.replace(expected.find("a.example"), 9, put ? "a.example" : "b.example");
         EXPECT_EQ(read_file(path), expected) << "a failed rewrite touched the original";
         EXPECT_NE(access((path + ".tmp").c_str(), F_OK), 0);
     }},
    {"socket", "local datagrams and a TCP listener", [](Round &r) {
         const std::string path = scratch.file("dgram.sock");
         const int receiver = r.check([&] { return ku_sock_local_create(path.c_str()); }, -1);
         if (receiver >= 0) {
             r.check([&] { return ku_sock_local_send(path.c_str(), "ping", 4); }, -1);
         }
         EXPECT_EQ(r.said("ERR: "), r.failed());
         ku_socket_close(receiver);
         unlink(path.c_str());
         ku_socket_close(r.check([] { return ku_socket_tcps(0); }, -1));
     }},
    {"https", "HttpsRequest to memory", [](Round &r) { download(r, true, false); }, "libcurl"},
    {"https", "HttpsRequest to a save file", [](Round &r) { download(r, true, true); },
     "libcurl"},
    {"https", "HttpsRequestNonBlock to memory", [](Round &r) { download(r, false, false); },
     "libcurl"},
    {"https", "HttpsRequestNonBlock to a save file",
     [](Round &r) { download(r, false, true); }, "libcurl"},
    {"plugin", "ku_plugin_create", [](Round &r) {
         ku_plugin *plugin = r.check(
             [] { return ku_plugin_create(KU_TEST_PLUGIN_DIR, "kutest_", "good"); }, nullptr);
         EXPECT_TRUE(plugin || r.said("ku_plugin_create malloc failed"));
         ku_plugin_destroy(plugin);
     }},
};

std::string hang_report;  // what the watchdog says
int report_fd = 2;         // the real standard error, for what must not be lost

// Runs one round; gives the calls it counted.
long run_round(const Case &c, unsigned calls, long target)
{
    const std::string name = std::string(c.family) + " / " + c.name + " / round " +
                             (target < 0 ? "counting" : std::to_string(target + 1));
    SCOPED_TRACE(name);
    hang_report = "torture: round hangs: " + name + "\n";
    const int fds = open_fd_count();
    Round round{target, calls};
    alarm(60);
    c.run(round);
    alarm(0);
    // The checks' messages went to the captured output with the round's.
    const std::string output = round.out.finish() + round.err.finish();
    if (::testing::Test::HasFailure()) {
        fwrite(output.data(), 1, output.size(), stdout);
    }
    EXPECT_EQ(open_fd_count(), fds) << "descriptors left open";
    // A failure ends the run, so a leak is not reported again by later rounds.
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0) << "memory leaked (report above)";
    return round.seen;
}

TEST(Torture, EveryFallibleCallFailsOnce)
{
    ASSERT_TRUE(AllocControl::effective()) << "the allocator is replaced: no failure injection";
    for (int i = 0; i < 3000; i++) {
        body += "line " + std::to_string(i) + " of the served document\n";
    }
    scratch.write("doc.txt", body);
    const NginxServer web(scratch.path(), scratch.path());
    url = web.http_url("/doc.txt");
    // Sanitizer reports of a round go where they are seen, not to its files.
    report_fd = dup(2);
    __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(report_fd)));
    signal(SIGALRM, [](int) {
        (void)!write(report_fd, hang_report.data(), hang_report.size());  // async-signal-safe
        _exit(3);
    });
    signal(SIGPIPE, SIG_IGN);
    for (const Case &c : kCases) {
        // json-c 0.16 does not check its own strdup of a key (it takes the
        // length of the null copy): its other calls fail in a second pass.
        const bool json = strcmp(c.partner, "libjson-c.so") == 0;
        for (int pass = 0; pass < (json ? 2 : 1); pass++) {
            const unsigned calls = pass ? kAnyFallible & ~kStrdup : kAnyFallible;
            AllocControl::only_callers_in({"libku.so", json && pass == 0 ? "libku.so" : c.partner});
            // A first run lets one-time set-up (libcurl's, OpenSSL's) happen.
            run_round(c, calls, -1);
            const long seen = run_round(c, calls, -1);
            ASSERT_GT(seen, 0) << c.name << ": no fallible call found";
            // How often a transfer's callbacks run (and grow a buffer) depends
            // on how the bytes arrive: a replay that makes fewer calls ends it.
            long rounds = 0;
            for (long made = seen; rounds < seen && rounds <= made && !HasFailure();) {
                made = run_round(c, calls, rounds++);
            }
            printf("%s / %s: %ld calls, %ld rounds\n", c.family, c.name, seen, rounds);
            AllocControl::only_callers_in({});
            ASSERT_FALSE(HasFailure());
        }
    }
}

}  // namespace
