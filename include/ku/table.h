/* Text table files: rows of space-separated fields, one line a row.
 *
 * File format: a line whose first byte is '#' is a comment; a line made only
 * of spaces, CR, LF and backslashes is blank; every other line is a row. A
 * row ends at its first CR or LF, its outer spaces are dropped, and its
 * fields are separated by runs of spaces. A backslash makes the next byte
 * literal ("a\ b" is one field "a b", "\\" is one backslash); a backslash at
 * the end of a field is dropped. Lines are read 511 bytes at a time: the rest
 * of a longer line becomes a row of its own.
 *
 * kutable_save writes every cell plain, followed by one space, and a newline
 * after each row: it escapes nothing, so cells holding spaces or backslashes,
 * empty cells and rows that start with '#' do not come back the same from the
 * file. Comments and blank lines of the loaded file are not kept.
 *
 * Threads: no locks. A table belongs to one thread at a time; line buffers are
 * on the caller's stack, so different tables may be used on different threads
 * at once. */
#ifndef KU_TABLE_H
#define KU_TABLE_H

#include "ku/export.h"

KU_BEGIN_DECLS

/* An open table; made by kutable_load, ended by kutable_close. */
typedef struct kutable kutable;

/* Reads the whole file at `path` into memory; the file stays open until
 * kutable_close. Returns null, with an error line, when the file can't be
 * opened or read, or when memory runs out. */
KU_API kutable *kutable_load(const char *path) KU_NOEXCEPT;
/* Frees the table and closes its file. `table` must not be null. */
KU_API void kutable_close(kutable *table) KU_NOEXCEPT;

/* Number of rows. */
KU_API int kutable_row_number(kutable *table) KU_NOEXCEPT;
/* Number of cells in `row`; 0 when `row` is outside the table. Each row has
 * its own number of cells. */
KU_API int kutable_colume_number(kutable *table, int row) KU_NOEXCEPT;
/* The text of a cell, owned by the table: valid until that cell is changed,
 * its row is deleted or the table is closed. Null when `row` or `col` is
 * outside the table. */
KU_API char *kutable_get(kutable *table, int row, int col) KU_NOEXCEPT;
/* Replaces a cell's text with a copy of `text` (not null), in memory only.
 * Returns 0, or -1 when `row` or `col` is outside the table, when the cell
 * already holds exactly `text`, or when memory runs out (cell unchanged). */
KU_API int kutable_set(kutable *table, int row, int col, const char *text) KU_NOEXCEPT;
/* Removes a row; the rows behind it move up. Always returns 0, also when
 * `row` is outside the table and nothing was removed. */
KU_API int kutable_delete(kutable *table, int row) KU_NOEXCEPT;
/* Parses `text` (not null) as one line of the file format and adds it as the
 * last row; `text` is not changed and may be longer than 511 bytes. Returns 0,
 * or -1 when `text` is a comment or blank, or when memory runs out (table
 * unchanged either way). */
KU_API int kutable_append(kutable *table, const char *text) KU_NOEXCEPT;
/* Writes the table over its file (created or emptied, no temporary file).
 * A table without rows writes nothing and leaves the file alone; a row of no
 * cells (content only behind a first CR) writes an empty line. Returns 0,
 * or -1 with an error line when the file can't be opened. Write errors are
 * not reported. */
KU_API int kutable_save(kutable *table) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_TABLE_H */
