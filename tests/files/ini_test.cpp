// INI files: the reader's rules (no section end, whole-key match, comments),
// the writer's state machine, and the promise that a failed write of the
// temporary file never replaces the original.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#include "ku/ini.h"
#include "support/capture.h"
#include "support/temp_dir.h"

using ku_test::CaptureStderr;
using ku_test::read_file;
using ku_test::TempDir;

namespace {

class Ini : public ::testing::Test {
protected:
    const char *write(const std::string &content)
    {
        path_ = dir_.write("config.ini", content);
        return path_.c_str();
    }
    // The value as a string, or "<null>".
    std::string get(const char *section, const char *key)
    {
        const char *value = GetIniKeyString(section, key, path_.c_str());
        return value == nullptr ? "<null>" : value;
    }
    TempDir dir_;
    std::string path_;
};

constexpr const char *kTwoSections = "[one]\na=1\n[two]\nb=2\n";

}  // namespace

TEST_F(Ini, ReadsAKeyOfItsSection)
{
    write(kTwoSections);
    EXPECT_EQ(get("one", "a"), "1");
    EXPECT_EQ(get("two", "b"), "2");
}

TEST_F(Ini, ASectionHasNoEnd)
{
    write(kTwoSections);
    EXPECT_EQ(get("one", "b"), "2");
    EXPECT_EQ(PutIniKeyString("one", "b", "22", path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), "[one]\na=1\n[two]\nb=22\n");
}

TEST_F(Ini, MissingSectionOrKeyGivesNull)
{
    write(kTwoSections);
    EXPECT_EQ(get("three", "a"), "<null>");
    EXPECT_EQ(get("two", "a"), "<null>");  // a stands before [two]
}

TEST_F(Ini, FirstKeyLineBehindTheHeaderWins)
{
    write("k=before\n[s]\nk=first\nk=second\n");
    EXPECT_EQ(get("s", "k"), "first");
}

TEST_F(Ini, HeaderMustMatchTheWholeLine)
{
    write("\n[s\n [s]\n[s] \n[sx]\nk=v\n");
    EXPECT_EQ(get("s", "k"), "<null>");
}

TEST_F(Ini, KeyIsComparedWhole)
{
    write("[s]\nab=short\nabc=long\n");
    EXPECT_EQ(get("s", "abc"), "long");
    EXPECT_EQ(get("s", "ab"), "short");
    EXPECT_EQ(get("s", "a"), "<null>");
}

TEST_F(Ini, NeitherKeyNorValueIsTrimmed)
{
    write("[s]\nk =spaced key\nk= spaced = value \n");
    EXPECT_EQ(get("s", "k"), " spaced = value ");
    EXPECT_EQ(get("s", "k "), "spaced key");
}

TEST_F(Ini, CommentsAreSkipped)
{
    write("[s]\n#k=hash\n//k=slashes\n/k=single\n");
    EXPECT_EQ(get("s", "/k"), "single");
    EXPECT_EQ(get("s", "#k"), "<null>");
}

TEST_F(Ini, EmptyValueIsAnEmptyString)
{
    write("[s]\nk=\n");
    EXPECT_EQ(get("s", "k"), "");
    EXPECT_EQ(GetIniKeyInt("s", "k", path_.c_str()), 0);
}

TEST_F(Ini, CrLfFileKeepsCrInValuesAndHidesHeaders)
{
    write("[s]\r\nk=v\r\n");
    EXPECT_EQ(get("s", "k"), "<null>");  // "[s]\r" is no header
    write("[s]\nk=v\r\n");
    EXPECT_EQ(get("s", "k"), "v\r");
}

TEST_F(Ini, LastLineWithoutNewlineIsReadWholeAndRewrittenWithOne)
{
    write("[s]\nk=tail");
    EXPECT_EQ(get("s", "k"), "tail");
    EXPECT_EQ(PutIniKeyString("s", "k", "new", path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), "[s]\nk=new\n");
}

TEST_F(Ini, IntegersIncludingNegative)
{
    write("[s]\nn=0\nm=42abc\nt=text\n");
    EXPECT_EQ(PutIniKeyInt("s", "n", -1234, path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), "[s]\nn=-1234\nm=42abc\nt=text\n");
    EXPECT_EQ(GetIniKeyInt("s", "n", path_.c_str()), -1234);
    EXPECT_EQ(GetIniKeyInt("s", "m", path_.c_str()), 42);
    EXPECT_EQ(GetIniKeyInt("s", "t", path_.c_str()), 0);
    EXPECT_EQ(GetIniKeyInt("s", "missing", path_.c_str()), 0);
}

