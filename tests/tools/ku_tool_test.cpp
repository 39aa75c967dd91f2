// The ku tool as a shell user meets it: each command's output, exit status
// and one-line error, run from a private directory; servers on 127.0.0.1.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <thread>

#include "ku_tool.h"
#include "support/emulator.h"
#include "support/private_namespaces.h"
#include "support/script_server.h"

namespace {

using ku_test::answer_with;
using ku_test::each_fails;
using ku_test::ku;
using ku_test::read_file;
using ku_test::run_process;
using ku_test::ScriptServer;
using ku_test::Step;
using KuTool = ku_test::KuTool;

// Inside, a failed name lookup cannot reach any resolver off the machine.
const bool kInNamespaces = ku_test::enter_private_namespaces();
const std::string kStamp = R"(\[[0-9]{4}-[0-9]{2}-[0-9]{2}#[0-9]{2}:[0-9]{2}:[0-9]{2}#[0-9]+\])";
const auto npos = std::string::npos;

// Waits for what a child does; the bound only ends a hang.
bool eventually(const std::function<bool()> &done)
{
    for (int i = 0; i < 3000 && !done(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done();
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

std::string le(uint32_t value, int size)
{
    std::string bytes;
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 0xff);
    return bytes;
}

std::string pcm(const std::vector<int> &samples)
{
    std::string bytes;
    for (const int sample : samples)
        bytes += le(static_cast<uint32_t>(sample), 2);
    return bytes;
}

std::string wav(uint32_t rate, uint32_t channels, uint32_t bits, const std::string &data)
{
    const auto size = static_cast<uint32_t>(data.size());
    return "RIFF" + le(36 + size, 4) + "WAVEfmt " + le(16, 4) + le(1, 2) + le(channels, 2) +
           le(rate, 4) + le(rate * channels * bits / 8, 4) + le(channels * bits / 8, 2) +
           le(bits, 2) + "data" + le(size, 4) + data;
}

TEST_F(KuTool, HelpListsEveryCommandAndEachGivesItsUsage)
{
    const auto help = ku({"-h"});
    EXPECT_EQ(help.status, 0);
    for (const std::string name : {"str", "b64", "hex", "des", "json", "table", "ini", "fetch",
                                   "resample", "net", "sock", "plugin", "mdns", "lock", "log", "clock"}) {
        EXPECT_NE(help.out.find("\n  " + name + " "), npos) << name;
        EXPECT_EQ(ku({name, "--help"}).out.rfind("usage: ku " + name + " ", 0), 0u) << name;
    }
    const auto bare = ku({}), unknown = ku({"frobnicate"}), version = ku({"--version"});
    EXPECT_EQ(bare.status, 2);
    EXPECT_EQ(bare.err.rfind("usage: ku COMMAND", 0), 0u) << bare.err;
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "ku: unknown command 'frobnicate' (try 'ku --help')\n");
    EXPECT_TRUE(std::regex_match(version.out, std::regex("ku [0-9]+\\.[0-9]+\\.[0-9]+\n")));
    EXPECT_EQ(ku({"--version", "x"}).status, 2);
}

TEST_F(KuTool, LogWritesOneStampedLine)
{
    run({{{"ku", "log", "err", "disk", "full", "on /data"}, 0, "", kStamp + "ERR:  disk full on /data\n"},
         {{"ku", "log", "error", "x"}, 0, "", kStamp + "ERR:  x\n"},
         {{"ku", "log", "debug", "100%", "%s%n"}, 0, "", kStamp + "DBG:  100% %s%n\n"},
         {{"ku", "log", "trace", "-5", "-1.5", "-"}, 0, "", kStamp + "  -5 -1.5 -\n"},
         {{"ku", "log", "--", "err", "--help"}, 0, "", kStamp + "ERR:  --help\n"},
         {{"ku", "log", "trace", std::string(8127, 'x')}, 1, "", "too long"},
         each_fails("log", {"warning x", "err", "", "--loud err x"})});
    // The log carries at most 8127 characters; the newline is one of them.
    const auto longest = ku({"log", "trace", std::string(8126, 'x')});
    EXPECT_EQ(longest.status, 0);
    EXPECT_EQ(longest.err.size() - longest.err.find("]  ") - 3, 8127u);
}

TEST_F(KuTool, ClockAndTokenTellTheTime)
{
    const time_t before = time(nullptr);
    const auto clock = ku({"clock", "--zone", "2"});
    const time_t after = time(nullptr);
    std::smatch m;
    ASSERT_TRUE(std::regex_match(clock.out, m, std::regex("monotonic_s ([0-9]+)\nmonotonic_ms ([0-9]+)\n"
        "monotonic_us ([0-9]+)\nmonotonic_ns ([0-9]+)\nutc ([0-9]+) (.*)\nlocal ([0-9]+) .*\n")))
        << clock.out;
    EXPECT_LE(std::stoll(m[1]), std::stoll(m[2]) / 1000 + 1);
    EXPECT_LE(std::stoll(m[2]), std::stoll(m[3]) / 1000 + 1);  // milliseconds round to nearest
    EXPECT_LE(std::stoll(m[3]), std::stoll(m[4]) / 1000);
    const time_t utc = std::stoll(m[5]);
    EXPECT_TRUE(utc >= before && utc <= after) << utc;
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime(&utc));
    EXPECT_EQ(m[6].str(), text);
    // Two hours ahead, in the library's single-precision steps of 128 s.
    EXPECT_NEAR(std::stod(m[7]) - static_cast<double>(utc), 7200.0, 128.0);
    const auto token = ku({"str", "token"});
    EXPECT_TRUE(std::regex_match(token.out, std::regex("[0-9a-f]{1,16}\n"))) << token.out;
    EXPECT_NE(ku({"str", "token"}).out, token.out);
    run({each_fails("clock", {"--zone east", "--zone 25", "now"})});
}

TEST_F(KuTool, StrChangesEachLineAndKeepsLineEnds)
{
    const std::string text = "  Mixed Case \u00e9 \n\tTabbed \n  last line  ";
    run({{{"ku", "str", "upper"}, 0, "  MIXED CASE \u00e9 \n\tTABBED \n  LAST LINE  ", "", text},
         {{"ku", "str", "lower"}, 0, "  mixed case \u00e9 \n\ttabbed \n  last line  ", "", text},
         // Only spaces are blanks: the tab stays.
         {{"ku", "str", "trim"}, 0, "Mixed Case \u00e9\n\tTabbed\nlast line", "", text},
         {{"ku", "str", "upper"}, 1, "", "zero byte", std::string("a\0b", 3)},
         each_fails("str", {"reverse", ""})});
}

TEST_F(KuTool, Base64AndHexGiveExactBytes)
{
    run({{{"ku", "b64", "encode"}, 0, "Zm9vYmFy\n", "", "foobar"},
         {{"ku", "b64", "encode"}, 0, "Zm8=\n", "", "fo"},
         {{"ku", "b64", "encode"}, 0, "\n"},
         {{"ku", "b64", "decode"}, 0, "foobar", "", "Zm9v\r\nYm\tFy  \n"},
         {{"ku", "b64", "decode"}, 0, ""},
         {{"sh", "-c", "for t in 'Zm9v!' Zm9vY Zg= =Zm9 Zg==Zg== Zh==; do printf %s $t | ku b64 decode; "
                       "echo $?; done"}, 0, "1\n1\n1\n1\n1\n1\n", "(ku b64: input is not valid Base64\n){6}"},
         {{"ku", "b64", "decode"}, 1, "", "zero byte", std::string("Zm9v\0YmFy", 9)},
         // Padding ends the first 64 KiB chunk and a group follows in the next:
         // the first chunk's byte is out already when the fault shows.
         {{"ku", "b64", "decode"}, 1, "f", "not valid", std::string(65532, ' ') + "Zg==Zg=="},
         {{"ku", "hex", "encode"}, 0, "00AB7F\n", "", std::string("\0\xab\x7f", 3)},
         {{"ku", "hex", "decode"}, 0, std::string("\0\xab\xcd\xef", 4), "", "00ab\nCD ef\n"},
         // A digit pair split by the chunks.
         {{"ku", "hex", "decode"}, 0, "\x0a\xb1", "", std::string(65535, ' ') + "0ab1"},
         // The library's digit rule would read ':' as 10; a user meant no such thing.
         {{"sh", "-c", "for t in abc 0g 1:; do printf %s $t | ku hex decode; echo $?; done"}, 0,
          "1\n1\n1\n", "(ku hex: .*\n){3}"},
         each_fails("b64", {"", "encrypt", "encode extra", "--wrap encode"}),
         each_fails("hex", {"", "decode extra"})});
}

TEST_F(KuTool, DesSealsWholeBlocks)
{
    const std::string key = "0123456789abcdeffedcba987654321089abcdef01234567";
    const std::string key_enc = "3ca957e106d48b72912ef04d68b71ac53ca957e106d48b72";  // the default
    run({{{"sh", "-c", "for t in '' 1234567 12345678; do printf %s \"$t\" | ku des encrypt | wc -c; done"},
          0, "8\n8\n16\n"},
         // The codec cannot keep zero bytes at the end.
         {{"sh", "-c", "printf 'a\\0b\\377x' | ku des encrypt -k " + key + " | ku des decrypt --key=" + key},
          0, std::string("a\0b\377x", 5)},
         {{"sh", "-c", "printf abc | ku des encrypt | ku des decrypt --raw"}, 0, std::string("abc\0\0\0\0\0", 8)},
         {{"sh", "-c", "printf secret | ku des encrypt > a; printf secret | ku des encrypt -k " + key_enc +
                       " | cmp - a"}},
         {{"sh", "-c", "printf 'attack at dawn!\\0' | openssl enc -des-ede3 -nopad -K " + key +
                       " > o; printf 'attack at dawn!' | ku des encrypt --key " + key + " | cmp - o"}},
         {{"ku", "des", "decrypt"}, 1, "", "not whole 8-byte blocks", "123456789"},
         each_fails("des", {"encrypt --key abcd", "encrypt --key " + key.substr(0, 47) + "g",
                            "encrypt --key", "seal"})});
}

TEST_F(KuTool, JsonReadsDottedPaths)
{
    dir.write("c.json", R"({"name": "box", "port": 8080, "url": "http://a/b", "n": null,
        "server": {"host": "10.0.0.2", "limits": {"clients": 4}},
        "hosts": [{"addr": "10.0.0.3"}, {"addr": "10.0.0.4"}]})");
    dir.write("p.json", R"({ "a" : 1,  "b": [true, null], "e": {}, "f": [], "g": "q\",{[:/" })");
    dir.write("l.json", R"([10, {"k": "v"}])");
    dir.write("broken.json", "{\"a\": ");
    run({{{"ku", "json", "print", "p.json"}, 0, R"({"a":1,"b":[true,null],"e":{},"f":[],"g":"q\",{[:/"})" "\n"},
         {{"ku", "json", "print", "p.json", "b"}, 0, "[true,null]\n"},
         {{"ku", "json", "print", "--pretty", "p.json"}, 0,
          "{\n  \"a\": 1,\n  \"b\": [\n    true,\n    null\n  ],\n  \"e\": {},\n  \"f\": [],\n"
          "  \"g\": \"q\\\",{[:/\"\n}\n"},
         {{"ku", "json", "get", "c.json", "name"}, 0, "box\n"},
         {{"ku", "json", "get", "c.json", "url"}, 0, "http://a/b\n"},
         {{"ku", "json", "get", "c.json", "port"}, 0, "8080\n"},
         {{"ku", "json", "get", "c.json", "server.limits"}, 0, "{\"clients\":4}\n"},
         {{"ku", "json", "get", "c.json", "hosts.1.addr"}, 0, "10.0.0.4\n"},
         {{"ku", "json", "get", "l.json", "0"}, 0, "10\n"},
         {{"ku", "json", "get", "l.json", "1.k"}, 0, "v\n"},
         {{"ku", "json", "print", "absent.json"}, 1, "", "absent.json: No such file or directory"},
         each_fails("json", {"get c.json x", "get c.json n", "get c.json hosts.2", "get c.json hosts.x",
                             "get c.json port.x", "print c.json zz", "get broken.json a",
                             "set broken.json a 1", "del absent.json a"}, 1),
         {{"cat", "broken.json"}, 0, "{\"a\": "},
         each_fails("json", {"", "show c.json", "get c.json", "set c.json a", "get c.json a..b",
                             "get --string c.json a", "get --pretty c.json a"})});
}

