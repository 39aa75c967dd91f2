// The README's demo tour and its sample data: the tour runs to its end on
// the built tool, leaves the repository's sample files as they were, and
// the sample sound is exactly what its generator writes.
#include <gtest/gtest.h>

#include <string>

#include "ku_tool.h"

namespace {

using ku_test::read_file;
using ku_test::run_process;
using KuTour = ku_test::KuTool;

const std::string kData = std::string(KU_SOURCE_DIR) + "/examples/data/";

bool have_python()
{
    return run_process({"python3", "-c", "pass"}).status == 0;
}

TEST_F(KuTour, SampleSoundIsWhatItsGeneratorWrites)
{
    if (!have_python())
        GTEST_SKIP() << "python3 is not available";
    const auto made = run_process({"python3", kData + "make_chime.py", dir.file("chime.wav")});
    ASSERT_EQ(made.status, 0) << made.err;
    const std::string wav = read_file(dir.file("chime.wav"));
    EXPECT_EQ(wav.size(), 44u + 8000u * 2u);  // half a second of 16-bit stereo at 8000 Hz
    EXPECT_EQ(wav, read_file(kData + "chime.wav"));
}

TEST_F(KuTour, TourRunsToItsEndAndLeavesTheSamplesAlone)
{
    if (!have_python())
        GTEST_SKIP() << "python3 is not available for the tour's web server";
    const char *samples[] = {"device.json", "interfaces.table", "device.ini", "chime.wav"};
    std::vector<std::string> before;
    for (const char *name : samples)
        before.push_back(read_file(kData + name));

    ku_test::ProcessOptions options;
    options.env = {std::string("KU=") + KU_TOOL_PATH, "TMPDIR=" + dir.path()};
    const auto tour = run_process({"bash", std::string(KU_SOURCE_DIR) + "/scripts/demo.sh", "--tour"}, options);
    EXPECT_EQ(tour.status, 0) << tour.out << tour.err;
    EXPECT_NE(tour.out.find("Tour done."), std::string::npos) << tour.out;
#ifdef KU_TOOL_HAVE_FETCH
    EXPECT_NE(tour.out.find("fetched.wav is chime.wav, byte for byte"), std::string::npos) << tour.out;
    EXPECT_NE(tour.out.find("(web server stopped)"), std::string::npos) << tour.out;
#endif
#ifdef KU_TOOL_HAVE_JSON
    EXPECT_NE(tour.out.find("$ ku json get device.json network.ip\n192.168.1.40\n"), std::string::npos)
        << tour.out;
#endif
    for (size_t i = 0; i < before.size(); ++i)
        EXPECT_EQ(read_file(kData + samples[i]), before[i]) << samples[i];
}

}  // namespace
