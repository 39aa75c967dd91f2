// Text table files: the whole table is parsed into heap rows of heap cells in
// two passes over the file (count, then fill), so the row array is allocated
// once at its exact size. Every allocation failure fails the operation that
// needed it and leaves the table as it was.
#include "ku/table.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ku/log.h"
#include "ku/str.h"

struct kutable_row {
    int col_count;
    char **cols;  // exactly col_count cells; null for a row of no cells
};

struct kutable {
    char *path;
    FILE *stream;  // the load's read stream, open until kutable_close
    int row_count;
    kutable_row *rows;
};

namespace {

constexpr size_t kLineSize = 512;

enum class Parse { ok, no_content, no_memory };

// 0 for a comment or a line made only of spaces, CR, LF and backslashes. The
// whole line counts, also what stands behind a first CR.
int kutable_line_has_content(const char *line) noexcept
{
    if (line[0] == '#') {
        return 0;
    }
    for (const char *c = line; *c != '\0'; ++c) {
        if (*c != ' ' && *c != '\r' && *c != '\n' && *c != '\\') {
            return 1;
        }
    }
    return 0;
}

// Finds the next field at or after `*cursor`: a run of bytes up to a space
// that does not follow a backslash. Returns false when none is left.
bool next_field(char *&cursor, char *&start, size_t &length) noexcept
{
    while (*cursor == ' ') {
        ++cursor;
    }
    if (*cursor == '\0') {
        return false;
    }
    start = cursor++;
    while (*cursor != '\0' && !(*cursor == ' ' && cursor[-1] != '\\')) {
        ++cursor;
    }
    length = static_cast<size_t>(cursor - start);
    return true;
}

// Removes each backslash and keeps the byte behind it; a final one just goes.
void unescape(char *text) noexcept
{
    char *out = text;
    for (const char *in = text; *in != '\0'; ++in) {
        if (*in == '\\') {
            if (in[1] == '\0') {
                break;
            }
            ++in;
        }
        *out++ = *in;
    }
    *out = '\0';
}

void kutable_row_free(kutable_row &row) noexcept
{
    if (row.cols == nullptr) {
        return;
    }
    for (int col = 0; col < row.col_count; ++col) {
        free(row.cols[col]);
    }
    free(row.cols);
    row.cols = nullptr;
    row.col_count = 0;
}

// Parses `line` (changed in place) into `row`. On any failure the row is left
// empty with nothing allocated.
Parse kutable_row_parse(kutable_row &row, char *line) noexcept
{
    row.col_count = 0;
    row.cols = nullptr;
    if (kutable_line_has_content(line) == 0) {
        return Parse::no_content;
    }
    line[strcspn(line, "\r\n")] = '\0';
    ku_string_trim(line);

    int count = 0;
    char *start = nullptr;
    size_t length = 0;
    for (char *cursor = line; next_field(cursor, start, length);) {
        ++count;
    }
    // A count of 0 (content only behind the first CR) still gets its block of
    // no pointers: with one, the row saves as an empty line. A libc whose
    // calloc gives null for 0 bytes leaves the row without one, and the save
    // then skips it; either way the row holds no cells.
    char **cols = static_cast<char **>(calloc(static_cast<size_t>(count), sizeof(char *)));
    if (cols == nullptr) {
        return count == 0 ? Parse::ok : Parse::no_memory;
    }
    row.cols = cols;
    row.col_count = count;
    int col = 0;
    for (char *cursor = line; next_field(cursor, start, length); ++col) {
        char *cell = static_cast<char *>(malloc(length + 1));
        if (cell == nullptr) {
            kutable_row_free(row);
            return Parse::no_memory;
        }
        memcpy(cell, start, length);
        cell[length] = '\0';
        unescape(cell);
        cols[col] = cell;
    }
    return Parse::ok;
}

bool outside(const kutable *table, int row) noexcept
{
    return table->rows == nullptr || row < 0 || row >= table->row_count;
}

bool outside(const kutable *table, int row, int col) noexcept
{
    return outside(table, row) || col < 0 || col >= table->rows[row].col_count;
}

// Reads the next line of `stream` into `line`. False at the end of the file
// and on a read error (told apart by ferror).
bool read_line(FILE *stream, char (&line)[kLineSize]) noexcept
{
    return fgets(line, sizeof line, stream) != nullptr;
}

// Second pass of the load: parses up to row_count lines with content. Gives
// false when memory runs out; a file that lost lines since the first pass
// gives fewer rows, never more.
bool fill_rows(kutable *table) noexcept
{
    char line[kLineSize];
    int filled = 0;
    while (filled < table->row_count && read_line(table->stream, line)) {
        switch (kutable_row_parse(table->rows[filled], line)) {
        case Parse::ok:
            ++filled;
            break;
        case Parse::no_content:
            break;
        case Parse::no_memory:
            table->row_count = filled;
            return false;
        }
    }
    table->row_count = filled;
    return ferror(table->stream) == 0;
}

}  // namespace

