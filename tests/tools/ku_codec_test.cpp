// ku b64, ku hex and ku des through pipes, as in a shell pipeline: exact
// bytes both ways, peers (coreutils base64, openssl) for large and binary
// input, and the refusals of text that does not decode.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "ku_tool.h"

namespace {

using ku_test::expect_one_line_error;
using ku_test::ku;
using ku_test::ku_stdin;
using ku_test::run_process;
using KuCodec = ku_test::KuTool;

[[maybe_unused]] std::string all_bytes(size_t size)
{
    std::string bytes(size, '\0');
    uint32_t state = 12345;
    for (auto &byte : bytes) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

#ifdef KU_TOOL_HAVE_STR

TEST_F(KuCodec, StrChangesEachLineAndKeepsLineEnds)
{
    const std::string text = "  Mixed Case \u00e9 \n\tTabbed \n  last line  ";
    EXPECT_EQ(ku_stdin({"str", "upper"}, text).out, "  MIXED CASE \u00e9 \n\tTABBED \n  LAST LINE  ");
    EXPECT_EQ(ku_stdin({"str", "lower"}, text).out, "  mixed case \u00e9 \n\ttabbed \n  last line  ");
    // Only spaces are blanks: the tab stays.
    EXPECT_EQ(ku_stdin({"str", "trim"}, text).out, "Mixed Case \u00e9\n\tTabbed\nlast line");
}

TEST_F(KuCodec, StrTokenIsTheClockInHex)
{
    const auto first = ku({"str", "token"});
    EXPECT_EQ(first.status, 0);
    EXPECT_TRUE(std::regex_match(first.out, std::regex("[0-9a-f]{1,16}\n"))) << first.out;
    EXPECT_NE(ku({"str", "token"}).out, first.out);
}

TEST_F(KuCodec, StrRefusesZeroBytesAndWrongArguments)
{
    expect_one_line_error(ku_stdin({"str", "upper"}, std::string("a\0b", 3)), 1, "str");
    expect_one_line_error(ku({"str", "reverse"}), 2, "str");
    expect_one_line_error(ku({"str"}), 2, "str");
}

#endif  // KU_TOOL_HAVE_STR

#ifdef KU_TOOL_HAVE_CODEC

TEST_F(KuCodec, Base64EncodesToOneLine)
{
    const auto result = ku_stdin({"b64", "encode"}, "foobar");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Zm9vYmFy\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ku_stdin({"b64", "encode"}, "fo").out, "Zm8=\n");
    EXPECT_EQ(ku_stdin({"b64", "encode"}, "").out, "\n");
}

TEST_F(KuCodec, Base64DecodeGivesTheExactBytes)
{
    const auto result = ku_stdin({"b64", "decode"}, "Zm9vYmFy\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "foobar");
    EXPECT_EQ(ku_stdin({"b64", "decode"}, "Zm9v\r\nYm\tFy  \n").out, "foobar");
    EXPECT_EQ(ku_stdin({"b64", "decode"}, "").out, "");
}

TEST_F(KuCodec, Base64MatchesCoreutilsOnLargeBinaryInput)
{
    // Larger than the tool's chunk, and not a multiple of 3 bytes.
    const std::string bytes = all_bytes(3 * 16384 * 2 + 7);
    const auto ours = ku_stdin({"b64", "encode"}, bytes);
    ku_test::ProcessOptions options;
    options.input = bytes;
    const auto peer = run_process({"base64", "-w0"}, options);
    ASSERT_EQ(peer.status, 0);
    EXPECT_EQ(ours.out, peer.out + "\n");
    EXPECT_EQ(ku_stdin({"b64", "decode"}, ours.out).out, bytes);
}

TEST_F(KuCodec, Base64RefusesWhatIsNotBase64)
{
    for (const char *bad : {"Zm9v!", "Zm9vY", "Zg=", "=Zm9", "Zg==Zg==", "Zh=="}) {
        SCOPED_TRACE(bad);
        expect_one_line_error(ku_stdin({"b64", "decode"}, bad), 1, "b64");
    }
    expect_one_line_error(ku_stdin({"b64", "decode"}, std::string("Zm9v\0YmFy", 9)), 1, "b64");
    // Padding at the end of the tool's first 64 KiB chunk and a group in the
    // next: the first chunk's byte is out already when the fault shows.
    const auto split = ku_stdin({"b64", "decode"}, std::string(65532, ' ') + "Zg==Zg==");
    EXPECT_EQ(split.status, 1);
    EXPECT_EQ(split.out, "f");
    EXPECT_EQ(split.err, "ku b64: input is not valid Base64\n");
}

TEST_F(KuCodec, HexEncodesUpperCase)
{
    const auto result = ku_stdin({"hex", "encode"}, std::string("\x00\xab\x7f", 3));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "00AB7F\n");
}

TEST_F(KuCodec, HexDecodeTakesEitherCaseAndSkipsLineEnds)
{
    const auto result = ku_stdin({"hex", "decode"}, "00ab\nCD ef\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, std::string("\x00\xab\xcd\xef", 4));
    // A digit pair split by the tool's 64 KiB chunks.
    EXPECT_EQ(ku_stdin({"hex", "decode"}, std::string(65535, ' ') + "0ab1").out, "\x0a\xb1");
}

TEST_F(KuCodec, HexRefusesOddLengthAndNonDigits)
{
    expect_one_line_error(ku_stdin({"hex", "decode"}, "abc"), 1, "hex");
    expect_one_line_error(ku_stdin({"hex", "decode"}, "0g"), 1, "hex");
    // The library's digit rule would read ':' as 10; a user meant no such thing.
    expect_one_line_error(ku_stdin({"hex", "decode"}, "1:"), 1, "hex");
}

TEST_F(KuCodec, CodecsRefuseWrongArguments)
{
    for (const char *name : {"b64", "hex"}) {
        SCOPED_TRACE(name);
        expect_one_line_error(ku({name}), 2, name);
        expect_one_line_error(ku({name, "encrypt"}), 2, name);
        expect_one_line_error(ku({name, "encode", "extra"}), 2, name);
        expect_one_line_error(ku({name, "--wrap", "encode"}), 2, name);
    }
}

#endif  // KU_TOOL_HAVE_CODEC

#ifdef KU_TOOL_HAVE_DES

const std::string kKey = "0123456789abcdeffedcba987654321089abcdef01234567";

TEST_F(KuCodec, DesPadsToWholeBlocksWithZeroBytes)
{
    EXPECT_EQ(ku_stdin({"des", "encrypt"}, "").out.size(), 8u);
    EXPECT_EQ(ku_stdin({"des", "encrypt"}, "1234567").out.size(), 8u);
    EXPECT_EQ(ku_stdin({"des", "encrypt"}, "12345678").out.size(), 16u);
    EXPECT_EQ(ku_stdin({"des", "encrypt"}, "1234567890123").out.size(), 16u);
}

TEST_F(KuCodec, DesRoundTripsBinaryDataWithDefaultAndGivenKey)
{
    std::string bytes = all_bytes(1000);
    bytes.back() = 'x';  // the codec cannot keep zero bytes at the end
    const auto sealed = ku_stdin({"des", "encrypt"}, bytes);
    ASSERT_EQ(sealed.status, 0);
    EXPECT_EQ(sealed.out.size(), 1008u);
    EXPECT_EQ(ku_stdin({"des", "decrypt"}, sealed.out).out, bytes);

    const auto keyed = ku_stdin({"des", "encrypt", "--key", kKey}, bytes);
    EXPECT_NE(keyed.out, sealed.out);
    EXPECT_EQ(ku_stdin({"des", "decrypt", "--key=" + kKey}, keyed.out).out, bytes);
}

TEST_F(KuCodec, DesDefaultKeyIsTheLibrarysKeyEnc)
{
    const std::string key_enc = "3ca957e106d48b72912ef04d68b71ac53ca957e106d48b72";
    EXPECT_EQ(ku_stdin({"des", "encrypt"}, "secret").out,
              ku_stdin({"des", "encrypt", "--key", key_enc}, "secret").out);
}

TEST_F(KuCodec, DesMatchesOpensslTripleDesEcb)
{
    const std::string plain = "attack at dawn!";  // 15 bytes: one zero byte of padding
    ku_test::ProcessOptions options;
    options.input = plain + std::string(1, '\0');
    const auto peer = run_process({"openssl", "enc", "-des-ede3", "-nopad", "-K", kKey}, options);
    if (peer.status != 0)
        GTEST_SKIP() << "openssl has no des-ede3 here: " << peer.err;
    EXPECT_EQ(ku_stdin({"des", "encrypt", "--key", kKey}, plain).out, peer.out);
}

TEST_F(KuCodec, DesRawKeepsThePadding)
{
    const auto sealed = ku_stdin({"des", "encrypt"}, "abc");
    EXPECT_EQ(ku_stdin({"des", "decrypt", "--raw"}, sealed.out).out, std::string("abc\0\0\0\0\0", 8));
}

TEST_F(KuCodec, DesRefusesPartBlocksAndBadKeys)
{
    expect_one_line_error(ku_stdin({"des", "decrypt"}, "123456789"), 1, "des");
    expect_one_line_error(ku_stdin({"des", "encrypt", "--key", "abcd"}, "x"), 2, "des");
    expect_one_line_error(ku_stdin({"des", "encrypt", "--key", kKey.substr(0, 47) + "g"}, "x"), 2, "des");
    expect_one_line_error(ku({"des", "encrypt", "--key"}), 2, "des");
    expect_one_line_error(ku({"des", "seal"}), 2, "des");
}

#endif  // KU_TOOL_HAVE_DES

}  // namespace
