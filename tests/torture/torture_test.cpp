// Allocation-failure torture: each case runs once to count the fallible calls
// (malloc, calloc, realloc, strdup, fopen, open, socket, pthread_create) that
// its library calls make, then once more per call with exactly that call
// failing. Every round must end in the documented result, leave no block
// (LeakSanitizer, checked per round) and no descriptor behind, and finish
// before the watchdog fires. Only calls made from libku and from the
// libraries whose failures libku passes on (json-c, libcurl) are failed:
// their own dependencies (OpenSSL, libc) are out of scope, as in curl's own
// torture runs.
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/emulator.h"
#include "support/nginx_server.h"
#include "support/open_fds.h"
#include "support/private_namespaces.h"
#include "support/test_ca.h"
#include "support/temp_dir.h"

#include "ku/circle_buf.h"
#include "ku/des.h"
#include "ku/dynamic_mem.h"
#include "ku/https.h"
#include "ku/ini.h"
#include "ku/json.h"
#include "ku/list.h"
#include "ku/log.h"
#include "ku/membuffer.h"
#include "ku/miniresample.h"
#include "ku/netif.h"
#include "ku/plugin.h"
#include "ku/socket.h"
#include "ku/str.h"
#include "ku/table.h"
#include "ku/thread.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#if defined(KU_TEST_ASAN)
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#define KU_TORTURE_LEAK_CHECK() (__lsan_do_recoverable_leak_check() != 0)
#else
#define KU_TORTURE_LEAK_CHECK() false
#endif

using ku_test::AllocControl;
using ku_test::read_file;
using ku_test::TempDir;

namespace {

const bool kInNamespaces = ku_test::enter_private_namespaces();

constexpr unsigned kWatchdogSeconds = 60;

// One round of a case: the library calls inside armed() are the ones that
// count, and the `target`-th of them (from 0) fails; -1 fails none.
class Round {
public:
    Round(AllocControl &control, long target, unsigned calls, ku_test::CaptureFd &out,
          ku_test::CaptureFd &err)
        : control_(control), target_(target), calls_(calls), out_(out), err_(err) {}

    template <typename Call>
    auto armed(Call call)
    {
        control_.reset();
        if (target_ >= seen_) {
            control_.fail(calls_, target_ - seen_, 1);
        }
        struct Disarm {
            Round &round;
            ~Disarm()
            {
                for (int kind = 0; kind < ku_test::kAllocCallKinds; kind++) {
                    round.kinds_[kind] += round.control_.count(round.calls_ & (1u << kind));
                }
                const long before = round.seen_;
                round.seen_ += round.control_.count(round.calls_);
                round.failed_last_ = round.target_ >= before && round.target_ < round.seen_;
                if (round.failed_last_) {
                    round.failed_kind_ = round.control_.last_failed();
                }
                round.control_.allow();
            }
        } disarm{*this};
        return call();
    }

    // Whether this round's failure happened (so the failure form is due).
    bool failed() const { return target_ >= 0 && target_ < seen_; }
    // Whether it happened in the last armed() call.
    bool failed_last() const { return failed_last_; }
    // The kind of call that failed (ku_test::kMalloc ...), 0 before.
    unsigned failed_kind() const { return failed_kind_; }
    long seen() const { return seen_; }
    const std::array<long, ku_test::kAllocCallKinds> &kinds() const { return kinds_; }
    // Standard output and error of the round; capturing ends at the first call.
    std::string out() const { return out_.finish(); }
    std::string err() const { return err_.finish(); }

private:
    AllocControl &control_;
    long target_;
    unsigned calls_;
    ku_test::CaptureFd &out_;
    ku_test::CaptureFd &err_;
    long seen_ = 0;
    bool failed_last_ = false;
    unsigned failed_kind_ = 0;
    std::array<long, ku_test::kAllocCallKinds> kinds_{};
};

struct Case {
    const char *family;
    const char *name;
    std::vector<const char *> scope;  // objects whose calls may fail
    unsigned calls;                   // the kinds of call that may fail
    std::function<void(Round &)> run;
    bool (*available)() = nullptr;  // null: always; else says whether it can run here
};

// A served document, its bytes and where the cases find it.
struct Web {
    TempDir dir;
    std::string body;
    std::unique_ptr<ku_test::NginxServer> nginx;
    bool tls = false;

