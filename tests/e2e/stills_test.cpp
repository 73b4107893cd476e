// Whole exports of two pictures, against things not made by the library: the scene that the pictures were made of,
// and what other programs read in the panorama.
#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "nq360.h"
#include "support/comma_locale.h"
#include "support/export_fixture.h"
#include "support/log_lines.h"
#include "support/open_files.h"
#include "support/picture.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

class Stills : public ExportFixture {
  protected:
    Stills() : ExportFixture("out.jpg") {}

    // Pictures of the drawn scene at the smallest size of the camera, made with these arguments besides.
    void use_small(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"--size", "1440", "--grain", "0"});
        use(stills_in(dir, arguments));
    }

    // Exports and gives the panorama.
    Planes exported_planes() {
        const Outcome outcome = call.run();
        EXPECT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
        return planes_of(output);
    }
    cv::Mat exported() { return exported_planes()[0]; }

    // The scene as the panorama should show it.
    cv::Mat scene(const std::string& name, cv::Size size) {
        dump_scene(name, size, {"--gray"});
        return plane_of(dir.file("scene.png"), 'y');
    }
    Planes coloured_scene(const std::string& name, cv::Size size) {
        dump_scene(name, size, {});
        const std::string planar = dir.file("scene.jpg");
        output_of(
            {"ffmpeg", "-v", "error", "-y", "-i", dir.file("scene.png"), "-pix_fmt", "yuvj420p", "-q:v", "1", planar});
        return planes_of(planar);
    }

    void dump_scene(const std::string& name, cv::Size size, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"dump", dir.file("scene.png"), "--scene", name, "--width",
                                             std::to_string(size.width), "--height", std::to_string(size.height)});
        run_sample(arguments);
    }
};

std::string scene_path(const std::string& name) {
    return name == "drawn" ? name : std::string(NQ360_TEST_DATA) + "/" + name + ".png";
}

// PSNR of luma that an export must reach, in dB.
constexpr double kFaithful = 32;
// What a comparison gives at most when the panorama shows something else at each place.
constexpr double kWrong = 25;

void report(const std::string& what, double value) {
    testing::Test::RecordProperty(what, std::to_string(value));
    std::cout << "    " << what << ": " << value << " dB\n";
}

}  // namespace

// ---- Geometry ----

namespace {

class StillGeometry : public Stills, public testing::WithParamInterface<std::tuple<const char*, int>> {};

// The size that keeps the lenses' resolution.
cv::Size panorama_size(int lens) {
    const int width = lens == 1936 ? 3840 : lens == 3888 ? 7680 : 2 * lens;
    return {width, width / 2};
}

}  // namespace

TEST_P(StillGeometry, PanoramaIsTheScene) {
    const auto [name, size] = GetParam();
    const cv::Size panorama = panorama_size(size);
    call.width = panorama.width;
    call.height = panorama.height;
    const cv::Mat expected = scene(scene_path(name), panorama);
    for (const int angle : {0, 90}) {
        use(stills_in(dir, {"--scene", scene_path(name), "--size", std::to_string(size), "--angle",
                            std::to_string(angle), "--grain", "0"}));
        call.angle = angle;
        const double value = psnr(exported(), expected);
        report(std::string(name) + "_" + std::to_string(size) + "_angle_" + std::to_string(angle), value);
        EXPECT_GE(value, kFaithful);
    }
}

INSTANTIATE_TEST_SUITE_P(, StillGeometry,
                         testing::Combine(testing::Values("apollo17", "drawn"), testing::Values(1440, 1936, 3888)),
                         [](const auto& tested) {
                             return std::string(std::get<0>(tested.param)) + std::to_string(std::get<1>(tested.param));
                         });

