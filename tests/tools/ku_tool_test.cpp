// The ku tool as a shell user meets it: each command's output, exit status
// and one-line error, run from a private directory, servers on 127.0.0.1.
#include <gtest/gtest.h>

#include <regex>

#include "support/emulator.h"
#include "support/private_namespaces.h"
#include "support/script_server.h"
#include "support/subprocess.h"
#include "support/temp_dir.h"

namespace {

using namespace ku_test;

// Inside, a failed name lookup cannot reach any resolver off the machine.
const bool kInNamespaces = enter_private_namespaces();
const std::string kStamp = R"(\[[-0-9]{10}#[:0-9]{8}#[0-9]+\])";
// For steps that wait on a ku in the background; the bound only ends a hang.
const std::string kWaitFor = R"(wait_for() { for i in $(seq 300); do eval "$1" && return; )"
                             R"(sleep .1; done; }; )";

// A shell line and what it gives. Failed, stderr is one line "ku NAME: ..."
// in which the regular expression `err` is found; else it matches `err` whole.
struct Step {
    std::string line;
    int status = 0;
    std::string out{}, err{}, in{};
};

// `ku NAME ARGS` for each ARGS in one step: each fails with `status` and its line.
Step each_fails(const std::string &name, const std::vector<std::string> &args, int status = 2)
{
    Step step{"for a in", 0, "", "(ku " + name + ": .*\n){" + std::to_string(args.size()) + "}"};
    for (const auto &arg : args) {
        step.line += " '" + arg + "'";
        step.out += std::to_string(status) + "\n";
    }
    step.line += "; do ku " + name + " $a; echo $?; done";
    return step;
}

// A test's steps run in its private directory, with the tool and the
// directory itself first on PATH.
struct KuTool : ::testing::Test {
    void SetUp() override
    {
        if (std::string(KU_TOOL_PATH).empty())
            GTEST_SKIP() << "the ku tool is not built (KU_BUILD_TOOLS=OFF)";
    }

    void run(const std::vector<Step> &steps, std::vector<std::string> env = {}) const
    {
        const std::string tool = KU_TOOL_PATH, path = tool.substr(0, tool.rfind('/'));
        std::string start = "cd " + dir.path() + " && export 'PATH=" + path + ":" + dir.path() +
                            ":" + getenv("PATH") + "'";
        for (const auto &entry : env)
            start += " '" + entry + "'";
        for (const Step &step : steps) {
            SCOPED_TRACE(step.line.substr(0, 300));
            const auto result = run_process({"sh", "-c", start + " && " + step.line}, step.in);
            std::smatch name;
            std::regex_search(step.line, name, std::regex("ku ([a-z0-9]+)"));
            const std::regex line("ku " + name.str(1) + ": .*\n"), err(step.err);
            EXPECT_EQ(result.status, step.status) << result.err;
            EXPECT_TRUE(result.out == step.out) << result.out.substr(0, 400);
            EXPECT_TRUE(step.status == 0 ? std::regex_match(result.err, err)
                                         : std::regex_match(result.err, line) &&
                                               std::regex_search(result.err, err))
                << result.err;
        }
    }

