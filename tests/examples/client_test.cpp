// examples/client.c, run as its user would.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "examples/run_example.h"

using namespace test_support;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

TEST(ClientExample, StitchesTwoPicturesAndPrintsTheReplies) {
    const TempDir dir;
    const std::string lens1 = dir.file("lens1.jpg");
    const std::string lens2 = dir.file("lens2.jpg");
    const std::string panorama = dir.file("panorama.jpg");
    run_sample({"still", lens1, lens2, "--size", "1440"});

    const CommandResult result = run_command({example("example-client"), lens1, lens2, panorama});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, StartsWith("0 {\"movie_path1\":"));
    EXPECT_THAT(result.out, HasSubstr("\n2 {\"movie_path1\":"));
    EXPECT_EQ(luma_of(panorama).size(), cv::Size(3840, 1920));
}

TEST(ClientExample, TellsAFailureByItsExitStatus) {
    const TempDir dir;
    const std::string missing = dir.file("missing.jpg");
    const std::string panorama = dir.file("panorama.jpg");

    const CommandResult result = run_command({example("example-client"), missing, missing, panorama});

    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, StartsWith("4 {\"errnum\":\"30000\""));
    EXPECT_FALSE(std::filesystem::exists(panorama));
}

TEST(ClientExample, TellsWrongUse) {
    const CommandResult result = run_command({example("example-client"), "only one"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("LENS1 LENS2 PANORAMA"));
}

}  // namespace
