// Shared plumbing of the ku subcommands: errors, help, options and streams.
#include "cli.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ku_tool {

int fail(std::string_view cmd, std::string_view message)
{
    std::fprintf(stderr, "ku %.*s: %.*s\n", static_cast<int>(cmd.size()), cmd.data(),
                 static_cast<int>(message.size()), message.data());
    return kExitFailure;
}

int usage_error(std::string_view cmd, std::string_view message)
{
    std::fprintf(stderr, "ku %.*s: %.*s (try 'ku %.*s --help')\n", static_cast<int>(cmd.size()),
                 cmd.data(), static_cast<int>(message.size()), message.data(),
                 static_cast<int>(cmd.size()), cmd.data());
    return kExitUsage;
}

bool wants_help(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--")
            return false;
        if (arg == "-h" || arg == "--help")
            return true;
    }
    return false;
}

int print_help(const char *text)
{
    return write_all(stdout, text) ? kExitOk : kExitFailure;
}

bool ParsedArgs::has(std::string_view name) const
{
    for (const auto &[option, value] : options)
        if (option == name)
            return true;
    return false;
}

std::optional<std::string> ParsedArgs::value(std::string_view name) const
{
    std::optional<std::string> last;
    for (const auto &[option, value] : options)
        if (option == name)
            last = value;
    return last;
}

std::vector<std::string> ParsedArgs::values(std::string_view name) const
{
    std::vector<std::string> all;
    for (const auto &[option, value] : options)
        if (option == name)
            all.push_back(value);
    return all;
}

std::optional<ParsedArgs> parse_args(std::string_view cmd, int argc, char **argv,
                                     const std::vector<OptionSpec> &specs)
{
    ParsedArgs parsed;
    bool options_done = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (options_done || arg.size() < 2 || arg[0] != '-') {
            parsed.positional.emplace_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            continue;
        }
        std::string_view name = arg;
        std::optional<std::string_view> inline_value;
        if (arg.starts_with("--")) {
            if (const auto equals = arg.find('='); equals != std::string_view::npos) {
                name = arg.substr(0, equals);
                inline_value = arg.substr(equals + 1);
            }
        }
        const OptionSpec *known = nullptr;
        for (const auto &candidate : specs)
            if (name == candidate.name || (!candidate.short_name.empty() && name == candidate.short_name))
                known = &candidate;
        if (known == nullptr) {
            // A negative number is data, not an option (ku json set f k -1.5).
            if (arg[1] >= '0' && arg[1] <= '9') {
                parsed.positional.emplace_back(arg);
                continue;
            }
            usage_error(cmd, "unknown option '" + std::string(arg) + "'");
            return std::nullopt;
        }
        std::string value;
        if (known->takes_value) {
            if (inline_value) {
                value = *inline_value;
            } else if (i + 1 < argc) {
                value = argv[++i];
            } else {
                usage_error(cmd, "option " + std::string(known->name) + " needs a value");
                return std::nullopt;
            }
        } else if (inline_value) {
            usage_error(cmd, "option " + std::string(known->name) + " takes no value");
            return std::nullopt;
        }
        parsed.options.emplace_back(std::string(known->name), std::move(value));
    }
    return parsed;
}

std::optional<long long> parse_int(std::string_view text, long long min, long long max)
{
    if (text.empty() || text.size() > 64)
        return std::nullopt;
    const std::string copy(text);
    char *end = nullptr;
    errno = 0;
    const long long value = std::strtoll(copy.c_str(), &end, 0);
    if (errno != 0 || end == copy.c_str() || *end != '\0' || value < min || value > max)
        return std::nullopt;
    // strtoll takes leading blanks and a leading 0 as octal; neither is meant
    // on a command line, so accept only what reads back the way it was typed.
    if (copy[0] == ' ' || copy[0] == '\t')
        return std::nullopt;
    const bool hex = copy.size() > 2 && copy[0] == '0' && (copy[1] == 'x' || copy[1] == 'X');
    if (!hex && copy.size() > 1 && copy[0] == '0')
        return std::nullopt;
    return value;
}

bool read_all(FILE *stream, std::string &out)
{
    char chunk[65536];
    for (;;) {
        const size_t got = std::fread(chunk, 1, sizeof chunk, stream);
        out.append(chunk, got);
        if (got < sizeof chunk)
            return std::ferror(stream) == 0;
    }
}

size_t read_full(FILE *stream, void *buffer, size_t size)
{
    size_t filled = 0;
    while (filled < size) {
        const size_t got = std::fread(static_cast<char *>(buffer) + filled, 1, size - filled, stream);
        if (got == 0)
            break;
        filled += got;
    }
    return filled;
}

bool read_file(const std::string &path, std::string &out)
{
    FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return false;
    const bool ok = read_all(file, out);
    std::fclose(file);
    return ok;
}

bool can_read(const std::string &path)
{
    FILE *file = std::fopen(path.c_str(), "r");
    if (file == nullptr)
        return false;
    std::fclose(file);
    return true;
}

std::string reason()
{
    return errno == 0 ? std::string() : std::string(": ") + std::strerror(errno);
}

bool write_all(FILE *stream, std::string_view bytes)
{
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), stream) != bytes.size())
        return false;
    return std::fflush(stream) == 0;
}

}  // namespace ku_tool
