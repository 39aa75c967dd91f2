// Running the built `ku` binary from a test, as a user would from a shell.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/subprocess.h"
#include "support/temp_dir.h"

namespace ku_test {

inline ProcessResult ku(std::vector<std::string> args, const ProcessOptions &options = {})
{
    args.insert(args.begin(), KU_TOOL_PATH);
    return run_process(args, options);
}

inline ProcessResult ku_stdin(std::vector<std::string> args, std::string input)
{
    ProcessOptions options;
    options.input = std::move(input);
    return ku(std::move(args), options);
}

// The one-line error convention: status, nothing on stdout, exactly one line
// on stderr that starts with "ku NAME: ".
inline void expect_one_line_error(const ProcessResult &result, int status, const std::string &name)
{
    EXPECT_EQ(result.status, status) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("ku " + name + ": ", 0), 0u) << result.err;
    ASSERT_FALSE(result.err.empty());
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
}

// Fixture of every tool test: a private directory and a skip when the tool
// is not part of this build.
class KuTool : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (std::string(KU_TOOL_PATH).empty())
            GTEST_SKIP() << "the ku tool is not built (KU_BUILD_TOOLS=OFF)";
    }
    TempDir dir;
};

}  // namespace ku_test