    Web()
    {
        for (int i = 0; i < 3000; i++) {
            body += "line " + std::to_string(i) + " of the served document\n";
        }
        mkdir(dir.file("www").c_str(), 0755);
        dir.write("www/doc.txt", body);
        std::vector<ku_test::TlsIdentity> identities;
        if (kInNamespaces) {
            const ku_test::TestCa ca(dir.path(), "torture");
            if (ca.ok()) {
                identities = {ca.issue_server("torture-server")};
                const std::string bundle = dir.write("bundle.crt", read_file(ca.certificate()));
                tls = !identities[0].key.empty() &&
                      ku_test::bind_over(bundle, "/etc/ssl/certs/ca-certificates.crt");
            }
            if (!tls) {
                identities.clear();
            }
        }
        nginx = std::make_unique<ku_test::NginxServer>(dir.path(), dir.file("www"), identities);
    }
    std::string url(bool secure) const
    {
        return secure ? nginx->https_url(0, "/doc.txt") : nginx->http_url("/doc.txt");
    }
};

Web &web()
{
    static Web shared;
    return shared;
}

const char *round_name = "";
int report_fd = 2;  // the real standard error, for what must not be lost

void watchdog(int)
{
    // Only async-signal-safe calls here.
    const char head[] = "torture: round hangs: ";
    (void)!write(report_fd, head, sizeof head - 1);
    (void)!write(report_fd, round_name, strlen(round_name));
    (void)!write(report_fd, "\n", 1);
    _exit(3);
}

struct Summary {
    std::array<long, ku_test::kAllocCallKinds> kinds{};
    long cases = 0;
    long rounds = 0;
};

std::map<std::string, Summary> &summary()
{
    static std::map<std::string, Summary> table;
    return table;
}

// ---- Cases ------------------------------------------------------------------

const std::vector<const char *> kLibku = {"libku.so"};
const std::vector<const char *> kWithJson = {"libku.so", "libjson-c.so"};
const std::vector<const char *> kWithCurl = {"libku.so", "libcurl"};

std::string scratch(const std::string &name)
{
    static TempDir dir;
    return dir.file(name);
}

void write_file(const std::string &path, const std::string &bytes)
{
    FILE *file = fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    fwrite(bytes.data(), 1, bytes.size(), file);
    ASSERT_EQ(fclose(file), 0);
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

void *echo_thread(void *arg)
{
    return arg;
}

constexpr const char *kIni = "# settings\n[net]\nhost=a.example\nport=80\n[audio]\nrate=8000\n";
constexpr const char *kTable = "# rows\nalpha 1 2\nbeta 3\n\ngamma 4 5 6\n";
constexpr const char *kJson = R"({"name":"ku","list":[{"id":1},{"id":2}],"n":7})";

// A download's record against the served bytes, in memory or in `path`.
void check_download(const Round &round, const HttpsResponse *response, const std::string &path,
                    bool record_on_failure)
{
    const std::string &served = web().body;
    if (response == nullptr) {
        EXPECT_TRUE(round.failed());
        return;
    }
    std::string got = path.empty() ? std::string(response->body == nullptr ? "" : response->body,
                                                 response->body_length)
                                   : read_file(path);
    // What the record counts is what the caller finds, never more.
    EXPECT_EQ(got.size(), response->body_length);
    EXPECT_EQ(got, served.substr(0, got.size()));
    if (!round.failed() || !record_on_failure) {
        EXPECT_EQ(got.size(), served.size()) << "a record for a transfer that ended early";
        ASSERT_NE(response->header, nullptr);
        EXPECT_EQ(std::string(response->header).rfind("HTTP/1.1 200", 0), 0u);
    }
}

std::vector<Case> cases()
{
    std::vector<Case> all;
    auto add = [&all](const char *family, const char *name, const std::vector<const char *> &scope,
                      std::function<void(Round &)> run) {
        if (scope != kWithJson) {
            all.push_back({family, name, scope, ku_test::kAnyFallible, std::move(run)});
            return;
        }
        // json-c 0.16 does not check its own strdup of a key (it takes the
        // length of the null copy): its other calls fail in a second pass.
        all.push_back({family, name, kLibku, ku_test::kAnyFallible, run});
        all.push_back({family, name, scope, ku_test::kAnyFallible & ~ku_test::kStrdup, std::move(run)});
    };

    // Runtime.
    add("log", "long line takes a heap block", kLibku, [](Round &r) {
        const std::string text(1000, 'x');
        r.armed([&] { ku_err("%s\n", text.c_str()); });
        const bool line = r.err().find(text) != std::string::npos;
        EXPECT_NE(line, r.failed());
        EXPECT_EQ(r.out().empty(), !r.failed());
    });
    add("thread", "ku_thread_create", kLibku, [](Round &r) {
        int value = 5;
        const pthread_t thread = r.armed([&] { return ku_thread_create(echo_thread, &value); });
        EXPECT_EQ(thread == 0, r.failed());
        if (thread != 0) {
            EXPECT_EQ(ku_thread_join(thread), 0);
        } else {
            EXPECT_NE(r.err().find("pthread_create failed"), std::string::npos);
        }
    });
    add("thread", "kulock_init", kLibku, [](Round &r) {
        pthread_mutex_t *lock = r.armed([] { return kulock_init(); });
        EXPECT_EQ(lock == nullptr, r.failed());
        if (lock != nullptr) {
            EXPECT_EQ(kulock_enter(lock), 0);
            EXPECT_EQ(kulock_enter(lock), 0);
            kulock_leave(lock);
            kulock_leave(lock);
        }
        kulock_deinit(lock);
    });

    // Text.
    add("str", "ku_string_random", kLibku, [](Round &r) {
        char *token = r.armed([] { return ku_string_random(); });
        EXPECT_EQ(token == nullptr, r.failed());
        if (token != nullptr) {
            EXPECT_EQ(strspn(token, "0123456789abcdef"), strlen(token));
        }
        free(token);
    });
    add("des", "ku_des_encode3 and ku_des_decode3", kLibku, [](Round &r) {
        const char plain[] = "seventeen bytes!";
        unsigned char reference[24];
        ku_des_encode3(nullptr, plain, 17, reference);
        std::array<unsigned char, 24> out;
        out.fill(0xAA);
        r.armed([&] { ku_des_encode3(nullptr, plain, 17, out.data()); });
        const bool encoded = memcmp(out.data(), reference, 24) == 0;
        const bool untouched = std::all_of(out.begin(), out.end(), [](unsigned char b) { return b == 0xAA; });
        EXPECT_TRUE(r.failed() ? untouched : encoded);
        std::array<char, 24> back;
        back.fill('?');
        r.armed([&] { ku_des_decode3(nullptr, reference, 24, back.data()); });
        if (back[0] == '?') {
            EXPECT_TRUE(r.failed());
            EXPECT_TRUE(std::all_of(back.begin(), back.end(), [](char c) { return c == '?'; }));
        } else {
            EXPECT_STREQ(back.data(), plain);
        }
    });

    // Containers.
    add("membuffer", "str_alloc and growing appends", kLibku, [](Round &r) {
        char *copy = r.armed([] { return str_alloc("abc\0def", 7); });
        EXPECT_EQ(copy == nullptr, r.failed_last());
        if (copy != nullptr) {
            EXPECT_EQ(memcmp(copy, "abc\0def", 8), 0);
        }
        free(copy);
        membuffer buffer;
        membuffer_init(&buffer);
        std::string expected;
        for (const char *piece : {"first piece ", "a much longer second piece ", "x"}) {
            // A refused growth is tried again at the exact size, so one
            // failure alone never fails the call.
            EXPECT_EQ(r.armed([&] { return membuffer_append_str(&buffer, piece); }), 0);
            expected += piece;
            EXPECT_EQ(std::string(buffer.data, buffer.length), expected);
        }
        EXPECT_EQ(r.armed([&] { return membuffer_insert(&buffer, "<", 1, 0); }), 0);
        EXPECT_EQ(std::string(buffer.data, buffer.length), "<" + expected);
        const std::string longer(200, 'z');
        EXPECT_EQ(r.armed([&] { return membuffer_assign_str(&buffer, longer.c_str()); }), 0);
        EXPECT_EQ(std::string(buffer.data, buffer.length), longer);
        membuffer_destroy(&buffer);
    });
    add("circle_buf", "circle_buf_init and init_from_mem", kLibku, [](Round &r) {
        ku_circle_buf *ring = r.armed([] { return circle_buf_init(64); });
        if (ring != nullptr) {
            EXPECT_EQ(circle_buf_write(ring, "abcd", 4), 4);
            char got[4];
            EXPECT_EQ(circle_buf_read(ring, got, 4), 4);
            EXPECT_EQ(memcmp(got, "abcd", 4), 0);
        }
        circle_buf_free(ring);
        ku_circle_buf_state state{0, 0, 0, 16, 0};
        char storage[16];
        ku_circle_buf *over = r.armed([&] { return circle_buf_init_from_mem(&state, storage); });
        EXPECT_EQ(ring == nullptr || over == nullptr, r.failed());
        if (over != nullptr) {
            EXPECT_EQ(circle_buf_write(over, "xy", 2), 2);
            EXPECT_EQ(state.readable, 2);
        }
        circle_buf_free(over);
    });
    add("dynamic_mem", "dynamic_mem_init and inputs", kLibku, [](Round &r) {
        ku_dynamic_mem *mem = r.armed([] { return dynamic_mem_init(8, 40); });
        if (mem == nullptr) {
            EXPECT_TRUE(r.failed());
            return;
        }
        // The documented model: the last input reaches the limit and clears.
        std::string content;
        int32_t used = 0;
        for (const char *piece : {"0123", "456789abcdef", "ghijklmnopqrstuvwxyz", "0123456789"}) {
            const auto length = static_cast<int32_t>(strlen(piece));
            const bool fresh = mem->buffer == nullptr || used + length >= mem->limit;
            r.armed([&] { return dynamic_mem_input(mem, piece, length); });
            if (fresh) {
                content.clear();
                used = 0;
            }
            if (r.failed_kind() == ku_test::kCalloc && r.failed_last()) {
                used = 0;  // the fresh buffer is missing: the input is dropped
            } else if (r.failed_kind() == ku_test::kRealloc && r.failed_last()) {
                used += length;  // the content is lost, its length counted
                content.clear();
            } else {
                used += length;
                content += piece;
            }
            ASSERT_EQ(mem->used, used) << piece;
            if (r.failed_last()) {
                EXPECT_EQ(mem->buffer, nullptr);
                EXPECT_EQ(mem->capacity, 0);
            } else {
                ASSERT_NE(mem->buffer, nullptr);
                EXPECT_LT(mem->used, mem->capacity);
                EXPECT_EQ(std::string(mem->buffer, static_cast<size_t>(mem->used)), content);
            }
        }
        dynamic_mem_free(mem);
    });
    add("list", "ku_list_init and appends", kLibku, [](Round &r) {
        ku_list *list = r.armed([] { return ku_list_init(); });
        EXPECT_EQ(list == nullptr, r.failed());
        int items[3] = {1, 2, 3};
        std::vector<void *> queued;
        for (int &item : items) {
            EXPECT_EQ(r.armed([&] { return ku_list_append(list, &item); }), 0);
            if (list != nullptr && !r.failed_last()) {
                queued.push_back(&item);
            }
        }
        EXPECT_EQ(ku_list_size(list), queued.size());
        for (void *item : queued) {
            EXPECT_EQ(ku_list_pop(list), item);
        }
        ku_list_deinit(list);
    });

    // Structured files.
    add("json", "documents: load, create, save", kWithJson, [](Round &r) {
        const std::string path = scratch("doc.json");
        write_file(path, kJson);
        // A failed copy of the path still gives a document, without a path.
        ku_json_doc *doc = r.armed([&] { return ku_json_load_from_file(path.c_str()); });
        EXPECT_TRUE(doc != nullptr || r.failed_last());
        EXPECT_EQ(ku_json_get_int(doc, "n"), doc == nullptr ? 0 : 7);
        ku_json_destroy(doc);
        ku_json_doc *parsed = r.armed([] { return ku_json_load_from_buf(kJson); });
        EXPECT_TRUE(parsed != nullptr || r.failed_last());
        EXPECT_EQ(ku_json_array_get_num(parsed, "list"), parsed == nullptr ? 0 : 2);
        ku_json_destroy(parsed);
        ku_json_doc *made = r.armed([] { return ku_json_create(); });
        if (made == nullptr) {
            EXPECT_TRUE(r.failed_last());
            return;
        }
        const std::string target = scratch("made.json");
        write_file(target, "{\"old\":1}");
        const bool tree = ku_json_set_obj(made, "data", kJson) == 0;
        const int saved = r.armed([&] { return ku_json_file_save(made, target.c_str()); });
        if (saved == 0) {
            EXPECT_EQ(read_file(target), "{\"data\":" + std::string(kJson) + "}");
        } else {
            EXPECT_TRUE(r.failed_last() || !tree);
            EXPECT_EQ(read_file(target), "{\"old\":1}") << "a failed save emptied the file";
        }
        ku_json_destroy(made);
        const int read = r.armed([&] { return json_file_get_int(path.c_str(), "n"); });
        EXPECT_TRUE(read == 7 || (read == 0 && r.failed_last()));
        const int buffered = r.armed([] { return json_buf_get_int(kJson, "n"); });
        EXPECT_TRUE(buffered == 7 || (buffered == 0 && r.failed_last()));
    });
    add("json", "fields: writers, copies, array setters", kWithJson, [](Round &r) {
        ku_json_doc *doc = ku_json_load_from_buf(kJson);
        ASSERT_NE(doc, nullptr);
        // A failed writer leaves the old value, or none when json-c could
        // not store the new entry after the old one was deleted.
        auto expect_set = [&r, doc](int result, const char *key, const char *text) {
            const char *now = ku_json_get_string(doc, key);
            if (result == 0) {
                EXPECT_STREQ(now, text) << key;
                return;
            }
            EXPECT_TRUE(r.failed_last()) << key;
            ku_json_doc *before = ku_json_load_from_buf(kJson);
            const char *old = ku_json_get_string(before, key);
            EXPECT_TRUE(now == nullptr || (old != nullptr && strcmp(now, old) == 0)) << key << ": " << now;
            ku_json_destroy(before);
        };
        expect_set(r.armed([&] { return ku_json_set_string(doc, "name", "libku"); }), "name", "libku");
        expect_set(r.armed([&] { return ku_json_set_int(doc, "n", 8); }), "n", "8");
        expect_set(r.armed([&] { return ku_json_set_int64(doc, "big", 1LL << 40); }), "big", "1099511627776");
        expect_set(r.armed([&] { return ku_json_set_obj(doc, "obj", "{\"a\":[1,2]}"); }), "obj",
                   "{ \"a\": [ 1, 2 ] }");
        char *copy = r.armed([&] { return ku_json_dup_string(doc, "n"); });
        EXPECT_TRUE(copy != nullptr || r.failed());
        free(copy);
        char *text = r.armed([&] { return ku_json_string_dup(doc); });
        EXPECT_TRUE(text != nullptr || r.failed_last());
        free(text);
        const char *ref = r.armed([&] { return ku_json_string_ref(doc); });
        EXPECT_TRUE(ref != nullptr || r.failed_last());
        char *spaced = r.armed([&] { return ku_json_obj_dup_obj_string(ku_json_get_obj(doc, "list")); });
        EXPECT_TRUE(spaced != nullptr || r.failed_last());
        free(spaced);
        const int set_old = r.armed([&] { return ku_json_array_set_int(doc, "list", 1, "id", 5); });
        EXPECT_TRUE(set_old == 0 || r.failed());
        EXPECT_EQ(ku_json_obj_get_int(ku_json_array_get_obj(doc, "list", 1), "id"), set_old == 0 ? 5 : 2);
        const int added = r.armed([&] { return ku_json_array_set_string(doc, "list", 9, "id", "x"); });
        EXPECT_EQ(ku_json_array_get_num(doc, "list"), added == 0 ? 3 : 2);
        const int fresh = r.armed([&] { return ku_json_array_set_int(doc, "new", 0, "v", 1); });
        EXPECT_EQ(ku_json_array_get_num(doc, "new"), fresh == 0 ? 1 : 0);
        EXPECT_EQ(ku_json_is_key_exist(doc, "new"), fresh == 0 ? 1 : 0) << "a failed setter left a key";
        EXPECT_TRUE((added == 0 && fresh == 0) || r.failed());
        ku_json_destroy(doc);
    });
    add("table", "load, edit and save", kLibku, [](Round &r) {
        const std::string path = scratch("rows.txt");
        write_file(path, kTable);
        kutable *table = r.armed([&] { return kutable_load(path.c_str()); });
        if (table == nullptr) {
            EXPECT_TRUE(r.failed());
            EXPECT_NE(r.err().find("ERR: "), std::string::npos);
            return;
        }
        ASSERT_EQ(kutable_row_number(table), 3);
        EXPECT_STREQ(kutable_get(table, 2, 3), "6");
        const int set = r.armed([&] { return kutable_set(table, 1, 1, "three and more"); });
        EXPECT_STREQ(kutable_get(table, 1, 1), set == 0 ? "three and more" : "3");
        const int appended = r.armed([&] { return kutable_append(table, "delta 7"); });
        EXPECT_EQ(kutable_row_number(table), appended == 0 ? 4 : 3);
        EXPECT_TRUE((set == 0 && appended == 0) || r.failed());
        const int saved = r.armed([&] { return kutable_save(table); });
        std::string expected = "alpha 1 2 \nbeta " + std::string(set == 0 ? "three and more" : "3") +
                               " \ngamma 4 5 6 \n" + (appended == 0 ? "delta 7 \n" : "");
        if (saved == 0) {
            EXPECT_EQ(read_file(path), expected);
        } else {
            EXPECT_TRUE(r.failed());
            EXPECT_EQ(read_file(path), kTable) << "a failed save changed the file";
        }
        kutable_close(table);
    });
    add("ini", "read and replace a key", kLibku, [](Round &r) {
        const std::string path = scratch("set.ini");
        write_file(path, kIni);
        const int port = r.armed([&] { return GetIniKeyInt("net", "port", path.c_str()); });
        EXPECT_EQ(port, r.failed_last() ? 0 : 80);
        const int put = r.armed([&] { return PutIniKeyString("net", "host", "b.example", path.c_str()); });
        const std::string replaced = "# settings\n[net]\nhost=b.example\nport=80\n[audio]\nrate=8000\n";
        if (put == 0) {
            EXPECT_EQ(read_file(path), replaced);
        } else {
            EXPECT_TRUE(r.failed());
            EXPECT_EQ(read_file(path), kIni) << "a failed rewrite touched the original";
            EXPECT_NE(r.err().find("Fail to open INI"), std::string::npos);
        }
        EXPECT_FALSE(exists(path + ".tmp"));
        const int put_int = r.armed([&] { return PutIniKeyInt("audio", "rate", 16000, path.c_str()); });
        const std::string current = read_file(path);
        if (put_int == 0) {
            EXPECT_NE(current.find("rate=16000\n"), std::string::npos);
        } else {
            EXPECT_TRUE(r.failed_last());
            EXPECT_EQ(current, put == 0 ? replaced : std::string(kIni));
        }
        EXPECT_FALSE(exists(path + ".tmp"));
    });

    // Network.
    add("netif", "interface queries on lo", kLibku, [](Round &r) {
        uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
        const int got_mac = r.armed([&] { return ku_get_mac("lo", mac); });
        EXPECT_EQ(got_mac, r.failed_last() ? -1 : 0);
        EXPECT_EQ(mac[0], r.failed_last() ? 9 : 0);
        const uint32_t ip = r.armed([] { return ku_get_ip("lo"); });
        EXPECT_EQ(ip, r.failed_last() ? 0u : inet_addr("127.0.0.1"));
        const int local = r.armed([] { return ku_is_local_ip(inet_addr("192.0.2.1")); });
        EXPECT_EQ(local, r.failed_last() ? 1 : 0);
    });
    add("socket", "TCP server and client", kLibku, [](Round &r) {
        const int server = r.armed([] { return ku_socket_tcps(0); });
        EXPECT_EQ(server < 0, r.failed());
        ku_socket_close(server);
        const int listener = ku_socket_tcps(0);
        ASSERT_GE(listener, 0);
        sockaddr_in address{};
        socklen_t length = sizeof address;
        ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length), 0);
        const int client = r.armed([&] { return ku_socket_tcpc(inet_addr("127.0.0.1"), ntohs(address.sin_port)); });
        EXPECT_EQ(client < 0, r.failed_last());
        ku_socket_close(client);
        ku_socket_close(listener);
    });
    add("socket", "local datagrams", kLibku, [](Round &r) {
        const std::string path = scratch("dgram.sock");
        const int receiver = r.armed([&] { return ku_sock_local_create(path.c_str()); });
        EXPECT_EQ(receiver < 0, r.failed());
        if (receiver < 0) {
            EXPECT_NE(r.err().find("ERR: "), std::string::npos);
            return;
        }
        const int sent = r.armed([&] { return ku_sock_local_send(path.c_str(), "ping", 4); });
        EXPECT_EQ(sent, r.failed() ? -1 : 4);
        EXPECT_EQ(r.err().find("ERR: ") != std::string::npos, r.failed());
        char got[8];
        EXPECT_EQ(recv(receiver, got, sizeof got, MSG_DONTWAIT), sent == 4 ? 4 : -1);
        ku_socket_close(receiver);
        unlink(path.c_str());
    });
    for (const bool secure : {false, true}) {
        const char *request_name = secure ? "HttpsRequest over TLS" : "HttpsRequest over HTTP";
        add("https", request_name, kWithCurl, [secure](Round &r) {
            char headers[] = "X-One: 1\r\nX-Two: 2";
            HttpsResponse *response = r.armed(
                [&] { return HttpsRequest(web().url(secure).c_str(), headers, nullptr, nullptr, 10); });
            check_download(r, response, "", false);
            HttpsFreeResponse(response);
        });
        if (secure) {
            all.back().available = [] { return web().tls; };
        }
    }
    add("https", "HttpsRequest to a save file", kWithCurl, [](Round &r) {
        const std::string path = scratch("saved.bin");
        HttpsResponse *response = r.armed(
            [&] { return HttpsRequest(web().url(false).c_str(), nullptr, nullptr, path.c_str(), 10); });
        check_download(r, response, path, false);
        if (response != nullptr) {
            EXPECT_EQ(response->body, nullptr);
        }
        if (r.failed_kind() == ku_test::kFopen) {
            EXPECT_EQ(response, nullptr);
            EXPECT_EQ(r.err(), "HttpsRequest create " + path + " failed\n");
        }
        HttpsFreeResponse(response);
    });
    add("https", "HttpsRequestNonBlock to memory", kWithCurl, [](Round &r) {
        char headers[] = "X-One: 1\r\nX-Two: 2";
        HttpsResponse *response = r.armed(
            [&] { return HttpsRequestNonBlock(web().url(false).c_str(), headers, nullptr, nullptr); });
        check_download(r, response, "", true);
        HttpsFreeResponse(response);
    });
    add("https", "HttpsRequestNonBlock to a save file", kWithCurl, [](Round &r) {
        const std::string path = scratch("nonblock.bin");
        HttpsOption option{};
        option.save_path = path.c_str();
        option.time_limit = 20;
        option.total_size = static_cast<uint32_t>(web().body.size());
        HttpsResponse *response = r.armed(
            [&] { return HttpsRequestNonBlock(web().url(false).c_str(), nullptr, nullptr, &option); });
        check_download(r, response, path, true);
        if (response != nullptr) {
            EXPECT_EQ(option.done_size, response->body_length);
        }
        if (r.failed_kind() == ku_test::kFopen) {
            EXPECT_EQ(response, nullptr);
            EXPECT_EQ(r.err(), "HttpsRequestNonBlock create " + path + " failed\n");
        }
        HttpsFreeResponse(response);
    });

