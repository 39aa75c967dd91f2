// A user-space stand-in for the "/dev/plock" character device and its
// driver, for machines that lack both. It knows only what the library's call
// sites fix: the path, character device 210/0 made by "mknod /dev/plock c 210
// 0", a read-only open, and three ioctl commands (8193 lock, 8194 unlock,
// 8195 query) sent with the argument 0, where a non-zero query answer means
// held. Lock and unlock answer 0 or -1 (EBUSY when taken, EPERM when free);
// taking never blocks.
//
// The stand-in defines no libc symbol itself: a test executable interposes
// access/open/open64/ioctl/system and hands calls on "/dev/plock" (or on a
// descriptor from it) to these functions.
#pragma once

#include <string>
#include <vector>

namespace ku_test {

struct PlockDevice {
    // Configuration.
    bool node_exists = false;     // the node is there (access R_OK succeeds)
    bool may_make_node = true;    // the mknod command succeeds
    bool driver_loaded = true;    // an existing node can be opened
    bool query_override = false;  // answer queries with query_answer instead
    int query_answer = 0;

    // Observation.
    int access_calls = 0;
    int open_calls = 0;
    std::vector<int> open_flags;
    std::vector<std::string> commands;  // every system() command line
    std::vector<unsigned long> ioctls;  // every command sent to the device
    std::vector<unsigned long> ioctl_arguments;

    // Device state.
    bool held = false;
    std::vector<int> descriptors;  // handed out by open
};

// The one emulated device of this process.
PlockDevice &plock_device();

bool is_plock_path(const char *path);
bool is_plock_descriptor(int fd);

// Emulations of the calls, with libc's result and errno conventions.
int plock_access(int mode);
int plock_open(int flags);
int plock_ioctl(int fd, unsigned long request, unsigned long argument);
// Records the command; runs nothing. Gives 0 for a node made, else 256.
int plock_system(const char *command);

}  // namespace ku_test
