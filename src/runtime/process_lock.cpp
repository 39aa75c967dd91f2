// Process lock over the "/dev/plock" character device: one ioctl per call.
// The descriptor is opened lazily, kept for the life of the process and never
// closed; a failed open leaves it at -1 so the next call tries again.
#include "ku/process_lock.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr const char *kDevicePath = "/dev/plock";
constexpr const char *kMakeNode = "mknod /dev/plock c 210 0";

// Unguarded by design: racing first calls may open twice and lose one
// descriptor, which costs less than a lock on every call.
int plock_fd = -1;

int open_device() noexcept
{
    if (plock_fd != -1) {
        return plock_fd;
    }
    if (access(kDevicePath, R_OK) != 0) {
        // Its result says nothing useful: the open below is the real test.
        (void)system(kMakeNode);
    }
    plock_fd = open(kDevicePath, O_RDONLY);
    return plock_fd;
}

}  // namespace

extern "C" {

KU_API int32_t kuprocess_lock(void) noexcept
{
    if (open_device() < 0) {
        return -1;
    }
    return ioctl(plock_fd, PLOCK_IOC_LOCK, 0UL);
}

KU_API int32_t kuprocess_unlock(void) noexcept
{
    if (plock_fd < 0) {
        return 0;
    }
    return ioctl(plock_fd, PLOCK_IOC_UNLOCK, 0UL);
}

KU_API int32_t kuprocess_is_locked(void) noexcept
{
    if (open_device() < 0) {
        return 0;
    }
    return ioctl(plock_fd, PLOCK_IOC_QUERY, 0UL) != 0 ? 1 : 0;
}

}  // extern "C"
