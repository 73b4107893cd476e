#include "projection/plane_mapper.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "projection/angles.h"

namespace {

constexpr ImageSize kPanorama{3840, 1920};
constexpr PlaneSources kSources{{1936, 1936}, {968, 968}, 907, 0, 0.3, -0.2};
constexpr RotationCorrect kCamera{0.3, -0.2, 0.1, 0.05, kPi / 2};

struct UV {
    double u, v;
};

UV source_of(double x, double y, const ViewTurn& view) {
    UV point{};
    uvpoint_of_panorama_point(&point.u, &point.v, static_cast<int>(x), static_cast<int>(y), kPanorama, kSources,
                              kCamera, view);
    return point;
}

ViewTurn degrees(double yaw, double pitch, double roll) {
    return {radians(yaw), radians(pitch), radians(roll)};
}

// Pixel (x, y) of the turned panorama shows what pixel (other_x, other_y) shows without a turn.
void expect_shows(const ViewTurn& view, double x, double y, double other_x, double other_y) {
    const UV turned = source_of(x, y, view);
    const UV other = source_of(other_x, other_y, {});
    EXPECT_NEAR(turned.u, other.u, 1e-8) << x << ", " << y;
    EXPECT_NEAR(turned.v, other.v, 1e-8) << x << ", " << y;
}

constexpr double kDegree = 3840 / 360.0;  // pixels

TEST(ViewTurn, YawBringsWhatIsToTheRightToTheCentre) {
    expect_shows(degrees(30, 0, 0), 1920, 960, 1920 + 30 * kDegree, 960);
    expect_shows(degrees(-45, 0, 0), 1920, 480, 1920 - 45 * kDegree, 480);
    expect_shows(degrees(90, 0, 0), 3000, 700, 3000 + 90 * kDegree - 3840, 700);
    expect_shows(degrees(360, 0, 0), 1000, 700, 1000, 700);
}

TEST(ViewTurn, PitchBringsWhatIsAboveToTheCentre) {
    expect_shows(degrees(0, 30, 0), 1920, 960, 1920, 960 - 30 * kDegree);
    expect_shows(degrees(0, -60, 0), 1920, 960, 1920, 960 + 60 * kDegree);
    expect_shows(degrees(0, 30, 0), 1920, 960 - 30 * kDegree, 1920, 960 - 60 * kDegree);
    // Past the zenith the other side of the sphere, upside down.
    expect_shows(degrees(0, 90, 0), 1920, 960 - 30 * kDegree, 0, 960 - 60 * kDegree);
    // What lies a quarter to the right stays where it is.
    expect_shows(degrees(0, 77, 0), 2880, 960, 2880, 960);
}

TEST(ViewTurn, RollTurnsThePictureClockwise) {
    expect_shows(degrees(0, 0, 45), 1920, 960, 1920, 960);
    // What was on the left is above, and what was above is on the right.
    expect_shows(degrees(0, 0, 90), 1920, 960 - 45 * kDegree, 1920 - 45 * kDegree, 960);
    expect_shows(degrees(0, 0, 90), 1920 + 45 * kDegree, 960, 1920, 960 - 45 * kDegree);
    // The horizon on the right goes down: there stands what was above it.
    expect_shows(degrees(0, 0, 30), 2880, 960, 2880, 960 - 30 * kDegree);
}

TEST(ViewTurn, YawThenPitchThenRoll) {
    // Roll turns about the look that yaw and pitch have found.
    expect_shows(degrees(30, 60, 45), 1920, 960, 1920 + 30 * kDegree, 960 - 60 * kDegree);
    // A quarter to the right of a look straight up, after a yaw of 30 degrees, lies the horizon at 120 degrees; rolled
    // by 90 degrees that is below the centre, and above it the opposite.
    expect_shows(degrees(30, 90, 0), 2880, 960, 1920 + 120 * kDegree, 960);
    expect_shows(degrees(30, 90, 90), 1920, 0, 1920 + 30 * kDegree - 90 * kDegree, 960);
}

}  // namespace
