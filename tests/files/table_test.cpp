// Text tables: the field and escape rules on load, the edits, and what a save
// and a new load give back.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "ku/table.h"
#include "support/alloc_control.h"
#include "support/capture.h"
#include "support/temp_dir.h"

using ku_test::CaptureStderr;
using ku_test::TempDir;

namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows cells_of(kutable *table)
{
    Rows rows;
    for (int row = 0; row < kutable_row_number(table); ++row) {
        std::vector<std::string> cells;
        for (int col = 0; col < kutable_colume_number(table, row); ++col) {
            cells.emplace_back(kutable_get(table, row, col));
        }
        rows.push_back(cells);
    }
    return rows;
}

class Table : public ::testing::Test {
protected:
    kutable *load(const std::string &content)
    {
        path_ = dir_.write("table.txt", content);
        kutable *table = kutable_load(path_.c_str());
        EXPECT_NE(table, nullptr);
        return table;
    }
    Rows load_cells(const std::string &content)
    {
        kutable *table = load(content);
        Rows rows = cells_of(table);
        kutable_close(table);
        return rows;
    }
    // Saves the table, closes it and gives the cells of a fresh load.
    Rows save_and_reload(kutable *table)
    {
        EXPECT_EQ(kutable_save(table), 0);
        kutable_close(table);
        kutable *again = kutable_load(path_.c_str());
        Rows rows = cells_of(again);
        kutable_close(again);
        return rows;
    }
    TempDir dir_;
    std::string path_;
};

}  // namespace

// One row per field and line rule of the file format.
TEST_F(Table, LoadSplitsFieldsByTheFormatRules)
{
    const std::pair<const char *, Rows> rows[] = {
        {"a b   c\n  d  \n", {{"a", "b", "c"}, {"d"}}},      // runs of spaces count as one
        {"a\\ b  c\n", {{"a b", "c"}}},                      // an escaped space stays in the field
        {"a\\\\ b\n", {{"a\\ b"}}},                          // a space behind a backslash separates nothing
        {"a \\\n", {{"a", ""}}},                             // a lone backslash at the end: an empty cell
        {"a \\ b\n", {{"a", " b"}}},                         // a backslash between spaces joins the next field
        {"a b\\ \n", {{"a", "b"}}},                          // a trailing backslash-space goes
        {"# comment\n\n   \n \\ \\\\ \r\n\tx\n", {{"\tx"}}},  // comments and blank lines are no rows
        {"  #not comment\n", {{"#not", "comment"}}},         // '#' behind spaces starts a row
        {"a b\r\nc\rdropped\n", {{"a", "b"}, {"c"}}},        // CR ends the line
        {"", {}},
    };
    for (const auto &[content, cells] : rows) {
        EXPECT_EQ(load_cells(content), cells) << content;
    }
}

TEST_F(Table, EmptyFileAndCommentsOnlyGiveNoRows)
{
    kutable *table = load("# one\n#two\n");
    EXPECT_EQ(kutable_row_number(table), 0);
    EXPECT_EQ(kutable_get(table, 0, 0), nullptr);
    EXPECT_EQ(kutable_colume_number(table, 0), 0);
    EXPECT_EQ(kutable_set(table, 0, 0, "x"), -1);
    kutable_close(table);
}

TEST_F(Table, ContentOnlyBehindTheFirstCrIsARowOfNoCells)
{
    kutable *table = load("\rhidden\nnext\n");
    ASSERT_EQ(kutable_row_number(table), 2);
    EXPECT_EQ(kutable_colume_number(table, 0), 0);
    EXPECT_EQ(kutable_get(table, 0, 0), nullptr);
    EXPECT_STREQ(kutable_get(table, 1, 0), "next");
    EXPECT_EQ(kutable_save(table), 0);
    EXPECT_EQ(ku_test::read_file(path_), "\nnext \n") << "the row of no cells is an empty line";
    kutable_close(table);
}

