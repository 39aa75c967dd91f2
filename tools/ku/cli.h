// What every subcommand of the ku tool shares: the exit statuses, the one-line
// error, help handling, option parsing and chunked input and output.
//
// A subcommand is a function `int run(int argc, char **argv)` whose argv[0]
// is its own name ("b64", "json", ...). It writes data to stdout, at most one
// error line "ku NAME: ..." to stderr, and returns one of the statuses below.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ku_tool {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;  // the work could not be done
inline constexpr int kExitUsage = 2;    // the command line is wrong

// Writes "ku CMD: MESSAGE\n" to stderr and returns kExitFailure.
int fail(std::string_view cmd, std::string_view message);
// Writes "ku CMD: MESSAGE (try 'ku CMD --help')\n" and returns kExitUsage.
int usage_error(std::string_view cmd, std::string_view message);

// True when argv holds -h or --help before a "--"; the caller then prints its
// help text to stdout and exits 0.
bool wants_help(int argc, char **argv);
int print_help(const char *text);

// One option of a subcommand. `name` is the long form ("--key"); `short_name`
// may be empty. A valued option takes the next argument or "--name=VALUE".
struct OptionSpec {
    std::string_view name;
    std::string_view short_name;
    bool takes_value;
};

struct ParsedArgs {
    std::vector<std::string> positional;
    // Every occurrence in order, as (long name, value); flags have "".
    std::vector<std::pair<std::string, std::string>> options;

    bool has(std::string_view name) const;
    // The last value given for `name`, if any.
    std::optional<std::string> value(std::string_view name) const;
    std::vector<std::string> values(std::string_view name) const;
};

// Splits argv[1..] into options and positional arguments. Anything after
// "--" is positional; "-" alone is positional (stdin/stdout). On an unknown
// option or a missing value it writes the usage error and returns nullopt.
std::optional<ParsedArgs> parse_args(std::string_view cmd, int argc, char **argv,
                                     const std::vector<OptionSpec> &specs);

// Integer in [min, max], decimal (or 0x hexadecimal); nullopt otherwise.
std::optional<long long> parse_int(std::string_view text, long long min, long long max);

// Reads the whole stream; false on a read error. Only for inputs that are
// small by nature (a key, a header): data streams go through read_full.
bool read_all(FILE *stream, std::string &out);
// Fills `size` bytes unless the stream ends first, so that a short read from
// a pipe never looks like the end; gives the bytes read. A read error shows
// in ferror(stream).
size_t read_full(FILE *stream, void *buffer, size_t size);
// The size of the fixed chunks in which the stream commands work.
inline constexpr size_t kStreamChunk = 65536;
bool read_file(const std::string &path, std::string &out);
// True when `path` opens for reading. Commands test this before handing a
// path to a library call that would log a line of its own about it. On
// false, errno tells why.
bool can_read(const std::string &path);
// ": " and the strerror text of errno, for a message about a file; empty when
// errno is 0 (a library call that failed without a system error).
std::string reason();
// Writes all bytes and flushes; false on a write error (a closed pipe too).
bool write_all(FILE *stream, std::string_view bytes);

}  // namespace ku_tool