TEST_F(KuTool, JsonSetAndDelSaveTheFile)
{
    dir.write("s.json", R"({"a": 1, "b": 2, "l": [1, 2], "o": {"p": 1, "q": 2}})");
    run({{{"sh", "-c", "ku json set s.json n 42 && ku json set s.json f -1.5 && ku json set s.json t true"
                       " && ku json set s.json j '{\"x\": [1]}' && ku json set s.json s 'hello world'"
                       " && ku json set s.json q '\"quoted\"' && ku json set --string s.json z 42"
                       " && ku json set s.json a 7 && ku json del s.json o.p && ku json del s.json l"}},
         // A replaced key moves behind the others; '/' stays bare.
         {{"cat", "s.json"}, 0, R"({"b":2,"o":{"q":2},"n":42,"f":-1.5,"t":true,"j":{"x":[1]},)"
                                R"("s":"hello world","q":"quoted","z":"42","a":7})"},
         each_fails("json", {"set s.json k null", "set s.json k {broken", "set s.json o.q.x 3",
                             "del s.json l", "del s.json o.x"}, 1),
         {{"ku", "json", "set", "x/$(touch pwned)/n.json", "net.wifi.ssid", "home/1"}},
         {{"ku", "json", "set", "x/a b/n.json", "hosts", R"([{"addr": "a"}])"}},
         {{"ku", "json", "set", "x/a b/n.json", "hosts.0.addr", "b"}},
         {{"ku", "json", "set", "x/a b/n.json", "hosts.0", "3"}, 1, "", "only object fields"},
         // The tool makes the directories itself: the library hands them to the shell.
         {{"sh", "-c", "ls; cat x/*/n.json"}, 0, "s.json\nx\n" R"({"net":{"wifi":{"ssid":"home/1"}}})"
                                                 R"({"hosts":[{"addr":"b"}]})"}});
}

