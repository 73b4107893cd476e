// The tool against what other programs read in its files, and against positions worked out by hand.
#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "sample/run_sample.h"
#include "support/temp_dir.h"

using namespace test_support;
using testing::HasSubstr;

namespace {

constexpr double kPi = 3.14159265358979323846;

class Sample : public testing::Test {
  protected:
    // Makes a pair of stills and returns their Y planes.
    std::vector<cv::Mat> stills(std::vector<std::string> more) {
        std::vector<std::string> arguments{"still", one, two};
        arguments.insert(arguments.end(), more.begin(), more.end());
        run_sample(arguments);
        return {luma_of(one), luma_of(two)};
    }

    // An equirectangular PGM of one grey, with a white spot of a degree and a half in one direction.
    std::string scene_with_spot(double longitude, double latitude, int ground = 20) {
        const int width = 1440;
        cv::Mat scene(width / 2, width, CV_8UC1, cv::Scalar(ground));
        for (int y = 0; y < scene.rows; ++y) {
            for (int x = 0; x < scene.cols; ++x) {
                const double a = (x * 360.0 / width - 180 - longitude) * kPi / 180;
                const double b = (90 - y * 180.0 / scene.rows) * kPi / 180;
                const double c = latitude * kPi / 180;
                const double cosine = std::sin(b) * std::sin(c) + std::cos(b) * std::cos(c) * std::cos(a);
                if (cosine > std::cos(1.5 * kPi / 180)) {
                    scene.at<uint8_t>(y, x) = 255;
                }
            }
        }
        Bytes file = text("P5 " + std::to_string(scene.cols) + " " + std::to_string(scene.rows) + " 255\n");
        file.insert(file.end(), scene.datastart, scene.dataend);
        return dir.file("spot.pgm", file);
    }

    TempDir dir;
    std::string one = dir.file("one.jpg");
    std::string two = dir.file("two.jpg");
};

// The middle of what is bright, or (-1, -1).
cv::Point2d bright_spot(const cv::Mat& luma) {
    cv::Mat bright;
    cv::threshold(luma, bright, 140, 255, cv::THRESH_BINARY);
    const cv::Moments moments = cv::moments(bright, true);
    return moments.m00 == 0 ? cv::Point2d(-1, -1) : cv::Point2d(moments.m10 / moments.m00, moments.m01 / moments.m00);
}

void expect_near(cv::Point2d found, double x, double y, double tolerance = 0.3) {
    EXPECT_NEAR(found.x, x, tolerance);
    EXPECT_NEAR(found.y, y, tolerance);
}

std::string exif_value(const std::string& path, const std::string& tag) {
    const std::string value = output_of({"exiftool", "-s3", "-n", "-" + tag, path});
    return value.substr(0, value.find('\n'));
}

std::string probe(const std::string& path, const std::string& entries) {
    return output_of({"ffprobe", "-v", "error", "-show_entries", entries, "-of", "default=nk=0:nw=1", path});
}

}  // namespace

TEST_F(Sample, SameArgumentsGiveTheSameBytes) {
    run_sample({"still", one, two, "--size", "300"});
    run_sample({"still", dir.file("a.jpg"), dir.file("b.jpg"), "--size", "300"});
    EXPECT_EQ(read_file(one), read_file(dir.file("a.jpg")));
    EXPECT_EQ(read_file(two), read_file(dir.file("b.jpg")));

    run_sample({"still", dir.file("a.jpg"), dir.file("b.jpg"), "--size", "300", "--seed", "2"});
    EXPECT_NE(read_file(one), read_file(dir.file("a.jpg")));
}

