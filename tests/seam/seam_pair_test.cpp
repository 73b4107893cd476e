#include "seam/seam_pair.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "support/lens_frames.h"

using namespace test_support;

namespace {

constexpr int kSize = 1440;

SeamPair pair_of(const SeamLight& light1, const SeamLight& light2, double field = 95) {
    return SeamPair(lens_frame(kSize, 1, 0, light1, field).get(), lens_frame(kSize, 2, 0, light2, field).get(), 0, 0);
}

SeamLight even(double value) {
    return [value](double, double) { return value; };
}

// Another value in a part of the seam.
SeamLight with_part(double value, double first, double last, double part) {
    return [=](double, double along) {
        const double degrees = along < 0 ? along + 360 : along;
        return degrees > first && degrees < last ? part : value;
    };
}

}  // namespace

TEST(SeamPair, OverlapsWhereBothLensesGoOnPastTheSeam) {
    EXPECT_TRUE(pair_of(even(100), even(100)).overlaps());
    EXPECT_FALSE(pair_of(even(100), even(100), 90).overlaps());
    EXPECT_FALSE(pair_of(even(0), even(0)).overlaps()) << "in the dark there is nothing to see of it";
}

TEST(SeamPair, ValuesAreThoseOfEachLensInThatDirection) {
    const SeamPair pair = pair_of(with_part(100, 40, 60, 140), even(110));
    const std::vector<SeamValues> values = pair.values(0, 0);
    ASSERT_EQ(values.size(), 7200u);
    EXPECT_NEAR(values[500].lens1, 100, 1);
    EXPECT_NEAR(values[1000].lens1, 140, 1);
    EXPECT_NEAR(values[1000].lens2, 110, 1);
}

TEST(SeamPair, ShiftTurnsLens2On) {
    const SeamPair pair = pair_of(even(100), with_part(110, 40, 60, 150));
    EXPECT_NEAR(pair.values(0, 300)[700].lens2, 150, 1);  // 35 degrees, and 15 on
    EXPECT_NEAR(pair.values(0, -300)[700].lens2, 110, 1);
    EXPECT_NEAR(pair.values(0, -300)[1300].lens2, 150, 1);
}

TEST(SeamPair, BlackAndWhiteAreLeftOut) {
    const SeamPair dark = pair_of(with_part(100, 90, 180, 0), even(100));
    EXPECT_NEAR(static_cast<double>(dark.values(0, 0).size()), 5400, 10);
    const SeamPair bright = pair_of(even(100), with_part(100, 90, 180, 255));
    EXPECT_NEAR(static_cast<double>(bright.values(0, 0).size()), 5400, 10);
    EXPECT_EQ(bright.values(1, 0).size(), 7200u) << "chroma is neither";
}

// Where lens 2's picture is turned on to, not where it was.
TEST(SeamPair, BlackIsLeftOutWhereItIsTurnedTo) {
    const SeamPair pair = pair_of(even(100), with_part(100, 90, 180, 0));
    const std::vector<SeamValues> values = pair.values(0, 300);
    EXPECT_NEAR(static_cast<double>(values.size()), 5400, 10);
    const auto between = [](const SeamValues& value) { return value.lens2 < 99; };  // at the ends of what is black
    EXPECT_LT(std::count_if(values.begin(), values.end(), between), 10);
}

// A slope that goes on over the seam: lens 1 shows it up to there, lens 2 from there on, 12 brighter.
TEST(SeamPair, WithoutOverlapEachSideIsContinuedToTheSeam) {
    const SeamPair pair = pair_of([](double off_seam, double) { return 100 + 10 * off_seam; },
                                  [](double off_seam, double) { return 112 + 10 * off_seam; }, 90);
    const std::vector<SeamValues> values = pair.values(0, 0);
    ASSERT_EQ(values.size(), 7200u);
    EXPECT_NEAR(values[500].lens1, 100, 1.5);
    EXPECT_NEAR(values[500].lens2, 112, 1.5);
}

TEST(SeamPair, RowsAlikeAreTheSameInBothLenses) {
    const SeamLight slope = [](double off_seam, double) { return 100 + 10 * off_seam; };
    for (const SeamPair::Rows& rows : pair_of(slope, slope).rows_alike()) {
        EXPECT_NEAR(rows.lens1.at<uint8_t>(0, 77), rows.lens2.at<uint8_t>(0, 77), 1);
    }
}

// Nearest to the seam first, on both sides of it.
TEST(SeamPair, WithoutOverlapRowsAlikeLieOppositeEachOther) {
    const SeamLight valley = [](double off_seam, double) { return 100 + 40 * std::abs(off_seam); };
    const std::vector<SeamPair::Rows> rows = pair_of(valley, valley, 90).rows_alike();
    ASSERT_FALSE(rows.empty());
    EXPECT_NEAR(rows[0].lens1.at<uint8_t>(0, 77), 120, 2);
    EXPECT_NEAR(rows[0].lens2.at<uint8_t>(0, 77), 120, 2);
}

TEST(SeamPair, ChromaIsReadAtItsOwnScale) {
    const FramePtr frame1 = lens_frame(kSize, 1, 0, even(100));
    const FramePtr frame2 = lens_frame(kSize, 2, 0, even(100));
    for (int y = 0; y < kSize / 2; ++y) {
        for (int x = 0; x < kSize / 2; ++x) {
            // 140 just around the seam, at 337.5 pixels from the centre.
            const double distance = std::hypot(x - kSize / 4, y - kSize / 4);
            frame2->data[2][static_cast<std::ptrdiff_t>(y) * frame2->linesize[2] + x] =
                std::abs(distance - 337.5) < 8 ? 140 : 90;
        }
    }
    const SeamPair pair(frame1.get(), frame2.get(), 0, 0);
    EXPECT_NEAR(pair.values(2, 0)[3000].lens2, 140, 0.5);
    EXPECT_NEAR(pair.values(2, 0)[3000].lens1, 128, 0.5);
}
