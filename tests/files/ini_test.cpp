// INI files: the reader's rules (no section end, whole-key match, comments), the writer's
// limits, and a copy that failed to reach the disk whole never replacing the original.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ku/ini.h"
#include "support/capture.h"
#include "support/temp_dir.h"

static const std::string kTwo = "[one]\na=1\n[two]\nb=2\n", kNull = "<null>";

struct Ini : ::testing::Test {
    std::string get(const std::string &section, const char *key)
    {
        const char *value = GetIniKeyString(section.c_str(), key, path.c_str());
        return value == nullptr ? kNull : value;
    }
    // The file after a write, which leaves no copy behind (nor a link in its place).
    std::string content()
    {
        struct stat info {};
        EXPECT_NE(access((path + ".tmp").c_str(), F_OK), 0);
        const bool file = lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
        return file ? ku_test::read_file(path) : "<no file>";
    }
    ku_test::TempDir dir;
    std::string path = dir.file("config.ini");
};

// Header look-alikes before the header, comments behind it; [t] has no key
// lines of its own, and [s] ends only with the file.
TEST_F(Ini, ReadsTheFirstMatchingKeyLineBehindTheHeader)
{
    dir.write("config.ini", "k=0\n[s]x\nk=1\n[sx]\nk=2\n[s]\r\nk=3\n [s]\nk=4\n[s\nk=5\n"
                            "[s]\nk=first\nk=2nd\nab=short\nabc=long\nk =spaced key\nsp= a = b \n"
                            "#c=1\n//d=2\n/e=single\nnil=\ncr=v\r\n[t]\nn=-12\nnum=42x\ntail=end");
    const std::tuple<const char *, const char *, std::string> rows[] = {
        {"s", "k", "first"}, {"s", "ab", "short"}, {"s", "abc", "long"}, {"s", "a", kNull},
        {"s", "k ", "spaced key"}, {"s", "sp", " a = b "}, {"s", "#c", kNull}, {"s", "//d", kNull},
        {"s", "/e", "single"}, {"s", "nil", ""}, {"s", "cr", "v\r"}, {"s", "tail", "end"},
        {"t", "k", kNull}, {"t", "n", "-12"}, {"x", "n", kNull},
    };
    for (const auto &[section, key, value] : rows) {
        EXPECT_EQ(get(section, key), value) << section << " " << key;
    }
    for (auto [key, value] : {std::pair{"n", -12}, {"num", 42}, {"x", 0}}) {
        EXPECT_EQ(GetIniKeyInt("t", key, path.c_str()), value) << key;
    }
    const std::string s29(29, 's'), long_line = "k=" + std::string(1500, 'v') + "\n";
    dir.write("config.ini", "[" + s29 + "]\n" + long_line + "[" + s29 + "s]\nk=v\n");
    EXPECT_EQ(get(s29, "k"), std::string(1021, 'v'));  // lines of 1023 bytes
    EXPECT_EQ(get(s29 + "s", "k"), kNull);               // a section name of 30 bytes is refused
}

TEST_F(Ini, PutReplacesOnlyAnExistingKeyLineThatFits)
{
    const std::string v1500(1500, 'v'), x1020(1020, 'x'), x1021(1021, 'x');
    const struct {
        std::string file, section, key, value, after;
    } rows[] = {
        {kTwo, "one", "b", "22", "[one]\na=1\n[two]\nb=22\n"},
        {"k=0\n[s]\nk=first\nk=2\n", "s", "k", "x", "k=0\n[s]\nk=x\nk=2\n"},
        {"[s]\nk=tail", "s", "k", "new", "[s]\nk=new\n"},
        {"; x\n[s]\nother=1\n", "s", "k", "v", "; x\n[s]\nother=1\n"},
        {"[s]\n#k=comment\nk=real\n", "s", "#k", "c", "[s]\n#k=c\nk=real\n"},
        {"[s]\nk=" + v1500 + "\n", "s", "k", "s", "[s]\nk=s\n" + std::string(479, 'v') + "\n"},
        {kTwo, "one", "a", x1020, "[one]\na=" + x1020 + "\n[two]\nb=2\n"},  // 1023 bytes
        {kTwo, "one", "a", x1021, kNull},                                    // refused
        {kTwo, std::string(30, 's'), "a", "v", kNull},
    };
    for (const auto &row : rows) {
        dir.write("config.ini", row.file);
        const bool refused = row.after == kNull;
        const char *section = row.section.c_str(), *key = row.key.c_str();
        EXPECT_EQ(PutIniKeyString(section, key, row.value.c_str(), path.c_str()), refused ? -1 : 0);
        EXPECT_EQ(content(), refused ? row.file : row.after) << row.file << " " << row.key;
    }
    EXPECT_EQ(PutIniKeyInt("one", "a", -1234, path.c_str()), 0);
    EXPECT_EQ(content(), "[one]\na=-1234\n[two]\nb=2\n");
    for (size_t length : {1019u, 1020u}) {  // the longest path, and one byte more
        path = dir.path() + std::string(length - dir.path().size() - 5, '/') + "f.ini";
        dir.write("f.ini", kTwo);
        EXPECT_EQ(PutIniKeyString("one", "a", "9", path.c_str()), length == 1019 ? 0 : -1);
        EXPECT_EQ(content(), length == 1019 ? "[one]\na=9\n[two]\nb=2\n" : kTwo);
    }
}