TEST_F(Sample, ExiftoolReadsTheExif) {
    run_sample({"still", one, two, "--size", "64", "--orientation", "6", "--datetime", "2031:05:06 07:08:09"});
    for (const std::string& path : {one, two}) {
        EXPECT_EQ(exif_value(path, "Make"), "MERIDAN OPTICS");
        EXPECT_EQ(exif_value(path, "Model"), "RT-KA500");
        EXPECT_EQ(exif_value(path, "Orientation"), "6");
        EXPECT_EQ(exif_value(path, "DateTimeOriginal"), "2031:05:06 07:08:09");
        EXPECT_EQ(exif_value(path, "ExifByteOrder"), "MM");
        EXPECT_EQ(exif_value(path, "Warning"), "");
    }
}

TEST_F(Sample, MakerNoteHoldsTheCameraValues) {
    run_sample({"still", one, two, "--size", "64", "--capture-mode", "134", "--tag-4003", "5", "--tag-4034", "6",
                "--multi-capture", "4000000000", "--camera-orientation", "3"});
    const std::string file = to_string(read_file(one));
    const std::string note =
        to_string(text({"MKC\0", 4}) + zeros(2) + be16(5) + entry_short(0x3000, 134) + entry_short(0x4003, 5) +
                  entry_short(0x4034, 6) + entry_long(0x6300, 4000000000U) + entry_byte(0x6301, 3));
    EXPECT_THAT(file, HasSubstr(note));

    run_sample({"still", one, two, "--size", "64", "--no-maker-note"});
    EXPECT_EQ(to_string(read_file(one)).find("MKC"), std::string::npos);
    EXPECT_EQ(exif_value(one, "Model"), "RT-KA500");
}

TEST_F(Sample, SegmentsCanBeLeftOutAndXmpPutIn) {
    run_sample({"still", one, two, "--size", "64", "--no-exif"});
    EXPECT_EQ(exif_value(one, "Make"), "");
    const std::string packet = dir.file("packet", text("<x:xmpmeta xmlns:x='adobe:ns:meta/'>hello</x:xmpmeta>"));
    run_sample({"still", one, two, "--size", "64", "--xmp", packet});
    EXPECT_EQ(exif_value(one, "Make"), "MERIDAN OPTICS");
    EXPECT_THAT(output_of({"exiftool", "-xmp", "-b", one}), HasSubstr("hello"));
}

// A picture of half the camera's 1936 pixels: 453.5 pixels from the centre (484, 484) are 90 degrees.
TEST_F(Sample, DirectionsFallOnTheirLensPixels) {
    const auto spots = [this](double longitude, double latitude) {
        const auto pictures = stills({"--size", "968", "--scene", scene_with_spot(longitude, latitude)});
        return std::make_pair(bright_spot(pictures[0]), bright_spot(pictures[1]));
    };
    constexpr double kHalfWay = 453.5 / 2;
    expect_near(spots(0, 45).first, 484, 484 + kHalfWay);
    expect_near(spots(90, 45).first, 484 + kHalfWay, 484);
    expect_near(spots(-90, 45).first, 484 - kHalfWay, 484);
    expect_near(spots(0, -45).second, 484, 484 + kHalfWay);
    expect_near(spots(90, -45).second, 484 - kHalfWay, 484);
    const auto [first, second] = spots(180, -70);
    expect_near(second, 484, 484 - 453.5 * 20 / 90);
    expect_near(first, -1, -1);
}

TEST_F(Sample, CameraSizesHaveTheCameraRadii) {
    const std::string scene = scene_with_spot(90, 9);
    expect_near(bright_spot(stills({"--size", "1440", "--scene", scene})[0]), 720 + 675 * 0.9, 720);
    expect_near(bright_spot(stills({"--size", "1936", "--scene", scene})[0]), 968 + 907 * 0.9, 968);
    expect_near(bright_spot(stills({"--size", "3888", "--scene", scene})[0]), 1944 + 1821 * 0.9, 1944);
}

