// Counts the descriptors this process holds, so a test can show that a
// failing call left none behind.
#pragma once

#include <filesystem>
#include <iterator>

namespace ku_test {

// Entries of /proc/self/fd, without the one that reads the directory.
inline int open_fd_count()
{
    return int(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})) - 1;
}

}  // namespace ku_test
