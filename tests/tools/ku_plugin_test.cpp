// ku plugin with real plug-ins built for the test: a good one, one that
// gives another name, one without operations, and files that are none.
#include <gtest/gtest.h>

#include <string>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using KuPlugin = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_PLUGIN

const std::string kDir = KU_TEST_PLUGIN_DIR;

TEST_F(KuPlugin, LoadsAPluginAndReportsItsOperations)
{
    const auto result = ku({"plugin", kDir, "kuplug_", "echo"});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string file = kDir + "/kuplug_echo.so";
    EXPECT_EQ(result.out.rfind("open " + file + " succeed\nplug-in 'echo' loaded from " + file +
                                   ", operations at 0x",
                               0),
              0u)
        << result.out;
    EXPECT_EQ(result.err, "");
}

TEST_F(KuPlugin, EmptyPrefixLooksForNameDotSo)
{
    const std::string copy = dir.file("echo.so");
    ASSERT_EQ(ku_test::run_process({"cp", kDir + "/kuplug_echo.so", copy}).status, 0);
    const auto result = ku({"plugin", dir.path(), "", "echo"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("open " + copy + " succeed"), std::string::npos) << result.out;
}

TEST_F(KuPlugin, FailsWhenTheFileIsMissing)
{
    const auto result = ku({"plugin", kDir, "kuplug_", "absent"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("access " + kDir + "/kuplug_absent.so failed\n"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("ku plugin: cannot load plug-in 'absent'"), std::string::npos) << result.err;
}

TEST_F(KuPlugin, FailsWhenThePluginGivesAnotherName)
{
    const auto result = ku({"plugin", kDir, "kuplug_", "liar"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("\"other\""), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("ku plugin: cannot load plug-in 'liar'"), std::string::npos) << result.err;
}

TEST_F(KuPlugin, FailsWhenThePluginHasNoOperations)
{
    const auto result = ku({"plugin", kDir, "kuplug_", "empty"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("module_ops not found"), std::string::npos) << result.err;
}

TEST_F(KuPlugin, FailsOnAFileThatIsNoSharedObject)
{
    dir.write("plug_text.so", "just text\n");
    const auto result = ku({"plugin", dir.path(), "plug_", "text"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("dlopen failed"), std::string::npos) << result.err;
}

TEST_F(KuPlugin, RefusesWrongArguments)
{
    expect_one_line_error(ku({"plugin", kDir, "kuplug_"}), 2, "plugin");
    expect_one_line_error(ku({"plugin", kDir, "kuplug_", ""}), 2, "plugin");
    expect_one_line_error(ku({"plugin", kDir, "kuplug_", "echo", "more"}), 2, "plugin");
}

#endif  // KU_TOOL_HAVE_PLUGIN

}  // namespace