TEST_F(Table, LineOf600BytesSplitsBehindByte511)
{
    const std::string first(300, 'x');
    const std::string second(299, 'y');  // + the blank = 600 bytes
    // Byte 511 falls inside the second field: it comes out as two cells.
    const Rows rows = load_cells(first + " " + second + "\n");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0], (std::vector<std::string>{first, std::string(210, 'y')}));
    EXPECT_EQ(rows[1], (std::vector<std::string>{std::string(89, 'y')}));
}

TEST_F(Table, MissingFileGivesNullAndAnErrorLine)
{
    const std::string path = dir_.file("missing.txt");
    CaptureStderr err;
    EXPECT_EQ(kutable_load(path.c_str()), nullptr);
    EXPECT_NE(err.finish().find("]ERR:  load table file " + path + " failed\n"), std::string::npos);
}

// --- edits -------------------------------------------------------------------

TEST_F(Table, GetAndColumeNumberAgreeOnOutside)
{
    kutable *table = load("a b\nc\n");
    EXPECT_EQ(kutable_row_number(table), 2);
    EXPECT_EQ(kutable_colume_number(table, 0), 2);
    EXPECT_EQ(kutable_colume_number(table, 1), 1);
    for (auto [row, col] : {std::pair{-1, 0}, {2, 0}, {0, -1}, {0, 2}, {1, 1}}) {
        EXPECT_EQ(kutable_get(table, row, col), nullptr) << row << "," << col;
        EXPECT_EQ(kutable_set(table, row, col, "z"), -1) << row << "," << col;
    }
    EXPECT_EQ(kutable_colume_number(table, -1), 0);
    EXPECT_EQ(kutable_colume_number(table, 2), 0);
    kutable_close(table);
}

TEST_F(Table, SetSameTextIsRefusedPrefixAndLongerAreStored)
{
    kutable *table = load("hello world\n");
    EXPECT_EQ(kutable_set(table, 0, 0, "hello"), -1);
    EXPECT_EQ(kutable_set(table, 0, 0, "hel"), 0);
    EXPECT_STREQ(kutable_get(table, 0, 0), "hel");
    const std::string longer(100, 'L');
    EXPECT_EQ(kutable_set(table, 0, 1, longer.c_str()), 0);
    EXPECT_EQ(kutable_get(table, 0, 1), longer);
    kutable_close(table);
}

TEST_F(Table, SetOrAppendWithoutMemoryChangesNothing)
{
    KU_REQUIRE_ALLOC_CONTROL();
    kutable *table = load("ab\n");
    ku_test::AllocControl alloc;
    alloc.fail(ku_test::kRealloc, 0, -1);
    EXPECT_EQ(kutable_set(table, 0, 0, "much longer"), -1);
    alloc.fail(ku_test::kAnyAlloc, 0, -1);
    EXPECT_EQ(kutable_append(table, "x y"), -1);
    alloc.allow();
    EXPECT_EQ(cells_of(table), (Rows{{"ab"}}));
    kutable_close(table);
}

TEST_F(Table, DeleteMovesRowsUpAndAlwaysGivesZero)
{
    kutable *table = load("a\nb\nc\n");
    EXPECT_EQ(kutable_delete(table, 1), 0);
    EXPECT_EQ(cells_of(table), (Rows{{"a"}, {"c"}}));
    EXPECT_EQ(kutable_delete(table, 5), 0);
    EXPECT_EQ(kutable_delete(table, -1), 0);
    EXPECT_EQ(kutable_row_number(table), 2);
    kutable_close(table);
}

TEST_F(Table, DeletingTheOnlyRowThenSaveLeavesTheFileAndAppendWorks)
{
    kutable *table = load("only row\n");
    EXPECT_EQ(kutable_delete(table, 0), 0);
    EXPECT_EQ(kutable_row_number(table), 0);
    EXPECT_EQ(kutable_save(table), 0);
    EXPECT_EQ(ku_test::read_file(path_), "only row\n");
    EXPECT_EQ(kutable_append(table, "new row"), 0);
    EXPECT_EQ(cells_of(table), (Rows{{"new", "row"}}));
    kutable_close(table);
}