TEST_F(Stills, ComparisonSeesAWrongAngle) {
    use_small();
    call.width = 1440;
    call.height = 720;
    const cv::Mat expected = scene("drawn", {1440, 720});
    EXPECT_GT(psnr(exported(), expected), 28);  // so much smaller a panorama leaves pixels out
    call.angle = 3;
    EXPECT_LT(psnr(exported(), expected), kWrong);
}

TEST_F(Stills, AnyThirdAngle) {
    call.width = 2880;
    call.height = 1440;
    const cv::Mat expected = scene("drawn", {2880, 1440});
    for (const int angle : {-35, 200}) {
        use_small({"--angle", std::to_string(angle)});
        call.angle = angle;
        const double value = psnr(exported(), expected);
        report("third_angle_" + std::to_string(angle), value);
        EXPECT_GE(value, kFaithful);
    }
    // Whole turns change nothing, however many.
    call.angle = 200 - 360 * 1000;
    EXPECT_GE(psnr(exported(), expected), kFaithful);
}

TEST_F(Stills, LensAnglesTurnEachLensByItself) {
    call.width = 2880;
    call.height = 1440;
    const cv::Mat expected = scene("drawn", {2880, 1440});
    use_small({"--turn1", "30", "--turn2", "-75.5"});
    call.angle1 = 30;
    call.angle2 = -75.5;
    const double value = psnr(exported(), expected);
    report("lens_angles", value);
    EXPECT_GE(value, kFaithful);
    call.angle2 = 75.5;
    const cv::Mat half = exported();
    const cv::Rect upper(0, 0, 2880, 700);
    const cv::Rect lower(0, 740, 2880, 700);
    EXPECT_GE(psnr(half(upper), expected(upper)), kFaithful);
    EXPECT_LT(psnr(half(lower), expected(lower)), kWrong);
}

TEST_F(Stills, ColoursAreTheScenes) {
    use_small();
    call.width = 2880;
    call.height = 1440;
    const Planes panorama = exported_planes();
    const Planes expected = coloured_scene("drawn", {2880, 1440});
    for (const size_t plane : {1, 2}) {
        const double value = psnr(panorama[plane], expected[plane]);
        report("plane_" + std::to_string(plane), value);
        EXPECT_GE(value, kFaithful);
    }
}

TEST_F(Stills, QualityOfTheJpeg) {
    use(stills_in(dir, {"--scene", scene_path("apollo17"), "--size", "1936", "--grain", "0"}));
    call.width = 3840;
    call.height = 1920;
    EXPECT_GE(psnr(exported(), scene(scene_path("apollo17"), {3840, 1920})), 37);
}

// ---- Orientation ----

namespace {

// Overwrites the orientation in the picture's metadata; the pixels stay.
void set_orientation(const std::string& path, int orientation) {
    Bytes file = read_file(path);
    const Bytes entry = be16(0x0112) + be16(3) + be32(1);
    const auto at = std::search(file.begin(), file.end(), entry.begin(), entry.end());
    ASSERT_NE(at, file.end());
    *(at + 9) = static_cast<uint8_t>(orientation);
    write_file(path, file);
}

}  // namespace

TEST_F(Stills, OrientationOfThePicturesIsUndone) {
    call.width = 2880;
    call.height = 1440;
    const cv::Mat expected = scene("drawn", {2880, 1440});
    for (const int orientation : {3, 6, 8}) {
        use_small({"--orientation", std::to_string(orientation)});
        const double value = psnr(exported(), expected);
        report("orientation_" + std::to_string(orientation), value);
        EXPECT_GE(value, kFaithful);
        // The same pixels said to stand upright are turned in the panorama.
        set_orientation(shot.one, 1);
        set_orientation(shot.two, 1);
        EXPECT_LT(psnr(exported(), expected), kWrong);
    }
}

TEST_F(Stills, OtherOrientationsTurnNothing) {
    use_small();
    call.run();
    const Bytes upright = read_file(output);
    for (const int orientation : {0, 2, 4, 5, 7, 9, 255}) {
        set_orientation(shot.one, orientation);
        set_orientation(shot.two, orientation);
        call.run();
        EXPECT_EQ(read_file(output), upright) << orientation;
    }
}

