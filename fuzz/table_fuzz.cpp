// A fuzzed table file edited by fuzzed set, delete, append and save calls, each of which
// must change exactly what it says. Input: two bytes of file length, the file, the calls.
#include "fuzz_support.h"
#include "ku/table.h"

static const ku_test::TempDir &dir = fuzz_dir();

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in{data, size};
    const std::string path = dir.write("t", in.text(in.number(2)));
    kutable *table = kutable_load(path.c_str());
    fail_unless(table != nullptr);
    while (in.size > 0) {
        const int rows = kutable_row_number(table), row = in.byte() % (rows + 3) - 1;
        const int col = in.byte() % 6 - 1, inside = row >= 0 && row < rows;  // or just outside
        const std::string text = in.c_text(in.number(2) % 1024);
        const char *old = kutable_get(table, row, col);
        const int unchanged = old == nullptr || text == old ? -1 : 0;  // old goes with the set
        fail_unless(kutable_set(table, row, col, text.c_str()) == unchanged);
        fail_unless(old == nullptr || text == kutable_get(table, row, col));
        fail_unless(kutable_delete(table, row) == 0);
        const int added = kutable_append(table, text.c_str()) + 1;
        fail_unless(kutable_save(table) == 0 && kutable_row_number(table) == rows - inside + added);
    }
    kutable_close(table);
    return 0;
}
