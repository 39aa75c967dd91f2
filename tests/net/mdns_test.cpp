// The command lines handed to system(), which this executable defines: each
// one is recorded instead of run.
#include "ku/mdns.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

#include "support/capture.h"

static std::string ran;  // "$ command" per line

extern "C" int system(const char *command)
{
    ran += "$ " + std::string(command) + "\n";
    return 40 + static_cast<int>(std::count(ran.begin(), ran.end(), '\n'));  // tells them apart
}

namespace {

const std::string kKill = "$ kill -9 $(pidof mdnsd) 2&>1 > /dev/null\n";
const std::string kInvalid = "ERR:  Error: Invalid argument(s) for mdns registry\n";
const std::string kMissing = "ERR:  Error: Missing argument(s) for mdns registry\n";
const std::string kTooLong = "ERR:  Error: arguments' length are too long\n";

// What `call(args...)` logs, without the stamp, then "$ command" per command run.
template <typename Call, typename... Args>
std::string effects(Call call, Args... args)
{
    ran.clear();
    ku_test::CaptureStderr err;
    call(args...);
    const std::string text = err.finish();
    return text.substr(text.find(']') + 1) + ran;
}

TEST(Mdns, DaemonIsKilledThenStartedAndTheLastResultComesBack)
{
    EXPECT_EQ(effects([] { EXPECT_EQ(ku_mdnsd_init(), 42); }), kKill + "$ mdnsd\n");
    EXPECT_EQ(effects([] { EXPECT_EQ(ku_mdnsd_destroy(), 41); }), kKill);
}

TEST(Mdns, RegisterRunsOneCommandOrLogsWhyNot)
{
    const auto reg = ku_mdns_service_register;
    const char *t = "_p._tcp";
    EXPECT_EQ(effects(reg, 'R', "p", t, "lan", "80", "q"), "$ dns-sd -R p _p._tcp lan 80 q &\n");
    EXPECT_EQ(effects(reg, 'R', "p", t, "lan", "80", nullptr), "$ dns-sd -R p _p._tcp lan 80  &\n");
    EXPECT_EQ(effects(reg, 'B', "p", t, nullptr, "80", "q"), "$ dns-sd -B  _p._tcp    &\n");
    EXPECT_EQ(effects(reg, 'B', nullptr, t, "d", nullptr, nullptr), "$ dns-sd -B  _p._tcp d   &\n");
    EXPECT_EQ(effects(reg, 0, "p", t, "d", "p", "x"), kInvalid);
    EXPECT_EQ(effects(reg, 'R', nullptr, t, "d", "p", "x"), kMissing);
    EXPECT_EQ(effects(reg, 'R', "p", nullptr, "d", "p", "x"), kMissing);
    EXPECT_EQ(effects(reg, 'R', "p", t, nullptr, "p", "x"), kMissing);
    EXPECT_EQ(effects(reg, 'R', "p", t, "d", nullptr, "x"), kMissing);
    EXPECT_EQ(effects(reg, 'B', "p", nullptr, "d", "p", "x"), kMissing);
}

TEST(Mdns, DeregisterLogsAndRunsTheKillPipelineUpTo255Characters)
{
    const auto pipeline = [](const std::string &flag, const std::string &match) {
        const std::string command = "ps -ef|grep 'dns-sd -" + flag + "'|grep '" + match +
                                    "'|grep -v 'grep'|awk '{print $1}'|xargs kill -9";
        return "DBG:  [mdns] " + command + "\n$ " + command + "\n";
    };
    const auto dereg = ku_mdns_service_deregister;
    const std::string longest(178, 'm');
    EXPECT_EQ(effects(dereg, 0, nullptr), pipeline(" ", ""));
    EXPECT_EQ(effects(dereg, 'R', longest.c_str()), pipeline("R", longest));
    EXPECT_EQ(effects(dereg, 'R', (longest + "m").c_str()), kTooLong);
}

}  // namespace
