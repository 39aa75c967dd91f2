// ku lock against the plock stand-in, preloaded in front of each ku run: on
// a machine without the driver, whether the node is there or not, every
// action fails with one line that says so; with the driver, status answers.
#include <gtest/gtest.h>

#include <string>

#include "ku_tool.h"
#include "support/emulator.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using KuLock = ku_test::KuTool;

#ifdef KU_TOOL_HAVE_LOCK

ku_test::ProcessResult ku_on(const std::string &machine, const char *action)
{
    ku_test::ProcessOptions options;
    // Under the emulator the preload is the target's, not the emulator's own.
    const std::string preload = std::string(ku_test::under_emulator() ? "QEMU_SET_ENV=" : "") +
                                "LD_PRELOAD=" + KU_PLOCK_PRELOAD;
    options.env = {preload, "KU_PLOCK_STANDIN=" + machine};
#ifdef KU_TEST_ASAN
    // The preloaded stand-in comes before the sanitizer's runtime.
    options.env.push_back("ASAN_OPTIONS=verify_asan_link_order=0");
#endif
    return ku({"lock", action}, options);
}

TEST_F(KuLock, EveryActionFailsWithoutTheDriver)
{
    const std::pair<const char *, const char *> machines[] = {
        {"none", "No such file or directory"}, {"node", "No such device or address"}};
    for (const auto &[machine, reason] : machines)
        for (const char *action : {"take", "release", "status"}) {
            SCOPED_TRACE(std::string(machine) + " " + action);
            const auto result = ku_on(machine, action);
            expect_one_line_error(result, 1, "lock");
            EXPECT_NE(result.err.find(std::string("/dev/plock cannot be opened: ") + reason), std::string::npos)
                << result.err;
        }
    const auto status = ku_on("driver", "status");
    EXPECT_EQ(status.status, 0) << status.err;
    EXPECT_EQ(status.out, "unlocked\n");
    EXPECT_EQ(ku_on("driver", "take").status, 0);
}

TEST_F(KuLock, RefusesWrongArguments)
{
    expect_one_line_error(ku({"lock"}), 2, "lock");
    expect_one_line_error(ku({"lock", "grab"}), 2, "lock");
    expect_one_line_error(ku({"lock", "take", "now"}), 2, "lock");
}

#endif  // KU_TOOL_HAVE_LOCK

}  // namespace
