// Running the built `ku` from a test, as a user would from a shell.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "support/subprocess.h"
#include "support/temp_dir.h"

namespace ku_test {

// A shell line and what it gives. Failed, its "ku NAME" has written one line
// "ku NAME: ..." in which the regular expression `err` is found; else stderr
// matches `err` whole.
struct Step {
    std::string line;
    int status = 0;
    std::string out{}, err{}, in{};
};

// `ku NAME ARGS` for each ARGS in one step: each fails with `status` and its line.
inline Step each_fails(const std::string &name, const std::vector<std::string> &args,
                       int status = 2)
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

}  // namespace ku_test
