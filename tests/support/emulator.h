// Facts about how this test binary runs. A cross-built test (the mipsel
// target suite) runs under qemu-user: the kernel cannot start the binary by
// itself, and a few answers come from the emulator instead of the device's
// kernel. Tests that meet such a difference skip with a reason that names it.
#pragma once

#include <string>
#include <vector>

// KU_TEST_ASAN: this build carries AddressSanitizer (GCC says
// __SANITIZE_ADDRESS__, Clang __has_feature(address_sanitizer)).
#if defined(__SANITIZE_ADDRESS__)
#define KU_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KU_TEST_ASAN 1
#endif
#endif

namespace ku_test {

// The emulator command (program and options) that a cross-built test binary
// runs under, to put in front of the binary when it starts itself again;
// empty for a native build.
std::vector<std::string> emulator_command();

// True when the binary runs under a user-mode emulator.
bool under_emulator();

}  // namespace ku_test
