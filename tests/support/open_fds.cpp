#include "support/open_fds.h"

#include <dirent.h>
#include <stdexcept>

namespace ku_test {

int open_fd_count()
{
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        throw std::runtime_error("cannot read /proc/self/fd");
    }
    int count = 0;
    while (const dirent *entry = readdir(dir)) {
        if (entry->d_name[0] != '.') {
            ++count;
        }
    }
    closedir(dir);
    return count - 1;
}

}  // namespace ku_test
