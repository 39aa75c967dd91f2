// The plock stand-in, built in, takes over access, open, ioctl and system: no real device or mknod.
#include "ku/process_lock.h"

#include <gtest/gtest.h>

#include "support/plock/plock_device.cpp"

using Calls = std::vector<std::string>;

// The descriptor stays open for the life of the process once opened, so one
// case walks from a machine without the node to an open device.
TEST(ProcessLock, OpensReadOnlyOnceAfterMakingTheNodeAndPassesAnswersOn)
{
    ku_test::PlockDevice &device = ku_test::plock_device();
    device.driver = false;
    device.answer = 5;
    EXPECT_EQ(kuprocess_unlock(), 0);  // opens nothing
    EXPECT_EQ(kuprocess_lock(), -1);
    EXPECT_EQ(kuprocess_is_locked(), 0);
    EXPECT_EQ(kuprocess_unlock(), 0);
    device.driver = true;
    EXPECT_EQ(kuprocess_lock(), 5);
    EXPECT_EQ(device.calls, (Calls{"access 4", "mknod /dev/plock c 210 0", "open 0", "access 4",
                                   "open 0", "access 4", "open 0", "ioctl 8193 0"}));
    device.calls.clear();
    for (const auto &[answer, locked] : {std::pair{5, 1}, {-1, 1}, {0, 0}}) {
        device.answer = answer;
        EXPECT_EQ(kuprocess_is_locked(), locked) << answer;
    }
    device.answer = 7;
    EXPECT_EQ(kuprocess_unlock(), 7);
    EXPECT_EQ(kuprocess_lock(), 7);
    EXPECT_EQ(device.calls, (Calls{"ioctl 8195 0", "ioctl 8195 0", "ioctl 8195 0",
                                   "ioctl 8194 0", "ioctl 8193 0"}));
}
