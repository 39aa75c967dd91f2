// The command lines handed to system(), which this executable defines: each
// one is recorded instead of run.
#include "ku/mdns.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/capture.h"

static std::vector<std::string> commands;

extern "C" int system(const char *command)
{
    commands.emplace_back(command);
    return 40 + static_cast<int>(commands.size());  // tells the results apart
}

namespace {

const std::string kKill = "$ kill -9 $(pidof mdnsd) 2&>1 > /dev/null\n";
const std::string kInvalid = "ERR:  Error: Invalid argument(s) for mdns registry\n";
const std::string kMissing = "ERR:  Error: Missing argument(s) for mdns registry\n";
const std::string kTooLong = "ERR:  Error: arguments' length are too long\n";

// The log of `call` without its stamp, then "$ command" per command it ran.
std::string effects(const std::function<void()> &call)
{
    commands.clear();
    ku_test::CaptureStderr err;
    call();
    const std::string text = err.finish();
    std::string out = text.substr(text.find(']') + 1);
    for (const std::string &command : commands) {
        out += "$ " + command + "\n";
    }
    return out;
}

TEST(Mdns, DaemonIsKilledThenStartedAndTheLastResultComesBack)
{
    EXPECT_EQ(effects([] { EXPECT_EQ(ku_mdnsd_init(), 42); }), kKill + "$ mdnsd\n");
    EXPECT_EQ(effects([] { EXPECT_EQ(ku_mdnsd_destroy(), 41); }), kKill);
}

std::string registering(char flag, const char *name, const char *type, const char *domain,
                        const char *port, const char *txt)
{
    return effects([&] { ku_mdns_service_register(flag, name, type, domain, port, txt); });
}

TEST(Mdns, RegisterRunsOneCommandOrLogsWhyNot)
{
    const std::string n(235, 'n');  // a name that makes the command 255 characters
    const char *t = "_p._tcp";
    EXPECT_EQ(registering('R', "p", t, "lan", "80", "q"), "$ dns-sd -R p _p._tcp lan 80 q &\n");
    EXPECT_EQ(registering('R', "p", t, "lan", "80", nullptr), "$ dns-sd -R p _p._tcp lan 80  &\n");
    EXPECT_EQ(registering('B', "p", t, nullptr, "80", "q"), "$ dns-sd -B  _p._tcp    &\n");
    EXPECT_EQ(registering('B', nullptr, t, "d", nullptr, nullptr), "$ dns-sd -B  _p._tcp d   &\n");
    EXPECT_EQ(registering('R', n.c_str(), "t", "d", "p", "x"), "$ dns-sd -R " + n + " t d p x &\n");
    EXPECT_EQ(registering('R', (n + "n").c_str(), "t", "d", "p", "x"), kTooLong);
    EXPECT_EQ(registering(0, "p", t, "d", "p", "x"), kInvalid);
    EXPECT_EQ(registering('R', nullptr, t, "d", "p", "x"), kMissing);
    EXPECT_EQ(registering('R', "p", nullptr, "d", "p", "x"), kMissing);
    EXPECT_EQ(registering('R', "p", t, nullptr, "p", "x"), kMissing);
    EXPECT_EQ(registering('R', "p", t, "d", nullptr, "x"), kMissing);
    EXPECT_EQ(registering('B', "p", nullptr, "d", "p", "x"), kMissing);
}

TEST(Mdns, DeregisterLogsAndRunsTheKillPipelineUpTo255Characters)
{
    const auto pipeline = [](const std::string &flag, const std::string &match) {
        const std::string command = "ps -ef|grep 'dns-sd -" + flag + "'|grep '" + match +
                                    "'|grep -v 'grep'|awk '{print $1}'|xargs kill -9";
        return "DBG:  [mdns] " + command + "\n$ " + command + "\n";
    };
    const std::string longest(178, 'm');
    EXPECT_EQ(effects([] { ku_mdns_service_deregister('R', "p"); }), pipeline("R", "p"));
    EXPECT_EQ(effects([] { ku_mdns_service_deregister(0, nullptr); }), pipeline(" ", ""));
    EXPECT_EQ(effects([&] { ku_mdns_service_deregister('R', longest.c_str()); }),
              pipeline("R", longest));
    EXPECT_EQ(effects([&] { ku_mdns_service_deregister('R', (longest + "m").c_str()); }), kTooLong);
}

}  // namespace
