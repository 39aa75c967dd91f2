// ku json: read, change and print fields of a JSON file through the library's
// document handle. A KEY is a dotted path ("server.ports.0"): names step into
// objects and numbers into arrays, so nested fields need no extra syntax.
#include <ku/json.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku json print [--pretty] FILE [KEY]\n"
    "       ku json get FILE KEY\n"
    "       ku json set [--string] FILE KEY VALUE\n"
    "       ku json del FILE KEY\n"
    "\n"
    "Reads and changes a JSON file. KEY is a dotted path: \"name\", \"server.port\",\n"
    "\"hosts.0.addr\" (a number steps into an array, counting from 0).\n"
    "  print   the whole document, or the value at KEY, as compact JSON, or\n"
    "          with --pretty indented by two spaces, one member a line\n"
    "  get     the value at KEY: a string bare, without quotes; any other value\n"
    "          as JSON text\n"
    "  set     stores VALUE at KEY and saves the file. VALUE is taken as JSON\n"
    "          when it is a number, true, false, or starts with {, [ or \"; else\n"
    "          (or with --string) as a string. Missing objects on the way are\n"
    "          made, and a missing FILE is created. A replaced key moves to the\n"
    "          end of its object.\n"
    "  del     removes KEY and saves the file\n"
    "\n"
    "A key that is absent, or holds null, fails with status 1. JSON null cannot\n"
    "be stored. A saved file is compact JSON with '/' left bare; it is written\n"
    "beside FILE and renamed over it, and missing directories are made first.\n";

struct DocCloser {
    void operator()(ku_json_doc *doc) const { ku_json_destroy(doc); }
};
using Doc = std::unique_ptr<ku_json_doc, DocCloser>;

struct FreeText {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

std::string take(char *text)
{
    const Text owner(text);
    return owner ? std::string(owner.get()) : std::string();
}

mode_t current_umask()
{
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

std::string why()
{
    return std::string(": ") + std::strerror(errno);
}

std::vector<std::string> split_key(const std::string &key)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t dot = key.find('.', start);
        parts.push_back(key.substr(start, dot - start));
        if (dot == std::string::npos)
            return parts;
        start = dot + 1;
    }
}

bool is_index(const std::string &part)
{
    return parse_int(part, 0, INT32_MAX).has_value();
}

bool is_object(json_object *obj)
{
    return take(ku_json_obj_string_dup(obj)).starts_with('{');
}

bool root_is_array(ku_json_doc *doc)
{
    return take(ku_json_string_dup(doc)).starts_with('[');
}

// One step from `from` (null: the document's top) by `part`; null when absent.
json_object *step(ku_json_doc *doc, json_object *from, const std::string &part)
{
    if (from == nullptr) {
        if (root_is_array(doc))
            return is_index(part) ? ku_json_array_get_obj(doc, nullptr, std::atoi(part.c_str())) : nullptr;
        return ku_json_get_obj(doc, part.c_str());
    }
    if (ku_json_object_is_array(from))
        return is_index(part) ? ku_json_obj_array_get_obj(from, std::atoi(part.c_str())) : nullptr;
    return ku_json_obj_get_obj(from, part.c_str());
}

// The value at parts[0..count); null when any step is absent.
json_object *find(ku_json_doc *doc, const std::vector<std::string> &parts, size_t count)
{
    json_object *node = nullptr;
    for (size_t i = 0; i < count; ++i) {
        node = step(doc, node, parts[i]);
        if (node == nullptr)
            return nullptr;
    }
    return node;
}

bool looks_like_json(const std::string &value)
{
    static const std::regex number(R"(-?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?)");
    if (value == "true" || value == "false")
        return true;
    if (!value.empty() && (value[0] == '{' || value[0] == '[' || value[0] == '"'))
        return true;
    return std::regex_match(value, number);
}

Doc load(const std::string &file, bool create_missing, int &status)
{
    if (access(file.c_str(), F_OK) != 0) {
        if (create_missing)
            return Doc(ku_json_create());
        status = fail("json", "cannot open " + file + why());
        return nullptr;
    }
    Doc doc(ku_json_load_from_file(file.c_str()));
    if (!doc)
        status = fail("json", file + " is not readable JSON");
    return doc;
}

