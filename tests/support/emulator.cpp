#include "support/emulator.h"

#include <algorithm>

namespace ku_test {

std::vector<std::string> emulator_command()
{
    std::vector<std::string> words;
#ifdef KU_TEST_EMULATOR
    // The build passes the command's words joined by '|'.
    const std::string joined = KU_TEST_EMULATOR;
    size_t start = 0;
    while (start <= joined.size()) {
        const size_t end = std::min(joined.find('|', start), joined.size());
        if (end > start) {
            words.push_back(joined.substr(start, end - start));
        }
        start = end + 1;
    }
#endif
    return words;
}

bool under_emulator()
{
    return !emulator_command().empty();
}

}  // namespace ku_test
