#include "metadata/keep.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "metadata/jpeg.h"
#include "metadata/mov.h"
#include "metadata/spherical.h"
#include "support/command.h"
#include "support/exif_blocks.h"
#include "support/limits.h"
#include "support/plain_media.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

using namespace test_support;
using nlohmann::json;
using testing::HasSubstr;

namespace {

const std::vector<ExifEntry> kImage = {exif_text(0x010F, "Maker"), exif_text(0x0110, "Model"), exif_short(0x0112, 6),
                                       exif_text(0x0132, "2026:01:02 03:04:06")};
const std::vector<ExifEntry> kPhoto = {exif_rationals(0x829A, {1, 250}), exif_text(0x9003, "2026:01:02 03:04:05"),
                                       exif_text(0x9011, "+09:00"), exif_text(0x9291, "25")};
const std::vector<ExifEntry> kPlace = {exif_text(1, "N"), exif_rationals(2, {35, 1, 39, 1, 3096, 100}),
                                       exif_text(3, "E"), exif_rationals(4, {139, 1, 44, 1, 4344, 100})};
constexpr char kPlaceText[] = "+35.658600+139.745400/";

constexpr int64_t kShotSeconds = 1767323045;  // 2026-01-02 03:04:05 in UTC

Bytes shot_block(ByteOrder order = ByteOrder::kLittle) {
    return ExifBuilder(order).block(kImage, kPhoto, kPlace);
}

class Keep : public testing::Test {
  protected:
    // A lens movie of these atoms in moov.
    std::string lens_movie(const Bytes& content) {
        return dir.file("lens1.mov", atom("mdat", {}) + atom("moov", content));
    }
    std::string lens_picture() { return dir.file("lens1.jpg", jpeg_start() + exif_segment(shot_block()) + jpeg_end()); }

    KeptMetadata read(const std::string& path) {
        KeptMetadata kept;
        logged([&] { kept = read_kept_metadata(path.c_str()); });
        return kept;
    }

    std::string picture_with(const KeptMetadata& kept, const char* datetime) {
        const std::string path = make_plain_picture(dir.file("panorama.jpg"), "64x32");
        logged([&] { write_picture_metadata(path.c_str(), 64, 32, kept, datetime); });
        return path;
    }
    std::string movie_with(const KeptMetadata& kept, const char* datetime, const std::string& name = "panorama.mov") {
        const std::string path = make_plain_movie(dir.file(name), "aac", "64x32");
        logged([&] { write_movie_metadata(path.c_str(), 64, 32, movie_texts(kept, datetime)); });
        return path;
    }

