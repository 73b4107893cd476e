#include "projection/seam_ring.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "projection/angles.h"
#include "projection/sample_table.h"

namespace {

// ---- The ring's pixels against a plain evaluation ----

struct RingSetting {
    ImageSize panorama;
    ImageSize lens;
    int radius;
    int bandheight;
    RotationCorrect rotation;
    ViewTurn view;
    bool between;  // half a pixel to the right and down
    double width;
};

PlaneSources sources_of(const RingSetting& s) {
    return {s.lens,
            {s.lens.width / 2, s.lens.height / 2},
            s.radius,
            s.bandheight,
            s.rotation.frame1angle,
            s.rotation.frame2angle};
}

// What a pixel is mixed with, and by which share; of a pixel outside the ring the share is negative.
struct Mixed {
    double x, y, share;
};

Mixed plainly_mixed(const RingSetting& s, int x, int y) {
    const PlaneSources sources = sources_of(s);
    double u, v;
    if (s.between) {  // a pixel of a panorama of twice the size
        uvpoint_of_panorama_point(&u, &v, 2 * x + 1, 2 * y + 1, {2 * s.panorama.width, 2 * s.panorama.height}, sources,
                                  s.rotation, s.view);
    } else {
        uvpoint_of_panorama_point(&u, &v, x, y, s.panorama, sources, s.rotation, s.view);
    }
    if (v >= 2 * s.lens.height) {
        return {0, 0, 0};  // the band
    }
    const double right = u - sources.center.x;
    const int lens = v < s.lens.height ? 0 : 1;
    const double down = v - sources.center.y - lens * s.lens.height;
    const double from_axis = std::hypot(right, down) * (kPi / 2) / s.radius;
    const double phi = lens == 0 ? from_axis : kPi - from_axis;
    const double psi = lens == 0 ? std::atan2(down, right) - s.rotation.frame1angle
                                 : std::atan2(right, down) + kPi / 2 - s.rotation.frame2angle;
    const double distance = kPi / 2 - from_axis;
    if (distance >= s.width) {
        return {0, 0, -1};
    }
    const double part = (1 - distance / s.width) / 2;
    Mixed mixed{};
    uvpoint_of_lens(&mixed.x, &mixed.y, 1 - lens, sources, phi, psi);
    mixed.share = part * part * (3 - 2 * part);
    return mixed;
}

class SeamRingTest : public testing::TestWithParam<RingSetting> {};

TEST_P(SeamRingTest, IsMixedWithWhatTheOtherLensShowsThere) {
    const RingSetting& s = GetParam();
    const PlaneMapper mapper(s.panorama, sources_of(s), s.rotation, s.view, s.between ? 0.5 : 0);
    const TableRows rows(mapper);
    const FramedPlane source(2 * s.lens.height + s.bandheight, s.lens.width);
    std::vector<float> own;
    int found = 0;
    SeamRing ring(rows, 0, s.panorama.height, s.width);
    for (int y = 0; y < s.panorama.height; ++y) {
        ring.find_row(rows, y, rows.row(y, &own), source);
        std::vector<int> times(static_cast<size_t>(s.panorama.width));
        for (const SeamRing::Pixel& pixel : ring.pixels_of_row(y)) {
            const int x = pixel.column;
            ++times[static_cast<size_t>(x)];
            const Mixed expected = plainly_mixed(s, x, y);
            ASSERT_NEAR(pixel.share / 256.0, std::max(expected.share, 0.0), 0.6 / 256) << x << ", " << y;
            if (pixel.share == 0) {
                continue;
            }
            const auto stride = static_cast<int>(source.stride());
            const double column = pixel.offset % stride - 1 + (pixel.fraction & 0xff) / 32.0;
            const double row = pixel.offset / stride - 1 + (pixel.fraction >> 8) / 32.0;
            ASSERT_NEAR(column, expected.x, 1.0 / 32) << x << ", " << y;
            ASSERT_NEAR(row, expected.y, 1.0 / 32) << x << ", " << y;
            // Wholly in the other lens's picture.
            const double in_lens = row < s.lens.height - 0.5 ? row : row - s.lens.height;
            ASSERT_TRUE(column >= 0 && column <= s.lens.width - 1) << x << ", " << y;
            ASSERT_TRUE(in_lens >= 0 && in_lens <= s.lens.height - 1) << x << ", " << y;
            ++found;
        }
        for (int x = 0; x < s.panorama.width; ++x) {
            const int count = times[static_cast<size_t>(x)];
            ASSERT_TRUE(count == 1 || (count == 0 && plainly_mixed(s, x, y).share < 0.5 / 256)) << x << ", " << y;
        }
    }
    EXPECT_GT(found, 0);
}

// The widest ring whose other lens still lies in its picture.
double widest(ImageSize lens, int radius) {
    return PlaneMapper({2, 2}, {lens, {lens.width / 2, lens.height / 2}, radius, 0, 0, 0}, {}, {}, 0).overlap(0);
}

std::vector<RingSetting> ring_settings() {
    const double quarter = kPi / 2;
    const double two = radians(2);
    return {
        // Lens 1 above, a lens in the middle, and between: one span, spans around both poles, two of each kind.
        {{600, 300}, {1936, 1936}, 907, 0, {}, {}, false, two},
        {{600, 300}, {1936, 1936}, 907, 0, {0, 0, 0, 0, quarter}, {}, false, two},
        {{600, 300}, {1440, 1440}, 675, 0, {0.3, -0.2, 0, 0, 0.5}, {}, false, two},
        {{501, 333}, {1440, 1440}, 675, 0, {0.3, -0.2, 0.1, 0.2, 2.5}, {1, -2, 3}, false, radians(5.5)},
        {{500, 250}, {400, 500}, 180, 0, {0.1, 0.2, 0, 0, quarter}, {0.5, 0.2, 0.1}, true, radians(4)},
        {{500, 250}, {400, 400}, 180, 0, {0, 0, 0, 0, 0.03}, {}, false, radians(4)},
        // As wide as the pictures allow: their edges are reached, and not crossed.
        {{600, 300}, {1936, 1936}, 907, 0, {0.1, 0.2, 0, 0, 1}, {}, false, widest({1936, 1936}, 907)},
        {{600, 300}, {968, 968}, 453, 0, {0.1, 0.2, 0, 0, 1}, {}, true, widest({968, 968}, 453)},
        {{600, 300}, {97, 101}, 45, 0, {0.1, 0.2, 0, 0, 1}, {}, false, widest({97, 101}, 45)},
        // A band inside the ring.
        {{600, 300}, {1936, 1936}, 907, 2 * 20 + 6, {0.1, 0.2, 0, 0, 1}, {}, false, two},
    };
}

INSTANTIATE_TEST_SUITE_P(Settings, SeamRingTest, testing::ValuesIn(ring_settings()),
                         [](const auto& setting) { return std::to_string(setting.index); });

TEST(PlaneMapperOverlap, EndsWhereThePictureDoes) {
    EXPECT_NEAR(widest({1936, 1936}, 907), radians(967.0 / 907 * 90 - 90), 1e-9);
    EXPECT_EQ(widest({90, 90}, 47), 0);
    const PlaneMapper mapper({2, 2}, {{1936, 1936}, {968, 968}, 907, 0, 0, 0}, {}, {}, 0);
    EXPECT_NEAR(mapper.overlap(0) - mapper.overlap(3.5), 3.5 / 907 * kPi / 2, 1e-12);
}

// ---- How far the lenses show something ----

constexpr int kLens = 1440;
constexpr int kRadius = 675;

// Lenses that show `value` up to so many degrees from their axes, and black beyond.
FramedPlane lit_stack(double degrees1, double degrees2, int value, int black = 16) {
    FramedPlane stack(2 * kLens, kLens);
    cv::Mat pixels = stack.pixels();
    for (int y = 0; y < 2 * kLens; ++y) {
        const double degrees = y < kLens ? degrees1 : degrees2;
        for (int x = 0; x < kLens; ++x) {
            const bool lit = std::hypot(x - kLens / 2, y % kLens - kLens / 2) <= degrees / 90 * kRadius;
            pixels.at<uint8_t>(y, x) = static_cast<uint8_t>(lit ? value : black);
        }
    }
    return stack;
}

LitOverlap overlap_of(const FramedPlane& stack, double degrees) {
    const PlaneMapper mapper({2, 2}, {{kLens, kLens}, {kLens / 2, kLens / 2}, kRadius, 0, 0.3, -0.4}, {}, {}, 0);
    return lit_overlap(TableRows(mapper), stack, {24, 24}, {48, 48}, radians(degrees));
}

TEST(LitOverlap, IsWhatWasAskedForWhereBothLensesShowIt) {
    const LitOverlap found = overlap_of(lit_stack(96, 96, 120), 5.5);
    EXPECT_TRUE(found.known);
    EXPECT_EQ(found.width, radians(5.5));
}

TEST(LitOverlap, EndsBeforeThePictureThatEndsFirst) {
    for (const double field : {93.0, 94.5}) {
        const LitOverlap first = overlap_of(lit_stack(field, 96, 120), 5.5);
        const LitOverlap second = overlap_of(lit_stack(96, field, 120), 5.5);
        EXPECT_TRUE(first.known);
        EXPECT_EQ(first.width, second.width);
        EXPECT_LT(first.width, radians(field - 90));
        EXPECT_GT(first.width, radians(field - 90 - 0.9));
    }
}

TEST(LitOverlap, IsNothingForPicturesOfTheHemisphere) {
    const LitOverlap found = overlap_of(lit_stack(90, 90, 120), 5.5);
    EXPECT_TRUE(found.known);
    EXPECT_EQ(found.width, 0);
}

TEST(LitOverlap, CannotBeToldInTheDark) {
    const LitOverlap found = overlap_of(lit_stack(90, 90, 30), 1.5);
    EXPECT_FALSE(found.known);
    EXPECT_EQ(found.width, radians(1.5));
}

// Night on one side, lamps on the other: the dark side says nothing.
TEST(LitOverlap, LooksAtTheLitPartOfTheSeam) {
    FramedPlane stack = lit_stack(92, 92, 120);
    // Both lenses show the same azimuths in their upper halves.
    stack.pixels().rowRange(0, kLens / 2).setTo(16);
    stack.pixels().rowRange(kLens, kLens + kLens / 2).setTo(16);
    const PlaneMapper mapper({2, 2}, {{kLens, kLens}, {kLens / 2, kLens / 2}, kRadius, 0, 0, 0}, {}, {}, 0);
    const LitOverlap found = lit_overlap(TableRows(mapper), stack, {24, 24}, {48, 48}, radians(5));
    EXPECT_TRUE(found.known);
    EXPECT_LT(found.width, radians(2));
    EXPECT_GT(found.width, radians(1));
}

// Something near one lens hides a tenth of the seam from it.
TEST(LitOverlap, IsNotMisledByASmallDarkThing) {
    FramedPlane stack = lit_stack(96, 96, 120);
    stack.pixels()(cv::Rect(kLens / 2 - 200, 0, 400, 100)).setTo(0);
    EXPECT_EQ(overlap_of(stack, 3).width, radians(3));
}

}  // namespace