TEST_F(KuTool, TableShowsAndEditsRows)
{
    const std::string routes = "# if address state\neth0 192.168.1.1 up\n\nwlan0   10.0.0.1\n"
                               "br\\ 0 172.16.0.1 down\n";
    dir.write("r", routes);
    dir.write("one", "a 1\n");
    run({{{"ku", "table", "show", "r"}, 0, "0\teth0\t192.168.1.1\tup\n1\twlan0\t10.0.0.1\n"
                                           "2\tbr 0\t172.16.0.1\tdown\n"},
         {{"ku", "table", "get", "r", "2", "0"}, 0, "br 0\n"},
         {{"ku", "table", "get", "r", "1"}, 0, "wlan0\t10.0.0.1\n"},
         each_fails("table", {"get r 1 2", "get r 3", "delete r 3", "show absent", "append r x \\"}, 1),
         {{"ku", "table", "append", "r", "x", "two words"}, 1, "", "holds a blank"},
         {{"ku", "table", "set", "r", "0", "1", ""}, 1, "", "empty cell"},
         {{"ku", "table", "set", "r", "0", "0", "#x"}, 1, "", "cannot start with '#'"},
         // The same text leaves the file as it is, comments and all.
         {{"ku", "table", "set", "r", "0", "2", "up"}},
         {{"cat", "r"}, 0, routes},
         {{"ku", "table", "set", "r", "0", "2", "down"}},
         {{"ku", "table", "append", "r", "usb0", "10.1.1.1"}},
         {{"ku", "table", "delete", "r", "2"}},
         // Saved: each cell with a blank behind it, no comments.
         {{"cat", "r"}, 0, "eth0 192.168.1.1 down \nwlan0 10.0.0.1 \nusb0 10.1.1.1 \n"},
         {{"ku", "table", "delete", "one", "0"}},
         {{"cat", "one"}, 0, ""},
         each_fails("table", {"", "list r", "get r", "get r x", "get r -1", "set r 0 0", "append r"})});
}

