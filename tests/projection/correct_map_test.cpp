#include "projection/correct_map.h"

#include <climits>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(CreateLinnercorrectmap, NoneLeavesEveryByteZero) {
    const YuvCorrectMap map = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, CORRECT_NONE);
    const YuvCorrectMap zero = {};
    EXPECT_EQ(std::memcmp(&map, &zero, sizeof(map)), 0);
}

TEST(CreateLinnercorrectmap, ZeroIsTheIdentityAndCounts) {
    const YuvCorrectMap map = create_linnercorrectmap(0, 0, 0);
    EXPECT_EQ(map.yenabled, 1);
    EXPECT_EQ(map.uenabled, 1);
    EXPECT_EQ(map.venabled, 1);
    for (int k = 0; k < 256; ++k) {
        EXPECT_EQ(map.ytable[k], k);
        EXPECT_EQ(map.utable[k], k);
        EXPECT_EQ(map.vtable[k], k);
    }
}

TEST(CreateLinnercorrectmap, EachPlaneHasItsOwnOffsetAndFlag) {
    const YuvCorrectMap luma = create_linnercorrectmap(7, CORRECT_NONE, CORRECT_NONE);
    EXPECT_THAT((std::vector<int>{luma.yenabled, luma.uenabled, luma.venabled}), testing::ElementsAre(1, 0, 0));
    EXPECT_EQ(luma.ytable[100], 107);
    EXPECT_EQ(luma.utable[100], 0);
    const YuvCorrectMap blue = create_linnercorrectmap(CORRECT_NONE, -8, CORRECT_NONE);
    EXPECT_THAT((std::vector<int>{blue.yenabled, blue.uenabled, blue.venabled}), testing::ElementsAre(0, 1, 0));
    EXPECT_EQ(blue.utable[100], 92);
    const YuvCorrectMap red = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, 9);
    EXPECT_THAT((std::vector<int>{red.yenabled, red.uenabled, red.venabled}), testing::ElementsAre(0, 0, 1));
    EXPECT_EQ(red.vtable[100], 109);
}

TEST(CreateLinnercorrectmap, TheSumIsHeldToAByte) {
    const YuvCorrectMap map = create_linnercorrectmap(10, -10, 0);
    EXPECT_EQ(map.ytable[0], 10);
    EXPECT_EQ(map.ytable[245], 255);
    EXPECT_EQ(map.ytable[250], 255);
    EXPECT_EQ(map.utable[5], 0);
    EXPECT_EQ(map.utable[10], 0);
    EXPECT_EQ(map.utable[255], 245);
}

TEST(CreateLinnercorrectmap, LargeOffsetsSaturateTheWholeTable) {
    const YuvCorrectMap map = create_linnercorrectmap(300, -300, 255);
    EXPECT_THAT(map.ytable, testing::Each(255));
    EXPECT_THAT(map.utable, testing::Each(0));
    EXPECT_THAT(map.vtable, testing::Each(255));
}

TEST(CreateLinnercorrectmap, OffsetsNearTheEndsOfIntDoNotOverflow) {
    const YuvCorrectMap map = create_linnercorrectmap(INT_MAX, INT_MIN, INT_MAX - 100);
    EXPECT_EQ(map.yenabled, 1);
    EXPECT_THAT(map.ytable, testing::Each(255));
    EXPECT_THAT(map.utable, testing::Each(0));
    EXPECT_THAT(map.vtable, testing::Each(255));
}

TEST(CreateLinnercorrectmap, TheNeighboursOfNoneAreOrdinaryOffsets) {
    const YuvCorrectMap map = create_linnercorrectmap(CORRECT_NONE + 1, CORRECT_NONE - 1, CORRECT_NONE);
    EXPECT_EQ(map.yenabled, 1);
    EXPECT_EQ(map.uenabled, 1);
    EXPECT_EQ(map.venabled, 0);
}

}  // namespace
