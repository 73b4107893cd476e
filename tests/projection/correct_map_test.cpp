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

// ---- Factors ----

const YuvCorrectMap kNone = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, CORRECT_NONE);

TEST(WithGains, FactorsOfOneChangeNoByte) {
    for (const YuvCorrectMap& offsets : {kNone, create_linnercorrectmap(0, 300, -17)}) {
        for (const bool full_range : {false, true}) {
            const YuvCorrectMap map = with_gains(offsets, {1, 1, 1}, full_range);
            EXPECT_EQ(std::memcmp(&map, &offsets, sizeof(map)), 0);
        }
    }
}

TEST(WithGains, LumaIsScaledAboutBlack) {
    const YuvCorrectMap limited = with_gains(kNone, {1.5, 1, 1}, false);
    EXPECT_THAT((std::vector<int>{limited.yenabled, limited.uenabled, limited.venabled}),
                testing::ElementsAre(1, 0, 0));
    EXPECT_EQ(limited.ytable[16], 16);
    EXPECT_EQ(limited.ytable[116], 166);
    EXPECT_EQ(limited.ytable[0], 0);  // -8
    EXPECT_EQ(limited.ytable[8], 4);
    EXPECT_EQ(limited.ytable[235], 255);
    const YuvCorrectMap full = with_gains(kNone, {1.5, 1, 1}, true);
    EXPECT_EQ(full.ytable[0], 0);
    EXPECT_EQ(full.ytable[16], 24);
    EXPECT_EQ(full.ytable[100], 150);
    EXPECT_EQ(full.ytable[171], 255);
}

TEST(WithGains, ChromaIsScaledAboutGreyInBothRanges) {
    for (const bool full_range : {false, true}) {
        const YuvCorrectMap map = with_gains(kNone, {1, 2, 0.5}, full_range);
        EXPECT_THAT((std::vector<int>{map.yenabled, map.uenabled, map.venabled}), testing::ElementsAre(0, 1, 1));
        EXPECT_EQ(map.utable[128], 128);
        EXPECT_EQ(map.utable[138], 148);
        EXPECT_EQ(map.utable[10], 0);
        EXPECT_EQ(map.utable[250], 255);
        EXPECT_EQ(map.vtable[128], 128);
        EXPECT_EQ(map.vtable[28], 78);
        EXPECT_EQ(map.vtable[228], 178);
    }
}

TEST(WithGains, RoundsToTheNearest) {
    const YuvCorrectMap map = with_gains(kNone, {1.004, 0.7, 1}, true);
    EXPECT_EQ(map.ytable[100], 100);  // 100.4
    EXPECT_EQ(map.ytable[150], 151);  // 150.6
    EXPECT_EQ(map.utable[129], 129);  // 128.7
    EXPECT_EQ(map.utable[127], 127);  // 127.3
    EXPECT_EQ(map.utable[130], 129);  // 129.4
}

TEST(WithGains, TheOffsetComesAfterTheFactorAndOnlyTheSumIsHeldToAByte) {
    const YuvCorrectMap darker = with_gains(create_linnercorrectmap(-60, 0, CORRECT_NONE), {2, 2, 1}, true);
    EXPECT_EQ(darker.ytable[150], 240);  // 300 on the way
    EXPECT_EQ(darker.ytable[20], 0);
    EXPECT_EQ(darker.utable[138], 148);
    EXPECT_EQ(darker.venabled, 0);
    const YuvCorrectMap brighter = with_gains(create_linnercorrectmap(70, 100, 0), {0.5, 4, 1}, false);
    EXPECT_EQ(brighter.ytable[116], 136);
    EXPECT_EQ(brighter.utable[78], 28);  // -72 on the way
    EXPECT_EQ(brighter.vtable[99], 99);
}

TEST(WithGains, AFactorOfZeroLeavesTheMiddle) {
    const YuvCorrectMap map = with_gains(create_linnercorrectmap(5, CORRECT_NONE, -3), {0, 0, 0}, false);
    EXPECT_THAT(map.ytable, testing::Each(21));
    EXPECT_THAT(map.utable, testing::Each(128));
    EXPECT_THAT(map.vtable, testing::Each(125));
}

}  // namespace