    TempDir dir;
};

// Each value little-endian in `size` bytes: PCM samples by default.
std::string le(const std::vector<int> &values, int size = 2)
{
    std::string bytes;
    for (const int value : values)
        for (int i = 0; i < size; ++i)
            bytes += static_cast<char>(value >> (8 * i) & 0xff);
    return bytes;
}

std::string wav(int rate, int channels, int bits, const std::string &data)
{
    const int size = static_cast<int>(data.size());
    return "RIFF" + le({36 + size}, 4) + "WAVEfmt " + le({16}, 4) + le({1, channels}) +
           le({rate, rate * channels * bits / 8}, 4) + le({channels * bits / 8, bits}) + "data" +
           le({size}, 4) + data;
}

TEST_F(KuTool, HelpLogAndClock)
{
    run({{"for c in $(ku -h | sed -n '/^commands:/,/^$/s/^  \\([a-z0-9]*\\) .*/\\1/p'); do "
          "ku $c --help | head -n 1 | cut -d ' ' -f 3; done | sort | xargs", 0,
          "b64 clock des fetch hex ini json lock log mdns net plugin resample sock str table\n"},
         {"ku x; ku 2>&1 | head -n 1; for a in '' x '--version x'; do ku $a 2>&-; echo $?; done; "
          "ku --version | grep -cx 'ku [0-9]*\\.[0-9]*\\.[0-9]*'", 0,
          "usage: ku COMMAND [ARGS...]\n2\n2\n2\n1\n",
          "ku: unknown command 'x' \\(try 'ku --help'\\)\n"},
         // UTC as a calendar date; two hours ahead in the library's float steps of 128 s.
         {R"(t=$(date +%s); ku clock --zone 2 > c; grep -c '^monotonic_[mnu]\{0,1\}s [0-9]*$' c; )"
          R"(set -- $(sed -n 's/^utc //p; s/^local \([0-9]*\) .*/\1/p' c); [ $1 -ge $t ] && )"
          R"([ $1 -le $(date +%s) ] && date -ud @$1 '+%F %T' | grep -cx "$2 $3"; )"
          R"(echo $(( ($4 - $1 - 7200) / 129 )) $(wc -l < c))", 0, "4\n1\n0 6\n"},
         // The log carries at most 8127 characters; the newline is one of them.
         {"ku log trace " + std::string(8126, 'x') + " 2>&1 | sed 's/^.*]  //' | wc -c", 0,
          "8127\n"},
         {"ku log err disk full 'on /data'; ku log debug 100% %s%n -5 -; ku log -- error --help; "
          "ku log trace a", 0, "", kStamp + "ERR:  disk full on /data\n" + kStamp +
          "DBG:  100% %s%n -5 -\n" + kStamp + "ERR:  --help\n" + kStamp + "  a\n"},
         {"ku log trace " + std::string(8127, 'x'), 1, "", "too long"},
         each_fails("log", {"warning x", "err"}), each_fails("clock", {"--zone 25", "now"})});
}

TEST_F(KuTool, CodecsGiveExactBytes)
{
    dir.write("t", "  Mixed Case \u00e9 \n\tTabbed \n  last line  ");
    const std::string key = " 0123456789abcdeffedcba987654321089abcdef01234567";
    const std::string key_enc = " 3ca957e106d48b72912ef04d68b71ac53ca957e106d48b72";  // the default
    // Only spaces are blanks: the tab stays.
    run({{"ku str upper < t; ku str lower < t; ku str trim < t", 0,
          "  MIXED CASE \u00e9 \n\tTABBED \n  LAST LINE    mixed case \u00e9 \n\ttabbed \n"
          "  last line  Mixed Case \u00e9\n\tTabbed\nlast line"},
         {"ku str upper", 1, "", "zero byte", std::string("a\0b", 3)},
         {"printf foobar | ku b64 encode; printf fo | ku b64 encode; ku b64 encode", 0,
          "Zm9vYmFy\nZm8=\n\n"},
         {"ku b64 decode", 0, "foobar", "", "Zm9v\r\nYm\tFy  \n"},
         {"for t in Zm9v! Zm9vY Zg= =Zm9 Zg==Zg== Zh==; do printf $t | ku b64 decode; echo $?; "
          "done", 0, "1\n1\n1\n1\n1\n1\n", "(ku b64: input is not valid Base64\n){6}"},
         {"ku b64 decode", 1, "", "zero byte", std::string("Zm9v\0YmFy", 9)},
         // Padding ends the first 64 KiB chunk: that chunk's byte is out when the fault shows.
         {"ku b64 decode", 1, "f", "not valid", std::string(65532, ' ') + "Zg==Zg=="},
         {"ku hex encode", 0, "00AB7F\n", "", std::string("\0\xab\x7f", 3)},
         {"ku hex decode", 0, std::string("\0\xab\xcd\xef", 4), "", "00ab\nCD ef\n"},
         {"ku hex decode", 0, "\x0a\xb1", "", std::string(65535, ' ') + "0ab1"},  // a pair split
         // The library's digit rule would read ':' as 10; a user meant no such thing.
         {"for t in abc 0g 1:; do printf $t | ku hex decode; echo $?; done", 0, "1\n1\n1\n",
          "(ku hex: .*\n){3}"},
         {"a=$(ku str token); [ $a != $(ku str token) ] && echo $a | grep -cx '[0-9a-f]\\{1,16\\}'",
          0, "1\n"},
         each_fails("str", {"reverse", ""}), each_fails("b64", {"", "encrypt", "encode extra"}),
         {"for t in '' 1234567 12345678; do printf \"$t\" | ku des encrypt | wc -c; done", 0,
          "8\n8\n16\n"},
         // The codec cannot keep zero bytes at the end.
         {"printf 'a\\0b\\377x' | ku des encrypt -k" + key + " | ku des decrypt --key" + key, 0,
          std::string("a\0b\377x", 5)},
         {"printf abc | ku des encrypt | ku des decrypt --raw", 0, std::string("abc\0\0\0\0\0", 8)},
         {"printf s | ku des encrypt > a; printf s | ku des encrypt -k" + key_enc + " | cmp - a"},
         {"ku des decrypt", 1, "", "not whole 8-byte blocks", "123456789"},
         each_fails("des", {"encrypt --key abcd", "encrypt -k" + key.substr(0, 48) + "g", "x"})});
}

// On a device with little memory an input 64 times larger runs in the memory
// of a small one, which comes back whole through the reverse command.
TEST_F(KuTool, LargeInputRunsInTheMemoryOfASmallOne)
{
#ifdef KU_TEST_ASAN
    GTEST_SKIP() << "ASan's memory grows with the work: plain and target builds hold it";
#endif
    const size_t copies = under_emulator() ? 8 : 64;  // still past 4 MiB, 20 times slower
    // Each decoder's output is the text its encoder had.
    const char *commands[] = {"b64 encode", "b64 decode", "hex encode", "hex decode",
                              "des encrypt", "des decrypt", "str upper", "str lower",
                              "resample - - --from 44100 --to 16000 --channels 2"};
    // Lower-case lines of 1 MiB, a multiple of 3 and 8 bytes: copies of the
    // Base64 text and the ciphertext decode too.
    std::string text(456 * 2300, '\n');
    for (uint32_t i = 0, state = 1; i < text.size(); ++i, state = state * 1664525u + 1013904223u)
        text[i] = i % 61 == 60 ? '\n' : static_cast<char>('a' + (state >> 16) % 26);
    std::string in = text;
    for (size_t i = 0; i < std::size(commands); ++i) {
        dir.write("small", in);
        // Triple-DES is slow enough that a quarter still shows any growth.
        const std::string times = std::to_string(commands[i][0] == 'd' ? copies / 4 : copies);
        const std::string ku = "cd " + dir.path() + " && " KU_TOOL_PATH " " + commands[i];
        const auto small = run_process({"sh", "-c", ku + " < small > out && for i in $(seq " +
                                                        times + "); do cat small; done > large"});
        const auto big = run_process({"sh", "-c", ku + " < large > /dev/null"});
        EXPECT_EQ(big.status + small.status, 0) << commands[i] << big.err << small.err;
        EXPECT_LE(big.peak_kib, small.peak_kib + 4096) << commands[i] << ": " << small.peak_kib;
        in = read_file(dir.file("out"));
        EXPECT_TRUE(i % 2 == 0 || in == text) << commands[i] << " changed the data";
    }
}

TEST_F(KuTool, JsonReadsAndWritesDottedPaths)
{
    dir.write("c.json", R"({"name": "box", "port": 8080, "n": null, "s": {"limits": {"clients": 4}},
                            "hosts": [{"addr": "10.0.0.3"}, {"addr": "10.0.0.4"}]})");
    dir.write("p.json", R"({ "a" : 1,  "b": [true, null], "e": {}, "f": [], "g": "q\",{[:/" })");
    dir.write("l.json", R"([10, {"k": "v"}])");
    dir.write("broken.json", "{\"a\": ");
    run({{"ku json print p.json; ku json print p.json b", 0,
          R"({"a":1,"b":[true,null],"e":{},"f":[],"g":"q\",{[:/"})" "\n[true,null]\n"},
         {"ku json print --pretty p.json", 0,
          "{\n  \"a\": 1,\n  \"b\": [\n    true,\n    null\n  ],\n  \"e\": {},\n  \"f\": [],\n"
          "  \"g\": \"q\\\",{[:/\"\n}\n"},
         {"for k in name s.limits hosts.1.addr; do ku json get c.json $k; done; "
          "ku json get l.json 1", 0, "box\n{\"clients\":4}\n10.0.0.4\n{\"k\":\"v\"}\n"},
         each_fails("json", {"print absent.json", "get c.json x", "get c.json n",
                             "get c.json port.x", "get c.json hosts.2", "get c.json hosts.x",
                             "get broken.json a", "set broken.json a 1"}, 1),
         each_fails("json", {"", "show c.json", "get c.json", "set c.json a", "get c.json a..b",
                             "get -s c.json a", "get -p c.json a"}),
         // A replaced key moves behind the others; '/' stays bare.
         {R"(ku json set c.json n 4 && ku json set c.json f -1.5 && ku json set c.json t true &&
             ku json set c.json j '{"x": 1}' && ku json set c.json s 'a b' &&
             ku json del c.json hosts && ku json set c.json q '"q"' && ku json set -s c.json z 4 &&
             ku json set c.json u/v w/x && cat c.json)", 0,
          R"({"name":"box","port":8080,"n":4,"f":-1.5,"t":true,"j":{"x":1},"s":"a b","q":"q",)"
          R"("z":"4","u/v":"w/x"})"},
         each_fails("json", {"set c.json k null", "set c.json k {broken", "set c.json port.x 3",
                             "del c.json x", "del absent.json a"}, 1),
         // The tool makes the directories itself: the library hands them to the shell.
         {R"(ku json set 'x/$(touch p)/n.json' a.b c && ku json set 'x/a b/n.json' l '[{"k": 1}]' &&
             ku json set 'x/a b/n.json' l.0.k 2 && ls && cat x/*/n.json)",
          0, "broken.json\nc.json\nl.json\np.json\nx\n" R"({"a":{"b":"c"}}{"l":[{"k":2}]})"},
         {"ku json set 'x/a b/n.json' l.0 3", 1, "", "only object fields"}});
}

TEST_F(KuTool, TableAndIniEditFiles)
{
    const std::string r = "# if\neth0 192.168.1.1 up\n\nwlan0   10.0.0.1\nbr\\ 0 172.16.9.9\n";
    dir.write("r", r);
    dir.write("one", "a 1\n");
    const std::string ini = "[net]\nip=192.168.1.5\nname= box one \n[dns]\nserver=8.8.8.8\ne=\n";
    dir.write("s.ini", ini);
    run({{"ku table show r; ku table get r 2 0; ku table get r 1", 0,
          "0\teth0\t192.168.1.1\tup\n1\twlan0\t10.0.0.1\n2\tbr 0\t172.16.9.9\nbr 0\n"
          "wlan0\t10.0.0.1\n"},
         each_fails("table", {"get r 1 2", "get r 3", "delete r 3", "show absent", "append r x \\",
                              "append r #x y", "set r 0 0 #x"}, 1),
         {"ku table append r x 'two words'", 1, "", "holds a blank"},
         {"ku table set r 0 1 ''", 1, "", "empty cell"},
         {"ku table set r 0 2 up && cat r", 0, r},  // the same text: the file stays as it is
         // Each cell with a blank behind it, and no comments.
         {"ku table set r 0 2 down && ku table append r usb0 on && ku table delete r 2 && cat r", 0,
          "eth0 192.168.1.1 down \nwlan0 10.0.0.1 \nusb0 on \n"},
         {"ku table delete one 0 && cat one"},
         each_fails("table", {"", "list r", "get r", "get r x", "get r -1", "set r 0 0"}),
         // A section runs on past the next header.
         {"ku ini get s.ini net name; ku ini get s.ini dns e; ku ini get s.ini net server", 0,
          " box one \n\n8.8.8.8\n"},
         each_fails("ini", {"get s.ini net gateway", "get s.ini wifi ip", "get s.ini dns ip",
                            "put s.ini net gateway 1", "get absent a b", "put absent a b c"}, 1),
         each_fails("ini", {"", "set s.ini net ip x", "get s.ini net", "put s.ini net ip",
                            "get s.ini net a=b", "get s.ini " + std::string(30, 's') + " ip",
                            "put s.ini net ip " + std::string(1020, 'v')}),
         {"ku ini put s.ini net ip 'two\nlines'", 2},
         {"ku ini put s.ini net ip 10.0.0.9 && ls && cat s.ini", 0,
          "one\nr\ns.ini\n" + std::regex_replace(ini, std::regex("192.168.1.5"), "10.0.0.9")}});
}

TEST_F(KuTool, ResampleInterpolatesAndWritesWav)
{
    std::string ramp;  // more than two of the tool's blocks of 32768 frames
    for (int i = 0; i < 70001; ++i)
        ramp += le({i});
    dir.write("st.raw", le({-3, -4, -1, 2}));
    dir.write("st.wav", wav(4, 2, 16, le({0, 0, 100, -100, 200, -200, 300, -300})));
    dir.write("8bit.wav", wav(8000, 1, 8, std::string(100, '\x80')));
    dir.write("cut.wav", wav(8000, 1, 16, "").substr(0, 30));
    const std::string verbose = R"(ku resample: 4 frames of 2 channel\(s\) at 4 Hz \(WAV\) -> )"
                                R"(6 mono samples at 8 Hz \(WAV\)\n)";
    // The last input sample waits for a next block that never comes.
    run({{"ku resample - - --from 1 --to 4", 0,
          le({0, 25, 50, 75, 100, 125, 150, 175, 200, 225, 250, 275}), "", le({0, 100, 200, 300})},
         {"ku resample - - --from 22050 --to 22050", 0, ramp, "", ramp},
         // Frames (-3, -4) and (-1, 2) at equal rates; the default mixes the first two.
         {"for s in first 1 second mix 0 ''; do ku resample st.raw - --from 8 --to 8 --channels 2 "
          "${s:+--select} $s; done", 0, le({-3, -1, -3, -1, -4, 2, -3, 0, -3, 0, -3, 0})},
         {"ku resample st.wav o.wav --to 8 --select first -v && cat o.wav", 0,
          wav(8, 1, 16, le({0, 50, 100, 150, 200, 250})), verbose},
         each_fails("resample", {"8bit.wav o --to 8", "cut.wav o --to 8",
                                 "st.wav o --from 44 --to 8", "st.wav o --channels 1 --to 8",
                                 "absent o --from 8 --to 4"}, 1),
         {"ku resample st.raw no/o --from 8 --to 4", 1, "", "no/o: No such file or directory"},
         each_fails("resample", {"st.raw o --to 8", "st.raw o --from 8", "st.raw o --from 0 --to 8",
                                 "st.raw o --from 8 --to 8 --channels 4", "st.raw --from 8 --to 8",
                                 "st.raw o --from 8 --to 8 --select left"})});
}

TEST_F(KuTool, NetAndSock)
{
    ScriptServer server(answer_with(""));
    const std::string port = std::to_string(server.port());
    const std::string free = std::to_string(free_loopback_port());
    dir.write("plain", "text");
    // 198.51.100.0/24 is reserved for documentation: no interface holds it.
    run({{"ku net if lo; ku net local 127.0.0.1; ku net local 198.51.100.77", 0,
          "mac 00:00:00:00:00:00\nipv4 127.0.0.1\nlocal\nnot local\n"},
         {"ku net if nosuchif0", 1, "", "no interface 'nosuchif0'"},
         each_fails("net", {"", "route", "if", "if eeeeeeeeeeeeeeee", "local 300.1.1.1"}),
         {kWaitFor + "ku sock recv c.sock -n 2 --timeout 20 & wait_for '[ -S c.sock ]'; ku sock "
                     "send c.sock hi; ku sock send c.sock 'a b'; wait; ku sock recv c.sock & "
                     "wait_for '[ -S c.sock ]'; kill -INT $!; wait $!; echo $?; ls", 0,
          "hi\na b\n130\nplain\n"},
         {"ku sock connect 127.0.0.1 " + port, 0, "connected to 127.0.0.1:" + port + "\n"},
         // qemu-user hands SO_ERROR over untranslated: the tool names the host's errno.
         {"ku sock connect 127.0.0.1 " + free, 1, "", under_emulator() ? "" : "refused"},
         {"ku sock recv q.sock --timeout 1; ls", 0, "plain\n", "ku sock: no datagram within 1 s\n"},
         each_fails("sock", {"send absent.sock x", "send plain x"}, 1),
         {"ku sock send s ''", 2},
         each_fails("sock", {"", "listen x", "send s", "recv s --count 0", "connect 127.0.0.1 0",
                             "connect localhost 80", "connect -n 1 127.0.0.1 80",
                             "send /" + std::string(107, 'p') + " x"})});
}

TEST_F(KuTool, MdnsRunsDnsSdAndPluginsLoadByName)
{
    // Stand-ins first on PATH: dns-sd logs its arguments, ps shows a list, kill logs whom.
    dir.write("ps", "#!/bin/sh\ncat ps.txt\n");
    dir.write("kill", "#!/bin/sh\necho \"$*\" >> kill.log\n");
    dir.write("dns-sd", "#!/bin/sh\nl=$(printf '%s|' \"$@\"); echo \"$l\" >> dns-sd.log\n");
    dir.write("ps.txt", "101 root dns-sd -R box _http._tcp local 80\n102 root dns-sd -R cam _r "
                        "local 554\n103 root dns-sd -B _h._tcp local\n");
    // "dns-sd -R NAME _t local 80  &" has 25 bytes besides NAME: 230 fill the library's 255.
    const std::string name(230, 'n');
    run({{"chmod +x ps kill dns-sd && ku mdns register box _http._tcp local 8080 path=/index && "
          "ku mdns register box _ssh._tcp local 22 && ku mdns browse _http._tcp local && "
          "ku mdns register " + name + " _t local 80"},
         each_fails("mdns", {"register a;b t d 80", "register $(id) t d 80", "deregister a\"b", "",
                             "register " + name + "n _t local 80", "start", "register b t d",
                             "register b t d 70000", "browse", "register --browse b t d 1"}),
         // dns-sd runs in the background; an empty TXT leaves nothing.
         {kWaitFor + R"x(wait_for '[ "$(cat dns-sd.log 2>&- | wc -l)" = 4 ]'; LC_ALL=C sort )x"
                     "dns-sd.log",
          0, "-B|_http._tcp|local|\n-R|box|_http._tcp|local|8080|path=/index|\n"
             "-R|box|_ssh._tcp|local|22|\n-R|" + name + "|_t|local|80|\n"},
         {"ku mdns deregister cam; ku mdns deregister; ku mdns deregister --browse; cat kill.log",
          0, "-9 102\n-9 101 102\n-9 103\n", "(" + kStamp + "DBG:  .*xargs kill -9\n){3}"}});
    // The plug-ins are plugin_test's: kutest_wrong calls itself "other",
    // kutest_nullops has no table. The loader's lines come before the tool's.
    const std::string at = " " KU_TEST_PLUGIN_DIR, file = KU_TEST_PLUGIN_DIR "/kutest_good.so";
    const std::string absent = KU_TEST_PLUGIN_DIR "/kutest_absent.so";
    run({{"ku plugin" + at + " kutest_ good | sed 's/0x[0-9a-f]*$/0x/'", 0,
          "open " + file + " succeed\nplug-in 'good' loaded from " + file + ", operations at 0x\n"},
         {"cp " + file + " good.so && ku plugin . '' good | head -n 1", 0,  // no prefix: NAME.so
          "open ./good.so succeed\n"},
         {"ku plugin" + at + " kutest_ absent 2>&1; echo $?", 0, "access " + absent +
          " failed\nku plugin: cannot load plug-in 'absent' from " + absent + "\n1\n"},
         {"echo text > plug_t.so; (for n in wrong nullops; do ku plugin" + at + " kutest_ $n; "
          "done; ku plugin . plug_ t) 2>&1 | grep -c -e '\"other\"' -e 'ops not found' "
          "-e 'dlopen failed' -e '^ku plugin: '", 0, "6\n"},
         each_fails("plugin", {". kutest_", ". p good more"}),
         {"ku plugin . p ''", 2}});
}

// ku lock against the plock stand-in preloaded in front of each run: without
// the driver, node or not, each action fails with one line that says so.
TEST_F(KuTool, EveryLockActionFailsWithoutTheDriver)
{
    const std::string cannot = "(ku lock: /dev/plock cannot be opened: No such ";
    run({{"for s in none node; do for a in take release status; do KU_PLOCK_STANDIN=$s ku lock "
          "$a; echo $?; done; done; export KU_PLOCK_STANDIN=driver; ku lock status && ku lock take",
          0, "1\n1\n1\n1\n1\n1\nunlocked\n",
          cannot + "file or directory.*\n){3}" + cannot + "device or address.*\n){3}"},
         each_fails("lock", {"", "grab", "take now"})},
        // Under the emulator the preload is the target's, not the emulator's own.
        {std::string(under_emulator() ? "QEMU_SET_ENV=" : "") + "LD_PRELOAD=" KU_PLOCK_PRELOAD,
#ifdef KU_TEST_ASAN
         "ASAN_OPTIONS=verify_asan_link_order=0",  // the stand-in comes before the runtime
#endif
        });
}

// Each failure names its cause; on stdout stands what arrived before it.
TEST_F(KuTool, FetchStreamsSendsCancelsAndSaysWhyItFailed)
{
    ScriptServer sized(trickle("HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n", 40, 25));
    ScriptServer slow(trickle("HTTP/1.1 200 OK\r\nContent-Length: 99999\r\n\r\n", 99999, 20));
    std::string body;
    for (int i = 0; i < 300000; ++i)
        body += static_cast<char>(i * 31 % 256);
    ScriptServer blob(answer_with(ScriptServer::response(200, "OK", body)));
    ScriptServer gone(answer_with(ScriptServer::response(404, "Not Found", "gone\n")));
    ScriptServer echo([](ScriptConnection &connection) {  // it answers with what it was asked
        if (!connection.read_request()) return;
        const HttpRequest q = connection.server.requests().back();
        connection.send(ScriptServer::response(200, "OK", q.method + q.target + q.body +
                                                   q.header("X-1") + q.header("X-2"), "X: 4\r\n"));
    });
    ScriptServer moved(answer_with(ScriptServer::response(302, "Found", "", "Location: /b\r\n")));
    ScriptServer cut(answer_with("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"));
    // Plain text where a TLS handshake should begin.
    ScriptServer plain([](ScriptConnection &connection) { connection.send("HTTP/1.1 4\r\n\r\n"); });
    const std::string free = std::to_string(free_loopback_port()), url = "http://127.0.0.1:" + free;
    dir.write("body", body);
    dir.write("keep", "earlier\n");
    // The body reaches stdout while it arrives (the slow one would take half
    // an hour). Ctrl-C once bytes flow leaves the earlier file; script(1)
    // gives ku a terminal for its bar.
    const std::string term = "script -qefc 'ku fetch " + sized.url("/") + " -o f";
    std::vector<Step> steps = {
        {kWaitFor + "ku fetch " + slow.url("/") + " > o & wait_for '[ -s o ]' && kill -0 $! && "
                    "echo streaming; kill -INT $!; wait $!; echo $?", 0, "streaming\n130\n",
         "ku fetch: cancelled\n"},
        {"ku fetch " + blob.url("/blob") + " -o out && cmp out body"},
        {"ku fetch -i " + echo.url("/"), 0, ScriptServer::response(200, "OK", "GET/", "X: 4\r\n")},
        {"ku fetch " + echo.url("/p") + " --post 'a=1&b=2' -H 'X-1: 1' --header 'X-2: 2'", 0,
         "POST/pa=1&b=212"},
        {"ku fetch " + gone.url("/missing") + " -o keep", 1, "", "404 Not Found"},
        {"ku fetch " + gone.url("/") + " -o no/such/dir/f", 1},
        {kWaitFor + "ku fetch " + slow.url("/") + " -o keep & wait_for '[ -s keep.part ]'; "
                    "kill -INT $!; wait $!; echo $?; rm o out body; ls; cat keep", 0,
         "130\nkeep\nearlier\n", "ku fetch: cancelled\n"},
        {term + " --size 40' /dev/null | grep -q '] 100%  40 B of 40 B' && echo bar; " + term +
         "' /dev/null | tr '\\r' '\\n' | grep -q '^40 B  .*B/s' && echo rate; cat f", 0,
         "bar\nrate\n" + std::string(40, 'x')},
        {"ku fetch " + gone.url("/"), 1, "gone\n", "server answered 'HTTP/1.1 404 Not Found'"},
        {"ku fetch " + moved.url("/old"), 1, "", "see /b \\(redirects are not followed"},
        {"ku fetch " + cut.url("/"), 1, "only this", "transfer cut short: got 9 of 100 bytes"},
        {"ku fetch " + slow.url("/") + " --timeout 1 -o t", 1, "",
         "timed out after 1 s: got [0-9]+ of 99999 "},
        {"ku fetch " + url, 1, "", "cannot connect to 127.0.0.1 port " + free},
        {"ku fetch https" + plain.url().substr(4), 1, "",
         "TLS handshake with 127.0.0.1 port " + std::to_string(plain.port())},
        {"ku fetch " + url + " -H 'no colon'", 2},
        each_fails("fetch", {"", url + " " + url, url + " --timeout 0", url + " --size lots",
                             url + " -o", url + " --resume", "ftp" + gone.url("/").substr(4),
                             "file:///a"})};
    if (kInNamespaces)  // a lookup may only fail where it cannot leave the machine
        steps.push_back({"ku fetch http://no-such-host.invalid/", 1, "", "cannot resolve host"});
    run(steps);
    // None for the file that cannot be written nor the ftp:// URL; no redirect followed.
    EXPECT_EQ(gone.requests().size() + moved.requests().size(), 3u);
    EXPECT_NE(run_process({KU_TOOL_PATH, "fetch", "-v", echo.url("/")}).err.find("CURLMSG_DONE"),
              std::string::npos);
}

}  // namespace
