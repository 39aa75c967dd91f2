// How this test binary runs. A cross-built test runs under qemu-user: the
// kernel cannot start the binary by itself, and a few answers come from the
// emulator instead of the device's kernel; tests skip such cases by name.
#pragma once

// KU_TEST_ASAN: this build carries AddressSanitizer.
#if defined(__SANITIZE_ADDRESS__)
#define KU_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KU_TEST_ASAN 1
#endif
#endif

namespace ku_test {

// The build passes the emulator command (program and options) to put in
// front of this binary when it starts itself again, its words joined by '|'.
constexpr const char *kEmulatorCommand =
#ifdef KU_TEST_EMULATOR
    KU_TEST_EMULATOR;
#else
    "";
#endif

inline bool under_emulator()
{
    return kEmulatorCommand[0] != '\0';
}

}  // namespace ku_test