TEST_F(KuTool, IniReadsAndReplacesValues)
{
    const std::string ini = "# settings\n[net]\nip=192.168.1.5\nname= box one \n[dns]\nserver=8.8.8.8\n"
                            "empty=\n";
    std::string put = ini;
    put.replace(put.find("192.168.1.5"), 11, "10.0.0.9");
    dir.write("s.ini", ini);
    run({{{"ku", "ini", "get", "s.ini", "net", "name"}, 0, " box one \n"},
         {{"ku", "ini", "get", "s.ini", "dns", "empty"}, 0, "\n"},
         // A section runs on past the next header.
         {{"ku", "ini", "get", "s.ini", "net", "server"}, 0, "8.8.8.8\n"},
         each_fails("ini", {"get s.ini net gateway", "get s.ini wifi ip", "get s.ini dns ip",
                            "put s.ini net gateway 1", "get absent a b", "put absent a b c"}, 1),
         each_fails("ini", {"", "set s.ini net ip x", "get s.ini net", "put s.ini net ip",
                            "get s.ini " + std::string(30, 's') + " ip", "get s.ini net a=b",
                            "put s.ini net ip " + std::string(1020, 'v')}),
         {{"ku", "ini", "put", "s.ini", "net", "ip", "two\nlines"}, 2},
         {{"cat", "s.ini"}, 0, ini},
         {{"ku", "ini", "put", "s.ini", "net", "ip", "10.0.0.9"}},
         {{"sh", "-c", "ls; cat s.ini"}, 0, "s.ini\n" + put}});
}