TEST_F(Stills, EachPictureHasAnOrientationOfItsOwn) {
    call.width = 2880;
    call.height = 1440;
    use_small({"--orientation", "6"});
    fs::rename(shot.one, dir.file("turned.jpg"));
    use_small({"--orientation", "8"});
    use({dir.file("turned.jpg"), shot.two});
    EXPECT_GE(psnr(exported(), scene("drawn", {2880, 1440})), kFaithful);
}

TEST_F(Stills, OrientationAddsToTheLensAngles) {
    call.width = 2880;
    call.height = 1440;
    use_small({"--orientation", "6", "--turn1", "20", "--turn2", "40"});
    call.angle1 = 20;
    call.angle2 = 40;
    EXPECT_GE(psnr(exported(), scene("drawn", {2880, 1440})), kFaithful);
}

// ---- Lens correction ----

namespace {

// Rows of a plane that show lens 1 or lens 2 alone while all angles are 0.
cv::Mat rows_of_lens(const cv::Mat& plane, int lens) {
    const int half = plane.rows / 2;
    const int margin = 16;  // blocks of the JPEG at the seam
    return lens == 1 ? plane.rowRange(0, half - margin) : plane.rowRange(half + margin, plane.rows);
}

double mean_difference(const cv::Mat& a, const cv::Mat& b) {
    return cv::norm(a, b, cv::NORM_L1) / static_cast<double>(a.total());
}

}  // namespace

TEST_F(Stills, EveryCombinationOfPlanesIsCorrected) {
    use_small();
    const std::array<int, 3> offsets = {25, -30, 20};
    const Planes plain = exported_planes();
    for (const int lens : {1, 2}) {
        for (unsigned combination = 0; combination < 8; ++combination) {
            int* correction = lens == 1 ? call.correction1 : call.correction2;
            for (size_t i = 0; i < 3; ++i) {
                correction[i] = combination & 1U << i ? offsets[i] : CORRECT_NONE;
            }
            const Planes corrected = exported_planes();
            for (size_t i = 0; i < 3; ++i) {
                cv::Mat raised;
                plain[i].convertTo(raised, CV_8U, 1, combination & 1U << i ? offsets[i] : 0);
                SCOPED_TRACE("lens " + std::to_string(lens) + " combination " + std::to_string(combination) +
                             " plane " + std::to_string(i));
                EXPECT_LT(mean_difference(rows_of_lens(corrected[i], lens), rows_of_lens(raised, lens)), 2.5);
                EXPECT_LT(mean_difference(rows_of_lens(corrected[i], 3 - lens), rows_of_lens(plain[i], 3 - lens)), 2.5);
            }
            std::fill_n(correction, 3, CORRECT_NONE);
        }
    }
}

TEST_F(Stills, DifferenceBetweenTheLensesIsCorrectedAway) {
    use_small({"--difference", "18,-12,9"});
    call.width = 2880;
    call.height = 1440;
    const cv::Mat expected = scene("drawn", {2880, 1440});
    EXPECT_LT(psnr(exported(), expected), 28);
    const std::array<int, 3> back = {-18, 12, -9};
    std::copy(back.begin(), back.end(), call.correction2);
    EXPECT_GE(psnr(exported(), expected), kFaithful);
}

// A sum is held to 0..255, however large the offset.
TEST_F(Stills, ExtremeCorrections) {
    use_small();
    for (const auto& [offset, value] : {std::pair(255, 255), {INT_MAX, 255}, {-255, 0}, {INT_MIN, 0}}) {
        call.correction1[0] = offset;
        const cv::Mat picture = rows_of_lens(exported(), 1);
        EXPECT_NEAR(mean_of(picture), value, 2) << offset;
    }
}

