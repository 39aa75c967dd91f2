// A fuzzed text table file, loaded and then edited by a fuzzed sequence of
// kutable_get/set/delete/append/save calls, beside a reference model written
// from the file format: lines as fgets gives them (511 bytes at most), the
// content test, the field walk and the unescaping. After every step the rows
// near the edit and the table's bounds must agree with the model, and the
// whole table after every reload and at the end; a save must write exactly
// the bytes the model predicts, and loading that file again must give the
// model's parse of it.
//
// Input: two bytes of file length, the file, then the operations.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "ku/table.h"

namespace {

using Row = std::vector<std::string>;
using Table = std::vector<Row>;

bool has_content(const std::string &line)
{
    if (!line.empty() && line[0] == '#') return false;
    return line.find_first_not_of(std::string(" \r\n\\")) != std::string::npos;
}

std::string unescape(const std::string &raw)
{
    std::string out;
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == '\\') {
            if (++i == raw.size()) break;
        }
        out += raw[i];
    }
    return out;
}

// One line of the format into a row; false for a comment or blank line.
bool parse(std::string line, Row &row)
{
    row.clear();
    if (!has_content(line)) return false;
    line.resize(line.find_first_of("\r\n") == std::string::npos ? line.size() : line.find_first_of("\r\n"));
    const size_t first = line.find_first_not_of(' ');
    if (first == std::string::npos) return true;
    line = line.substr(first, line.find_last_not_of(' ') - first + 1);
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && line[i] == ' ') ++i;
        if (i == line.size()) break;
        const size_t start = i++;
        while (i < line.size() && !(line[i] == ' ' && line[i - 1] != '\\')) ++i;
        row.push_back(unescape(line.substr(start, i - start)));
    }
    return true;
}

// The table a file of these bytes loads into: fgets lines of 511 bytes at
// most, each seen as a C string.
Table load_model(const std::string &file)
{
    Table table;
    size_t at = 0;
    while (at < file.size()) {
        size_t end = at;
        while (end < file.size() && end - at < 511 && file[end] != '\n') ++end;
        if (end < file.size() && end - at < 511) ++end;  // the newline belongs to the line
        const std::string chunk = file.substr(at, end - at);
        at = end;
        Row row;
        if (parse(chunk.substr(0, chunk.find('\0')), row)) table.push_back(row);
    }
    return table;
}

std::string save_model(const Table &table)
{
    std::string out;
    for (const Row &row : table) {
        // A row of no cells (content only behind a first CR) is an empty line.
        for (const std::string &cell : row) out += cell + ' ';
        out += '\n';
    }
    return out;
}

// One row of the table against the model, the cell just past its end included.
void check_row(kutable *table, const Table &model, size_t r)
{
    const int row = static_cast<int>(r);
    fail_unless(kutable_colume_number(table, row) == static_cast<int>(model[r].size()));
    for (size_t c = 0; c < model[r].size(); ++c) {
        const char *cell = kutable_get(table, row, static_cast<int>(c));
        fail_unless(cell != nullptr && model[r][c] == cell);
    }
    fail_unless(kutable_get(table, row, static_cast<int>(model[r].size())) == nullptr);
    fail_unless(kutable_get(table, row, -1) == nullptr);
}

// The row count and the refusals just outside the table.
void check_bounds(kutable *table, const Table &model)
{
    const int rows = static_cast<int>(model.size());
    fail_unless(kutable_row_number(table) == rows);
    fail_unless(kutable_colume_number(table, rows) == 0 && kutable_colume_number(table, -1) == 0);
    fail_unless(kutable_get(table, rows, 0) == nullptr && kutable_get(table, -1, 0) == nullptr);
}

void check(kutable *table, const Table &model)
{
    check_bounds(table, model);
    for (size_t r = 0; r < model.size(); ++r) check_row(table, model, r);
}

// After one edit: the bounds, the row the edit touched and its neighbours.
// Comparing every row after every step grows with the square of the input;
// the whole table is still compared after each reload and at the end, where
// a wrong shift or a stray write in another row shows.
void check_near(kutable *table, const Table &model, int row)
{
    check_bounds(table, model);
    for (int r = row - 1; r <= row + 1; ++r) {
        if (r >= 0 && r < static_cast<int>(model.size())) check_row(table, model, static_cast<size_t>(r));
    }
}

const TempDir dir("table");

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const std::string path = dir.path + "/t";
    std::string file = in.text(in.number(2));
    write_file(path, file);

    Table model = load_model(file);
    kutable *table = kutable_load(path.c_str());
    fail_unless(table != nullptr);
    check(table, model);

    while (in.size > 0) {
        const uint8_t op = in.byte() % 6;
        const int row = static_cast<int>(in.byte() % (model.size() + 3)) - 1;  // -1 .. rows + 1
        switch (op) {
        case 0: {  // set a cell, sometimes to its own text or a prefix of it
            const int col = in.byte() % 6 - 1;
            const bool inside = row >= 0 && row < static_cast<int>(model.size()) && col >= 0 &&
                                col < static_cast<int>(model[static_cast<size_t>(row)].size());
            std::string text = in.c_text(in.byte());
            if (inside && (text.empty() || text[0] == '=')) {
                const std::string &cell = model[static_cast<size_t>(row)][static_cast<size_t>(col)];
                text = cell.substr(0, text.empty() ? cell.size() : cell.size() / 2);
            }
            const int result = kutable_set(table, row, col, text.c_str());
            if (inside && model[static_cast<size_t>(row)][static_cast<size_t>(col)] != text) {
                fail_unless(result == 0);
                model[static_cast<size_t>(row)][static_cast<size_t>(col)] = text;
            } else {
                fail_unless(result == -1);
            }
            break;
        }
        case 1:  // delete a row, inside or not
            fail_unless(kutable_delete(table, row) == 0);
            if (row >= 0 && row < static_cast<int>(model.size())) model.erase(model.begin() + row);
            break;
        case 2:
        case 3: {  // append a line; long ones pass the 511-byte line limit of files
            const size_t length = op == 2 ? in.byte() : in.number(2) % 2048;
            const std::string text = in.c_text(length);
            Row parsed;
            const bool content = parse(text, parsed);
            fail_unless(kutable_append(table, text.c_str()) == (content ? 0 : -1));
            if (content) model.push_back(parsed);
            break;
        }
        case 4: {  // save, compare the bytes, load again
            fail_unless(kutable_save(table) == 0);
            if (!model.empty()) file = save_model(model);
            fail_unless(read_file(path) == file);
            kutable_close(table);
            model = load_model(file);
            table = kutable_load(path.c_str());
            fail_unless(table != nullptr);
            check(table, model);
            break;
        }
        default:
            break;
        }
        check_near(table, model, op == 2 || op == 3 ? static_cast<int>(model.size()) - 1 : row);
    }
    check(table, model);
    kutable_close(table);
    return 0;
}