TEST_F(Sample, AngleTurnsAndOrientationMoveThePicture) {
    constexpr double kHalfWay = 453.5 / 2;
    const auto moved = [this](int lens, const std::string& scene, const std::string& option, const std::string& value) {
        return bright_spot(stills({"--size", "968", "--scene", scene, option, value})[static_cast<size_t>(lens - 1)]);
    };
    const std::string above = scene_with_spot(0, 45);
    expect_near(moved(1, above, "--turn1", "90"), 484 - kHalfWay, 484);
    expect_near(moved(1, above, "--orientation", "6"), 484 + kHalfWay, 484);
    expect_near(moved(1, above, "--orientation", "8"), 484 - kHalfWay, 484);
    expect_near(moved(1, above, "--orientation", "3"), 484, 484 - kHalfWay);

    const std::string below = scene_with_spot(0, -45);
    expect_near(moved(2, below, "--turn2", "90"), 484 + kHalfWay, 484);
    expect_near(moved(2, below, "--orientation", "6"), 484 + kHalfWay, 484);

    // At 90 degrees the middle of the panorama is what lens 2 looks at.
    expect_near(moved(2, scene_with_spot(0, 0), "--angle", "90"), 484, 484);
}

TEST_F(Sample, LensesSeeALittlePastTheHemisphere) {
    const std::string white = scene_with_spot(0, 0, 255);
    for (const cv::Mat& luma : stills({"--size", "1440", "--scene", white, "--grain", "0"})) {
        EXPECT_GT(luma.at<uint8_t>(720, 720 + 675 + 30), 250);
        EXPECT_LT(luma.at<uint8_t>(720 - 520, 720 - 520), 5);
    }
}

TEST_F(Sample, DumpShowsTheSceneAtItsPlace) {
    const std::string panorama = dir.file("scene.png");
    run_sample({"dump", panorama, "--gray", "--width", "720", "--scene", scene_with_spot(90, 30)});
    const cv::Mat luma = luma_of(panorama);
    EXPECT_EQ(luma.size(), cv::Size(720, 360));
    expect_near(bright_spot(luma), 540, 120);
}

TEST_F(Sample, ChromaAndGrayAreWhatWasAsked) {
    const std::vector<std::pair<std::string, std::string>> formats{
        {"420", "yuvj420p"}, {"422", "yuvj422p"}, {"444", "yuvj444p"}, {"gray", "gray"}};
    const cv::Mat reference = stills({"--size", "331"})[0];
    for (const auto& [chroma, format] : formats) {
        const cv::Mat luma = stills({"--size", "331", "--chroma", chroma})[0];
        EXPECT_THAT(probe(one, "stream=pix_fmt"), HasSubstr("pix_fmt=" + format));
        EXPECT_LT(cv::norm(luma, reference, cv::NORM_L1) / static_cast<double>(luma.total()), 2) << chroma;
    }
}

TEST_F(Sample, DifferenceIsAddedToLens2Alone) {
    const auto plain = stills({"--size", "300"});
    const auto offset = stills({"--size", "300", "--difference", "-20,5,5"});
    const cv::Rect middle(100, 100, 100, 100);
    EXPECT_EQ(cv::norm(plain[0], offset[0], cv::NORM_INF), 0);
    EXPECT_NEAR(cv::mean(plain[1](middle))[0] - cv::mean(offset[1](middle))[0], 20, 0.2);
}

TEST_F(Sample, ExitStatusTellsWrongArgumentsFromFailures) {
    EXPECT_EQ(run_command({sample_tool(), "--help"}).status, 0);
    EXPECT_EQ(run_command({sample_tool(), "still", one}).status, 2);
    EXPECT_EQ(run_command({sample_tool(), "still", one, two, "--size", "-5"}).status, 2);
    const CommandResult unwritable =
        run_command({sample_tool(), "still", one, dir.file("no/such.jpg"), "--size", "64"});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_THAT(unwritable.err, HasSubstr("no/such.jpg"));
    const CommandResult shape = run_command({sample_tool(), "dump", dir.file("x.png"), "--scene", one});
    EXPECT_EQ(shape.status, 1);
}
