#include "ku/mdns.h"

#include <algorithm>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/mdns_tools.h"

// system() of this executable: recorded and answered from a script of
// results, or handed to libc for the runs against the stand-in tools.
namespace {
bool run_for_real = false;
std::vector<std::string> commands;
std::vector<int> answers;
}  // namespace

extern "C" int system(const char *command)
{
    if (run_for_real) {
        using Real = int (*)(const char *);
        static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "system"));
        return real(command);
    }
    commands.emplace_back(command);
    if (answers.empty()) {
        return 0;
    }
    const int answer = answers.front();
    answers.erase(answers.begin());
    return answer;
}

namespace {

using ku_test::CaptureStderr;
using ku_test::MdnsTools;

constexpr const char *kKill = "kill -9 $(pidof mdnsd) 2&>1 > /dev/null";
constexpr const char *kInvalid = "ERR:  Error: Invalid argument(s) for mdns registry\n";
constexpr const char *kMissing = "ERR:  Error: Missing argument(s) for mdns registry\n";
constexpr const char *kTooLong = "ERR:  Error: arguments' length are too long\n";

using Commands = std::vector<std::string>;

class Mdns : public ::testing::Test {
protected:
    void SetUp() override
    {
        commands.clear();
        answers.clear();
    }
    void TearDown() override { run_for_real = false; }
};

// Lines of `text` without their "[date#time#tick]" stamps.
std::vector<std::string> unstamped_lines(const std::string &text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        const std::string line = text.substr(start, end - start);
        const size_t stamp_end = line.find(']');
        lines.push_back(stamp_end == std::string::npos ? line : line.substr(stamp_end + 1));
        start = end;
    }
    return lines;
}

std::vector<std::string> register_logging(char flag, const char *name, const char *type,
                                          const char *domain, const char *port, const char *txt)
{
    CaptureStderr capture;
    ku_mdns_service_register(flag, name, type, domain, port, txt);
    return unstamped_lines(capture.finish());
}

TEST_F(Mdns, InitKillsTheDaemonThenStartsOneAndGivesTheSecondResult)
{
    answers = {256, 42};
    EXPECT_EQ(ku_mdnsd_init(), 42);
    EXPECT_EQ(commands, (Commands{kKill, "mdnsd"}));
}

TEST_F(Mdns, DestroyRunsTheKillCommandAlone)
{
    answers = {7};
    EXPECT_EQ(ku_mdnsd_destroy(), 7);
    EXPECT_EQ(commands, Commands{kKill});
}

// One row per argument rule: the command run in the background, or the error
// line and no command.
TEST_F(Mdns, RegisterBuildsOneCommandOrNamesTheBadArgument)
{
    struct Row {
        char flag;
        const char *name, *type, *domain, *port, *txt;
        std::string command;  // "" when refused
        const char *error;
    };
    const std::string fits(235, 'n');  // 20 characters around the name: 255
    const std::string over(236, 'n');
    const Row rows[] = {
        {'R', "printer", "_ipp._tcp", "local", "631", "rp=queue", "dns-sd -R printer _ipp._tcp local 631 rp=queue &",
         nullptr},
        {'R', "printer", "_ipp._tcp", "local", "631", nullptr, "dns-sd -R printer _ipp._tcp local 631  &", nullptr},
        {'B', "printer", "_ipp._tcp", nullptr, "631", "rp=queue", "dns-sd -B  _ipp._tcp    &", nullptr},
        {'B', nullptr, "_ipp._tcp", "local", nullptr, nullptr, "dns-sd -B  _ipp._tcp local   &", nullptr},
        {'R', fits.c_str(), "t", "d", "p", "x", "dns-sd -R " + fits + " t d p x &", nullptr},
        {'R', over.c_str(), "t", "d", "p", "x", "", kTooLong},
        {'X', nullptr, nullptr, nullptr, nullptr, nullptr, "", kInvalid},
        {'r', "printer", "_ipp._tcp", "local", "631", "x", "", kInvalid},
        {0, "printer", "_ipp._tcp", "local", "631", "x", "", kInvalid},
        {'R', nullptr, "_ipp._tcp", "local", "631", "x", "", kMissing},
        {'R', "printer", nullptr, "local", "631", "x", "", kMissing},
        {'R', "printer", "_ipp._tcp", nullptr, "631", "x", "", kMissing},
        {'R', "printer", "_ipp._tcp", "local", nullptr, "x", "", kMissing},
        {'B', "printer", nullptr, "local", "631", "x", "", kMissing},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.flag << " " << (row.name ? row.name : "<null>"));
        commands.clear();
        const auto log = register_logging(row.flag, row.name, row.type, row.domain, row.port, row.txt);
        EXPECT_EQ(log, row.error ? std::vector<std::string>{row.error} : std::vector<std::string>{});
        EXPECT_EQ(commands, row.command.empty() ? Commands{} : Commands{row.command});
    }
}