TEST_F(Stills, CorrectionByNothingIsNoCorrection) {
    use_small();
    call.run();
    const Bytes plain = read_file(output);
    std::fill_n(call.correction1, 3, 0);
    std::fill_n(call.correction2, 3, 0);
    call.run();
    EXPECT_EQ(read_file(output), plain);
}

// ---- Band picture ----

namespace {

// At 1440 x 720, out of lens pictures of 1440, the seam is row 360 and a band of R rows (scaled to 2880 columns)
// covers R / 4 rows above and below.
class StillBand : public Stills {
  protected:
    void SetUp() override {
        use_small();
        call.width = 1440;
        call.height = 720;
        plain = exported_planes();
    }

    // A picture of these pixels, (red, green, blue) by column and row.
    void use_band(int columns, int rows, const std::function<cv::Vec3b(int, int)>& pixel) {
        Bytes file = text("P6 " + std::to_string(columns) + " " + std::to_string(rows) + " 255\n");
        for (int y = 0; y < rows; ++y) {
            for (int x = 0; x < columns; ++x) {
                const cv::Vec3b colour = pixel(x, y);
                file.insert(file.end(), colour.val, colour.val + 3);
            }
        }
        band = dir.file("band.ppm", file);
        call.band = band.c_str();
    }

    // How the loader stores a grey: in limited range.
    static double stored(int grey) { return 16 + grey * 219 / 255.0; }

    // Checks that rows from `first` on to `last` show this colour and that those 8 beyond show the scene.
    void expect_zone(int first, int last, const std::array<double, 3>& colour) {
        const Planes panorama = exported_planes();
        for (size_t i = 0; i < 3; ++i) {
            SCOPED_TRACE("plane " + std::to_string(i));
            const int step = i == 0 ? 1 : 2;
            const cv::Mat& plane = panorama[i];
            const cv::Mat zone = plane.rowRange((first + step - 1) / step, last / step + 1);
            EXPECT_LT(mean_difference(zone, cv::Mat(zone.size(), CV_8UC1, cv::Scalar(colour[i]))), 4);
            for (const cv::Range rows :
                 {cv::Range(0, (first - 24) / step), cv::Range((last + 24) / step, plane.rows)}) {
                EXPECT_LT(mean_difference(plane.rowRange(rows), plain[i].rowRange(rows)), 2.5);
            }
        }
    }

    Planes plain;
    std::string band;
};

const cv::Vec3b kOrange(230, 120, 30);
const std::array<double, 3> kStoredOrange = {138.5, 72, 183};  // BT.601, limited range

}  // namespace

TEST_F(StillBand, RunsOnceAroundTheSeam) {
    // Eight greys from left to right, brighter in the lower half.
    use_band(2880, 160, [](int x, int y) {
        const auto grey = static_cast<uint8_t>(20 + x / 360 * 25 + (y < 80 ? 0 : 20));
        return cv::Vec3b(grey, grey, grey);
    });
    const cv::Mat picture = exported();
    for (int block = 0; block < 8; ++block) {
        const cv::Range columns(block * 180 + 20, block * 180 + 160);
        EXPECT_NEAR(mean_of(picture(cv::Range(328, 352), columns)), stored(20 + block * 25), 2) << block;
        EXPECT_NEAR(mean_of(picture(cv::Range(368, 392), columns)), stored(40 + block * 25), 2) << block;
    }
    for (const cv::Range rows : {cv::Range(0, 304), cv::Range(416, 720)}) {
        EXPECT_LT(mean_difference(picture.rowRange(rows), plain[0].rowRange(rows)), 2.5);
    }
}

TEST_F(StillBand, TurnsWithThePanorama) {
    use_band(2880, 160, [](int, int) { return kOrange; });
    call.angle = 90;
    const cv::Mat picture = exported();
    // The seam now runs through the poles, a quarter from either side.
    for (const int column : {360, 1080}) {
        const cv::Mat zone = picture(cv::Range(200, 520), cv::Range(column - 20, column + 20));
        EXPECT_LT(mean_difference(zone, cv::Mat(zone.size(), CV_8UC1, cv::Scalar(kStoredOrange[0]))), 4);
    }
}