// Makes the directories above `file` one mkdir(2) at a time: a name with
// blanks or shell characters is just a name here.
int make_parents(const std::string &file)
{
    for (size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1)) {
        const std::string dir = file.substr(0, slash);
        if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST)
            return fail("json", "cannot make directory " + dir + why());
    }
    return kExitOk;
}

// Saves the document itself rather than through ku_json_file_save, so the
// file reads as the tool prints (no "\/"), and replaces it whole: a temporary
// file beside it, synced, renamed over it, then the directory synced, so a
// power cut leaves the old file or the new one.
int save(ku_json_doc *doc, const std::string &file)
{
    const std::string text = take(ku_json_string_dup(doc));
    if (text.empty())
        return fail("json", "out of memory");
    if (const int status = make_parents(file); status != kExitOk)
        return status;
    const size_t slash = file.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
    std::string temp = file + ".XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0)
        return fail("json", "cannot write " + file + why());
    struct stat old {};
    const mode_t mode = stat(file.c_str(), &old) == 0 ? old.st_mode & 07777 : 0666 & ~current_umask();
    bool ok = fchmod(fd, mode) == 0;
    for (size_t done = 0; ok && done < text.size();) {
        const ssize_t wrote = write(fd, text.data() + done, text.size() - done);
        ok = wrote > 0 || (wrote < 0 && errno == EINTR);
        done += wrote > 0 ? static_cast<size_t>(wrote) : 0;
    }
    ok = ok && fsync(fd) == 0;
    const int saved_errno = errno;
    ok = close(fd) == 0 && ok;
    if (ok && std::rename(temp.c_str(), file.c_str()) == 0) {
        const int dir_fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool synced = dir_fd >= 0 && fsync(dir_fd) == 0;
        if (dir_fd >= 0)
            close(dir_fd);
        return synced ? kExitOk : fail("json", "cannot sync directory " + dir + why());
    }
    if (ok || errno == 0)
        errno = saved_errno;
    const std::string reason = why();
    unlink(temp.c_str());
    return fail("json", "cannot write " + file + reason);
}

// Two-space indentation of compact JSON text, one member or element a
// line; an empty object or array stays "{}" or "[]".
std::string pretty(const std::string &compact)
{
    std::string out;
    int depth = 0;
    bool in_string = false;
    const auto newline = [&] { out += '\n'; out.append(static_cast<size_t>(depth) * 2, ' '); };
    for (size_t i = 0; i < compact.size(); ++i) {
        const char c = compact[i];
        if (in_string) {
            out += c;
            if (c == '\\' && i + 1 < compact.size())
                out += compact[++i];
            else if (c == '"')
                in_string = false;
            continue;
        }
        switch (c) {
        case '"':
            in_string = true;
            out += c;
            break;
        case '{':
        case '[':
            out += c;
            if (i + 1 < compact.size() && (compact[i + 1] == '}' || compact[i + 1] == ']')) {
                out += compact[++i];
                break;
            }
            ++depth;
            newline();
            break;
        case '}':
        case ']':
            --depth;
            newline();
            out += c;
            break;
        case ',':
            out += c;
            newline();
            break;
        case ':':
            out += ": ";
            break;
        case ' ':
            break;  // the library's own spacing, if any, gives way to ours
        default:
            out += c;
        }
    }
    return out;
}

bool g_pretty = false;

int print_line(const std::string &text)
{
    return write_all(stdout, (g_pretty ? pretty(text) : text) + "\n") ? kExitOk
                                                                      : fail("json", "cannot write stdout" + why());
}

int absent(const std::string &key, const std::string &file)
{
    return fail("json", "no value at '" + key + "' in " + file);
}

int do_print(const std::string &file, const std::string *key)
{
    int status = kExitFailure;
    const Doc doc = load(file, false, status);
    if (!doc)
        return status;
    if (key == nullptr)
        return print_line(take(ku_json_string_dup(doc.get())));
    const auto parts = split_key(*key);
    json_object *node = find(doc.get(), parts, parts.size());
    if (node == nullptr)
        return absent(*key, file);
    return print_line(take(ku_json_obj_string_dup(node)));
}