    // Audio and plug-ins.
    add("miniresample", "init and blocks", kLibku, [](Round &r) {
        std::array<int16_t, 64> input{};
        for (size_t i = 0; i < input.size(); i++) {
            input[i] = static_cast<int16_t>(i * 100);
        }
        ku_miniresample *reference = miniresample_init(16000, 8000, 2, 1);
        ASSERT_NE(reference, nullptr);
        std::array<int16_t, 64> expected{};
        int32_t expected_size = 0;
        ASSERT_EQ(miniresample_process(reference, input.data(), 128, expected.data(), &expected_size), 0);
        miniresample_deinit(reference);
        ku_miniresample *resampler = r.armed([] { return miniresample_init(16000, 8000, 2, 1); });
        EXPECT_EQ(resampler == nullptr, r.failed());
        std::array<int16_t, 64> output{};
        int32_t size = -1;
        const int result = r.armed([&] { return miniresample_process(resampler, input.data(), 128, output.data(), &size); });
        EXPECT_EQ(result, r.failed() ? -1 : 0);
        if (result != 0 && resampler != nullptr) {
            EXPECT_EQ(size, 0);
            // The stream is as it was: the same block now gives the output
            // it would have given.
            ASSERT_EQ(miniresample_process(resampler, input.data(), 128, output.data(), &size), 0);
        }
        if (resampler != nullptr) {
            EXPECT_EQ(size, expected_size);
            EXPECT_EQ(output, expected);
        }
        miniresample_deinit(resampler);
    });
    add("plugin", "ku_plugin_create", kLibku, [](Round &r) {
        ku_plugin *plugin = r.armed([] { return ku_plugin_create(KU_TORTURE_PLUGIN_DIR, "kutest_", "good"); });
        EXPECT_EQ(plugin == nullptr, r.failed());
        if (plugin == nullptr) {
            EXPECT_NE(r.err().find("ku_plugin_create malloc failed"), std::string::npos);
        } else {
            EXPECT_NE(plugin->ops, nullptr);
        }
        ku_plugin_destroy(plugin);
    });
    return all;
}

