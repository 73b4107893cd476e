#include "base/progress.h"

#include <cstdint>

#include <gtest/gtest.h>

TEST(Progress, IntervalGrowsAt1010Frames) {
    EXPECT_EQ(nq360_update_frame(0), 10);
    EXPECT_EQ(nq360_update_frame(-5), 10);
    EXPECT_EQ(nq360_update_frame(INT64_MIN), 10);
    EXPECT_EQ(nq360_update_frame(1009), 10);
    EXPECT_EQ(nq360_update_frame(1010), 100);
    EXPECT_EQ(nq360_update_frame(1LL << 40), 100);
}
