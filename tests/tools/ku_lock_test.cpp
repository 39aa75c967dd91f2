// ku lock on a machine without the plock driver: every action fails with one
// line. A stand-in mknod first on PATH keeps the library from making the
// real device node; the test skips when /dev/plock exists.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::read_file;
using KuLock = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_LOCK

TEST_F(KuLock, EveryActionFailsWithoutTheDriver)
{
    if (access("/dev/plock", F_OK) == 0)
        GTEST_SKIP() << "/dev/plock exists here; the test only covers a machine without the driver";
    const auto mknod = dir.write("mknod", "#!/bin/sh\necho \"$*\" >> \"" + dir.file("mknod.log") + "\"\n");
    chmod(mknod.c_str(), 0755);
    ku_test::ProcessOptions options;
    options.cwd = dir.path();
    options.env = {"PATH=" + dir.path() + ":" + std::getenv("PATH")};
    for (const char *action : {"take", "release", "status"}) {
        SCOPED_TRACE(action);
        const auto result = ku({"lock", action}, options);
        expect_one_line_error(result, 1, "lock");
        EXPECT_NE(result.err.find("/dev/plock cannot be opened"), std::string::npos) << result.err;
    }
    // The library tried to make the node each time, through the stand-in.
    EXPECT_EQ(read_file(dir.file("mknod.log")),
              "/dev/plock c 210 0\n/dev/plock c 210 0\n/dev/plock c 210 0\n");
    EXPECT_NE(access("/dev/plock", F_OK), 0);
}

TEST_F(KuLock, RefusesWrongArguments)
{
    expect_one_line_error(ku({"lock"}), 2, "lock");
    expect_one_line_error(ku({"lock", "grab"}), 2, "lock");
    expect_one_line_error(ku({"lock", "take", "now"}), 2, "lock");
}

#endif  // KU_TOOL_HAVE_LOCK

}  // namespace