extern "C" {

KU_API kutable *kutable_load(const char *path) noexcept
{
    FILE *stream = fopen64(path, "r");
    if (stream == nullptr) {
        ku_err("load table file %s failed\n", path);
        return nullptr;
    }
    auto *table = static_cast<kutable *>(calloc(1, sizeof(kutable)));
    if (table == nullptr) {
        ku_err("kutable_load malloc failed\n");
        fclose(stream);
        return nullptr;
    }
    table->stream = stream;
    table->path = strdup(path);
    if (table->path == nullptr) {
        // Without its path the table could never be saved: refuse it now.
        ku_err("kutable_load malloc failed\n");
        kutable_close(table);
        return nullptr;
    }

    char line[kLineSize];
    while (read_line(stream, line)) {
        table->row_count += kutable_line_has_content(line);
    }
    if (ferror(stream) != 0) {
        ku_err("load table file %s failed\n", path);
        kutable_close(table);
        return nullptr;
    }
    if (table->row_count > 0) {
        table->rows = static_cast<kutable_row *>(calloc(static_cast<size_t>(table->row_count), sizeof(kutable_row)));
        if (table->rows == nullptr) {
            ku_err("kutable_load malloc failed\n");
            table->row_count = 0;
            kutable_close(table);
            return nullptr;
        }
    }
    if (fseek(stream, 0, SEEK_SET) != 0 || !fill_rows(table)) {
        ku_err("load table file %s failed\n", path);
        kutable_close(table);
        return nullptr;
    }
    return table;
}

KU_API void kutable_close(kutable *table) noexcept
{
    if (table->rows != nullptr) {
        for (int row = 0; row < table->row_count; ++row) {
            kutable_row_free(table->rows[row]);
        }
        free(table->rows);
    }
    free(table->path);
    if (table->stream != nullptr) {
        fclose(table->stream);
    }
    free(table);
}

KU_API int kutable_row_number(kutable *table) noexcept
{
    return table->row_count;
}

KU_API int kutable_colume_number(kutable *table, int row) noexcept
{
    return outside(table, row) ? 0 : table->rows[row].col_count;
}

KU_API char *kutable_get(kutable *table, int row, int col) noexcept
{
    return outside(table, row, col) ? nullptr : table->rows[row].cols[col];
}

KU_API int kutable_set(kutable *table, int row, int col, const char *text) noexcept
{
    if (outside(table, row, col)) {
        return -1;
    }
    char *&cell = table->rows[row].cols[col];
    if (strcmp(cell, text) == 0) {
        return -1;
    }
    const size_t length = strlen(text);
    if (length > strlen(cell)) {
        char *grown = static_cast<char *>(realloc(cell, length + 1));
        if (grown == nullptr) {
            return -1;
        }
        cell = grown;
    }
    memcpy(cell, text, length + 1);
    return 0;
}

KU_API int kutable_delete(kutable *table, int row) noexcept
{
    if (outside(table, row)) {
        return 0;
    }
    kutable_row_free(table->rows[row]);
    memmove(&table->rows[row], &table->rows[row + 1],
            static_cast<size_t>(table->row_count - row - 1) * sizeof(kutable_row));
    --table->row_count;
    return 0;
}

KU_API int kutable_append(kutable *table, const char *text) noexcept
{
    char *copy = strdup(text);
    if (copy == nullptr) {
        return -1;
    }
    kutable_row row;
    const Parse parsed = kutable_row_parse(row, copy);
    free(copy);
    if (parsed != Parse::ok) {
        return -1;
    }
    const size_t new_count = static_cast<size_t>(table->row_count) + 1;
    auto *rows = static_cast<kutable_row *>(realloc(table->rows, new_count * sizeof(kutable_row)));
    if (rows == nullptr) {
        kutable_row_free(row);
        return -1;
    }
    table->rows = rows;
    table->rows[table->row_count++] = row;
    return 0;
}

KU_API int kutable_save(kutable *table) noexcept
{
    if (table->rows == nullptr || table->row_count == 0) {
        return 0;
    }
    FILE *out = fopen64(table->path, "wt+");
    if (out == nullptr) {
        ku_err("open table file %s failed, cannot save\n", table->path);
        return -1;
    }
    for (int row = 0; row < table->row_count; ++row) {
        const kutable_row &current = table->rows[row];
        if (current.cols == nullptr) {
            continue;
        }
        for (int col = 0; col < current.col_count; ++col) {
            if (current.cols[col] != nullptr) {
                fprintf(out, "%s ", current.cols[col]);
            }
        }
        fputc('\n', out);
    }
    fclose(out);
    return 0;
}

}  // extern "C"
