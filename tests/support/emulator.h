// How this test binary runs. A cross-built test runs under qemu-user: the
// kernel cannot start the binary by itself, and a few answers come from the
// emulator instead of the device's kernel; tests skip such cases by name.
#pragma once

#include <sstream>
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
// when it starts itself again; empty for a native build. The build passes
// its words joined by '|'.
inline std::vector<std::string> emulator_command()
{
    std::vector<std::string> words;
#ifdef KU_TEST_EMULATOR
    std::istringstream joined(KU_TEST_EMULATOR);
    for (std::string word; std::getline(joined, word, '|');) {
        words.push_back(word);
    }
#endif
    return words;
}

inline bool under_emulator()
{
    return !emulator_command().empty();
}

}  // namespace ku_test
