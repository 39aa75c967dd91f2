// How this test binary runs. A cross-built test runs under qemu-user, where a
// few answers come from the emulator instead of the device's kernel; tests
// skip such cases by name.
#pragma once

namespace ku_test {

// The build sets KU_TEST_EMULATOR to 1 when it cross-builds (its tests run
// under an emulator), and defines KU_TEST_ASAN when it carries AddressSanitizer.
inline bool under_emulator()
{
    return KU_TEST_EMULATOR != 0;
}

}  // namespace ku_test
