#include "support/emulator.h"

#include <sstream>

// The build passes the emulator's words joined by '|'.
std::vector<std::string> ku_test::emulator_command()
{
    std::vector<std::string> words;
#ifdef KU_TEST_EMULATOR
    std::istringstream joined(KU_TEST_EMULATOR);
    for (std::string word; std::getline(joined, word, '|');) {
        if (!word.empty()) {
            words.push_back(word);
        }
    }
#endif
    return words;
}
