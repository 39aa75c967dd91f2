// ku table on text table files in a private directory: rows shown with
// their numbers, cells read and replaced, rows appended and deleted, and
// cells refused that the file format could not give back.
#include <gtest/gtest.h>

#include <string>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::read_file;
using KuTable = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_TABLE

const std::string kRoutes = "# interface address state\n"
                            "eth0 192.168.1.1 up\n"
                            "\n"
                            "wlan0   10.0.0.1\n"
                            "br\\ 0 172.16.0.1 down\n";

TEST_F(KuTable, ShowListsRowsWithNumbersAndTabs)
{
    const auto file = dir.write("routes", kRoutes);
    const auto result = ku({"table", "show", file});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "0\teth0\t192.168.1.1\tup\n1\twlan0\t10.0.0.1\n2\tbr 0\t172.16.0.1\tdown\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(KuTable, GetReadsACellOrARow)
{
    const auto file = dir.write("routes", kRoutes);
    EXPECT_EQ(ku({"table", "get", file, "1", "1"}).out, "10.0.0.1\n");
    EXPECT_EQ(ku({"table", "get", file, "2", "0"}).out, "br 0\n");
    EXPECT_EQ(ku({"table", "get", file, "0"}).out, "eth0\t192.168.1.1\tup\n");
    expect_one_line_error(ku({"table", "get", file, "1", "2"}), 1, "table");
    expect_one_line_error(ku({"table", "get", file, "3"}), 1, "table");
}

TEST_F(KuTable, SetReplacesACellAndRewritesTheFile)
{
    const auto file = dir.write("routes", "# comment\neth0 192.168.1.1 up\nwlan0 10.0.0.1\n");
    const auto result = ku({"table", "set", file, "0", "2", "down"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    // The library writes each cell with a blank behind it and drops comments.
    EXPECT_EQ(read_file(file), "eth0 192.168.1.1 down \nwlan0 10.0.0.1 \n");
}

TEST_F(KuTable, SetWithTheSameTextSucceedsAndLeavesTheFile)
{
    const auto file = dir.write("routes", "# comment\neth0 up\n");
    EXPECT_EQ(ku({"table", "set", file, "0", "1", "up"}).status, 0);
    EXPECT_EQ(read_file(file), "# comment\neth0 up\n");
}

TEST_F(KuTable, AppendAddsARowOfCells)
{
    const auto file = dir.write("routes", "eth0 up\n");
    ASSERT_EQ(ku({"table", "append", file, "usb0", "10.1.1.1", "down"}).status, 0);
    EXPECT_EQ(ku({"table", "show", file}).out, "0\teth0\tup\n1\tusb0\t10.1.1.1\tdown\n");
}

TEST_F(KuTable, DeleteRemovesARowAndTheLastRowEmptiesTheFile)
{
    const auto file = dir.write("routes", "a 1\nb 2\n");
    ASSERT_EQ(ku({"table", "delete", file, "0"}).status, 0);
    EXPECT_EQ(read_file(file), "b 2 \n");
    ASSERT_EQ(ku({"table", "delete", file, "0"}).status, 0);
    EXPECT_EQ(read_file(file), "");
    expect_one_line_error(ku({"table", "delete", file, "0"}), 1, "table");
}

TEST_F(KuTable, RefusesCellsTheFileCannotGiveBack)
{
    const auto file = dir.write("routes", "eth0 up\n");
    for (const char *cell : {"two words", "back\\slash", ""}) {
        SCOPED_TRACE(cell);
        expect_one_line_error(ku({"table", "append", file, "x", cell}), 1, "table");
        expect_one_line_error(ku({"table", "set", file, "0", "1", cell}), 1, "table");
    }
    expect_one_line_error(ku({"table", "append", file, "#x", "y"}), 1, "table");
    expect_one_line_error(ku({"table", "set", file, "0", "0", "#x"}), 1, "table");
    EXPECT_EQ(read_file(file), "eth0 up\n");
}

TEST_F(KuTable, MissingFileIsOneLineError)
{
    const auto result = ku({"table", "show", dir.file("absent")});
    expect_one_line_error(result, 1, "table");
}

TEST_F(KuTable, RefusesWrongArguments)
{
    const auto file = dir.write("t", "a b\n");
    expect_one_line_error(ku({"table"}), 2, "table");
    expect_one_line_error(ku({"table", "list", file}), 2, "table");
    expect_one_line_error(ku({"table", "get", file}), 2, "table");
    expect_one_line_error(ku({"table", "get", file, "x"}), 2, "table");
    expect_one_line_error(ku({"table", "get", file, "-1"}), 2, "table");
    expect_one_line_error(ku({"table", "set", file, "0", "0"}), 2, "table");
    expect_one_line_error(ku({"table", "append", file}), 2, "table");
}

#endif  // KU_TOOL_HAVE_TABLE

}  // namespace
