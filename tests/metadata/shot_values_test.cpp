#include "metadata/shot_values.h"

#include <gtest/gtest.h>

#include "metadata/shot_exif.h"
#include "support/exif_blocks.h"

using namespace test_support;

namespace {

constexpr uint16_t kTypeSrational = 10;

ShotExif shot_of(const std::vector<ExifEntry>& photo, const std::vector<ExifEntry>& place = {}) {
    return read_shot_exif(to_string(ExifBuilder(ByteOrder::kBig).block({}, photo, place)));
}

}  // namespace

TEST(ShotValues, LeavesOutBrokenValues) {
    const std::vector<ExifEntry> broken = {
        exif_rationals(0x829A, {1, 0}),                           // by zero
        exif_rationals(0x829D, {2, 1, 3, 1}),                     // two of them
        exif_text(0x8822, "2"),                                   // a text for a number
        exif_long(0x8827, 65536),                                 // too large
        exif_text(0x9003, "2026:13:02 03:04:05"),                 // no such month
        exif_text(0x9004, "    :  :     :  :  "),                 // blank
        exif_text(0x9011, "+9:00"),                               //
        exif_rationals(0x9201, {0x80000000, 1}),                  // not a signed number
        exif_rationals(0x9202, {0xFFFFFFFF, 1}, kTypeSrational),  // below zero
        exif_text(0x9291, "2 5"),                                 //
        exif_text(0xA434, "a\nb"),                                // control characters
        {0xA301, kTypeUndefined, 2, {1, 1}},                      //
        {0x920A, kTypeRational, 1, be32(0xFFFFFFF0), 4},          // outside the block
    };
    EXPECT_TRUE(shot_of(broken).photo.empty());
    const std::vector<ExifEntry> broken_place = {exif_text(1, "X"), exif_rationals(2, {35, 1, 39, 1}),
                                                 exif_text(0x1D, "2026:1:2"), exif_text(3, "EW")};
    EXPECT_TRUE(shot_of({}, broken_place).place.empty());
}

TEST(ShotValues, BringsNumbersToTheTypeOfTheStandard) {
    const ShotExif shot = shot_of({exif_long(0x8827, 400),
                                   {0x9207, kTypeByte, 1, {5}},
                                   exif_rationals(0x9204, {1, 3}),
                                   exif_rationals(0x829D, {2, 1}, kTypeSrational),
                                   {0x8832, kTypeShort, 1, be16(800), 2}});
    EXPECT_EQ(shot.photo.at(0x8827), tiff_short(400));
    EXPECT_EQ(shot.photo.at(0x9207), tiff_short(5));
    EXPECT_EQ(shot.photo.at(0x9204).type, TiffType::kSrational);
    EXPECT_EQ(shot.photo.at(0x829D), tiff_rational(2, 1));
    EXPECT_EQ(shot.photo.at(0x8832), tiff_long(800));
}

TEST(ShotValues, TakesTheFirstOfTwoSensitivitiesAndOfTwoEntries) {
    const ShotExif shot =
        shot_of({{0x8827, kTypeShort, 2, be16(100) + be16(200), 2}, exif_short(0x9207, 1), exif_short(0x9207, 2)});
    EXPECT_EQ(shot.photo.at(0x8827), tiff_short(100));
    EXPECT_EQ(shot.photo.at(0x9207), tiff_short(1));
}

TEST(ShotValues, KeepsALensWithoutKnownAperture) {
    const ShotExif shot = shot_of({exif_rationals(0xA432, {13, 10, 13, 10, 0, 0, 0, 0})});
    EXPECT_EQ(shot.photo.count(0xA432), 1u);
}
