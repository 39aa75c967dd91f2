// LD_PRELOAD module that puts the plock stand-in (support/plock_device) in
// front of a ku run: /dev/plock calls go to the stand-in, all else to libc.
// KU_PLOCK_STANDIN picks the machine: "none" (no node, mknod refused),
// "node" (a node without a driver) or "driver" (node and driver).
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "support/plock_device.h"

namespace {

template <typename Function>
Function real(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

__attribute__((constructor)) void configure()
{
    const char *machine = std::getenv("KU_PLOCK_STANDIN");
    ku_test::PlockDevice &device = ku_test::plock_device();
    device.node_exists = machine != nullptr && std::strcmp(machine, "none") != 0;
    device.may_make_node = false;
    device.driver_loaded = machine != nullptr && std::strcmp(machine, "driver") == 0;
}

int open_through(const char *name, const char *path, int flags, va_list args)
{
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(args, int)) : 0;
    if (ku_test::is_plock_path(path))
        return ku_test::plock_open(flags);
    return real<int (*)(const char *, int, ...)>(name)(path, flags, mode);
}

}  // namespace

extern "C" int access(const char *path, int mode)
{
    if (ku_test::is_plock_path(path))
        return ku_test::plock_access(mode);
    return real<int (*)(const char *, int)>("access")(path, mode);
}

// With 64-bit file offsets on a 32-bit target the headers name open's
// definition open64, which is defined below.
#ifndef __USE_FILE_OFFSET64
extern "C" int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const int fd = open_through("open", path, flags, args);
    va_end(args);
    return fd;
}
#endif

extern "C" int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const int fd = open_through("open64", path, flags, args);
    va_end(args);
    return fd;
}

// With 64-bit time on a 32-bit target <sys/ioctl.h> names ioctl's
// definition __ioctl_time64, which is what the library calls there.
#ifdef __USE_TIME_BITS64
constexpr const char *kIoctl = "__ioctl_time64";
#else
constexpr const char *kIoctl = "ioctl";
#endif

extern "C" int ioctl(int fd, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    const unsigned long argument = va_arg(args, unsigned long);
    va_end(args);
    if (ku_test::is_plock_descriptor(fd))
        return ku_test::plock_ioctl(fd, request, argument);
    return real<int (*)(int, unsigned long, ...)>(kIoctl)(fd, request, argument);
}

extern "C" int system(const char *command)
{
    return ku_test::plock_system(command);
}
