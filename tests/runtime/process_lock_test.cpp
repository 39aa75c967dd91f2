#include "ku/process_lock.h"

#include <cerrno>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

#include "support/child_process.h"
#include "support/plock_device.h"

// The library reaches the device through access, open (open64 on targets
// with 64-bit file offsets), ioctl and system. This executable takes those
// over: calls on "/dev/plock" or its descriptor go to the emulated device,
// every other call to libc. system() never runs a command here, so no test
// can create a real device node.
namespace {
bool emulate = true;

template <typename Function>
Function real(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

mode_t mode_argument(int flags, va_list args)
{
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(args, int)) : 0;
}

// open and open64 alike: the device path to the stand-in, the rest to libc.
int open_through(const char *name, const char *path, int flags, mode_t mode)
{
    if (emulate && ku_test::is_plock_path(path)) {
        return ku_test::plock_open(flags);
    }
    return real<int (*)(const char *, int, ...)>(name)(path, flags, mode);
}
}  // namespace

extern "C" int access(const char *path, int mode)
{
    if (emulate && ku_test::is_plock_path(path)) {
        return ku_test::plock_access(mode);
    }
    return real<int (*)(const char *, int)>("access")(path, mode);
}

// With 64-bit file offsets on a 32-bit target the headers name open's
// definition open64, which is defined below.
#ifndef __USE_FILE_OFFSET64
extern "C" int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = mode_argument(flags, args);
    va_end(args);
    return open_through("open", path, flags, mode);
}
#endif

extern "C" int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = mode_argument(flags, args);
    va_end(args);
    return open_through("open64", path, flags, mode);
}

extern "C" int ioctl(int fd, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    const unsigned long argument = va_arg(args, unsigned long);
    va_end(args);
    if (emulate && ku_test::is_plock_descriptor(fd)) {
        return ku_test::plock_ioctl(fd, request, argument);
    }
    return real<int (*)(int, unsigned long, ...)>("ioctl")(fd, request, argument);
}

extern "C" int system(const char *command)
{
    return ku_test::plock_system(command);
}

namespace {

using ku_test::plock_device;
using ku_test::PlockDevice;
using ku_test::run_in_child;

constexpr const char *kMakeNode = "mknod /dev/plock c 210 0";

// Collects the failed checks of a child, for its result text.
class Checks {
public:
    template <typename A, typename B>
    void equal(const A &actual, const B &expected, const char *what, int line)
    {
        if (!(actual == expected)) {
            out_ << "line " << line << ": " << what << " is " << show(actual) << ", expected "
                 << show(expected) << "\n";
        }
    }
    std::string text() const { return out_.str(); }

private:
    template <typename T>
    static std::string show(const T &value)
    {
        std::ostringstream text;
        text << value;
        return text.str();
    }
    template <typename T>
    static std::string show(const std::vector<T> &values)
    {
        std::string text = "[";
        for (const T &value : values) {
            text += show(value) + " ";
        }
        return text + "]";
    }
    std::ostringstream out_;
};

#define CHECK_EQ_IN_CHILD(checks, actual, expected) (checks).equal((actual), (expected), #actual, __LINE__)

using Commands = std::vector<std::string>;
using Ioctls = std::vector<unsigned long>;
using Steps = void (*)(Checks &, PlockDevice &);

// The descriptor is process-wide and never closed: every scenario runs in a
// fresh child, against a device whose node is there or not.
std::string in_fresh_process(bool node_exists, Steps steps)
{
    return run_in_child([node_exists, steps] {
        Checks checks;
        PlockDevice &device = plock_device();
        device.node_exists = node_exists;
        steps(checks, device);
        return checks.text();
    });
}

TEST(ProcessLock, UnlockBeforeAnyOpenSendsNothing)
{
    EXPECT_EQ(in_fresh_process(true, [](Checks &checks, PlockDevice &device) {
        kuprocess_unlock();
        CHECK_EQ_IN_CHILD(checks, device.access_calls, 0);
        CHECK_EQ_IN_CHILD(checks, device.open_calls, 0);
        CHECK_EQ_IN_CHILD(checks, device.ioctls, Ioctls{});
        CHECK_EQ_IN_CHILD(checks, device.commands, Commands{});
    }),
              "");
}

TEST(ProcessLock, ExistingNodeIsOpenedReadOnlyWithoutMknod)
{
    EXPECT_EQ(in_fresh_process(true, [](Checks &checks, PlockDevice &device) {
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), 0);
        CHECK_EQ_IN_CHILD(checks, device.commands, Commands{});
        CHECK_EQ_IN_CHILD(checks, device.access_calls, 1);
        CHECK_EQ_IN_CHILD(checks, device.open_flags, std::vector<int>{O_RDONLY});
        CHECK_EQ_IN_CHILD(checks, device.ioctls, Ioctls{8193});
        CHECK_EQ_IN_CHILD(checks, device.ioctl_arguments, Ioctls{0});
        CHECK_EQ_IN_CHILD(checks, device.held, true);
    }),
              "");
}

