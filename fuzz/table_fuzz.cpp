// A fuzzed text table file, loaded and edited by fuzzed kutable_set, delete,
// append and save calls. Each edit must change what it says, no cell holds a
// CR or LF, and a save writes exactly the cells, a space each, a newline a row.
//
// Input: two bytes of file length, the file, then the calls.
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "ku/table.h"

static const TempDir dir("table");

static std::string saved_form(kutable *table)
{
    std::string out;
    for (int row = 0; row < kutable_row_number(table); ++row, out += '\n') {
        for (int col = 0; col < kutable_colume_number(table, row); ++col) {
            out += std::string(kutable_get(table, row, col)) + ' ';
        }
    }
    return out;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const std::string path = dir.path + "/t";
    write_file(path, in.text(in.number(2)));
    kutable *table = kutable_load(path.c_str());
    fail_unless(table != nullptr && saved_form(table).find('\r') == std::string::npos);
    while (in.size > 0) {
        const uint8_t op = in.byte() % 4;
        const int rows = kutable_row_number(table);
        const int row = in.byte() % (rows + 3) - 1, col = in.byte() % 6 - 1;  // just outside too
        const std::string text = in.c_text(op == 2 ? in.number(2) % 2048 : in.byte());
        const char *old = kutable_get(table, row, col);
        const bool refused = old == nullptr || text == old;
        if (op == 0) {
            fail_unless(kutable_set(table, row, col, text.c_str()) == (refused ? -1 : 0));
            fail_unless(old == nullptr || text == kutable_get(table, row, col));
        } else if (op == 1) {
            fail_unless(kutable_delete(table, row) == 0);
            fail_unless(kutable_row_number(table) == rows - (row >= 0 && row < rows ? 1 : 0));
        } else if (op == 2) {
            const int result = kutable_append(table, text.c_str());
            fail_unless(result == 0 || result == -1);
            fail_unless(kutable_row_number(table) == rows + 1 + result);
        } else if (rows > 0) {
            const std::string expected = saved_form(table);
            fail_unless(kutable_save(table) == 0 && read_file(path) == expected);
        }
    }
    kutable_close(table);
    return 0;
}
