#include "seam/turn_search.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "support/lens_frames.h"

using namespace test_support;

namespace {

constexpr int kSize = 1440;
constexpr double kDirectionsPerDegree = 20;

// Waves of many lengths along the seam that do not repeat around it, another set for each seed.
SeamLight waves(int seed, double height = 12) {
    cv::RNG random(static_cast<uint64_t>(seed));
    std::vector<double> phases;
    for (int i = 0; i < 40; ++i) {
        phases.push_back(random.uniform(0.0, 360.0));
    }
    return [=](double off_seam, double along) {
        double value = 120 + off_seam;
        for (size_t i = 0; i < phases.size(); ++i) {
            value += height * std::sin((static_cast<double>(20 + i) * along + phases[i]) * sample::kDegree) / 4;
        }
        return value;
    };
}

SeamPair pair_of(const SeamLight& light1, const SeamLight& light2, double turn2, double field = 95) {
    return SeamPair(lens_frame(kSize, 1, 0, light1, field).get(), lens_frame(kSize, 2, turn2, light2, field).get(), 0,
                    0);
}

SeamLight brighter(const SeamLight& light, double factor, double offset) {
    return [=](double off_seam, double along) { return factor * light(off_seam, along) + offset; };
}

}  // namespace

// Finer than the directions, which are a twentieth of a degree apart.
TEST(TurnSearch, FindsTheTurn) {
    for (const double turn : {0.0, 2.0, -0.63, 4.27, -9.92}) {
        const FoundTurn found = find_turn({pair_of(waves(1), waves(1), turn)});
        EXPECT_NEAR(found.directions / kDirectionsPerDegree, turn, 0.01);
        EXPECT_GT(found.confidence, 0.9) << turn;
    }
}

TEST(TurnSearch, IsDeafToBrightness) {
    const FoundTurn found = find_turn({pair_of(waves(1), brighter(waves(1), 1.35, -20), 2.5)});
    EXPECT_NEAR(found.directions / kDirectionsPerDegree, 2.5, 0.03);
    EXPECT_GT(found.confidence, 0.9);
}

// One half of the seam is white in lens 2.
TEST(TurnSearch, ComparesWhatIsNeitherBlackNorWhite) {
    const SeamLight light = waves(1);
    const SeamLight half_white = [&](double off_seam, double along) {
        return std::remainder(along, 360) > 0 ? 255 : light(off_seam, along);
    };
    const FoundTurn found = find_turn({pair_of(light, half_white, -3)});
    EXPECT_NEAR(found.directions / kDirectionsPerDegree, -3, 0.05);
    EXPECT_GT(found.confidence, 0.8);
}

TEST(TurnSearch, FindsItWithoutOverlap) {
    const FoundTurn found = find_turn({pair_of(waves(1), waves(1), 1.5, 90)});
    EXPECT_NEAR(found.directions / kDirectionsPerDegree, 1.5, 0.05);
    EXPECT_GT(found.confidence, 0.8);
}

TEST(TurnSearch, HasNoConfidenceInTwoShots) {
    const FoundTurn found = find_turn({pair_of(waves(1), waves(2), 0)});
    EXPECT_TRUE(found.is_clear);
    EXPECT_LT(found.confidence, 0.2);
    EXPECT_EQ(found.directions, 0);
}

// More than is searched for: a guess would be wrong.
TEST(TurnSearch, HasNoConfidenceBeyondTenDegrees) {
    const FoundTurn found = find_turn({pair_of(waves(1), waves(1), 14)});
    EXPECT_LT(found.confidence, 0.2);
    EXPECT_EQ(found.directions, 0);
}

TEST(TurnSearch, HasNoConfidenceInAPattern) {
    const SeamLight pattern = [](double, double along) { return 120 + 60 * std::sin(24 * along * sample::kDegree); };
    EXPECT_LT(find_turn({pair_of(pattern, pattern, 1)}).confidence, 0.2);
}

TEST(TurnSearch, NothingToBeSeenIsNotClear) {
    const SeamLight grey = [](double, double) { return 120; };
    const FoundTurn found = find_turn({pair_of(grey, grey, 1)});
    EXPECT_FALSE(found.is_clear);
    EXPECT_EQ(found.confidence, 0);
    EXPECT_EQ(found.directions, 0);
}

TEST(TurnSearch, TakesAllPairsTogether) {
    const SeamLight grey = [](double, double) { return 120; };
    const FoundTurn found = find_turn({pair_of(grey, grey, 1), pair_of(waves(3), waves(3), 1)});
    EXPECT_TRUE(found.is_clear);
    EXPECT_NEAR(found.directions / kDirectionsPerDegree, 1, 0.03);
}