TEST_F(Mdns, DeregisterLogsThenRunsTheKillPipeline)
{
    const std::string expected =
        "ps -ef|grep 'dns-sd -R'|grep 'printer'|grep -v 'grep'|awk '{print $1}'|xargs kill -9";
    CaptureStderr capture;
    ku_mdns_service_deregister('R', "printer");
    EXPECT_EQ(unstamped_lines(capture.finish()),
              std::vector<std::string>{"DBG:  [mdns] " + expected + "\n"});
    EXPECT_EQ(commands, Commands{expected});
}

TEST_F(Mdns, DeregisterWithFlagZeroAndNullMatch)
{
    ku_mdns_service_deregister(0, nullptr);
    ku_mdns_service_deregister('Q', "x");
    EXPECT_EQ(commands,
              (Commands{"ps -ef|grep 'dns-sd - '|grep ''|grep -v 'grep'|awk '{print $1}'|xargs kill -9",
                        "ps -ef|grep 'dns-sd -Q'|grep 'x'|grep -v 'grep'|awk '{print $1}'|xargs kill -9"}));
}

TEST_F(Mdns, DeregisterCommandOf255CharactersRunsAnd256IsRefused)
{
    // The pipeline is 77 characters with an empty match.
    ku_mdns_service_deregister('R', std::string(178, 'm').c_str());
    ASSERT_EQ(commands.size(), 1u);
    EXPECT_EQ(commands[0].size(), 255u);

    CaptureStderr capture;
    ku_mdns_service_deregister('R', std::string(179, 'm').c_str());
    EXPECT_EQ(unstamped_lines(capture.finish()), std::vector<std::string>{kTooLong});
    EXPECT_EQ(commands.size(), 1u);
}

TEST_F(Mdns, StandInsEndOnlyWhereFlagAndMatchBothFit)
{
    MdnsTools tools;
    if (!tools.ready()) {
        GTEST_SKIP() << tools.missing();
    }
    const std::string a = "ku-a-" + tools.unique();
    const std::string b = "ku-b-" + tools.unique();
    const std::string browsed = "_ku" + tools.unique() + "._tcp";
    run_for_real = true;
    ku_mdns_service_register('R', a.c_str(), "_ku._tcp", "local", "8080", "v=1");
    ku_mdns_service_register('R', b.c_str(), "_ku._tcp", "local", "8081", nullptr);
    ku_mdns_service_register('B', "ignored", browsed.c_str(), nullptr, "1", "2");

    const std::vector<MdnsTools::Started> started = tools.wait_for_started(3);
    ASSERT_EQ(started.size(), 3u);
    auto pid_of = [&](const std::string &arguments) -> pid_t {
        for (const MdnsTools::Started &one : started) {
            if (one.arguments == arguments) {
                return one.pid;
            }
        }
        ADD_FAILURE() << "no stand-in ran with: " << arguments;
        return -1;
    };
    const pid_t pid_a = pid_of("-R " + a + " _ku._tcp local 8080 v=1");
    const pid_t pid_b = pid_of("-R " + b + " _ku._tcp local 8081");
    const pid_t pid_browse = pid_of("-B " + browsed);
    ASSERT_TRUE(pid_a > 0 && pid_b > 0 && pid_browse > 0);
    ASSERT_TRUE(MdnsTools::running(pid_a));

    // The flag 0 pattern "dns-sd - " fits none of them.
    ku_mdns_service_deregister(0, b.c_str());
    ku_mdns_service_deregister('B', a.c_str());
    ku_mdns_service_deregister('R', a.c_str());
    EXPECT_TRUE(MdnsTools::ended_soon(pid_a));
    EXPECT_TRUE(MdnsTools::running(pid_b));
    EXPECT_TRUE(MdnsTools::running(pid_browse));

    ku_mdns_service_deregister('B', browsed.c_str());
    EXPECT_TRUE(MdnsTools::ended_soon(pid_browse));
    EXPECT_TRUE(MdnsTools::running(pid_b));
}

}  // namespace