TEST_F(Ini, ValueLivesInOneSharedBufferUntilTheNextRead)
{
    write("[s]\na=first\nb=second\n");
    const char *a = GetIniKeyString("s", "a", path_.c_str());
    const char *b = GetIniKeyString("s", "b", path_.c_str());
    EXPECT_STREQ(b, "second");
    EXPECT_STRNE(a, "first");  // overwritten by the second read
    // A write leaves the last value alone.
    EXPECT_EQ(PutIniKeyString("s", "a", "x", path_.c_str()), 0);
    EXPECT_STREQ(b, "second");
}

TEST_F(Ini, LongLineArrivesInPiecesOf1023Bytes)
{
    const std::string long_value(1500, 'v');
    write("[s]\nk=" + long_value + "\n");
    EXPECT_EQ(get("s", "k"), std::string(1021, 'v'));
    EXPECT_EQ(PutIniKeyString("s", "k", "short", path_.c_str()), 0);
    // Only the first 1023 bytes were the key line; the rest is a line of its own.
    EXPECT_EQ(read_file(path_), "[s]\nk=short\n" + std::string(479, 'v') + "\n");
}

TEST_F(Ini, PutOfAnAbsentKeyLeavesTheContent)
{
    const std::string content = "; x\n[s]\nother=1\n";
    write(content);
    EXPECT_EQ(PutIniKeyString("s", "k", "v", path_.c_str()), 0);
    EXPECT_EQ(PutIniKeyString("nope", "other", "v", path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), content);
    EXPECT_NE(access((path_ + ".tmp").c_str(), F_OK), 0);
}

TEST_F(Ini, PutComparesCommentLinesLikeKeyLines)
{
    write("[s]\n#k=comment\nk=real\n");
    EXPECT_EQ(PutIniKeyString("s", "#k", "changed", path_.c_str()), 0);
    EXPECT_EQ(read_file(path_), "[s]\n#k=changed\nk=real\n");
}

TEST_F(Ini, MissingFileGivesErrorLineAndNoTemporaryFile)
{
    path_ = dir_.file("absent.ini");
    CaptureStderr err;
    EXPECT_EQ(GetIniKeyString("s", "k", path_.c_str()), nullptr);
    EXPECT_EQ(PutIniKeyString("s", "k", "v", path_.c_str()), -1);
    const std::string text = err.finish();
    const std::string line = "ERR:  Fail to open INI file " + path_ + "\n";
    EXPECT_NE(text.find(line), std::string::npos);
    EXPECT_NE(text.find(line, text.find(line) + 1), std::string::npos);
    EXPECT_NE(access((path_ + ".tmp").c_str(), F_OK), 0);
}

TEST_F(Ini, UnopenableTemporaryFileLeavesTheOriginal)
{
    write(kTwoSections);
    ASSERT_EQ(mkdir((path_ + ".tmp").c_str(), 0700), 0);  // a directory can't be opened "w"
    CaptureStderr err;
    EXPECT_EQ(PutIniKeyString("one", "a", "9", path_.c_str()), -1);
    EXPECT_NE(err.finish().find("ERR:  Fail to open INI temp file " + path_ + "\n"), std::string::npos);
    EXPECT_EQ(read_file(path_), kTwoSections);
}

TEST_F(Ini, OverLongSectionOrKeyLineIsRefusedAndTheFileStays)
{
    write(kTwoSections);
    const std::string section(30, 's');  // "[" + 30 + "]" needs 33 bytes
    EXPECT_EQ(GetIniKeyString(section.c_str(), "a", path_.c_str()), nullptr);
    EXPECT_EQ(PutIniKeyString(section.c_str(), "a", "v", path_.c_str()), -1);
    const std::string value(1100, 'x');
    EXPECT_EQ(PutIniKeyString("one", "a", value.c_str(), path_.c_str()), -1);
    EXPECT_EQ(read_file(path_), kTwoSections);
    EXPECT_NE(access((path_ + ".tmp").c_str(), F_OK), 0);
    // "a=" + value + "\n" fills the 1023 bytes of a line at most.
    EXPECT_EQ(PutIniKeyString("one", "a", std::string(1021, 'x').c_str(), path_.c_str()), -1);
    EXPECT_EQ(read_file(path_), kTwoSections);
    EXPECT_EQ(PutIniKeyString("one", "a", std::string(1020, 'x').c_str(), path_.c_str()), 0);
    EXPECT_EQ(get("one", "a"), std::string(1020, 'x'));
    const std::string section29(29, 't');
    write("[" + section29 + "]\nk=v\n");
    EXPECT_EQ(get(section29.c_str(), "k"), "v");
}

