// Counts the descriptors this process holds, so a test can show that a
// failing call left none behind.
#pragma once

namespace ku_test {

// Entries of /proc/self/fd, without the one used to read the directory.
int open_fd_count();

}  // namespace ku_test
