#include "seam/ring.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/lens_frames.h"

using namespace test_support;

namespace {

constexpr int kSize = 1440;
constexpr double kRadius = 675;

Ring ring_of(int number, double drawn_turn, double read_turn, const SeamLight& light, double field = 95) {
    const FramePtr frame = lens_frame(kSize, number, drawn_turn, light, field);
    const cv::Mat luma(kSize, kSize, CV_8UC1, frame->data[0], static_cast<size_t>(frame->linesize[0]));
    return Ring(luma, number - 1, read_turn * sample::kDegree, kRadius);
}

// Grows from lens 1's side to lens 2's.
double slope_across(double off_seam, double /*along*/) {
    return 100 + 20 * off_seam;
}

// One bright part, `degrees` along the seam.
SeamLight spot_at(double degrees) {
    return [degrees](double /*off_seam*/, double along) {
        return std::abs(std::remainder(along - degrees, 360)) < 2 ? 200 : 50;
    };
}

}  // namespace

TEST(Ring, RowsGoFromLens1sSideToLens2sInBothLenses) {
    for (const int number : {1, 2}) {
        const Ring ring = ring_of(number, 0, 0, slope_across);
        for (const int row : {-20, -5, 0, 5, 20}) {
            EXPECT_NEAR(ring.at(row, 1234), 100 + 20 * 0.1 * row, 1.5) << number << " " << row;
        }
    }
}

TEST(Ring, DirectionsAreTheSameInBothLenses) {
    for (const int number : {1, 2}) {
        const Ring ring = ring_of(number, 0, 0, spot_at(30));
        EXPECT_EQ(ring.at(0, 600), 200) << number;
        EXPECT_EQ(ring.at(0, 600 + 7200), 200) << number;
        EXPECT_EQ(ring.at(0, 600 - 7200), 200) << number;
        EXPECT_EQ(ring.at(0, 540), 50) << number;
        EXPECT_EQ(ring.at(0, 660), 50) << number;
    }
}

TEST(Ring, TurnUndoesThatOfThePicture) {
    for (const int number : {1, 2}) {
        EXPECT_EQ(ring_of(number, 17, 17, spot_at(30)).at(0, 600), 200) << number;
        EXPECT_EQ(ring_of(number, 17, 0, spot_at(30)).at(0, 940), 200) << number;
    }
}

TEST(Ring, IsBlackWhereTheLensSeesNothing) {
    const Ring ring = ring_of(
        1, 0, 0, [](double, double) { return 200; }, 91);
    EXPECT_EQ(ring.at(8, 0), 200);
    EXPECT_EQ(ring.at(12, 0), 0);
}