// ---- Driver -----------------------------------------------------------------

class Torture : public ::testing::TestWithParam<std::string> {};

// Runs one round; false when it failed a check, so that the caller stops.
bool run_round(const Case &c, long target, std::array<long, ku_test::kAllocCallKinds> *kinds,
               long *seen)
{
    const std::string name = std::string(c.family) + " / " + c.name + " / round " +
                             (target < 0 ? std::string("counting") : std::to_string(target + 1));
    SCOPED_TRACE(name);
    round_name = name.c_str();
    const int fds = ku_test::open_fd_count();
    AllocControl control;
    {
        ku_test::CaptureStdout out;
        ku_test::CaptureStderr err;
        Round round(control, target, c.calls, out, err);
        alarm(kWatchdogSeconds);
        c.run(round);
        alarm(0);
        // The checks' messages went to the captured output with the round's.
        const std::string output = out.finish() + err.finish();
        if (::testing::Test::HasFailure()) {
            fwrite(output.data(), 1, output.size(), stdout);
        }
        if (kinds != nullptr) {
            *kinds = round.kinds();
        }
        *seen = round.seen();
    }
    EXPECT_EQ(ku_test::open_fd_count(), fds) << "descriptors left open";
    // A leak is reported again at every later check: the first one counts.
    static bool leaked = false;
    if (!leaked && KU_TORTURE_LEAK_CHECK()) {
        leaked = true;
        ADD_FAILURE() << "memory leaked (report above); no more leak checks in this run";
    }
    return !::testing::Test::HasFailure();
}

