// Running the built `ku` from a test, as a user would from a shell.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "support/subprocess.h"
#include "support/temp_dir.h"

namespace ku_test {

inline ProcessResult ku(std::vector<std::string> args, const ProcessOptions &options = {})
{
    args.insert(args.begin(), KU_TOOL_PATH);
    return run_process(args, options);
}

// A command line ("ku" is the built tool) and what it gives. One that fails
// writes one line "ku NAME: ..." in which the regular expression `err` is
// found; one that succeeds writes what `err` matches whole.
struct Step {
    std::vector<std::string> argv;
    int status = 0;
    std::string out{}, err{}, in{};
};

// `ku NAME ARGS` for each ARGS (split at blanks) in one step: each fails
// with `status` and its line.
inline Step each_fails(const std::string &name, const std::vector<std::string> &args, int status = 2)
{
    Step step{{"sh", "-c", "for a in"}, 0, "", "(ku " + name + ": .*\n){" + std::to_string(args.size()) + "}"};
    for (const auto &arg : args) {
        step.argv[2] += " '" + arg + "'";
        step.out += std::to_string(status) + "\n";
    }
    step.argv[2] += "; do ku " + name + " $a; echo $?; done";
    return step;
}

// Each test has a private directory, where its steps run with the tool and
// the directory itself first on PATH.
class KuTool : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (std::string(KU_TOOL_PATH).empty())
            GTEST_SKIP() << "the ku tool is not built (KU_BUILD_TOOLS=OFF)";
    }

    void run(const std::vector<Step> &steps, std::vector<std::string> env = {}) const
    {
        const std::string tool = KU_TOOL_PATH;
        ProcessOptions options{"", std::move(env), dir.path()};
        options.env.push_back("PATH=" + tool.substr(0, tool.rfind('/')) + ":" + dir.path() + ":" +
                              getenv("PATH"));
        for (const Step &step : steps) {
            std::string line;
            for (const auto &arg : step.argv)
                line += arg.substr(0, 100) + " ";
            SCOPED_TRACE(line);
            options.input = step.in;
            const auto result = run_process(step.argv, options);
            EXPECT_EQ(result.status, step.status) << result.err;
            EXPECT_TRUE(result.out == step.out) << result.out.substr(0, 400);
            const std::string name = step.argv[0] == "ku" ? step.argv[1] : "[a-z]+";
            EXPECT_TRUE(step.status == 0 ? std::regex_match(result.err, std::regex(step.err))
                                         : std::regex_match(result.err, std::regex("ku " + name + ": .*\n")) &&
                                               std::regex_search(result.err, std::regex(step.err)))
                << result.err;
        }
    }

    TempDir dir;
};

}  // namespace ku_test
