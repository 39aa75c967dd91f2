// The ku tool as a whole: the command list, help and version, the exit
// statuses of a wrong command line, and `ku log` for scripts.
#include <gtest/gtest.h>

#include <ctime>
#include <regex>
#include <sstream>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using KuCli = ku_test::KuTool;

std::vector<std::string> listed_commands()
{
    const auto result = ku({"--help"});
    std::vector<std::string> names;
    std::istringstream lines(result.out);
    std::string line;
    bool in_list = false;
    while (std::getline(lines, line)) {
        if (line == "commands:") {
            in_list = true;
            continue;
        }
        if (in_list && line.rfind("  ", 0) == 0)
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
}

TEST_F(KuCli, HelpListsEveryBuiltFamilyOnStdout)
{
    const auto result = ku({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    std::vector<std::string> expected = {"log", "clock"};
#ifdef KU_TOOL_HAVE_STR
    expected.push_back("str");
#endif
#ifdef KU_TOOL_HAVE_CODEC
    expected.insert(expected.end(), {"b64", "hex"});
#endif
#ifdef KU_TOOL_HAVE_DES
    expected.push_back("des");
#endif
#ifdef KU_TOOL_HAVE_JSON
    expected.push_back("json");
#endif
#ifdef KU_TOOL_HAVE_TABLE
    expected.push_back("table");
#endif
#ifdef KU_TOOL_HAVE_INI
    expected.push_back("ini");
#endif
#ifdef KU_TOOL_HAVE_FETCH
    expected.push_back("fetch");
#endif
#ifdef KU_TOOL_HAVE_RESAMPLE
    expected.push_back("resample");
#endif
#ifdef KU_TOOL_HAVE_NET
    expected.push_back("net");
#endif
#ifdef KU_TOOL_HAVE_SOCK
    expected.push_back("sock");
#endif
#ifdef KU_TOOL_HAVE_PLUGIN
    expected.push_back("plugin");
#endif
#ifdef KU_TOOL_HAVE_MDNS
    expected.push_back("mdns");
#endif
#ifdef KU_TOOL_HAVE_LOCK
    expected.push_back("lock");
#endif
    auto listed = listed_commands();
    std::sort(listed.begin(), listed.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listed, expected);
}

TEST_F(KuCli, EverySubcommandAnswersHelpWithItsUsage)
{
    for (const auto &name : listed_commands()) {
        for (const char *flag : {"--help", "-h"}) {
            const auto result = ku({name, flag});
            EXPECT_EQ(result.status, 0) << name;
            EXPECT_EQ(result.err, "") << name;
            EXPECT_EQ(result.out.rfind("usage: ku " + name, 0), 0u) << name << ": " << result.out;
        }
    }
}

TEST_F(KuCli, VersionIsOneLineOnStdout)
{
    const auto result = ku({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(std::regex_match(result.out, std::regex("ku [0-9]+\\.[0-9]+\\.[0-9]+\n")))
        << result.out;
    EXPECT_EQ(result.err, "");
}

TEST_F(KuCli, NoArgumentsIsAUsageErrorOnStderr)
{
    const auto result = ku({});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("usage: ku COMMAND"), std::string::npos);
}

TEST_F(KuCli, UnknownCommandOrExtraVersionArgumentIsOneLineAndStatus2)
{
    auto result = ku({"frobnicate"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ku: unknown command 'frobnicate' (try 'ku --help')\n");
    result = ku({"--version", "extra"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ku: --version takes no arguments (try 'ku --help')\n");
}

const std::string kLinePrefix = R"(\[[0-9]{4}-[0-9]{2}-[0-9]{2}#[0-9]{2}:[0-9]{2}:[0-9]{2}#[0-9]+\])";

TEST_F(KuCli, LogWritesOneLineAtEachLevel)
{
    const std::pair<const char *, const char *> levels[] = {
        {"err", "ERR:  "}, {"error", "ERR:  "}, {"debug", "DBG:  "}, {"trace", "  "}};
    for (const auto &[level, prefix] : levels) {
        const auto result = ku({"log", level, "disk", "full", "on /data"});
        EXPECT_EQ(result.status, 0) << level;
        EXPECT_EQ(result.out, "") << level;
        EXPECT_TRUE(std::regex_match(
            result.err, std::regex(kLinePrefix + prefix + "disk full on /data\n")))
            << level << ": " << result.err;
    }
}

TEST_F(KuCli, LogTakesPercentSignsLiterally)
{
    const auto result = ku({"log", "debug", "100%", "%s%n"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(std::regex_match(result.err, std::regex(kLinePrefix + "DBG:  100% %s%n\n")))
        << result.err;
}

TEST_F(KuCli, LogRefusesWrongArguments)
{
    expect_one_line_error(ku({"log", "warning", "x"}), 2, "log");
    expect_one_line_error(ku({"log", "err"}), 2, "log");
    expect_one_line_error(ku({"log"}), 2, "log");
    expect_one_line_error(ku({"log", "--loud", "err", "x"}), 2, "log");
}

TEST_F(KuCli, LogTakesTheLongestMessageAndRefusesOneMore)
{
    // The log carries at most 8127 characters; the newline is one of them.
    const auto longest = ku({"log", "trace", std::string(8126, 'x')});
    EXPECT_EQ(longest.status, 0);
    EXPECT_EQ(longest.err.size() - longest.err.find("]  ") - 3, 8127u);

    expect_one_line_error(ku({"log", "trace", std::string(8127, 'x')}), 1, "log");
}

TEST_F(KuCli, NegativeNumbersAreDataNotOptions)
{
    const auto result = ku({"log", "err", "-5", "-1.5", "-"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(std::regex_match(result.err, std::regex(kLinePrefix + "ERR:  -5 -1.5 -\n")))
        << result.err;
}

TEST_F(KuCli, ClockPrintsTicksAndCalendarTime)
{
    const time_t before = time(nullptr);
    const auto result = ku({"clock", "--zone", "2"});
    const time_t after = time(nullptr);
    ASSERT_EQ(result.status, 0) << result.err;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(result.out, m,
                                 std::regex("monotonic_s ([0-9]+)\nmonotonic_ms ([0-9]+)\nmonotonic_us ([0-9]+)\n"
                                            "monotonic_ns ([0-9]+)\nutc ([0-9]+) ([-0-9: ]+)\n"
                                            "local ([0-9]+) ([-0-9: ]+)\n")))
        << result.out;
    const long long s = std::stoll(m[1]), ms = std::stoll(m[2]), us = std::stoll(m[3]), ns = std::stoll(m[4]);
    EXPECT_LE(s, ms / 1000 + 1);
    EXPECT_LE(ms, us / 1000 + 1);  // milliseconds round to nearest
    EXPECT_LE(us, ns / 1000);
    const long long utc = std::stoll(m[5]);
    EXPECT_GE(utc, before);
    EXPECT_LE(utc, after);
    tm broken{};
    const time_t utc_time = static_cast<time_t>(utc);
    gmtime_r(&utc_time, &broken);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &broken);
    EXPECT_EQ(m[6].str(), text);
    // Two hours ahead, in the library's single-precision steps of 128 s.
    EXPECT_NEAR(static_cast<double>(std::stoll(m[7]) - utc), 7200.0, 128.0);
}

TEST_F(KuCli, ClockRefusesWrongArguments)
{
    expect_one_line_error(ku({"clock", "--zone", "east"}), 2, "clock");
    expect_one_line_error(ku({"clock", "--zone", "25"}), 2, "clock");
    expect_one_line_error(ku({"clock", "now"}), 2, "clock");
}

TEST_F(KuCli, DoubleDashEndsOptions)
{
    const auto result = ku({"log", "--", "err", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(std::regex_match(result.err, std::regex(kLinePrefix + "ERR:  --help\n")))
        << result.err;
}

}  // namespace