TEST_P(Torture, EveryFallibleCallFailsOnce)
{
    ASSERT_TRUE(AllocControl::effective()) << "the allocator is replaced: no failure injection";
    for (const Case &c : cases()) {
        if (GetParam() != c.family) {
            continue;
        }
        AllocControl::only_callers_in(c.scope);
        if (c.available != nullptr && !c.available()) {
            printf("not run here: %s / %s (no private namespaces for the test CA)\n", c.family, c.name);
            continue;
        }
        long seen = 0;
        std::array<long, ku_test::kAllocCallKinds> kinds{};
        // The first run lets one-time set-up (libcurl's, the TLS library's)
        // happen, the second counts.
        ASSERT_TRUE(run_round(c, -1, nullptr, &seen));
        ASSERT_TRUE(run_round(c, -1, &kinds, &seen));
        Summary &row = summary()[c.family];
        row.cases++;
        for (int kind = 0; kind < ku_test::kAllocCallKinds; kind++) {
            row.kinds[kind] += kinds[kind];
        }
        EXPECT_GT(seen, 0) << c.name << ": no fallible call found";
        for (long target = 0; target < seen; target++) {
            long replayed = 0;
            row.rounds++;
            ASSERT_TRUE(run_round(c, target, nullptr, &replayed));
            // How often a transfer's callbacks run (and grow a buffer) depends
            // on how the bytes arrive: a replay may make fewer calls.
            if (replayed <= target) {
                printf("%s / %s: %ld calls this time, rounds from %ld on not run\n", c.family,
                       c.name, replayed, replayed + 1);
                break;
            }
        }
        AllocControl::only_callers_in({});
    }
}