TEST(ProcessLock, MissingNodeIsMadeWithMknodThenOpened)
{
    EXPECT_EQ(in_fresh_process(false, [](Checks &checks, PlockDevice &device) {
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 0);
        CHECK_EQ_IN_CHILD(checks, device.commands, Commands{kMakeNode});
        CHECK_EQ_IN_CHILD(checks, device.open_calls, 1);
        CHECK_EQ_IN_CHILD(checks, device.ioctls, Ioctls{8195});
    }),
              "");
}

TEST(ProcessLock, FailedOpenIsTriedAgainAtTheNextCall)
{
    EXPECT_EQ(in_fresh_process(false, [](Checks &checks, PlockDevice &device) {
        device.may_make_node = false;
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), -1);
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 0);
        CHECK_EQ_IN_CHILD(checks, kuprocess_unlock(), 0);
        CHECK_EQ_IN_CHILD(checks, device.access_calls, 2);
        CHECK_EQ_IN_CHILD(checks, device.open_calls, 2);
        CHECK_EQ_IN_CHILD(checks, device.commands, (Commands{kMakeNode, kMakeNode}));
        CHECK_EQ_IN_CHILD(checks, device.ioctls, Ioctls{});

        device.may_make_node = true;
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), 0);
        CHECK_EQ_IN_CHILD(checks, device.access_calls, 3);
        CHECK_EQ_IN_CHILD(checks, device.open_calls, 3);
        CHECK_EQ_IN_CHILD(checks, device.commands.size(), 3u);
        CHECK_EQ_IN_CHILD(checks, device.ioctls, Ioctls{8193});
    }),
              "");
}

TEST(ProcessLock, NodeWithoutDriverIsRetriedWithoutMknod)
{
    EXPECT_EQ(in_fresh_process(true, [](Checks &checks, PlockDevice &device) {
        device.driver_loaded = false;
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), -1);
        device.driver_loaded = true;
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), 0);
        CHECK_EQ_IN_CHILD(checks, device.access_calls, 2);
        CHECK_EQ_IN_CHILD(checks, device.open_calls, 2);
        CHECK_EQ_IN_CHILD(checks, device.commands, Commands{});
    }),
              "");
}

TEST(ProcessLock, OnceOpenEveryCallSendsOneCommandAndNothingElse)
{
    EXPECT_EQ(in_fresh_process(true, [](Checks &checks, PlockDevice &device) {
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), 0);
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 1);
        CHECK_EQ_IN_CHILD(checks, kuprocess_unlock(), 0);
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 0);
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), 0);
        CHECK_EQ_IN_CHILD(checks, device.access_calls, 1);
        CHECK_EQ_IN_CHILD(checks, device.open_calls, 1);
        CHECK_EQ_IN_CHILD(checks, device.ioctls, (Ioctls{8193, 8195, 8194, 8195, 8193}));
        CHECK_EQ_IN_CHILD(checks, device.ioctl_arguments, (Ioctls{0, 0, 0, 0, 0}));
    }),
              "");
}

TEST(ProcessLock, DriverResultsOfLockAndUnlockArePassedOn)
{
    EXPECT_EQ(in_fresh_process(true, [](Checks &checks, PlockDevice &) {
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), 0);
        // This driver refuses a second take instead of blocking.
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), -1);
        CHECK_EQ_IN_CHILD(checks, kuprocess_unlock(), 0);
        CHECK_EQ_IN_CHILD(checks, kuprocess_unlock(), -1);
    }),
              "");
}

TEST(ProcessLock, AnyNonZeroQueryAnswerReadsAsOne)
{
    EXPECT_EQ(in_fresh_process(true, [](Checks &checks, PlockDevice &device) {
        device.query_override = true;
        device.query_answer = 7;
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 1);
        device.query_answer = -1;
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 1);
        device.query_answer = 0;
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 0);
    }),
              "");
}

TEST(ProcessLock, WithoutDriverOnThisMachineLockFailsAndQuerySaysFree)
{
    if (real<int (*)(const char *, int)>("access")("/dev/plock", F_OK) == 0) {
        GTEST_SKIP() << "this machine has a /dev/plock node";
    }
    EXPECT_EQ(in_fresh_process(false, [](Checks &checks, PlockDevice &device) {
        emulate = false;
        CHECK_EQ_IN_CHILD(checks, kuprocess_lock(), -1);
        CHECK_EQ_IN_CHILD(checks, kuprocess_is_locked(), 0);
        CHECK_EQ_IN_CHILD(checks, kuprocess_unlock(), 0);
        // Captured, not run: the node was asked for twice and never made.
        CHECK_EQ_IN_CHILD(checks, device.commands, (Commands{kMakeNode, kMakeNode}));
        CHECK_EQ_IN_CHILD(checks, access("/dev/plock", F_OK), -1);
    }),
              "");
}

}  // namespace
