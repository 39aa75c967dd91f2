// ku table: show and edit a space-separated text table file through the
// library's kutable functions. The library saves cells without escaping, so
// the tool refuses cells that would not read back the same (a blank, a
// backslash, an empty cell, a row that would turn into a comment).
#include <ku/table.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku table show FILE\n"
    "       ku table get FILE ROW [COL]\n"
    "       ku table set FILE ROW COL TEXT\n"
    "       ku table append FILE CELL...\n"
    "       ku table delete FILE ROW\n"
    "\n"
    "A table file holds one row a line, cells separated by blanks; lines that\n"
    "start with '#' and blank lines are not rows. Rows and columns count from 0.\n"
    "  show     every row: its number, then its cells, separated by tabs\n"
    "  get      one cell, or a whole row with tabs between the cells\n"
    "  set      replaces one cell and saves the file\n"
    "  append   adds a row of the given cells at the end and saves the file\n"
    "  delete   removes one row and saves the file\n"
    "\n"
    "Saving rewrites the file without its comments and blank lines. A cell must\n"
    "not be empty or hold a blank, a backslash or a line end, and a row's first\n"
    "cell must not start with '#': the file could not give such a cell back.\n";

struct TableCloser {
    void operator()(kutable *table) const { kutable_close(table); }
};
using Table = std::unique_ptr<kutable, TableCloser>;

Table load(const std::string &file, int &status)
{
    if (!can_read(file)) {
        status = fail("table", "cannot open " + file + reason());
        return nullptr;
    }
    Table table(kutable_load(file.c_str()));
    if (!table)
        status = fail("table", "cannot load " + file);
    return table;
}

std::string cell_problem(const std::string &text, bool first)
{
    if (text.empty())
        return "an empty cell";
    if (text.find_first_of(" \\\r\n") != std::string::npos)
        return "cell '" + text + "' holds a blank, a backslash or a line end";
    if (first && text[0] == '#')
        return "a row's first cell cannot start with '#'";
    return "";
}

int save(kutable *table, const std::string &file)
{
    errno = 0;
    if (kutable_save(table) != 0)
        return fail("table", "cannot write " + file + reason());
    // With no rows left the library leaves the file as it was; an empty
    // table is an empty file.
    if (kutable_row_number(table) == 0) {
        FILE *empty = std::fopen(file.c_str(), "w");
        if (empty == nullptr || std::fclose(empty) != 0)
            return fail("table", "cannot write " + file + reason());
    }
    return kExitOk;
}

std::string row_text(kutable *table, int row)
{
    std::string line;
    for (int col = 0; col < kutable_colume_number(table, row); ++col) {
        if (col > 0)
            line += '\t';
        line += kutable_get(table, row, col);
    }
    return line;
}

std::optional<int> index_arg(const std::string &text)
{
    const auto value = parse_int(text, 0, INT32_MAX);
    return value ? std::optional<int>(static_cast<int>(*value)) : std::nullopt;
}

int do_show(kutable *table)
{
    std::string out;
    for (int row = 0; row < kutable_row_number(table); ++row)
        out += std::to_string(row) + "\t" + row_text(table, row) + "\n";
    return write_all(stdout, out) ? kExitOk : fail("table", "cannot write stdout");
}

int no_row(const std::string &file, int row)
{
    return fail("table", file + " has no row " + std::to_string(row));
}

int no_cell(const std::string &file, int row, int col)
{
    return fail("table", file + " has no cell at row " + std::to_string(row) + ", column " +
                             std::to_string(col));
}

}  // namespace

int run_table(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("table", argc, argv, {});
    if (!args)
        return kExitUsage;
    const auto &pos = args->positional;
    if (pos.empty())
        return usage_error("table", "expected show, get, set, append or delete");
    const std::string &action = pos[0];
    const bool shape_ok = (action == "show" && pos.size() == 2) ||
                          (action == "get" && (pos.size() == 3 || pos.size() == 4)) ||
                          (action == "set" && pos.size() == 5) ||
                          (action == "append" && pos.size() >= 3) ||
                          (action == "delete" && pos.size() == 3);
    if (!shape_ok) {
        if (action != "show" && action != "get" && action != "set" && action != "append" &&
            action != "delete")
            return usage_error("table", "unknown action '" + action + "' (show, get, set, append, delete)");
        return usage_error("table", "wrong number of arguments for '" + action + "'");
    }
    const std::string &file = pos[1];
    std::optional<int> row, col;
    if (action == "get" || action == "set" || action == "delete") {
        row = index_arg(pos[2]);
        if (!row)
            return usage_error("table", "ROW must be a number from 0");
        if (pos.size() >= 4 && action != "delete") {
            col = index_arg(pos[3]);
            if (!col)
                return usage_error("table", "COL must be a number from 0");
        }
    }
    if (action == "set") {
        if (const auto problem = cell_problem(pos[4], *col == 0); !problem.empty())
            return fail("table", problem);
    }
    std::string line;
    if (action == "append") {
        for (size_t i = 2; i < pos.size(); ++i) {
            if (const auto problem = cell_problem(pos[i], i == 2); !problem.empty())
                return fail("table", problem);
            line += (i > 2 ? " " : "") + pos[i];
        }
    }

    int status = kExitFailure;
    const Table table = load(file, status);
    if (!table)
        return status;

    if (action == "show")
        return do_show(table.get());
    if (action == "append") {
        if (kutable_append(table.get(), line.c_str()) != 0)
            return fail("table", "cannot append the row");
        return save(table.get(), file);
    }
    if (*row >= kutable_row_number(table.get()))
        return no_row(file, *row);
    if (action == "delete") {
        kutable_delete(table.get(), *row);
        return save(table.get(), file);
    }
    if (action == "get" && !col) {
        const std::string text = row_text(table.get(), *row) + "\n";
        return write_all(stdout, text) ? kExitOk : fail("table", "cannot write stdout");
    }
    const char *cell = kutable_get(table.get(), *row, *col);
    if (cell == nullptr)
        return no_cell(file, *row, *col);
    if (action == "get")
        return write_all(stdout, std::string(cell) + "\n") ? kExitOk : fail("table", "cannot write stdout");
    // The library refuses to store the text a cell already holds; for the
    // user that is success with nothing to write.
    if (pos[4] == cell)
        return kExitOk;
    if (kutable_set(table.get(), *row, *col, pos[4].c_str()) != 0)
        return fail("table", "cannot set the cell");
    return save(table.get(), file);
}

}  // namespace ku_tool