TEST_F(StillBand, EvenRows) {
    use_band(2880, 120, [](int, int) { return kOrange; });
    expect_zone(332, 388, kStoredOrange);
}

TEST_F(StillBand, OddRows) {
    for (const int rows : {119, 121, 61}) {
        use_band(2880, rows, [](int, int) { return kOrange; });
        expect_zone(360 - rows / 4 + 2, 360 + rows / 4 - 2, kStoredOrange);
    }
}

TEST_F(StillBand, WidthThatDoesNotDivide) {
    use_band(997, 41, [](int, int) { return kOrange; });  // 2880 / 997 * 41 is 118 rows
    expect_zone(332, 387, kStoredOrange);
    use_band(7001, 292, [](int, int) { return kOrange; });  // 120 rows
    expect_zone(332, 388, kStoredOrange);
}

TEST_F(StillBand, OneRow) {
    // A row of the panorama lies on the seam itself: black in the band, and hardly ever in the scene.
    use_band(2880, 1, [](int, int) { return cv::Vec3b(0, 0, 0); });
    const cv::Mat with = exported();
    const double before = mean_of(plain[0].row(360));
    EXPECT_LT(mean_of(with.row(360)), before - 40);
    for (const cv::Range rows : {cv::Range(0, 344), cv::Range(376, 720)}) {
        EXPECT_LT(mean_difference(with.rowRange(rows), plain[0].rowRange(rows)), 2.5);
    }
}

TEST_F(StillBand, IsTakenFromAJpegToo) {
    use_band(2880, 120, [](int, int) { return kOrange; });
    const std::string jpeg = dir.file("band.jpg");
    output_of({"ffmpeg", "-v", "error", "-i", band, "-pix_fmt", "yuvj420p", "-q:v", "2", jpeg});
    call.band = jpeg.c_str();
    expect_zone(332, 388, kStoredOrange);
}

TEST_F(StillBand, OnTheLargestPicturesToo) {
    use(stills_in(dir, {"--size", "3888", "--grain", "0"}));
    use_band(1296, 50, [](int, int) { return kOrange; });  // 300 rows: 360 / 720 * 150 / 1944
    const cv::Mat picture = exported();
    const cv::Mat zone = picture.rowRange(360 - 24, 360 + 24);
    EXPECT_LT(mean_difference(zone, cv::Mat(zone.size(), CV_8UC1, cv::Scalar(kStoredOrange[0]))), 4);
}

// ---- Sizes of the panorama ----

TEST_F(Stills, OddSizesRepeatTheLastChroma) {
    use_small();
    call.width = 2881;
    call.height = 1441;
    const cv::Mat picture = exported();
    EXPECT_EQ(picture.size(), cv::Size(2881, 1441));
    const double value = psnr(picture, scene("drawn", {2881, 1441}));
    report("odd_sizes", value);
    EXPECT_GE(value, kFaithful);
    const Planes planes = planes_of(output);
    for (const cv::Mat& chroma : {planes[1], planes[2]}) {
        ASSERT_EQ(chroma.size(), cv::Size(1441, 721));
        EXPECT_LT(mean_difference(chroma.col(1440), chroma.col(1439)), 4);
        EXPECT_LT(mean_difference(chroma.row(720), chroma.row(719)), 4);
    }
}

TEST_F(Stills, OddSizeOfALargePanorama) {
    use_small();
    call.width = 3841;
    call.height = 1921;
    EXPECT_GE(psnr(exported(), scene("drawn", {3841, 1921})), kFaithful);
}