// fsync is defined here, so the library's calls land in this executable: each is
// recorded (f: the copy, before its rename; d: `sync_dir`, after it) and forwarded,
// unless the row makes it fail.
static std::string *sync_calls = nullptr;
static std::string sync_copy;
static char failing_fsync = 0;
static ino_t sync_dir = 0;

extern "C" int fsync(int fd)
{
    struct stat info {};
    if (sync_calls != nullptr && fstat(fd, &info) == 0) {
        const bool dir = S_ISDIR(info.st_mode), renamed = access(sync_copy.c_str(), F_OK) != 0;
        const bool our_dir = dir && renamed && info.st_ino == sync_dir;
        const char kind = !dir && !renamed ? 'f' : our_dir ? 'd' : '?';
        *sync_calls += kind;
        if (kind == failing_fsync) {
            errno = EIO;
            return -1;
        }
    }
    return reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"))(fd);
}

// The copy is on the storage before its rename and the directory after it, else a power
// cut can leave a short file under the old name. A copy that can't be opened (M: no file,
// D: a directory in its place) or did not reach the disk whole (f: failed fsync, F: a
// full disk, the copy is /dev/full) never replaces the original.
TEST_F(Ini, RewriteSyncsTheCopyBeforeItsRenameAndTheDirectoryAfter)
{
    struct stat info {};
    ASSERT_EQ(stat(dir.path().c_str(), &info), 0);
    ASSERT_EQ(access("/dev/full", W_OK), 0);
    sync_dir = info.st_ino;
    const std::string changed = "[one]\na=9\n[two]\nb=2\n";
    const std::tuple<char, int, const char *, std::string> rows[] = {
        {0, 0, "fd", changed},  {'f', -1, "f", kTwo}, {'d', -1, "fd", changed}, {'F', -1, "", kTwo},
        {'D', -1, "", kTwo},    {'M', -1, "", "<no file>"},
    };
    ku_test::CaptureStderr err;
    const std::string &copy = sync_copy = path + ".tmp";
    for (const auto &[failing, result, calls, after] : rows) {
        dir.write("config.ini", kTwo);
        ASSERT_EQ(failing == 'M' ? unlink(path.c_str()) : 0, 0);
        ASSERT_EQ(failing == 'F' ? symlink("/dev/full", copy.c_str()) : 0, 0);
        ASSERT_EQ(failing == 'D' ? mkdir(copy.c_str(), 0700) : 0, 0);
        std::string seen;
        failing_fsync = failing;
        sync_calls = &seen;
        EXPECT_EQ(PutIniKeyString("one", "a", "9", path.c_str()), result) << failing;
        sync_calls = nullptr;
        EXPECT_EQ(seen, calls) << failing;
        rmdir(copy.c_str());  // the D row's
        EXPECT_EQ(content(), after) << failing;
    }
    EXPECT_EQ(get("one", "a"), kNull);
    const std::string log = err.finish(), open = "ERR:  Fail to open INI file " + path + "\n";
    EXPECT_NE(log.find(open, log.find(open) + 1), log.npos) << log;
    EXPECT_NE(log.find("ERR:  Fail to open INI temp file " + path + "\n"), log.npos) << log;
}
