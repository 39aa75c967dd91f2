/* INI files: read or replace one key at a time, in one pass over the file.
 *
 * A section header is a line "[name]" exactly (no blanks, no CR). A key line
 * is a line with '='; its key text is everything before the first '=' and its
 * value everything behind it, neither trimmed. Lines starting with "//" or
 * '#' are comments for the readers. There is no end of a section: once the
 * header has been seen, the first matching key line wins, in whichever
 * section it stands. Lines are read 1023 bytes at a time.
 *
 * Limits: a section name of at most 29 bytes, a path of at most 1019 bytes,
 * a rewritten key line ("key=value\n") of at most 1023 bytes. Beyond them the
 * functions refuse (null or -1) and leave the file alone. */
#ifndef KU_INI_H
#define KU_INI_H

#include "ku/export.h"

KU_BEGIN_DECLS

/* The value of `key` in `section` of the file at `path`, without its final
 * newline (a CR stays). The text lies in one buffer shared by the whole
 * process: it is overwritten by the next GetIniKeyString or GetIniKeyInt call
 * on any thread, so copy it to keep it, and never call these two from two
 * threads at once. Null, with an error line, when the file can't be opened;
 * null when the key is not found. */
KU_API char *GetIniKeyString(const char *section, const char *key, const char *path) KU_NOEXCEPT;
/* atoi() of the value GetIniKeyString finds; 0 when it finds none. Shares
 * its buffer. */
KU_API int GetIniKeyInt(const char *section, const char *key, const char *path) KU_NOEXCEPT;
/* Replaces the value of an existing key line (the first one behind the
 * section header), by writing the file anew to "<path>.tmp" and renaming that
 * over `path`. A key or section the file lacks is not added: the file is
 * rewritten unchanged and the result is 0. Returns the result of rename (0 or
 * -1), or -1 with an error line when the file or the temporary file can't be
 * opened. When writing the temporary file fails (a full disk, say), it is
 * removed, the original stays as it was and the result is -1. The new file
 * gets the default mode of a new file. */
KU_API int PutIniKeyString(const char *section, const char *key, const char *value,
                           const char *path) KU_NOEXCEPT;
/* PutIniKeyString with the value written by "%d". */
KU_API int PutIniKeyInt(const char *section, const char *key, int value, const char *path) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_INI_H */