    json exiftool_of(const std::string& path, const std::vector<std::string>& options) {
        std::vector<std::string> arguments = {"exiftool", "-j", "-n"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back(path);
        return json::parse(output_of(arguments)).at(0);
    }

    // The V1 document's time stamp.
    std::string timestamp_of(const std::string& path) {
        std::string document;
        logged([&] {
            _mov movie(path.c_str(), false);
            char* text = nullptr;
            if (movie.xml_data(&text) == 0) {
                document = text;
            }
        });
        const std::string tag = "<GSpherical:Timestamp>";
        const size_t at = document.find(tag);
        return at == std::string::npos ? ""
                                       : document.substr(at + tag.size(), document.find("</", at) - at - tag.size());
    }

    TempDir dir;
};

Bytes movie_header(uint32_t created) {
    return atom("mvhd", zeros(4) + be32(created) + zeros(92));
}

}  // namespace

TEST_F(Keep, ReadsAPictureByItsContent) {
    const KeptMetadata kept = read(lens_picture());
    EXPECT_EQ(camera_make(kept.exif), "Maker");
    EXPECT_EQ(kept.location, kPlaceText);
    EXPECT_EQ(kept.creation_time, 0);
    std::filesystem::rename(dir.file("lens1.jpg"), dir.file("other.mov"));
    EXPECT_EQ(camera_make(read(dir.file("other.mov")).exif), "Maker");
}

TEST_F(Keep, ReadsAMoviesHeaderBlockAndPlace) {
    const Bytes user = atom("udta", {atom("MKRI", camera_block(MetadataBlock::maker())),
                                     atom("\xA9xyz", be16(8) + zeros(2) + text("+10+020/"))});
    const KeptMetadata kept = read(lens_movie(movie_header(4000000000) + user));
    EXPECT_EQ(camera_model(kept.exif), "RT-KA500");
    EXPECT_EQ(kept.creation_time, 4000000000);
    EXPECT_EQ(kept.location, "+10+020/");
}

TEST_F(Keep, NothingIsKeptOfAFileWithoutMetadata) {
    for (const Bytes& bytes : {Bytes{}, text("text"), jpeg_start(), jpeg_start() + jpeg_end(),
                               be32(0) + text("mdat") + zeros(20), atom("moov", {})}) {
        const KeptMetadata kept = read(dir.file("lens1.any", bytes));
        EXPECT_TRUE(kept.exif.image.empty() && kept.exif.photo.empty() && kept.exif.place.empty());
        EXPECT_EQ(kept.creation_time, 0);
        EXPECT_EQ(kept.location, "");
    }
}

TEST_F(Keep, AMissingFileIsTold) {
    logged([&] {
        EXPECT_EQ(thrown([&] { read_kept_metadata(dir.file("missing").c_str()); }),
                  "Can't open file " + dir.file("missing"));
        EXPECT_EQ(thrown([&] { read_kept_metadata(dir.path().c_str()); }), "Can't open file " + dir.path());
    });
}

TEST_F(Keep, APictureTellsOfItsShotAndExiftoolHasNoComplaint) {
    const std::string path = picture_with(read(lens_picture()), nullptr);
    const json told = exiftool_of(path, {"-validate", "-warning", "-a", "-G1", "-all"});
    EXPECT_EQ(told.at("ExifTool:Validate"), "0 0 0") << told;
    EXPECT_EQ(told.at("ExifIFD:DateTimeOriginal"), "2026:01:02 03:04:05");
    EXPECT_EQ(told.at("IFD0:Orientation"), 1);
    EXPECT_EQ(told.at("ExifIFD:ExifImageWidth"), 64);
    EXPECT_NEAR(told.at("Composite:GPSLatitude").get<double>(), 35.6586, 1e-9);
    EXPECT_EQ(told.at("XMP-GPano:ProjectionType"), "equirectangular");
    EXPECT_EQ(told.at("XMP-GPano:FirstPhotoDate"), "2026:01:02 03:04:05.25+09:00");
    EXPECT_EQ(told.at("XMP-GPano:LastPhotoDate"), "2026:01:02 03:04:05.25+09:00");
    EXPECT_EQ(told.at("XMP-GPano:SourcePhotosCount"), 2);
}

TEST_F(Keep, AllElseInAPictureStays) {
    const Bytes before = read_file(make_plain_picture(dir.file("plain.jpg"), "64x32"));
    const Bytes after = read_file(picture_with(read(lens_picture()), nullptr));
    EXPECT_EQ(slice(after, after.size() - before.size() + 2, after.size()), slice(before, 2, before.size()));
}

TEST_F(Keep, APictureWithoutAnythingToKeepIsAPanoramaAllTheSame) {
    const json told = exiftool_of(picture_with({}, ""), {"-validate", "-warning", "-a", "-all"});
    EXPECT_EQ(told.at("Validate"), "0 0 0") << told;
    EXPECT_EQ(told.count("FirstPhotoDate"), 0u);
    EXPECT_EQ(told.at("UsePanoramaViewer"), true);
}

TEST_F(Keep, TheGivenTimeTakesThePlaceOfAnotherOne) {
    const KeptMetadata kept = read(lens_picture());
    const json same = exiftool_of(picture_with(kept, "2026:01:02 03:04:05"), {"-all"});
    EXPECT_EQ(same.at("ModifyDate"), "2026:01:02 03:04:06");
    EXPECT_EQ(same.at("FirstPhotoDate"), "2026:01:02 03:04:05.25+09:00");
    const json another = exiftool_of(picture_with(kept, "2027:02:03 04:05:06"), {"-all"});
    EXPECT_EQ(another.at("DateTimeOriginal"), "2027:02:03 04:05:06");
    EXPECT_EQ(another.at("ModifyDate"), "2027:02:03 04:05:06");
    EXPECT_EQ(another.at("FirstPhotoDate"), "2027:02:03 04:05:06");
    EXPECT_EQ(another.count("OffsetTimeOriginal"), 0u);
}

TEST_F(Keep, AnyOtherTextStandsInTheSphericalTextAlone) {
    const json told = exiftool_of(picture_with(read(lens_picture()), "<a&b>"), {"-all"});
    EXPECT_EQ(told.at("FirstPhotoDate"), "<a&b>");
    EXPECT_EQ(told.at("DateTimeOriginal"), "2026:01:02 03:04:05");
    KeptMetadata kept;
    kept.creation_time = kShotSeconds + 2082844800;
    const std::string movie = movie_with(kept, "<a&b>");
    EXPECT_EQ(timestamp_of(movie), "&lt;a&amp;b&gt;");
    EXPECT_EQ(exiftool_of(movie, {"-all"}).at("CreateDate"), "2026:01:02 03:04:05");
}

TEST_F(Keep, AMovieTellsOfItsShotAndThatItIsSpherical) {
    KeptMetadata kept = read(lens_picture());
    kept.creation_time = kShotSeconds + 2082844800;
    for (const char* name : {"panorama.mov", "panorama.mp4"}) {
        const std::string path = movie_with(kept, nullptr, name);
        const json probed = json::parse(output_of(
            {"ffprobe", "-v", "error", "-select_streams", "v", "-show_streams", "-show_format", "-of", "json", path}));
        const json side_data = probed.at("streams").at(0).at("side_data_list");
        const auto sphere = std::find_if(side_data.begin(), side_data.end(), [](const json& each) {
            return each.at("side_data_type") == "Spherical Mapping";
        });
        ASSERT_NE(sphere, side_data.end()) << side_data;
        EXPECT_EQ(sphere->at("projection"), "equirectangular");
        EXPECT_EQ(probed.at("format").at("tags").at("creation_time"), "2026-01-02T03:04:05.000000Z");
        EXPECT_EQ(probed.at("streams").at(0).at("tags").at("creation_time"), "2026-01-02T03:04:05.000000Z");
        EXPECT_EQ(probed.at("format").at("tags").at("location"), kPlaceText);
        const json told = exiftool_of(path, {"-validate", "-warning", "-a", "-ee", "-all"});
        EXPECT_EQ(told.at("Validate"), "0 0 0") << told;
        EXPECT_EQ(told.at("Make"), "Maker");
        EXPECT_EQ(told.at("Model"), "Model");
        EXPECT_EQ(told.at("GPSCoordinates"), "35.6586 139.7454");
        EXPECT_EQ(told.at("ProjectionType"), "equirectangular");
        EXPECT_EQ(told.at("TimeStamp"), "2026:01:02 03:04:05");
        EXPECT_EQ(told.at("FullPanoWidthPixels"), 64);
    }
}

TEST_F(Keep, TheTimeOfAMovieIsItsHeadersElseItsBlocks) {
    KeptMetadata kept;
    EXPECT_EQ(timestamp_of(movie_with(kept, nullptr)), "");
    kept.exif = read_shot_exif(to_string(shot_block()));
    EXPECT_EQ(timestamp_of(movie_with(kept, nullptr)), std::to_string(kShotSeconds - 9 * 3600));
    kept.creation_time = 2082844800 + 1000;
    EXPECT_EQ(timestamp_of(movie_with(kept, nullptr)), "1000");
    // The block's own time is lens 1's, and the header tells it better.
    EXPECT_EQ(timestamp_of(movie_with(kept, "2026:01:02 03:04:05")), "1000");
    EXPECT_EQ(timestamp_of(movie_with(kept, "1970:01:01 00:16:40")), "1000");
    EXPECT_EQ(timestamp_of(movie_with(kept, "2026:01:02 03:04:06")), std::to_string(kShotSeconds + 1));
}

TEST_F(Keep, AnAnalysisRecognisesBoth) {
    const auto software_of = [](char* text) {
        char* software = nullptr;
        char* date = nullptr;
        const int result = isTALUMO360Viewer(text, &software, &date);
        std::free(software);
        std::free(date);
        return result;
    };
    const std::string picture = picture_with(read(lens_picture()), nullptr);
    const std::string movie = movie_with({}, nullptr);
    logged([&] {
        char* text = nullptr;
        _jpeg jpeg(picture.c_str(), false);
        ASSERT_EQ(jpeg.xml_data(&text), 0);
        EXPECT_EQ(software_of(text), 0);
        uint8_t* block = nullptr;
        EXPECT_EQ(jpeg.exif_data(&block), 0);
        _mov mov(movie.c_str(), false);
        ASSERT_EQ(mov.xml_data(&text), 0);
        EXPECT_EQ(software_of(text), 0);
    });
}

TEST_F(Keep, AMoviesPacketsStayTheSameWithItsIndexInFrontToo) {
    const std::string plain = make_plain_movie(dir.file("plain.mp4"), "aac", "64x32");
    const auto packets = [](const std::string& path) {
        return output_of({"ffprobe", "-v", "error", "-show_data_hash", "md5", "-show_entries",
                          "packet=stream_index,pts,dts,duration,size,flags,data_hash", "-of", "csv", path});
    };
    const std::string path = movie_with({}, nullptr, "panorama.mp4");
    EXPECT_EQ(packets(path), packets(plain));
    move_index_to_front(path.c_str());
    EXPECT_EQ(packets(path), packets(plain));
    const std::string bytes = to_string(read_file(path));
    EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
    EXPECT_THAT(bytes, HasSubstr("sv3d"));
}

TEST_F(Keep, AMovieWithoutPicturesIsRefused) {
    const Bytes bytes = atom("moov", movie_header(0));
    const std::string path = dir.file("panorama.mov", bytes);
    EXPECT_EQ(thrown([&] { write_movie_metadata(path.c_str(), 64, 32, {}); }),
              "Can't write metadata: the movie has no video track");
    EXPECT_EQ(read_file(path), bytes);
}

TEST_F(Keep, AFullDiskIsTold) {
    const std::string picture = make_plain_picture(dir.file("panorama.jpg"), "64x32");
    const std::string movie = make_plain_movie(dir.file("panorama.mov"), "", "64x32");
    logged([&] {
        {
            const FileSizeLimit limit(std::filesystem::file_size(picture) + 10);
            EXPECT_EQ(thrown([&] { write_picture_metadata(picture.c_str(), 64, 32, {}, nullptr); }),
                      "Can't write metadata: File too large");
        }
        const FileSizeLimit limit(std::filesystem::file_size(movie) + 10);
        EXPECT_EQ(thrown([&] { write_movie_metadata(movie.c_str(), 64, 32, {}); }),
                  "Can't write metadata: File too large");
    });
}