TEST_F(KuTool, ResampleInterpolatesAndWritesWav)
{
    std::vector<int> ramp;
    for (int i = 0; i < 70001; ++i)  // more than two of the tool's blocks of 32768 frames
        ramp.push_back(i * 7);
    dir.write("st.raw", pcm({-3, -4, -1, 2}));
    dir.write("st.wav", wav(4, 2, 16, pcm({0, 0, 100, -100, 200, -200, 300, -300})));
    dir.write("8bit.wav", wav(8000, 1, 8, std::string(100, '\x80')));
    dir.write("quad.wav", wav(8000, 4, 16, std::string(64, '\0')));
    dir.write("mono.wav", wav(8000, 1, 16, std::string(64, '\0')));
    dir.write("cut.wav", wav(8000, 1, 16, "").substr(0, 30));
    const std::string st = "ku resample st.raw - --from 8 --to 8 --channels 2";
    // The last input sample waits for a next block that never comes.
    run({{{"ku", "resample", "-", "-", "--from", "1", "--to", "4"}, 0,
          pcm({0, 25, 50, 75, 100, 125, 150, 175, 200, 225, 250, 275}), "", pcm({0, 100, 200, 300})},
         {{"ku", "resample", "-", "-", "--from", "3", "--to", "2"}, 0, pcm({0, 150, 300, 450, 600}), "",
          pcm({0, 100, 200, 300, 400, 500, 600, 700})},
         {{"ku", "resample", "-", "-", "--from", "22050", "--to", "22050"}, 0, pcm(ramp), "", pcm(ramp)},
         // Frames (-3, -4) and (-1, 2) at equal rates; the default mixes the first two.
         {{"sh", "-c", "for s in first 1 second mix 0; do " + st + " --select $s; done; " + st}, 0,
          pcm({-3, -1, -3, -1, -4, 2, -3, 0, -3, 0, -3, 0})},
         {{"ku", "resample", "st.wav", "o.wav", "--to", "8", "--select", "first", "-v"}, 0, "",
          R"(ku resample: 4 frames of 2 channel\(s\) at 4 Hz \(WAV\) -> 6 mono samples at 8 Hz \(WAV\)\n)"},
         {{"cat", "o.wav"}, 0, wav(8, 1, 16, pcm({0, 50, 100, 150, 200, 250}))},
         {{"ku", "resample", "st.wav", "-", "--to", "2", "--select", "first"}, 0, pcm({0, 200})},
         each_fails("resample", {"8bit.wav o.wav --to 8", "quad.wav o.wav --to 8",
                                 "mono.wav o.wav --from 44100 --to 8", "mono.wav o.wav --channels 2 --to 8",
                                 "cut.wav o.wav --to 8"}, 1),
         each_fails("resample", {"st.raw o.raw --to 8", "st.raw o.raw --from 8", "st.raw o.raw --from 0 --to 8",
                                 "st.raw o.raw --from 8 --to 8 --channels 4", "st.raw --from 8 --to 8",
                                 "st.raw o.raw --from 8 --to 8 --select left"}),
         // File errors carry the system's reason.
         {{"ku", "resample", "absent", "o.raw", "--from", "8", "--to", "4"}, 1, "", "absent: No such file"},
         {{"ku", "resample", "st.raw", "no/o.raw", "--from", "8", "--to", "4"}, 1, "", "o.raw: No such file"}});
}

TEST_F(KuTool, NetAnswersFromTheKernel)
{
    // 198.51.100.0/24 is reserved for documentation: no interface holds it.
    run({{{"ku", "net", "if", "lo"}, 0, "mac 00:00:00:00:00:00\nipv4 127.0.0.1\n"},
         {{"ku", "net", "local", "127.0.0.1"}, 0, "local\n"},
         {{"ku", "net", "local", "198.51.100.77"}, 0, "not local\n"},
         {{"ku", "net", "if", "nosuchif0"}, 1, "", "no interface 'nosuchif0'"},
         each_fails("net", {"", "route", "if", "if " + std::string(16, 'e'), "local 300.1.1.1",
                            "local localhost"})});
}

