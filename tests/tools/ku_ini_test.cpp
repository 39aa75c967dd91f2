// ku ini on INI files in a private directory: values read byte for byte,
// values replaced in place through the temporary file, and keys that are
// absent reported instead of silently kept.
#include <gtest/gtest.h>

#include <string>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::read_file;
using KuIni = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_INI

const std::string kSettings = "# settings\n"
                              "[net]\n"
                              "ip=192.168.1.5\n"
                              "name= box one \n"
                              "[dns]\n"
                              "server=8.8.8.8\n"
                              "empty=\n";

TEST_F(KuIni, GetPrintsTheValueByteForByte)
{
    const auto file = dir.write("s.ini", kSettings);
    const auto result = ku({"ini", "get", file, "net", "ip"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "192.168.1.5\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ku({"ini", "get", file, "net", "name"}).out, " box one \n");
    EXPECT_EQ(ku({"ini", "get", file, "dns", "empty"}).out, "\n");
}

TEST_F(KuIni, ASectionRunsOnPastTheNextHeader)
{
    const auto file = dir.write("s.ini", kSettings);
    EXPECT_EQ(ku({"ini", "get", file, "net", "server"}).out, "8.8.8.8\n");
}

TEST_F(KuIni, AbsentKeysAndSectionsFail)
{
    const auto file = dir.write("s.ini", kSettings);
    expect_one_line_error(ku({"ini", "get", file, "net", "gateway"}), 1, "ini");
    expect_one_line_error(ku({"ini", "get", file, "wifi", "ip"}), 1, "ini");
    expect_one_line_error(ku({"ini", "get", file, "dns", "ip"}), 1, "ini");
}

TEST_F(KuIni, PutReplacesOnlyThatValue)
{
    const auto file = dir.write("s.ini", kSettings);
    const auto result = ku({"ini", "put", file, "net", "ip", "10.0.0.9"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    std::string expected = kSettings;
    expected.replace(expected.find("192.168.1.5"), 11, "10.0.0.9");
    EXPECT_EQ(read_file(file), expected);
    EXPECT_EQ(read_file(file + ".tmp"), "");
}

TEST_F(KuIni, PutOfAnAbsentKeyFailsAndKeepsTheFile)
{
    const auto file = dir.write("s.ini", kSettings);
    expect_one_line_error(ku({"ini", "put", file, "net", "gateway", "10.0.0.1"}), 1, "ini");
    EXPECT_EQ(read_file(file), kSettings);
}

TEST_F(KuIni, MissingFileIsOneLineError)
{
    expect_one_line_error(ku({"ini", "get", dir.file("absent.ini"), "a", "b"}), 1, "ini");
    expect_one_line_error(ku({"ini", "put", dir.file("absent.ini"), "a", "b", "c"}), 1, "ini");
}

TEST_F(KuIni, RefusesWhatTheFileCannotHold)
{
    const auto file = dir.write("s.ini", kSettings);
    expect_one_line_error(ku({"ini", "put", file, "net", "ip", "two\nlines"}), 2, "ini");
    expect_one_line_error(ku({"ini", "get", file, std::string(30, 's'), "ip"}), 2, "ini");
    expect_one_line_error(ku({"ini", "get", file, "net", "a=b"}), 2, "ini");
    expect_one_line_error(ku({"ini", "put", file, "net", "ip", std::string(1020, 'v')}), 2, "ini");
    EXPECT_EQ(read_file(file), kSettings);
}

TEST_F(KuIni, RefusesWrongArguments)
{
    const auto file = dir.write("s.ini", kSettings);
    expect_one_line_error(ku({"ini"}), 2, "ini");
    expect_one_line_error(ku({"ini", "set", file, "net", "ip", "x"}), 2, "ini");
    expect_one_line_error(ku({"ini", "get", file, "net"}), 2, "ini");
    expect_one_line_error(ku({"ini", "put", file, "net", "ip"}), 2, "ini");
}

#endif  // KU_TOOL_HAVE_INI

}  // namespace