TEST_F(Table, AppendParsesFullyAndRefusesCommentsAndBlanks)
{
    kutable *table = load("# only a comment\n");
    const std::string long_field(700, 'w');  // the 511-byte limit is the file's
    EXPECT_EQ(kutable_append(table, ("x\\ y  z " + long_field + "\r\ndropped").c_str()), 0);
    EXPECT_EQ(kutable_append(table, "#comment"), -1);
    EXPECT_EQ(kutable_append(table, "  \\ \r\n"), -1);
    EXPECT_EQ(cells_of(table), (Rows{{"x y", "z", long_field}}));
    kutable_close(table);
}

TEST_F(Table, AppendDoesNotChangeTheCallersText)
{
    kutable *table = load("a\n");
    const char text[] = "p\\ q r\n";
    char copy[sizeof text];
    memcpy(copy, text, sizeof text);
    EXPECT_EQ(kutable_append(table, copy), 0);
    EXPECT_STREQ(copy, text);
    kutable_close(table);
}

// --- save and load -------------------------------------------------------------

TEST_F(Table, SaveWritesEachCellWithASpaceAndDropsComments)
{
    kutable *table = load("# header\na   b\n\nc\n");
    EXPECT_EQ(kutable_save(table), 0);
    EXPECT_EQ(ku_test::read_file(path_), "a b \nc \n");
    kutable_close(table);
}

TEST_F(Table, SaveIsLossyWhereTheFormatCannotSayIt)
{
    kutable *table = load("r0 x\nr1 x\nr2 x\nr3 x\nr4 x\nr5 x\n");
    kutable_set(table, 0, 0, "with space");  // splits into two cells
    kutable_set(table, 1, 0, "back\\slash");  // the backslash goes
    kutable_set(table, 2, 0, "ends\\");       // joins the next cell
    kutable_set(table, 3, 0, "");             // the empty cell vanishes
    kutable_set(table, 4, 0, "#hash");        // the row becomes a comment
    kutable_set(table, 5, 0, "\\\\");         // with x gone: a blank row
    kutable_set(table, 5, 1, "\\");
    EXPECT_EQ(save_and_reload(table), (Rows{{"with", "space", "x"},
                                            {"backslash", "x"},
                                            {"ends x"},
                                            {"x"}}));
}

TEST_F(Table, RowLongerThan511BytesComesBackAsTwoRows)
{
    kutable *table = load("short\n");
    const std::string cell(600, 'k');
    kutable_set(table, 0, 0, cell.c_str());
    const Rows rows = save_and_reload(table);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][0], std::string(511, 'k'));
    EXPECT_EQ(rows[1][0], std::string(89, 'k'));
}

TEST_F(Table, SaveToAnUnwritablePathGivesMinusOneAndKeepsTheTable)
{
    // The directory goes away behind the loaded table: no rights can open it.
    const std::string sub = dir_.file("sub");
    ASSERT_EQ(mkdir(sub.c_str(), 0700), 0);
    path_ = sub + "/table.txt";
    dir_.write("sub/table.txt", "a b\n");
    kutable *table = kutable_load(path_.c_str());
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(unlink(path_.c_str()), 0);
    ASSERT_EQ(rmdir(sub.c_str()), 0);
    CaptureStderr err;
    EXPECT_EQ(kutable_save(table), -1);
    EXPECT_NE(err.finish().find("ERR:  open table file " + path_ + " failed, cannot save\n"),
              std::string::npos);
    EXPECT_STREQ(kutable_get(table, 0, 1), "b");
    kutable_close(table);
}

TEST_F(Table, LoadWithoutMemoryGivesNullAndNoLeak)
{
    KU_REQUIRE_ALLOC_CONTROL();
    path_ = dir_.write("table.txt", "a b c\nd e\n");
    for (long skip = 0; skip < 12; ++skip) {
        ku_test::AllocControl alloc;
        CaptureStderr err;
        alloc.fail(ku_test::kAnyAlloc, skip, 1);
        kutable *table = kutable_load(path_.c_str());
        alloc.allow();
        if (table != nullptr) {
            // The plan hit an allocation outside the load's own (stdio's).
            EXPECT_EQ(cells_of(table), (Rows{{"a", "b", "c"}, {"d", "e"}}));
            kutable_close(table);
        }
    }
}