TEST_F(KuTool, SockPassesDatagramsAndChecksConnections)
{
    const std::string path = dir.file("ctl.sock");
    ku_test::Process receiver({KU_TOOL_PATH, "sock", "recv", path, "--count", "2", "--timeout", "20"});
    ASSERT_TRUE(eventually([&] { return exists(path); }));
    ScriptServer server(answer_with(""));
    const std::string port = std::to_string(server.port());
    const std::string free = std::to_string(ku_test::free_loopback_port());
    dir.write("plain", "text");
    run({{{"ku", "sock", "send", "ctl.sock", "hello"}},
         {{"ku", "sock", "send", "ctl.sock", "second message"}},
         {{"ku", "sock", "connect", "127.0.0.1", port}, 0, "connected to 127.0.0.1:" + port + "\n"},
         // qemu-user hands SO_ERROR over untranslated: the tool names the host's errno.
         {{"ku", "sock", "connect", "127.0.0.1", free}, 1, "", ku_test::under_emulator() ? "" : "refused"},
         {{"ku", "sock", "recv", "quiet.sock", "--timeout", "1"}, 1, "", "no datagram within 1 s"},
         each_fails("sock", {"send absent.sock x", "send plain x"}, 1),
         {{"ku", "sock", "send", "s", ""}, 2},
         each_fails("sock", {"", "listen x", "send s", "recv s --count 0", "connect 127.0.0.1 0",
                             "connect localhost 80", "connect --count 1 127.0.0.1 80",
                             "send /" + std::string(107, 'p') + " x"})});
    const auto received = receiver.wait();
    EXPECT_EQ(received.status, 0) << received.err;
    EXPECT_EQ(received.out, "hello\nsecond message\n");
    ku_test::Process waiting({KU_TOOL_PATH, "sock", "recv", path});
    ASSERT_TRUE(eventually([&] { return exists(path); }));
    waiting.signal(SIGINT);
    EXPECT_EQ(waiting.wait().status, 130);
    run({{{"ls"}, 0, "plain\n"}});  // each socket file is gone again
}

TEST_F(KuTool, MdnsRunsDnsSdWithTheGivenValues)
{
    // Stand-ins first on PATH: dns-sd logs its arguments, ps shows a list,
    // kill logs whom it was asked to kill.
    for (const auto &[name, body] : {std::pair{"dns-sd", "l=$(printf '%s|' \"$@\"); echo \"$l\" >>dns-sd.log"},
                                     {"ps", "cat ps.txt"}, {"kill", "echo \"$*\" >> kill.log"}})
        chmod(dir.write(name, std::string("#!/bin/sh\n") + body + "\n").c_str(), 0755);
    dir.write("ps.txt", "101 root dns-sd -R box _http._tcp local 80\n"
                        "102 root dns-sd -R cam _rtsp._tcp local 554\n103 root dns-sd -B _http._tcp local\n");
    // "dns-sd -R NAME _t local 80  &" has 25 bytes besides NAME: 230 fill
    // the library's 255, 231 are refused.
    const std::string name(230, 'n'), kill = kStamp + "DBG:  .*xargs kill -9\n";
    run({{{"ku", "mdns", "register", "box", "_http._tcp", "local", "8080", "path=/index"}},
         {{"ku", "mdns", "register", "box", "_ssh._tcp", "local", "22"}},
         {{"ku", "mdns", "browse", "_http._tcp", "local"}},
         {{"ku", "mdns", "register", name, "_t", "local", "80"}},
         {{"ku", "mdns", "register", "my box", "_t", "local", "80"}, 2},
         each_fails("mdns", {"register a;b _t local 80", "register $(id) _t local 80", "deregister a\"b",
                             "register " + name + "n _t local 80", "", "start", "register b _t local",
                             "register b _t local http", "register b _t local 70000", "browse",
                             "register --browse b t d 1"}),
         // dns-sd runs in the background; the empty TXT leaves nothing.
         {{"sh", "-c", "while [ \"$(cat dns-sd.log | wc -l)\" -lt 4 ]; do sleep 0.1; done; "
                       "LC_ALL=C sort dns-sd.log"}, 0, "-B|_http._tcp|local|\n-R|box|_http._tcp|local|8080|"
                                                  "path=/index|\n-R|box|_ssh._tcp|local|22|\n-R|" + name +
                                                  "|_t|local|80|\n"},
         {{"ku", "mdns", "deregister", "cam"}, 0, "", kill},
         {{"ku", "mdns", "deregister"}, 0, "", kill},
         {{"ku", "mdns", "deregister", "--browse"}, 0, "", kill},
         {{"cat", "kill.log"}, 0, "-9 102\n-9 101 102\n-9 103\n"}});
}

TEST_F(KuTool, PluginLoadsOnlyAPluginOfItsName)
{
    const std::string plugins = KU_TEST_PLUGIN_DIR;
    ASSERT_EQ(run_process({"cp", plugins + "/kuplug_echo.so", dir.file("echo.so")}).status, 0);
    dir.write("plug_text.so", "just text\n");
    // An empty prefix looks for NAME.so.
    for (const auto &[where, prefix] : {std::pair{plugins, "kuplug_"}, {dir.path(), ""}}) {
        const auto loaded = ku({"plugin", where, prefix, "echo"});
        const std::string file = where + "/" + prefix + "echo.so";
        EXPECT_EQ(loaded.out.rfind("open " + file + " succeed\nplug-in 'echo' loaded from " + file +
                                       ", operations at 0x", 0), 0u) << loaded.out << loaded.err;
    }
    const std::string failures[][4] = {
        {plugins, "kuplug_", "absent", "access " + plugins + "/kuplug_absent.so failed\n"},
        {plugins, "kuplug_", "liar", "\"other\""},
        {plugins, "kuplug_", "empty", "module_ops not found"},
        {dir.path(), "plug_", "text", "dlopen failed"}};
    for (const auto &[where, prefix, name, why] : failures) {
        const auto result = ku({"plugin", where, prefix, name});
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find(why), npos) << result.err;
        EXPECT_NE(result.err.find("ku plugin: cannot load plug-in '" + name + "'"), npos) << result.err;
    }
    run({each_fails("plugin", {". kuplug_", ". p echo more"}), {{"ku", "plugin", ".", "p", ""}, 2}});
}