TEST_F(Stills, SmallestSizesAreAPictureOrAReply) {
    use_small();
    for (int width = 1; width <= 5; ++width) {
        for (int height = 1; height <= 5; ++height) {
            call.width = width;
            call.height = height;
            const Outcome outcome = call.run();
            if (width == 1 || height == 1) {
                EXPECT_EQ(outcome.json().at("api_errstr"), "the panorama's sides must be 2 to 32766 pixels, not " +
                                                               std::to_string(width) + " x " + std::to_string(height));
                EXPECT_FALSE(fs::exists(output));
            } else {
                EXPECT_EQ(outcome.state(), NQ360_FINISHED) << width << " x " << height;
                EXPECT_EQ(plane_of(output, 'y').size(), cv::Size(width, height));
            }
        }
    }
}

TEST_F(Stills, LongestSidesAreAPictureAndLongerOnesAReply) {
    use_small();
    for (const auto& [width, height] : {std::pair(32766, 2), {2, 32766}}) {
        call.width = width;
        call.height = height;
        EXPECT_EQ(exported().size(), cv::Size(width, height));
    }
    for (const auto& [width, height] :
         {std::pair(32767, 2), {2, 32767}, {65536, 65536}, {INT_MAX, INT_MAX}, {INT_MAX, 2}}) {
        call.width = width;
        call.height = height;
        const Outcome outcome = call.run();
        EXPECT_EQ(outcome.state(), NQ360_FAILED);
        EXPECT_EQ(outcome.json().at("api_errstr"), "the panorama's sides must be 2 to 32766 pixels, not " +
                                                       std::to_string(width) + " x " + std::to_string(height));
        EXPECT_FALSE(fs::exists(output));
    }
}

// ---- Formats of the pictures ----

TEST_F(Stills, PicturesOf422AreStitched) {
    use_small({"--chroma", "422"});
    call.width = 2880;
    call.height = 1440;
    const Planes panorama = exported_planes();
    const Planes expected = coloured_scene("drawn", {2880, 1440});
    for (const size_t plane : {0, 1, 2}) {
        const double value = psnr(panorama[plane], expected[plane]);
        report("chroma_422_plane_" + std::to_string(plane), value);
        EXPECT_GE(value, kFaithful) << plane;
    }
}

TEST_F(Stills, ExtensionsOfPicturesInAnyCase) {
    use_small();
    for (const char* name : {"a.JPG", "a.Jpeg"}) {
        fs::rename(shot.one, dir.file(name));
        use({dir.file(name), shot.two});
        EXPECT_EQ(call.run().state(), NQ360_FINISHED) << name;
    }
}

// ---- Metadata ----

TEST_F(Stills, ExiftoolReadsThePanorama) {
    use_small();
    exported();
    const auto tags = nlohmann::json::parse(output_of({"exiftool", "-j", "-n", output})).at(0);
    EXPECT_EQ(tags.at("ImageWidth"), 720);
    EXPECT_EQ(tags.at("ImageHeight"), 360);
    EXPECT_EQ(tags.at("UsePanoramaViewer"), true);
    EXPECT_EQ(tags.at("StitchingSoftware"), "TALUMO360Viewer osx.1.0.0");
    EXPECT_EQ(tags.at("ProjectionType"), "equirectangular");
    EXPECT_EQ(tags.at("PoseHeadingDegrees"), 0);
    EXPECT_EQ(tags.at("CroppedAreaLeftPixels"), 0);
    EXPECT_EQ(tags.at("CroppedAreaTopPixels"), 0);
    EXPECT_EQ(tags.at("CroppedAreaImageWidthPixels"), 720);
    EXPECT_EQ(tags.at("CroppedAreaImageHeightPixels"), 360);
    EXPECT_EQ(tags.at("FullPanoWidthPixels"), 720);
    EXPECT_EQ(tags.at("FullPanoHeightPixels"), 360);
    EXPECT_EQ(tags.at("FirstPhotoDate"), "2026:01:02 03:04:05");
    EXPECT_EQ(tags.at("LastPhotoDate"), "2026:01:02 03:04:05");
    EXPECT_FALSE(tags.contains("Error"));
}

