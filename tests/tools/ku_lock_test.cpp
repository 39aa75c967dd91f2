// ku lock against the plock stand-in preloaded in front of each run: without
// the driver, node or not, each action fails with one line that says so.
#include "ku_tool.h"
#include "support/emulator.h"

namespace {

using namespace ku_test;

TEST_F(KuTool, EveryLockActionFailsWithoutTheDriver)
{
    const auto machine = [](const std::string &name) -> std::vector<std::string> {
        // Under the emulator the preload is the target's, not the emulator's own.
        return {std::string(under_emulator() ? "QEMU_SET_ENV=" : "") +
                    "LD_PRELOAD=" KU_PLOCK_PRELOAD,
#ifdef KU_TEST_ASAN
                "ASAN_OPTIONS=verify_asan_link_order=0",  // the stand-in comes before the runtime
#endif
                "KU_PLOCK_STANDIN=" + name};
    };
    for (const auto &[name, why] : {std::pair{"none", "No such file or directory"},
                                    {"node", "No such device or address"}})
        run({{"for a in take release status; do ku lock $a; echo $?; done", 0, "1\n1\n1\n",
              std::string("(ku lock: /dev/plock cannot be opened: ") + why + ".*\n){3}"}},
            machine(name));
    run({{"ku lock status && ku lock take", 0, "unlocked\n"}}, machine("driver"));
    run({each_fails("lock", {"", "grab", "take now"})});
}

}  // namespace
