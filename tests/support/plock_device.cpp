#include "support/plock_device.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace ku_test {
namespace {

constexpr const char *kPath = "/dev/plock";
constexpr const char *kMakeNode = "mknod /dev/plock c 210 0";
constexpr unsigned long kLock = 8193;
constexpr unsigned long kUnlock = 8194;
constexpr unsigned long kQuery = 8195;

}  // namespace

PlockDevice &plock_device()
{
    static PlockDevice device;
    return device;
}

bool is_plock_path(const char *path)
{
    return path != nullptr && std::strcmp(path, kPath) == 0;
}

bool is_plock_descriptor(int fd)
{
    const std::vector<int> &open = plock_device().descriptors;
    return std::find(open.begin(), open.end(), fd) != open.end();
}

int plock_access(int mode)
{
    PlockDevice &device = plock_device();
    ++device.access_calls;
    if (!device.node_exists) {
        errno = ENOENT;
        return -1;
    }
    // The node is root's and readable only: no write or execute right.
    if ((mode & (W_OK | X_OK)) != 0) {
        errno = EACCES;
        return -1;
    }
    return 0;
}

int plock_open(int flags)
{
    PlockDevice &device = plock_device();
    ++device.open_calls;
    device.open_flags.push_back(flags);
    if (!device.node_exists) {
        errno = ENOENT;
        return -1;
    }
    if (!device.driver_loaded) {
        errno = ENXIO;
        return -1;
    }
    if ((flags & O_ACCMODE) != O_RDONLY) {
        errno = EACCES;
        return -1;
    }
    // A real descriptor, so that the number is the process's own.
    const int fd = open("/dev/null", O_RDONLY);
    if (fd >= 0) {
        device.descriptors.push_back(fd);
    }
    return fd;
}

int plock_ioctl(int, unsigned long request, unsigned long argument)
{
    PlockDevice &device = plock_device();
    device.ioctls.push_back(request);
    device.ioctl_arguments.push_back(argument);
    if (argument != 0) {
        errno = EINVAL;
        return -1;
    }
    switch (request) {
    case kLock:
        if (device.held) {
            errno = EBUSY;
            return -1;
        }
        device.held = true;
        return 0;
    case kUnlock:
        if (!device.held) {
            errno = EPERM;
            return -1;
        }
        device.held = false;
        return 0;
    case kQuery:
        if (device.query_override) {
            if (device.query_answer < 0) {
                errno = EIO;
            }
            return device.query_answer;
        }
        return device.held ? 1 : 0;
    default:
        errno = ENOTTY;
        return -1;
    }
}

int plock_system(const char *command)
{
    PlockDevice &device = plock_device();
    device.commands.emplace_back(command == nullptr ? "" : command);
    if (command != nullptr && std::strcmp(command, kMakeNode) == 0 && device.may_make_node) {
        device.node_exists = true;
        return 0;
    }
    return 256;
}

}  // namespace ku_test
