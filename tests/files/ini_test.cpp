// INI files: the reader's rules (no section end, whole-key match, comments),
// the writer's limits, and the promise that a copy which failed to reach the
// disk whole never replaces the original.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ku/ini.h"
#include "support/capture.h"
#include "support/temp_dir.h"

using ku_test::read_file;

namespace {

constexpr const char *kTwo = "[one]\na=1\n[two]\nb=2\n";
const std::string kNull = "<null>";

struct Ini : ::testing::Test {
    std::string get(const std::string &section, const char *key)
    {
        const char *value = GetIniKeyString(section.c_str(), key, path.c_str());
        return value == nullptr ? kNull : value;
    }
    // The file as it stands after a write, which must have left no copy behind.
    std::string content()
    {
        struct stat info {};
        EXPECT_NE(access((path + ".tmp").c_str(), F_OK), 0);
        const bool file = lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
        return file ? read_file(path) : "<no file>";
    }
    ku_test::TempDir dir;
    std::string path = dir.file("config.ini");
};

}  // namespace

// Header look-alikes and comments stand before and after the header; the
// section [t] has no key lines of its own, the end of [s] is the file's.
TEST_F(Ini, ReadsTheFirstMatchingKeyLineBehindTheHeader)
{
    dir.write("config.ini", "k=0\n[s]x\nk=1\n[sx]\nk=2\n[s]\r\nk=3\n [s]\nk=4\n[s\nk=5\n[s]\nk=first\n"
                            "k=second\nab=short\nabc=long\nk =spaced key\nsp= a = b \n#c=1\n//d=2\n"
                            "/e=single\nempty=\ncr=v\r\n[t]\nn=-12\nnum=42abc\ntail=end");
    const std::pair<const char *, std::string> in_s[] = {
        {"k", "first"}, {"ab", "short"}, {"abc", "long"}, {"a", kNull}, {"k ", "spaced key"},
        {"sp", " a = b "}, {"#c", kNull}, {"//d", kNull}, {"/e", "single"}, {"empty", ""},
        {"cr", "v\r"}, {"tail", "end"},
    };
    for (const auto &[key, value] : in_s) {
        EXPECT_EQ(get("s", key), value) << key;
    }
    EXPECT_EQ(get("t", "k") + get("t", "n") + get("x", "n"), kNull + "-12" + kNull);
    for (auto [key, value] : {std::pair{"n", -12}, {"num", 42}, {"x", 0}}) {
        EXPECT_EQ(GetIniKeyInt("t", key, path.c_str()), value) << key;
    }
    const std::string s29(29, 's');
    const std::string long_line = "k=" + std::string(1500, 'v') + "\n";
    dir.write("config.ini", "[" + s29 + "]\n" + long_line + "[" + s29 + "s]\nk=v\n");
    EXPECT_EQ(get(s29, "k"), std::string(1021, 'v'));  // lines of 1023 bytes
    EXPECT_EQ(get(s29 + "s", "k"), kNull);               // a section name of 30 bytes is refused
}

TEST_F(Ini, PutReplacesOnlyAnExistingKeyLineThatFits)
{
    const std::string v1500(1500, 'v'), x1020(1020, 'x'), x1021(1021, 'x');
    const struct {
        std::string file, section, key, value;
        int result;
        std::string after;
    } rows[] = {
        {kTwo, "one", "b", "22", 0, "[one]\na=1\n[two]\nb=22\n"},
        {"k=before\n[s]\nk=first\nk=2\n", "s", "k", "x", 0, "k=before\n[s]\nk=x\nk=2\n"},
        {"[s]\nk=tail", "s", "k", "new", 0, "[s]\nk=new\n"},
        {"; x\n[s]\nother=1\n", "s", "k", "v", 0, "; x\n[s]\nother=1\n"},
        {"; x\n[s]\nother=1\n", "nope", "other", "v", 0, "; x\n[s]\nother=1\n"},
        {"[s]\n#k=comment\nk=real\n", "s", "#k", "c", 0, "[s]\n#k=c\nk=real\n"},
        {"[s]\nk=" + v1500 + "\n", "s", "k", "s", 0, "[s]\nk=s\n" + std::string(479, 'v') + "\n"},
        {kTwo, "one", "a", x1020, 0, "[one]\na=" + x1020 + "\n[two]\nb=2\n"},  // 1023 bytes
        {kTwo, "one", "a", x1021, -1, kTwo},
        {kTwo, std::string(30, 's'), "a", "v", -1, kTwo},
    };
    for (const auto &row : rows) {
        dir.write("config.ini", row.file);
        const int result = PutIniKeyString(row.section.c_str(), row.key.c_str(), row.value.c_str(),
                                           path.c_str());
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(content(), row.after) << row.file << " " << row.key;
    }
    dir.write("config.ini", kTwo);
    EXPECT_EQ(PutIniKeyInt("two", "b", -1234, path.c_str()), 0);
    EXPECT_EQ(content(), "[one]\na=1\n[two]\nb=-1234\n");
}

