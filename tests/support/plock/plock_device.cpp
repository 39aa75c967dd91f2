// A stand-in for the "/dev/plock" device and driver: access, open, ioctl and system (which
// runs nothing) for the whole process, so only the process lock test and ku's preload have it.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace ku_test {

// KU_PLOCK_STANDIN picks the machine of a preloaded run: "none" (no node,
// mknod refused), "node" (no driver) or "driver". Unset, mknod makes the node.
struct PlockDevice {
    const char *machine = std::getenv("KU_PLOCK_STANDIN");
    bool node = machine != nullptr && std::strcmp(machine, "none") != 0;  // the node is there
    bool driver = machine == nullptr || std::strcmp(machine, "driver") == 0;  // the node opens
    int answer = 0;                  // what every ioctl gives
    std::vector<std::string> calls;  // "access <mode>", "open <flags>", "ioctl <cmd> <arg>", system
    int fd = -1;                     // the descriptor open gave
};

PlockDevice &plock_device()
{
    static PlockDevice device;
    return device;
}

}  // namespace ku_test

extern "C" int access(const char *path, int mode)
{
    if (std::strcmp(path, "/dev/plock") != 0)
        return faccessat(AT_FDCWD, path, mode, 0);
    ku_test::plock_device().calls.push_back("access " + std::to_string(mode));
    errno = ENOENT;  // what a failed access of a missing node says
    return ku_test::plock_device().node ? 0 : -1;
}

// On a 32-bit target with 64-bit offsets and time the headers name this
// definition open64 and the ioctl one __ioctl_time64, which the library
// calls there. Other paths go on to openat (openat64 there).
extern "C" int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const int mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, int) : 0;
    va_end(args);
    if (std::strcmp(path, "/dev/plock") != 0)
        return openat(AT_FDCWD, path, flags, mode);
    ku_test::PlockDevice &device = ku_test::plock_device();
    device.calls.push_back("open " + std::to_string(flags));
    errno = device.node ? ENXIO : ENOENT;
    if (!device.node || !device.driver)
        return -1;
    // A real descriptor, so that the number is the process's own.
    return device.fd = openat(AT_FDCWD, "/dev/null", O_RDONLY);
}

extern "C" int ioctl(int fd, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    const unsigned long argument = va_arg(args, unsigned long);
    va_end(args);
    ku_test::PlockDevice &device = ku_test::plock_device();
    if (fd < 0 || fd != device.fd)
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    device.calls.push_back("ioctl " + std::to_string(request) + " " + std::to_string(argument));
    return device.answer;
}

extern "C" int system(const char *command)
{
    ku_test::PlockDevice &device = ku_test::plock_device();
    device.calls.emplace_back(command != nullptr ? command : "");
    device.node |= device.machine == nullptr && device.calls.back() == "mknod /dev/plock c 210 0";
    return device.node ? 0 : 256;
}
