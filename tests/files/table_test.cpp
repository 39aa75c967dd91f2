// Text tables: the field and escape rules on load, the edits, and what a save writes.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ku/table.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/temp_dir.h"

using Rows = std::vector<std::vector<std::string>>;

static Rows cells_of(kutable *table)
{
    Rows rows(static_cast<size_t>(kutable_row_number(table)));
    for (int row = 0; row < kutable_row_number(table); ++row) {
        for (int col = 0; col < kutable_colume_number(table, row); ++col) {
            rows[static_cast<size_t>(row)].emplace_back(kutable_get(table, row, col));
        }
    }
    return rows;
}

TEST(Table, LoadSplitsFieldsByTheFormatRulesAndEditsChangeOneCell)
{
    ku_test::TempDir dir;
    const std::string x300(300, 'x'), y299(299, 'y');
    const std::pair<std::string, Rows> rows[] = {
        {"a b   c\n  d  \n", {{"a", "b", "c"}, {"d"}}},
        {"a\\ b  c\n", {{"a b", "c"}}},
        {"a\\\\ b\n", {{"a\\ b"}}},  // a space behind an escaped backslash still joins
        {"a \\\n", {{"a", ""}}},
        {"# comment\n\n   \n \\ \\\\ \r\n\tx\n", {{"\tx"}}},
        {"  #not comment\n", {{"#not", "comment"}}},
        {"a b\r\nc\rdropped\n\rhidden\n", {{"a", "b"}, {"c"}, {}}},
        {x300 + " " + y299 + "\n", {{x300, std::string(210, 'y')}, {std::string(89, 'y')}}},
    };
    for (const auto &[content, cells] : rows) {
        kutable *table = kutable_load(dir.write("t", content).c_str());
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(cells_of(table), cells) << content;
        kutable_close(table);
    }
    // Edits refuse what is outside the table and keep the rest.
    kutable *table = kutable_load(dir.write("t", "hello world\nc\nlast\n").c_str());
    for (auto [row, col] : {std::pair{-1, 0}, {3, 0}, {0, -1}, {0, 2}, {1, 1}}) {
        EXPECT_EQ(kutable_get(table, row, col), nullptr) << row << "," << col;
        EXPECT_EQ(kutable_set(table, row, col, "z"), -1) << row << "," << col;
    }
    const std::string longer(600, 'L'), w700(700, 'w');  // the 511-byte limit is the file's
    const std::vector results = {
        kutable_set(table, 0, 0, "hello"), kutable_set(table, 0, 0, "hel"),
        kutable_set(table, 0, 1, longer.c_str()), kutable_delete(table, 1),
        kutable_delete(table, 2), kutable_append(table, "p\\ q  r\r\ndropped"),
        kutable_append(table, w700.c_str()), kutable_append(table, "#comment"),
        kutable_append(table, "  \\ \r\n")};
    EXPECT_EQ(results, (std::vector{-1, 0, 0, 0, 0, 0, 0, -1, -1}));
    EXPECT_EQ(cells_of(table), (Rows{{"hel", longer}, {"last"}, {"p q", "r"}, {w700}}));
    kutable_close(table);
}

// A refused allocation leaves the table as it was (the torture suite fails
// each call of a load, an edit and a save in turn).
TEST(Table, WithoutMemorySetAndAppendChangeNothing)
{
    KU_REQUIRE_ALLOC_CONTROL();
    ku_test::TempDir dir;
    kutable *table = kutable_load(dir.write("t", "ab\nc d e\n").c_str());
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kAnyAlloc, 0, -1);
    EXPECT_EQ(kutable_set(table, 0, 0, "much longer"), -1);
    EXPECT_EQ(kutable_append(table, "x y"), -1);
    alloc.allow();
    EXPECT_EQ(cells_of(table), (Rows{{"ab"}, {"c", "d", "e"}}));
    kutable_close(table);
}

// Cells go out plain with a space each: what the format cannot say is lost.
TEST(Table, SaveWritesCellsPlainAndLeavesAnEmptyTablesFile)
{
    ku_test::TempDir dir;
    const std::string path = dir.write("t", "# c\na   b\n\nc x\n\rhidden\nnext\n");
    const std::string saved = "a b \nwith sp\\ce x \n\nnext \n";
    kutable *table = kutable_load(path.c_str());
    kutable_set(table, 1, 0, "with sp\\ce");
    EXPECT_EQ(kutable_save(table), 0);
    EXPECT_EQ(ku_test::read_file(path), saved);
    while (kutable_row_number(table) > 0) {  // from the end: nothing may move
        kutable_delete(table, kutable_row_number(table) - 1);
    }
    EXPECT_EQ(kutable_save(table), 0);
    EXPECT_EQ(ku_test::read_file(path), saved);
    ASSERT_EQ(kutable_append(table, "z"), 0);
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);  // no file can be opened there
    ku_test::CaptureStderr err;
    EXPECT_EQ(kutable_save(table), -1);
    kutable_close(table);
    EXPECT_EQ(kutable_load(dir.file("missing").c_str()), nullptr);
    const std::string log = err.finish();
    EXPECT_NE(log.find("]ERR:  open table file " + path + " failed, cannot save\n"), log.npos);
    EXPECT_NE(log.find("]ERR:  load table file " + dir.file("missing") + " failed\n"), log.npos);
}