std::vector<std::string> families()
{
    std::vector<std::string> names;
    for (const Case &c : cases()) {
        if (names.empty() || names.back() != c.family) {
            names.emplace_back(c.family);
        }
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(Families, Torture, ::testing::ValuesIn(families()),
                         [](const ::testing::TestParamInfo<std::string> &info) { return info.param; });

// Prints the table of fallible calls and rounds per family at the end.
class SummaryPrinter : public ::testing::Environment {
public:
    void TearDown() override
    {
        static const char *const kNames[] = {"malloc", "calloc", "realloc", "strdup",
                                             "fopen", "open", "socket", "thread"};
        printf("\n%-13s %5s", "family", "cases");
        for (const char *kind : kNames) {
            printf(" %7s", kind);
        }
        printf(" %7s %7s\n", "calls", "rounds");
        Summary total;
        auto print = [](const std::string &family, const Summary &row) {
            long calls = 0;
            printf("%-13s %5ld", family.c_str(), row.cases);
            for (long count : row.kinds) {
                printf(" %7ld", count);
                calls += count;
            }
            printf(" %7ld %7ld\n", calls, row.rounds);
        };
        for (const auto &[family, row] : summary()) {
            print(family, row);
            for (int kind = 0; kind < ku_test::kAllocCallKinds; kind++) {
                total.kinds[kind] += row.kinds[kind];
            }
            total.cases += row.cases;
            total.rounds += row.rounds;
        }
        print("all", total);
    }
};

const auto *const kSummary = ::testing::AddGlobalTestEnvironment(new SummaryPrinter);

}  // namespace

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    // Shared fixtures are made before the first round counts descriptors.
    scratch("");
    web();
    // Sanitizer reports of a round go where they are seen, not to its files.
    report_fd = fcntl(2, F_DUPFD_CLOEXEC, 10);
#if defined(KU_TEST_ASAN)
    __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(report_fd)));
#endif
    signal(SIGALRM, watchdog);
    signal(SIGPIPE, SIG_IGN);
    return RUN_ALL_TESTS();
}
