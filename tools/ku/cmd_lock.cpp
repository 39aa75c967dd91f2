// ku lock: the process lock of the kernel device /dev/plock from a shell.
// The library keeps the device open per process, so each ku run opens it
// afresh; whether a lock outlives the process that took it is the driver's.
#include <ku/process_lock.h>

#include <unistd.h>

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

int unavailable()
{
    return fail("lock", std::string(kDevice) + " cannot be opened (is the plock driver loaded?)");
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
    if (action == "take") {
        const int result = kuprocess_lock();
        if (result < 0)
            return access(kDevice, R_OK) != 0 ? unavailable()
                                              : fail("lock", "the driver refused the lock (" + std::to_string(result) + ")");
        return kExitOk;
    }
    if (action == "status" || action == "release") {
        // The query opens the device; release alone would find no descriptor.
        const int held = kuprocess_is_locked();
        if (held == 0 && access(kDevice, R_OK) != 0)
            return unavailable();
        if (action == "status")
            return write_all(stdout, held ? "locked\n" : "unlocked\n") ? kExitOk : fail("lock", "cannot write stdout");
        const int result = kuprocess_unlock();
        if (result < 0)
            return fail("lock", "the driver refused the release (" + std::to_string(result) + ")");
        return kExitOk;
    }
    return usage_error("lock", "unknown action '" + action + "' (take, release, status)");
}

}  // namespace ku_tool