TEST_F(Stills, AnalysisRecognisesThePanorama) {
    use_small();
    exported();
    const std::string thumbnail = dir.file("thumbnail.jpg");
    const auto json = analyze(output, thumbnail, 320, 0).json();
    EXPECT_EQ(json.at("isTarget"), true);
    EXPECT_EQ(json.at("createdThumbnail"), true);
    EXPECT_EQ(json.at("youtube360_maker"), "TALUMO360Viewer osx.1.0.");  // the reader drops the last character
    EXPECT_EQ(json.at("datetime"), "2026:01:02 03:04:05");
    EXPECT_EQ(json.at("width"), 720);
    EXPECT_EQ(json.at("height"), 360);
    EXPECT_EQ(size_of(thumbnail), cv::Size(320, 160));
}

TEST_F(Stills, DateMayBeMissingOrOfAnyLength) {
    use_small();
    call.datetime = nullptr;
    exported();
    EXPECT_THAT(to_string(read_file(output)), HasSubstr("<GPano:FirstPhotoDate></GPano:FirstPhotoDate>"));
    const std::string endless(100000, '9');
    call.datetime = endless.c_str();
    exported();
    EXPECT_THAT(to_string(read_file(output)), HasSubstr("<GPano:FirstPhotoDate>99999"));
}

// ---- Manners ----

TEST_F(Stills, NothingButItsOwnLinesOnStandardError) {
    for (const char* chroma : {"420", "422"}) {
        use_small({"--chroma", chroma});
        expect_own_lines_only(logged([&] { call.run(); }));
    }
}

TEST_F(Stills, EndsWithAsManyOpenFilesAndNothingBesides) {
    use_small();
    call.run();
    const auto before = open_files();
    for (int i = 0; i < 3; ++i) {
        call.run();
    }
    call.width = 0;
    call.run();
    call.width = 720;
    const std::string other = dir.file("out.mov");
    call.output = other.c_str();
    call.run();
    EXPECT_EQ(open_files(), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 2);  // the two lenses
}

TEST_F(Stills, LocaleDoesNotChangeThePanorama) {
    use_small();
    call.angle1 = 0.5;
    call.run();
    const Bytes before = read_file(output);
    const CommaLocale locale;
    const Outcome outcome = call.run();
    EXPECT_EQ(outcome.json().at("export_path"), output);
    EXPECT_EQ(read_file(output), before);
}

TEST_F(Stills, AnyNumberOfThreadsGivesTheSameFile) {
    use_small();
    const int threads = cv::getNumThreads();
    call.run();
    const Bytes parallel = read_file(output);
    cv::setNumThreads(1);
    call.run();
    cv::setNumThreads(threads);
    EXPECT_EQ(read_file(output), parallel);
}

TEST_F(Stills, TwoExportsAtOnceDoNotDisturbEachOther) {
    use_small();
    std::array<Bytes, 2> alone;
    std::array<ExportCall, 2> calls = {call, call};
    std::array<std::string, 2> outputs = {dir.file("0.jpg"), dir.file("1.jpg")};
    for (size_t i = 0; i < 2; ++i) {
        calls[i].output = outputs[i].c_str();
        calls[i].angle = static_cast<int>(45 * i);
        calls[i].run();
        alone[i] = read_file(outputs[i]);
    }
    std::vector<std::thread> threads;
    std::array<int, 2> finished = {0, 0};
    for (size_t i = 0; i < 2; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 4; ++round) {
                const Outcome outcome = calls[i].run();
                const Reply end = outcome.replies.back();
                finished[i] += end.state == NQ360_FINISHED && end.json().at("export_path") == outputs[i] ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(finished[i], 4);
        EXPECT_EQ(read_file(outputs[i]), alone[i]);
    }
}
