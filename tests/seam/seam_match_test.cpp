#include "seam/seam_match.h"

#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media/lens_file.h"
#include "nq360.h"
#include "sample/lens.h"
#include "support/lens_frames.h"
#include "support/samples.h"

using namespace test_support;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;

namespace {

// The moon: grey, with shadows, and nowhere near white.
const std::vector<std::string> kMoon = {"--size", "1440", "--scene", NQ360_TEST_DATA "/apollo17.png"};

class SeamMatcherTest : public testing::Test {
  protected:
    // Of the pair of stills that the sample tool makes with these options.
    SeamMatch match_of(std::vector<std::string> options, const LensChanges& changes = {}) {
        const Shot shot = stills_in(dir, options);
        return match_of_files(shot.one, shot.two, changes);
    }

    static SeamMatch match_of_files(const std::string& one, const std::string& two, const LensChanges& changes = {}) {
        SeamMatcher matcher(changes);
        matcher.look_at(LensFile(one.c_str()).frame_at(0).get(), LensFile(two.c_str()).frame_at(0).get());
        return matcher.match();
    }

    TempDir dir;
};

std::vector<std::string> with(std::vector<std::string> options, const std::vector<std::string>& more) {
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

}  // namespace

TEST_F(SeamMatcherTest, FindsNothingInAPairThatMeets) {
    const SeamMatch match = match_of({"--size", "1440"});
    EXPECT_NEAR(match.turn, 0, 0.02);
    EXPECT_THAT(match.corrections, Each(Each(0)));
    for (const PlaneGains& gains : match.gains) {
        EXPECT_THAT(gains, Each(testing::DoubleNear(1, 0.005)));
    }
    EXPECT_THAT(match.step, Each(Le(1)));
    EXPECT_GT(match.compared, 0.8);
    EXPECT_GT(match.confidence, 0.9);
    EXPECT_THAT(match.warning, IsEmpty());
}

TEST_F(SeamMatcherTest, FindsFactorAndTurn) {
    for (const char* size : {"1440", "1936"}) {
        const SeamMatch match = match_of({"--size", size, "--factor", "1.35", "--turn2", "2"});
        EXPECT_NEAR(match.turn, 2, 0.05);
        for (size_t plane = 0; plane < 3; ++plane) {
            EXPECT_EQ(match.gains[0][plane], 1) << plane;
            EXPECT_NEAR(1 / match.gains[1][plane], 1.35, 0.02) << plane;
        }
        EXPECT_GT(match.step_turned[0], 30);
        EXPECT_GT(match.step_corrected[0], 4) << "no offset closes what a factor has opened";
        EXPECT_THAT(match.step_gained, Each(Le(1)));
        EXPECT_THAT(match.warning, IsEmpty());
    }
}

TEST_F(SeamMatcherTest, FindsAnOffset) {
    const SeamMatch match = match_of({"--size", "1440", "--difference", "12,-6,3"});
    EXPECT_THAT(match.corrections, ElementsAre(ElementsAre(6, -3, 1), ElementsAre(-6, 3, -2)));
    EXPECT_NEAR(match.step[0], 12, 0.5);
    EXPECT_NEAR(match.step[1], 6, 0.5);
    EXPECT_THAT(match.step_corrected, Each(Le(1)));
}

TEST_F(SeamMatcherTest, StepBeforeTheTurnIsLarger) {
    const SeamMatch match = match_of({"--size", "1440", "--turn2", "-3.5"});
    EXPECT_NEAR(match.turn, -3.5, 0.05);
    EXPECT_GT(match.step[0], match.step_turned[0] + 3);
    EXPECT_THAT(match.step_turned, Each(Le(1)));
}

// The same once it is in the record: nothing is left to do, and the same gains stand in the result.
TEST_F(SeamMatcherTest, StartsFromWhatIsThere) {
    const std::vector<std::string> options = with(kMoon, {"--factor", "1.35", "--turn2", "2"});
    const SeamMatch found = match_of(options);
    LensChanges changes;
    changes[0].gains = found.gains[0];
    changes[1].gains = found.gains[1];
    changes[1].turn = found.turn * sample::kDegree;
    const SeamMatch again = match_of(options, changes);
    EXPECT_NEAR(again.turn, 0, 0.02);
    EXPECT_LE(again.step[0], 1);
    EXPECT_THAT(again.corrections, Each(Each(0)));
    EXPECT_NEAR(again.gains[0][0], found.gains[0][0], 0.003);
    EXPECT_NEAR(again.gains[1][0], found.gains[1][0], 0.003);
}

TEST_F(SeamMatcherTest, CorrectionsThatAreThereCountInTheFirstStepOnly) {
    LensChanges changes;
    changes[0].corrections = {6, CORRECT_NONE, 2};
    changes[1].corrections = {-6, CORRECT_NONE, -1};
    const SeamMatch match = match_of({"--size", "1440", "--difference", "12,0,3"}, changes);
    EXPECT_THAT(match.step, Each(Le(1)));
    EXPECT_THAT(match.corrections, ElementsAre(ElementsAre(6, 0, 1), ElementsAre(-6, 0, -2)));
}

// Movies have limited range, where no light is 16.
TEST_F(SeamMatcherTest, FactorOfAMovieIsAboutItsBlack) {
    const Shot shot = movies_in(
        dir, {"--size", "1440", "--frames", "2", "--no-labels", "--factor", "0.7", "--turn2", "1", "--sound", "none"});
    const SeamMatch match = match_of_files(shot.one, shot.two);
    EXPECT_NEAR(match.gains[0][0] / match.gains[1][0], 0.7, 0.02);
    EXPECT_NEAR(match.turn, 1, 0.05);
    EXPECT_LE(match.step_gained[0], 1.5);
}

TEST_F(SeamMatcherTest, OrientationsTurnBothLenses) {
    const Shot shot = stills_in(dir, {"--size", "1440", "--orientation", "6", "--turn2", "2"});
    LensChanges changes;
    changes[0].turn = -90 * sample::kDegree;
    changes[1].turn = 90 * sample::kDegree;
    EXPECT_NEAR(match_of_files(shot.one, shot.two, changes).turn, 2, 0.05);
}

TEST_F(SeamMatcherTest, WarnsOfOnePictureTwice) {
    const Shot shot = stills_in(dir, {"--size", "1440"});
    EXPECT_THAT(match_of_files(shot.one, shot.one).warning, HasSubstr("same picture"));
    const std::string again = dir.file("again.jpg");
    run_command({"ffmpeg", "-v", "error", "-i", shot.one, "-q:v", "9", again});
    EXPECT_THAT(match_of_files(shot.one, again).warning, HasSubstr("same picture"));
}

TEST_F(SeamMatcherTest, WarnsOfTwoShots) {
    const Shot one = stills_in(dir, {"--size", "1440"});
    const TempDir other_dir;
    const Shot two = stills_in(other_dir, kMoon);
    const SeamMatch match = match_of_files(one.one, two.two);
    EXPECT_THAT(match.warning, HasSubstr("two shots"));
    EXPECT_LT(match.confidence, 0.25);
    EXPECT_EQ(match.turn, 0);
}

TEST_F(SeamMatcherTest, WarnsWhereNothingCanBeCompared) {
    const SeamLight white = [](double, double) { return 255; };
    SeamMatcher matcher({});
    matcher.look_at(lens_frame(1440, 1, 0, white).get(), lens_frame(1440, 2, 0, white).get());
    const SeamMatch match = matcher.match();
    EXPECT_EQ(match.compared, 0);
    EXPECT_THAT(match.warning, HasSubstr("too little of the seam"));
    EXPECT_THAT(match.gains, Each(Each(1)));
    EXPECT_THAT(match.corrections, Each(Each(0)));
}

// A plain wall: the lenses may meet well, but nothing tells.
TEST_F(SeamMatcherTest, IsUnsureWithoutWarningWhereThereIsNothingToSee) {
    SeamMatcher matcher({});
    matcher.look_at(lens_frame(1440, 1, 0, [](double, double) { return 120; }).get(),
                    lens_frame(1440, 2, 0, [](double, double) { return 126; }).get());
    const SeamMatch match = matcher.match();
    EXPECT_EQ(match.confidence, 0);
    EXPECT_THAT(match.warning, IsEmpty());
    EXPECT_EQ(match.corrections[0][0] - match.corrections[1][0], 6);
}

// What only one lens sees, over a fifth of the seam.
TEST_F(SeamMatcherTest, IsDeafToWhatOnlyOneLensSees) {
    const SeamLight light = [](double, double along) { return 110 + 40 * std::sin(7 * along * sample::kDegree); };
    const SeamLight with_hand = [&](double off_seam, double along) {
        return std::remainder(along, 360) > 100 ? 30 : 1.2 * light(off_seam, along);
    };
    SeamMatcher matcher({});
    matcher.look_at(lens_frame(1440, 1, 0, light).get(), lens_frame(1440, 2, 0, with_hand).get());
    EXPECT_NEAR(matcher.match().gains[0][0] / matcher.match().gains[1][0], 1.2, 0.01);
}