int do_get(const std::string &file, const std::string &key)
{
    int status = kExitFailure;
    const Doc doc = load(file, false, status);
    if (!doc)
        return status;
    const auto parts = split_key(key);
    json_object *node = find(doc.get(), parts, parts.size());
    if (node == nullptr)
        return absent(key, file);
    const std::string json = take(ku_json_obj_string_dup(node));
    return print_line(json.starts_with('"') ? take(ku_json_obj_dup_obj_string(node)) : json);
}

int do_set(const std::string &file, const std::string &key, const std::string &value, bool as_string)
{
    if (!as_string && value == "null")
        return fail("json", "JSON null cannot be stored; 'ku json del' removes a key");
    int status = kExitFailure;
    const Doc doc = load(file, true, status);
    if (!doc)
        return status;
    const auto parts = split_key(key);
    // Walk to the parent, making objects that are missing on the way.
    json_object *parent = nullptr;
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
        json_object *next = step(doc.get(), parent, parts[i]);
        if (next == nullptr) {
            const bool top = parent == nullptr;
            if ((top && root_is_array(doc.get())) || (!top && !is_object(parent)))
                return absent(key, file);
            const int made = top ? ku_json_set_obj(doc.get(), parts[i].c_str(), "{}")
                                 : ku_json_obj_set_obj(parent, parts[i].c_str(), "{}");
            if (made != 0)
                return fail("json", "cannot make '" + parts[i] + "'");
            next = step(doc.get(), parent, parts[i]);
        }
        parent = next;
    }
    const bool top = parent == nullptr;
    if (top ? root_is_array(doc.get()) : !is_object(parent))
        return fail("json", "'" + key + "' is not inside an object: only object fields can be set");
    const char *name = parts.back().c_str();
    const bool json = !as_string && looks_like_json(value);
    int stored;
    if (top)
        stored = json ? ku_json_set_obj(doc.get(), name, value.c_str())
                      : ku_json_set_string(doc.get(), name, value.c_str());
    else
        stored = json ? ku_json_obj_set_obj(parent, name, value.c_str())
                      : ku_json_obj_set_string(parent, name, value.c_str());
    if (stored != 0)
        return fail("json", json ? "VALUE is not valid JSON (use --string to store it as text)"
                                 : "cannot store the value");
    return save(doc.get(), file);
}

int do_del(const std::string &file, const std::string &key)
{
    int status = kExitFailure;
    const Doc doc = load(file, false, status);
    if (!doc)
        return status;
    const auto parts = split_key(key);
    json_object *parent = find(doc.get(), parts, parts.size() - 1);
    const char *name = parts.back().c_str();
    int removed = 0;
    if (parts.size() == 1)
        removed = root_is_array(doc.get()) ? 0 : ku_json_del_obj(doc.get(), name);
    else if (parent != nullptr && !ku_json_object_is_array(parent))
        removed = ku_json_obj_del_obj(parent, name);
    if (removed != 1)
        return absent(key, file);
    return save(doc.get(), file);
}

}  // namespace

int run_json(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("json", argc, argv, {{"--string", "-s", false}, {"--pretty", "-p", false}});
    if (!args)
        return kExitUsage;
    const auto &pos = args->positional;
    if (pos.empty())
        return usage_error("json", "expected print, get, set or del");
    const std::string &action = pos[0];
    if (pos.size() >= 3) {
        for (const auto &part : split_key(pos[2]))
            if (part.empty())
                return usage_error("json", "KEY '" + pos[2] + "' has an empty part");
    }
    if (args->has("--string") && action != "set")
        return usage_error("json", "--string belongs to 'set'");
    if (args->has("--pretty") && action != "print")
        return usage_error("json", "--pretty belongs to 'print'");
    g_pretty = args->has("--pretty");
    if (action == "print" && (pos.size() == 2 || pos.size() == 3))
        return do_print(pos[1], pos.size() == 3 ? &pos[2] : nullptr);
    if (action == "get" && pos.size() == 3)
        return do_get(pos[1], pos[2]);
    if (action == "set" && pos.size() == 4)
        return do_set(pos[1], pos[2], pos[3], args->has("--string"));
    if (action == "del" && pos.size() == 3)
        return do_del(pos[1], pos[2]);
    if (action != "print" && action != "get" && action != "set" && action != "del")
        return usage_error("json", "unknown action '" + action + "' (print, get, set, del)");
    return usage_error("json", "wrong number of arguments for '" + action + "'");
}

}  // namespace ku_tool