TEST_F(KuTool, TourRunsToItsEndAndLeavesTheSamplesAlone)
{
    if (run_process({"python3", "-c", "pass"}).status != 0)
        GTEST_SKIP() << "python3 is not available for the tour's web server";
    const std::string data = KU_SOURCE_DIR "/examples/data/";
    const auto samples = [&] {
        return read_file(data + "device.json") + read_file(data + "interfaces.table") +
               read_file(data + "device.ini") + read_file(data + "chime.wav");
    };
    const std::string before = samples();
    ku_test::ProcessOptions options;
    options.env = {"KU=" KU_TOOL_PATH, "TMPDIR=" + dir.path()};
    const auto tour = run_process({"bash", KU_SOURCE_DIR "/scripts/demo.sh", "--tour"}, options);
    EXPECT_EQ(tour.status, 0) << tour.err;
    for (const char *shown : {"$ ku json get device.json network.ip\n192.168.1.40\n", "Tour done.",
                              "fetched.wav is chime.wav, byte for byte", "(web server stopped)"})
        EXPECT_NE(tour.out.find(shown), npos) << tour.out;
    EXPECT_TRUE(samples() == before);
    // The sample sound is what its generator writes.
    EXPECT_EQ(run_process({"python3", data + "make_chime.py", dir.file("chime.wav")}).status, 0);
    EXPECT_TRUE(read_file(dir.file("chime.wav")) == read_file(data + "chime.wav"));
}

// The body reaches stdout as it arrives: the first half is there while the
// server still holds the second back.
TEST_F(KuTool, FetchStreamsTheBodyToStdout)
{
    std::atomic<bool> release{false};
    ScriptServer server([&](ku_test::ScriptConnection &connection) {
        if (!connection.read_request() ||
            !connection.send("HTTP/1.1 200 OK\r\nContent-Length: 13\r\n\r\nhello, "))
            return;
        while (!release && connection.pause_ms(10)) {
        }
        connection.send("world\n");
    });
    ku_test::ProcessOptions options;
    options.out_file = dir.file("out");
    ku_test::Process fetch({KU_TOOL_PATH, "fetch", server.url("/greeting")}, options);
    EXPECT_TRUE(eventually([&] { return read_file(options.out_file) == "hello, "; }));
    release = true;
    const auto result = fetch.wait();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");  // no terminal: no progress bar, no library trace
    EXPECT_EQ(read_file(options.out_file), "hello, world\n");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method + " " + requests[0].target, "GET /greeting");
}

TEST_F(KuTool, FetchSendsWhatItIsToldAndKeepsAnEarlierFileOnFailure)
{
    std::string body;
    for (int i = 0; i < 300000; ++i)
        body += static_cast<char>(i * 31 % 256);
    ScriptServer blob(answer_with(ScriptServer::response(200, "OK", body)));
    const std::string hello = ScriptServer::response(200, "OK", "hello\n", "X-Answer: 42\r\n");
    ScriptServer server(answer_with(hello));
    ScriptServer gone(answer_with(ScriptServer::response(404, "Not Found", "gone\n")));
    dir.write("page.html", "the old page\n");
    run({{{"ku", "fetch", blob.url("/blob"), "-o", "out.bin"}},
         {{"ku", "fetch", "-i", server.url("/")}, 0, hello},
         {{"ku", "fetch", server.url("/post"), "--post", "a=1&b=2", "-H", "X-One: 1", "--header", "X-Two: 2"},
          0, "hello\n"},
         {{"ku", "fetch", gone.url("/missing"), "-o", "page.html"}, 1, "", "404 Not Found"},
         {{"ku", "fetch", gone.url("/"), "-o", "no/such/dir/f"}, 1},
         {{"sh", "-c", "ls; cat page.html"}, 0, "out.bin\npage.html\nthe old page\n"}});
    EXPECT_TRUE(read_file(dir.file("out.bin")) == body);
    EXPECT_EQ(gone.requests().size(), 1u);  // none for the file that cannot be written
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].method + " " + requests[1].body, "POST a=1&b=2");
    EXPECT_EQ(requests[1].header("X-One") + requests[1].header("X-Two"), "12");
    const auto verbose = ku({"fetch", "-v", server.url("/")});
    EXPECT_NE(verbose.err.find("curl_multi_perform CURLMSG_DONE"), npos) << verbose.err;
}