TEST_F(Ini, PathOfMoreThan1019BytesIsRefused)
{
    for (size_t length : {1019u, 1020u}) {
        path = dir.path() + std::string(length - dir.path().size() - 5, '/') + "f.ini";
        dir.write("f.ini", kTwo);
        EXPECT_EQ(PutIniKeyString("one", "a", "9", path.c_str()), length == 1019 ? 0 : -1);
        EXPECT_EQ(content(), length == 1019 ? "[one]\na=9\n[two]\nb=2\n" : kTwo);
    }
}

TEST_F(Ini, FileOrCopyThatCannotBeOpenedGivesAnErrorLine)
{
    ku_test::CaptureStderr err;
    EXPECT_EQ(get("s", "k"), kNull);
    EXPECT_EQ(PutIniKeyString("s", "k", "v", path.c_str()), -1);
    EXPECT_EQ(content(), "<no file>");
    dir.write("config.ini", kTwo);
    ASSERT_EQ(mkdir((path + ".tmp").c_str(), 0700), 0);  // a directory can't be opened "w"
    EXPECT_EQ(PutIniKeyString("one", "a", "9", path.c_str()), -1);
    EXPECT_EQ(read_file(path), kTwo);
    const std::string open = "ERR:  Fail to open INI file " + path + "\n", log = err.finish();
    EXPECT_NE(log.find(open, log.find(open) + 1), log.npos) << log;
    EXPECT_NE(log.find("ERR:  Fail to open INI temp file " + path + "\n"), log.npos) << log;
}

// fsync and rename are defined here, so the library's calls land in this
// executable: each is recorded and forwarded, unless the row makes it fail.
static std::string *sync_calls = nullptr;  // f: fsync of a file, d: of `sync_dir`, r: rename
static char failing_fsync = 0;
static ino_t sync_dir = 0;

extern "C" int fsync(int fd)
{
    struct stat info {};
    if (sync_calls != nullptr && fstat(fd, &info) == 0) {
        const char kind = !S_ISDIR(info.st_mode) ? 'f' : info.st_ino == sync_dir ? 'd' : '?';
        *sync_calls += kind;
        if (kind == failing_fsync) {
            errno = EIO;
            return -1;
        }
    }
    return reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"))(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept
{
    if (sync_calls != nullptr) {
        *sync_calls += std::string(to) + ".tmp" == from ? 'r' : '?';
    }
    using rename_fn = int (*)(const char *, const char *);
    return reinterpret_cast<rename_fn>(dlsym(RTLD_NEXT, "rename"))(from, to);
}

// The copy is on the storage before its rename and the directory after it,
// else a power cut can leave an empty or short file under the old name; a
// copy that did not reach the disk whole (a failed fsync, a full disk: the
// copy is /dev/full) never replaces the original.
TEST_F(Ini, RewriteSyncsTheCopyBeforeItsRenameAndTheDirectoryAfter)
{
    struct stat info {};
    ASSERT_EQ(stat(dir.path().c_str(), &info), 0);
    ASSERT_EQ(access("/dev/full", W_OK), 0);
    sync_dir = info.st_ino;
    const std::string changed = "[one]\na=9\n[two]\nb=2\n";
    const struct {
        char failing;
        int result;
        std::string calls, content;
    } rows[] = {{0, 0, "frd", changed}, {'f', -1, "f", kTwo}, {'d', -1, "frd", changed},
                {'F', -1, "", kTwo}};
    for (const auto &row : rows) {
        dir.write("config.ini", kTwo);
        ASSERT_EQ(row.failing == 'F' ? symlink("/dev/full", (path + ".tmp").c_str()) : 0, 0);
        std::string calls;
        failing_fsync = row.failing;
        sync_calls = &calls;
        const int result = PutIniKeyString("one", "a", "9", path.c_str());
        sync_calls = nullptr;
        EXPECT_EQ(result, row.result) << row.failing;
        EXPECT_EQ(calls, row.calls) << row.failing;
        EXPECT_EQ(content(), row.content);
    }
}
