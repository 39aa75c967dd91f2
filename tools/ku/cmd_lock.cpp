// ku lock: the process lock of the kernel device /dev/plock from a shell.
// The library keeps the device open per process, so each ku run opens it
// afresh; whether a lock outlives the process that took it is the driver's.
#include <ku/process_lock.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"

namespace ku_tool {
namespace {

constexpr const char *kHelp =
    "usage: ku lock take|release|status\n"
    "\n"
    "The lock held by the kernel device /dev/plock (major 210, minor 0). The\n"
    "library makes the node with mknod when it is missing.\n"
    "  take      asks the driver for the lock\n"
    "  release   gives it back\n"
    "  status    prints \"locked\" or \"unlocked\"\n"
    "Without the driver the device cannot be opened and every action fails with\n"
    "status 1. Whether a lock outlives the process that took it, and whether\n"
    "take waits, is the driver's affair.\n";

constexpr const char *kDevice = "/dev/plock";

// The library tells a device it cannot open only by its results (-1 from
// take, "not held" from the query) and makes the node itself when it is
// missing, so a node can exist without a driver behind it. The tool opens the
// node once itself to tell the user why.
int unavailable_reason(std::string &reason)
{
    const int fd = open(kDevice, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        close(fd);
        return 0;
    }
    reason = std::string(kDevice) + " cannot be opened: " + std::strerror(errno) + " (is the plock driver loaded?)";
    return -1;
}

}  // namespace

int run_lock(int argc, char **argv)
{
    if (wants_help(argc, argv))
        return print_help(kHelp);
    const auto args = parse_args("lock", argc, argv, {});
    if (!args)
        return kExitUsage;
    if (args->positional.size() != 1)
        return usage_error("lock", "expected take, release or status");
    const std::string &action = args->positional[0];
    if (action != "take" && action != "status" && action != "release")
        return usage_error("lock", "unknown action '" + action + "' (take, release, status)");
    // Take and the query open the device (and make a missing node); release
    // alone would find no descriptor, so it opens through the query first.
    const int first = action == "take" ? kuprocess_lock() : kuprocess_is_locked();
    std::string reason;
    if (unavailable_reason(reason) != 0)
        return fail("lock", reason);
    if (action == "take") {
        if (first < 0)
            return fail("lock", "the driver refused the lock (" + std::to_string(first) + ")");
        return kExitOk;
    }
    if (action == "status")
        return write_all(stdout, first ? "locked\n" : "unlocked\n") ? kExitOk : fail("lock", "cannot write stdout");
    const int result = kuprocess_unlock();
    if (result < 0)
        return fail("lock", "the driver refused the release (" + std::to_string(result) + ")");
    return kExitOk;
}


}  // namespace ku_tool
