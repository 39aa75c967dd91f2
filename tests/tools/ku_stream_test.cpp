// The stream commands on a device with little memory: an input many times
// larger runs in the memory of a small one, and the small one comes back
// whole through the reverse command.
#include <fstream>

#include "ku_tool.h"
#include "support/emulator.h"

namespace {

using namespace ku_test;

TEST_F(KuTool, LargeInputRunsInTheMemoryOfASmallOne)
{
#ifdef KU_TEST_ASAN
    GTEST_SKIP() << "AddressSanitizer's shadow memory and quarantine grow with the work done: "
                    "the memory promise is held by the plain and the target builds";
#endif
    // The emulator runs the tool some twenty times slower; 8 copies still
    // exceed the 4 MiB allowance in a command that holds its input.
    const size_t copies = under_emulator() ? 8 : 64;
    const std::vector<std::string> rows[][2] = {
        {{"b64", "encode"}, {"b64", "decode"}}, {{"hex", "encode"}, {"hex", "decode"}},
        {{"des", "encrypt"}, {"des", "decrypt"}}, {{"str", "upper"}, {"str", "lower"}},
        {{"resample", "-", "-", "--from", "44100", "--to", "16000", "--channels", "2"}, {}}};
    // 1 MiB or so of any bytes (lower-case lines for str), a multiple of 3
    // and 8 bytes: copies of the Base64 text and the ciphertext decode too.
    std::string bytes(456 * 2300, '\0'), text = bytes;
    for (uint32_t i = 0, state = 2463534242u; i < bytes.size(); ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes[i] = static_cast<char>(state >> 24);
        text[i] = i % 61 == 60 ? '\n' : static_cast<char>('a' + state % 26);
    }
    bytes.back() = 'x';  // the Triple-DES padding takes zero bytes at the end with it
    for (const auto &row : rows) {
        const std::string &original = row[0][0] == "str" ? text : bytes;
        std::string in = original;
        for (const auto &args : row) {
            if (args.empty())
                continue;
            std::ofstream(dir.file("small"), std::ios::binary) << in;
            std::ofstream large(dir.file("large"), std::ios::binary);
            // Triple-DES is slow enough that a quarter still shows any growth.
            for (size_t i = 0; i < (args[0] == "des" ? copies / 4 : copies); ++i)
                large << in;
            large.close();
            const auto big = ku(args, {"", {}, "", dir.file("large"), "/dev/null"});
            const auto small = ku(args, {"", {}, "", dir.file("small"), dir.file("out")});
            EXPECT_EQ(big.status + small.status, 0) << args[0] << big.err << small.err;
            EXPECT_LE(big.peak_kib, small.peak_kib + 4096) << args[0] << " peaks for 1 MiB at " << small.peak_kib;
            in = read_file(dir.file("out"));
        }
        EXPECT_TRUE(row[1].empty() || in == original) << row[0][0] << " changed the data on its way back";
    }
}

}  // namespace
