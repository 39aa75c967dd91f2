// How this test binary runs. A cross-built test runs under qemu-user: the
// kernel cannot start the binary by itself, and a few answers come from the
// emulator instead of the device's kernel; tests skip such cases by name.
#pragma once

#include <string>
#include <vector>

// KU_TEST_ASAN: this build carries AddressSanitizer.
#if defined(__SANITIZE_ADDRESS__)
#define KU_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KU_TEST_ASAN 1
#endif
#endif

namespace ku_test {

// The emulator command (program and options) to put in front of this binary
// when it starts itself again; empty for a native build.
std::vector<std::string> emulator_command();

inline bool under_emulator()
{
    return !emulator_command().empty();
}

}  // namespace ku_test