// A full file system: the temporary copy comes out short. The original must
// stay byte for byte and the short copy must go. A small tmpfs is mounted in a
// private mount namespace of a child process, so nothing outside changes.
TEST_F(Ini, FailedWriteOfTheTemporaryFileNeverReplacesTheOriginal)
{
    const std::string mount_point = dir_.file("fs");
    ASSERT_EQ(mkdir(mount_point.c_str(), 0700), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", mount_point.c_str(), "tmpfs", 0, "size=16k") != 0) {
            _exit(77);
        }
        // An original of 8 KiB; then a filler up to a full file system, less
        // one 4 KiB page: room for half of the copy.
        const std::string path = mount_point + "/config.ini";
        std::string original = "[s]\nk=old\n";
        while (original.size() < 8192) {
            original += "filler=" + std::string(60, 'f') + "\n";
        }
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
        if (fd < 0 || ::write(fd, original.data(), original.size()) != static_cast<ssize_t>(original.size())) {
            _exit(10);
        }
        close(fd);
        const std::string filler = mount_point + "/filler";
        const int fill = open(filler.c_str(), O_WRONLY | O_CREAT, 0600);
        const std::string block(4096, 'z');
        off_t filled = 0;
        ssize_t wrote;
        while ((wrote = ::write(fill, block.data(), block.size())) > 0) {
            filled += wrote;
        }
        close(fill);
        if (filled < 4096 || truncate(filler.c_str(), filled - 4096) != 0) {
            _exit(11);
        }

        const int result = PutIniKeyString("s", "k", "new", path.c_str());
        if (result != -1) _exit(20);
        if (read_file(path) != original) _exit(21);
        if (access((path + ".tmp").c_str(), F_OK) == 0) _exit(22);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "no private mount namespace here (needs root): full-disk case not run";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0) << "20: wrong result, 21: original changed, 22: copy left";
}

// --- durability: the order of fsync and rename ------------------------------
// fsync and rename are defined here, so the library's calls land in this
// executable: each is recorded (fsync by the path of its descriptor) and
// forwarded, unless the row makes the fsync of one path fail.

namespace {

struct SyncLog {
    std::vector<std::string> calls;
    std::string failing_fsync;  // path whose fsync gives EIO
};
SyncLog *sync_log = nullptr;

std::string path_of(int fd)
{
    char link[PATH_MAX];
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), link, sizeof link);
    return length > 0 ? std::string(link, static_cast<size_t>(length)) : "?";
}

template <typename F> F real(const char *name)
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int fsync(int fd)
{
    if (sync_log != nullptr) {
        const std::string path = path_of(fd);
        sync_log->calls.push_back("fsync " + path);
        if (path == sync_log->failing_fsync) {
            errno = EIO;
            return -1;
        }
    }
    return real<int (*)(int)>("fsync")(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept
{
    if (sync_log != nullptr) {
        sync_log->calls.push_back(std::string("rename ") + from + " " + to);
    }
    return real<int (*)(const char *, const char *)>("rename")(from, to);
}

// The copy is on the storage before its rename, and the directory after it:
// else a power cut can leave an empty or short file under the old name. A
// copy whose fsync fails never replaces the original.
TEST_F(Ini, RewriteSyncsTheCopyBeforeItsRenameAndTheDirectoryAfter)
{
    char *real_dir = realpath(dir_.path().c_str(), nullptr);
    ASSERT_NE(real_dir, nullptr);
    const std::string directory = real_dir;
    free(real_dir);
    const std::string file = directory + "/config.ini";
    const std::string copy = file + ".tmp";
    const std::vector<std::string> all = {"fsync " + copy, "rename " + copy + " " + file, "fsync " + directory};
    struct Row {
        std::string failing_fsync;
        int result;
        std::vector<std::string> calls;
        const char *content;
    };
    const Row rows[] = {
        {"", 0, all, "[one]\na=9\n[two]\nb=2\n"},
        {copy, -1, {all[0]}, kTwoSections},                  // original kept byte for byte
        {directory, -1, all, "[one]\na=9\n[two]\nb=2\n"},  // in place, maybe not durable
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.failing_fsync);
        write(kTwoSections);
        SyncLog log{{}, row.failing_fsync};
        sync_log = &log;
        const int result = PutIniKeyString("one", "a", "9", file.c_str());
        sync_log = nullptr;
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(log.calls, row.calls);
        EXPECT_EQ(read_file(path_), row.content);
        EXPECT_NE(access(copy.c_str(), F_OK), 0);
    }
}
