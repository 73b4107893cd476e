#include "metadata/shot_exif.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "metadata/exif.h"
#include "support/comma_locale.h"
#include "support/command.h"
#include "support/exif_blocks.h"
#include "support/temp_dir.h"

using namespace test_support;

namespace {

constexpr uint16_t kTypeSrational = 10;

const std::vector<ExifEntry> kImage = {exif_text(0x010F, "Maker"), exif_text(0x0110, "Model"), exif_short(0x0112, 6),
                                       exif_text(0x0132, "2026:01:02 03:04:06"), exif_text(0x013B, "An artist")};

const std::vector<ExifEntry> kPhoto = {exif_rationals(0x829A, {1, 250}),
                                       exif_short(0x8827, 100),
                                       exif_text(0x9003, "2026:01:02 03:04:05"),
                                       exif_text(0x9011, "+09:00"),
                                       exif_rationals(0x9204, {0xFFFFFFFF, 3}, kTypeSrational),
                                       exif_text(0x9291, "25"),
                                       exif_short(0xA002, 1440),
                                       {0xA300, kTypeUndefined, 1, {3}}};

const std::vector<ExifEntry> kPlace = {exif_text(1, "S"),      exif_rationals(2, {35, 1, 39, 1, 3096, 100}),
                                       exif_text(3, "W"),      exif_rationals(4, {139, 1, 44, 1, 4344, 100}),
                                       {5, kTypeByte, 1, {1}}, exif_rationals(6, {81, 2})};

ShotExif read(const Bytes& block) {
    return read_shot_exif(to_string(block));
}

ShotExif shot_of(const std::vector<ExifEntry>& photo, const std::vector<ExifEntry>& place = {},
                 ByteOrder order = ByteOrder::kBig) {
    return read(ExifBuilder(order).block({}, photo, place));
}

std::string iso(const std::optional<CaptureTime>& time) {
    return time ? iso_text(*time) : "none";
}

// What exiftool reads of the panorama's block.
nlohmann::json exiftool_of(const std::string& block, const std::vector<std::string>& options) {
    const TempDir dir;
    const std::string path = dir.file("panorama.jpg", jpeg_start() + exif_segment(text(block)) + jpeg_end());
    std::vector<std::string> arguments = {"exiftool", "-j"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(path);
    return nlohmann::json::parse(output_of(arguments)).at(0);
}

}  // namespace

TEST(ShotExif, ReadsTheSameInEitherByteOrder) {
    for (const ByteOrder order : {ByteOrder::kBig, ByteOrder::kLittle}) {
        const ShotExif shot = read(ExifBuilder(order).block(kImage, kPhoto, kPlace));
        EXPECT_EQ(camera_make(shot), "Maker");
        EXPECT_EQ(camera_model(shot), "Model");
        EXPECT_EQ(iso(capture_time(shot)), "2026-01-02T03:04:05.25+09:00");
        EXPECT_EQ(location(shot), "-35.658600-139.745400-40.500/");
        EXPECT_EQ(shot.photo.at(0x829A), tiff_rational(1, 250));
        EXPECT_EQ(shot.photo.at(0x8827), tiff_short(100));
        EXPECT_EQ(shot.photo.at(0x9204), (TiffValue{TiffType::kSrational, std::string("\xFF\xFF\xFF\xFF\0\0\0\3", 8)}));
        EXPECT_EQ(shot.photo.at(0xA300), tiff_undefined("\3"));
    }
}

TEST(ShotExif, ReadsTheCamerasOwnBlockOfAMovie) {
    const ShotExif shot = read(camera_block(MetadataBlock::maker()));
    EXPECT_EQ(camera_make(shot), "MERIDAN OPTICS");
    EXPECT_EQ(iso(capture_time(shot)), "2019-03-04T05:06:07");
}

TEST(ShotExif, LeavesOutWhatBelongsToTheLensPictureAlone) {
    const ShotExif shot = read(ExifBuilder(ByteOrder::kBig).block(kImage, kPhoto, kPlace));
    EXPECT_EQ(shot.image.count(0x0112), 0u);
    EXPECT_EQ(shot.photo.count(0xA002), 0u);
    EXPECT_EQ(read(camera_block(MetadataBlock::tiff())).photo.count(0x927C), 0u);
}

TEST(ShotExif, TakesTheDigitizedTimeWhereThereIsNoOriginal) {
    const std::vector<ExifEntry> digitized = {exif_text(0x9004, "2026:01:02 03:04:05"), exif_text(0x9012, "-05:00"),
                                              exif_text(0x9011, "+09:00")};
    EXPECT_EQ(iso(capture_time(shot_of(digitized))), "2026-01-02T03:04:05-05:00");
    EXPECT_EQ(iso(capture_time(shot_of({}))), "none");
}

TEST(ShotExif, AnotherTimeTakesThePlaceOfAll) {
    ShotExif shot = read(ExifBuilder(ByteOrder::kBig).block(kImage, kPhoto, kPlace));
    set_capture_time(*parse_capture_time("2027:02:03 04:05:06"), &shot);
    EXPECT_EQ(iso(capture_time(shot)), "2027-02-03T04:05:06");
    EXPECT_EQ(shot.image.at(0x0132), tiff_text("2027:02:03 04:05:06"));
    set_capture_time(*parse_capture_time("2027:02:03 04:05:06.5+01:00"), &shot);
    EXPECT_EQ(shot.photo.at(0x9292), tiff_text("5"));
    EXPECT_EQ(shot.photo.at(0x9010), tiff_text("+01:00"));
}

TEST(ShotExif, TellsNoPlaceOutsideTheEarthOrWithoutItsHalf) {
    const auto place_of = [](const std::string& ref, uint32_t degrees, const std::string& other) {
        return location(shot_of({}, {exif_text(1, ref), exif_rationals(2, {degrees, 1, 0, 1, 0, 1}),
                                     exif_text(3, other), exif_rationals(4, {9, 1, 30, 1, 0, 1})}));
    };
    EXPECT_EQ(place_of("N", 90, "E"), "+90.000000+009.500000/");
    EXPECT_EQ(place_of("N", 91, "E"), "");
    EXPECT_EQ(place_of("N", 45, "?"), "");
    EXPECT_EQ(location(shot_of({})), "");
}

TEST(ShotExif, WritesThePointInEveryLocale) {
    const CommaLocale locale;
    EXPECT_EQ(location(shot_of({}, kPlace)), "-35.658600-139.745400-40.500/");
}

TEST(ShotExif, ThePanoramasBlockIsReadBackTheSame) {
    const ShotExif shot = read(ExifBuilder(ByteOrder::kLittle).block(kImage, kPhoto, kPlace));
    const ShotExif again = read_shot_exif(panorama_exif(shot, 3840, 1920));
    EXPECT_EQ(again.image, shot.image);
    EXPECT_EQ(location(again), location(shot));
    for (const auto& [tag, value] : shot.photo) {
        EXPECT_EQ(again.photo.at(tag), value) << tag;
    }
}

TEST(ShotExif, ExiftoolHasNoComplaintAndReadsThePanoramasSize) {
    for (const ByteOrder order : {ByteOrder::kBig, ByteOrder::kLittle}) {
        const ShotExif shot = read(ExifBuilder(order).block(kImage, kPhoto, kPlace));
        const nlohmann::json theirs =
            exiftool_of(panorama_exif(shot, 3840, 1920), {"-n", "-validate", "-warning", "-a", "-all"});
        EXPECT_EQ(theirs.at("Validate"), "0 0 0") << theirs;
        EXPECT_EQ(theirs.at("Orientation"), 1);
        EXPECT_EQ(theirs.at("ExifImageWidth"), 3840);
        EXPECT_EQ(theirs.at("ExifImageHeight"), 1920);
        EXPECT_EQ(theirs.at("Artist"), "An artist");
        EXPECT_EQ(theirs.at("ExposureTime"), 0.004);
        EXPECT_EQ(theirs.at("SubSecDateTimeOriginal"), "2026:01:02 03:04:05.25+09:00");
        EXPECT_NEAR(theirs.at("GPSLatitude").get<double>(), -35.6586, 1e-9);
        EXPECT_NEAR(theirs.at("GPSLongitude").get<double>(), -139.7454, 1e-9);
        EXPECT_EQ(theirs.at("GPSAltitude"), -40.5);
    }
}

TEST(ShotExif, ExiftoolHasNoComplaintWithoutAnythingKept) {
    const nlohmann::json theirs = exiftool_of(panorama_exif({}, 64, 32), {"-n", "-validate", "-warning", "-a", "-all"});
    EXPECT_EQ(theirs.at("Validate"), "0 0 0") << theirs;
    EXPECT_EQ(theirs.count("GPSVersionID"), 0u);
}

TEST(ShotExif, TheAnalysisReadsThePanoramasBlock) {
    const std::string block = panorama_exif(read(camera_block(MetadataBlock::tiff())), 3840, 1920);
    const _exif exif(reinterpret_cast<const uint8_t*>(block.data()), block.size());
    EXPECT_STREQ(exif.maker, "MERIDAN OPTICS");
    EXPECT_STREQ(exif.model, "RT-KA500");
    EXPECT_STREQ(exif.datetime, "2019:03:04 05:06:07");
    EXPECT_EQ(exif.orientation, 1);
    EXPECT_FALSE(exif.has_makernote);
}

TEST(ShotExif, TheLongestTextsFitIntoASegment) {
    std::vector<ExifEntry> image;
    for (const uint16_t tag : {0x010E, 0x010F, 0x0110, 0x0131, 0x013B, 0x8298}) {
        image.push_back(exif_text(tag, std::string(2000, 'x')));
    }
    std::vector<ExifEntry> photo = kPhoto;
    for (const uint16_t tag : {0xA430, 0xA431, 0xA433, 0xA434, 0xA435}) {
        photo.push_back(exif_text(tag, std::string(2000, 'x')));
    }
    std::vector<ExifEntry> place = kPlace;
    place.push_back(exif_text(0x12, std::string(2001, 'x')));
    for (const uint16_t tag : {0x1B, 0x1C}) {
        place.push_back({tag, kTypeUndefined, 2000, Bytes(2000, 'x')});
    }
    const ShotExif shot = read(ExifBuilder(ByteOrder::kBig).block(image, photo, place));
    EXPECT_EQ(shot.image.size(), 6u);
    EXPECT_EQ(shot.place.count(0x12), 0u);
    EXPECT_EQ(shot.place.count(0x1C), 1u);
    EXPECT_LE(panorama_exif(shot, 3840, 1920).size(), 65527u);
}

TEST(ShotExif, EveryPrefixAndDamagedByteIsSafe) {
    for (const ByteOrder order : {ByteOrder::kBig, ByteOrder::kLittle}) {
        const Bytes whole = ExifBuilder(order).block(kImage, kPhoto, kPlace);
        for (size_t at = 0; at < whole.size(); ++at) {
            read(slice(whole, 0, at));
            for (const uint8_t value : {0, 1, 0x7F, 0x80, 0xFF}) {
                Bytes damaged = whole;
                damaged[at] = value;
                const ShotExif shot = read(damaged);
                EXPECT_LE(panorama_exif(shot, 64, 32).size(), 2 * whole.size() + 400);
                location(shot);
            }
        }
    }
}
