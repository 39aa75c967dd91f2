// INI files, read and rewritten one line at a time with no parsed form in
// memory. The readers return into one process-wide line buffer (callers must
// not read from two threads at once); the writer copies the file to
// "<path>.tmp" and renames it over the original only when the copy is whole
// and on the disk, then syncs the directory so that the new name survives a
// power cut too.
#include "ku/ini.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ku/log.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr size_t kHeaderSize = 32;

char ini_line[kLineSize];

// Makes "[section]"; false when it would not fit the header buffer.
bool make_header(char (&header)[kHeaderSize], const char *section) noexcept
{
    const int length = snprintf(header, sizeof header, "[%s]", section);
    return length >= 0 && static_cast<size_t>(length) < sizeof header;
}

bool is_comment(const char *line) noexcept
{
    return line[0] == '#' || (line[0] == '/' && line[1] == '/');
}

// The line, less its final newline, equals the header.
bool is_header(const char *line, const char *header) noexcept
{
    const size_t length = strlen(header);
    return strncmp(line, header, length) == 0 &&
           (line[length] == '\0' || (line[length] == '\n' && line[length + 1] == '\0'));
}

// The line is a key line whose key text is exactly `key`; gives its '='.
char *key_line_equals(char *line, const char *key) noexcept
{
    char *equals = strchr(line, '=');
    if (equals == nullptr) {
        return nullptr;
    }
    const size_t length = static_cast<size_t>(equals - line);
    return strlen(key) == length && strncmp(line, key, length) == 0 ? equals : nullptr;
}

struct FileCloser {
    FILE *file;
    ~FileCloser()
    {
        if (file != nullptr) {
            fclose(file);
        }
    }
    // Closes now and says whether everything written reached the file; with
    // `sync` also whether it is on the storage, not only in the page cache:
    // a file renamed before that can be empty or short after a power cut.
    bool close_clean(bool sync = false) noexcept
    {
        bool clean = ferror(file) == 0;
        if (sync) {
            clean = fflush(file) == 0 && ferror(file) == 0 && fsync(fileno(file)) == 0;
        }
        const int closed = fclose(file);
        file = nullptr;
        return clean && closed == 0;
    }
};

// Makes the rename of `path` durable by syncing its directory. A directory
// that cannot be opened for reading leaves this to the file system; a sync
// that fails is reported.
bool sync_directory_of(const char *path, char *scratch, size_t size) noexcept
{
    const char *slash = strrchr(path, '/');
    if (slash == nullptr) {
        snprintf(scratch, size, ".");
    } else if (slash == path) {
        snprintf(scratch, size, "/");
    } else {
        snprintf(scratch, size, "%.*s", static_cast<int>(slash - path), path);
    }
    const int fd = open(scratch, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return true;
    }
    const bool synced = fsync(fd) == 0;
    close(fd);
    return synced;
}

enum class PutState { before_header, in_section, replaced };

}  // namespace

extern "C" {

KU_API char *GetIniKeyString(const char *section, const char *key, const char *path) noexcept
{
    char header[kHeaderSize];
    if (!make_header(header, section)) {
        return nullptr;  // a cut header could match the wrong section
    }
    FileCloser in{fopen64(path, "r")};
    if (in.file == nullptr) {
        ku_err("Fail to open INI file %s\n", path);
        return nullptr;
    }
    bool header_seen = false;
    while (fgets(ini_line, sizeof ini_line, in.file) != nullptr) {
        if (is_comment(ini_line)) {
            continue;
        }
        if (header_seen && strchr(ini_line, '=') != nullptr) {
            char *equals = key_line_equals(ini_line, key);
            if (equals != nullptr) {
                ini_line[strcspn(ini_line, "\n")] = '\0';
                return equals + 1;
            }
            continue;
        }
        if (is_header(ini_line, header)) {
            header_seen = true;
        }
    }
    return nullptr;
}

KU_API int GetIniKeyInt(const char *section, const char *key, const char *path) noexcept
{
    const char *value = GetIniKeyString(section, key, path);
    return value == nullptr ? 0 : atoi(value);
}

KU_API int PutIniKeyString(const char *section, const char *key, const char *value,
                           const char *path) noexcept
{
    char header[kHeaderSize];
    if (!make_header(header, section)) {
        return -1;
    }
    FileCloser in{fopen64(path, "r")};
    if (in.file == nullptr) {
        ku_err("Fail to open INI file %s\n", path);
        return -1;
    }
    // The same buffer holds the temporary name, then each line.
    char line[kLineSize];
    const int name_length = snprintf(line, sizeof line, "%s.tmp", path);
    if (name_length < 0 || static_cast<size_t>(name_length) >= sizeof line) {
        return -1;
    }
    FileCloser out{fopen64(line, "w")};
    if (out.file == nullptr) {
        ku_err("Fail to open INI temp file %s\n", path);
        return -1;
    }

    PutState state = PutState::before_header;
    bool complete = true;
    while (fgets(line, sizeof line, in.file) != nullptr) {
        if (state == PutState::before_header) {
            if (is_header(line, header)) {
                state = PutState::in_section;
            }
        } else if (state == PutState::in_section) {
            char *equals = key_line_equals(line, key);
            if (equals != nullptr) {
                const size_t room = sizeof line - static_cast<size_t>(equals + 1 - line);
                const int written = snprintf(equals + 1, room, "%s\n", value);
                if (written < 0 || static_cast<size_t>(written) >= room) {
                    complete = false;  // the new key line would be cut
                    break;
                }
                state = PutState::replaced;
            }
        }
        if (fputs(line, out.file) == EOF) {
            complete = false;
            break;
        }
    }
    complete = complete && ferror(in.file) == 0;
    // Only a copy that reached the disk whole may replace the original.
    if (complete) {
        complete = out.close_clean(true);
    } else {
        out.close_clean();
    }
    in.close_clean();
    snprintf(line, sizeof line, "%s.tmp", path);
    if (!complete) {
        remove(line);
        return -1;
    }
    if (rename(line, path) != 0) {
        return -1;
    }
    // The new content is in place; a failed directory sync says only that it
    // may not survive a power cut, which the caller is told.
    return sync_directory_of(path, line, sizeof line) ? 0 : -1;
}

KU_API int PutIniKeyInt(const char *section, const char *key, int value, const char *path) noexcept
{
    char text[16];
    snprintf(text, sizeof text, "%d", value);
    return PutIniKeyString(section, key, text, path);
}

}  // extern "C"