// Each failure names its cause; on stdout stands what arrived before it.
TEST_F(KuTool, FetchFailuresSayWhy)
{
    ScriptServer not_found(answer_with(ScriptServer::response(404, "Not Found", "gone\n")));
    ScriptServer moved(answer_with(ScriptServer::response(302, "Found", "", "Location: /elsewhere\r\n")));
    ScriptServer cut(answer_with("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"));
    // The head, then a stall until the test ends: only the time limit ends it.
    ScriptServer stall([](ku_test::ScriptConnection &connection) {
        if (connection.read_request() && connection.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n"))
            connection.hold();
    });
    // Plain text where a TLS handshake should begin.
    ScriptServer plain([](ku_test::ScriptConnection &connection) { connection.send("HTTP/1.1 400 No\r\n\r\n"); });
    const std::string port = std::to_string(plain.port());
    const std::string free = std::to_string(ku_test::free_loopback_port());
    const std::string url = "http://127.0.0.1:" + free + "/";
    std::vector<Step> steps = {
        {{"ku", "fetch", not_found.url("/missing")}, 1, "gone\n", "server answered 'HTTP/1.1 404 Not Found'"},
        {{"ku", "fetch", moved.url("/old")}, 1, "", "see /elsewhere"},
        {{"ku", "fetch", cut.url("/")}, 1, "only this", "transfer cut short: got 9 of 100 bytes"},
        {{"ku", "fetch", stall.url("/"), "--timeout", "1"}, 1, "", "timed out after 1 s: got 0 of 9 bytes"},
        {{"ku", "fetch", url}, 1, "", "cannot connect to 127.0.0.1 port " + free},
        {{"ku", "fetch", "https://127.0.0.1:" + port + "/"}, 1, "", "TLS handshake with 127.0.0.1 port " +
                                                                    port + " failed"},
        {{"ku", "fetch", url, "-H", "no colon"}, 2},
        each_fails("fetch", {"", url + " " + url, url + " --timeout 0", url + " --size lots", url + " -o",
                             url + " --resume", "ftp" + not_found.url("/").substr(4), "file:///etc/passwd"})};
    if (kInNamespaces)  // a lookup may only fail where it cannot leave the machine
        steps.push_back({{"ku", "fetch", "http://no-such-host.invalid/"}, 1, "", "cannot resolve host"});
    run(steps);
    EXPECT_EQ(not_found.requests().size(), 1u);  // none for the ftp:// URL
    EXPECT_EQ(moved.requests().size(), 1u);      // the redirect is not followed
}

TEST_F(KuTool, FetchCancelsOnCtrlCAndShowsProgressOnATerminal)
{
    ScriptServer slow(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n", 100000, 20));
    const std::string file = dir.write("keep.bin", "earlier download\n");
    ku_test::Process fetch({KU_TOOL_PATH, "fetch", slow.url("/"), "-o", file});
    // Once bytes flow the interrupt lands inside the transfer loop.
    ASSERT_TRUE(eventually([&] { return !slow.requests().empty() && exists(file + ".part"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    fetch.signal(SIGINT);
    const auto result = fetch.wait();
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.err, "ku fetch: cancelled\n");
    EXPECT_EQ(read_file(file), "earlier download\n");
    EXPECT_FALSE(exists(file + ".part"));

    if (run_process({"script", "-qefc", "true", "/dev/null"}).status != 0)
        GTEST_SKIP() << "script(1) is not available";
    // script(1) gives the tool a terminal: a percentage when the size is known.
    ScriptServer sized(ku_test::trickle("HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n", 40, 25));
    const std::string line = KU_TOOL_PATH " fetch " + sized.url("/") + " -o " + dir.file("f");
    const auto bar = run_process({"script", "-qefc", line + " --size 40", "/dev/null"});
    EXPECT_NE(bar.out.find("] 100%  40 B of 40 B"), npos) << bar.out;
    const auto rate = run_process({"script", "-qefc", line, "/dev/null"});
    EXPECT_NE(rate.out.find("\r40 B  "), npos) << rate.out;
    EXPECT_NE(rate.out.find(" B/s"), npos) << rate.out;
    EXPECT_EQ(read_file(dir.file("f")), std::string(40, 'x'));
}

}  // namespace
