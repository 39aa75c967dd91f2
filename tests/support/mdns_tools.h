// Stand-ins for the mDNS tools of the target, first on PATH while the object
// lives: a dns-sd that records "<pid> <arguments>" and then stays alive under
// its own command line, as the real one does while it publishes or browses,
// and a ps that is BusyBox's (process id in the first column of "ps -ef").
// Everything lives in a private temp dir; the destructor kills every
// stand-in that still runs from it, and nothing else.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "support/temp_dir.h"

namespace ku_test {

class MdnsTools {
public:
    MdnsTools();
    ~MdnsTools();
    MdnsTools(const MdnsTools &) = delete;
    MdnsTools &operator=(const MdnsTools &) = delete;

    // False when bash or busybox is missing: a test should skip then.
    bool ready() const { return ready_; }
    std::string missing() const { return missing_; }
    // The temp dir's random suffix, for names no other process carries.
    const std::string &unique() const { return unique_; }

    struct Started {
        pid_t pid;
        std::string arguments;
    };
    // The dns-sd stand-ins started so far, once at least `count` have
    // recorded themselves (waits up to 5 seconds).
    std::vector<Started> wait_for_started(size_t count) const;

    // True while the process runs (a zombie counts as ended).
    static bool running(pid_t pid);
    // Waits up to 3 seconds for the process to end.
    static bool ended_soon(pid_t pid);

private:
    TempDir dir_;
    std::string unique_;
    std::string saved_path_;
    bool ready_ = false;
    std::string missing_;
};

}  // namespace ku_test
