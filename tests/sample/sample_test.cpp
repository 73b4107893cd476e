// The tool against what other programs read in its files, and against positions worked out by hand.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "sample/frame_code.h"
#include "sample/sound.h"
#include "support/run_sample.h"
#include "support/temp_dir.h"

using namespace test_support;
using sample::FrameCode;
using sample::kPi;
using testing::HasSubstr;

namespace {

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

    // Makes a pair of small movies.
    void movies(std::vector<std::string> more) {
        std::vector<std::string> arguments{"movie", mov1, mov2, "--size", "256"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        run_sample(arguments);
    }

    TempDir dir;
    std::string one = dir.file("one.jpg");
    std::string two = dir.file("two.jpg");
    std::string mov1 = dir.file("one.mov");
    std::string mov2 = dir.file("two.mov");
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

std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The decoded frames' sums of a movie, a line each.
std::string frame_sums(const std::string& path) {
    return output_of({"ffmpeg", "-v", "error", "-i", path, "-f", "framemd5", "-"});
}

// The decoded sound: samples of all channels in turn.
std::vector<int16_t> sound_of(const std::string& path) {
    const std::string bytes = output_of({"ffmpeg", "-v", "error", "-i", path, "-vn", "-f", "s16le", "-"});
    std::vector<int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

std::vector<int16_t> expected_sound(int movie, int channels, int rate, int64_t count) {
    std::vector<int16_t> samples;
    for (int64_t i = 0; i < count; ++i) {
        for (int channel = 0; channel < channels; ++channel) {
            samples.push_back(sample::sound_sample(movie, channel, i, rate));
        }
    }
    return samples;
}

sample::LumaView view(const cv::Mat& luma) {
    return {luma.data, luma.cols, luma.rows, static_cast<std::ptrdiff_t>(luma.step)};
}

// A panorama of two lens pictures of 1936 / 2 pixels, pixel by nearest pixel: the formulas of an equidistant lens
// written down once more, apart from the tool's. Degrees.
cv::Mat stitch(const cv::Mat& lens1, const cv::Mat& lens2, double turn1, double turn2, double angle) {
    const int width = 960;
    cv::Mat panorama(width / 2, width, CV_8UC1);
    const double s = std::sin(angle * kPi / 180);
    const double c = std::cos(angle * kPi / 180);
    for (int y = 0; y < panorama.rows; ++y) {
        for (int x = 0; x < panorama.cols; ++x) {
            const double longitude = x * 2 * kPi / width - kPi;
            const double colatitude = y * kPi / panorama.rows;
            const double px = std::sin(colatitude) * std::cos(longitude);
            const double py = std::sin(colatitude) * std::sin(longitude);
            const double pz = std::cos(colatitude);
            const double off_axis = std::acos(std::clamp(-s * px + c * pz, -1.0, 1.0));
            const double azimuth = std::atan2(c * px + s * pz, py);
            const bool first = off_axis < kPi / 2;
            const double distance = (first ? off_axis : kPi - off_axis) * 453.5 / (kPi / 2);
            const double turned = azimuth + (first ? turn1 : turn2) * kPi / 180;
            const double u = 484 + (first ? 1 : -1) * distance * std::cos(turned);
            const double v = 484 + distance * std::sin(turned);
            panorama.at<uint8_t>(y, x) =
                (first ? lens1 : lens2).at<uint8_t>(static_cast<int>(std::lround(v)), static_cast<int>(std::lround(u)));
        }
    }
    return panorama;
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

TEST_F(Sample, DumpLooksWhereItIsTold) {
    const std::string panorama = dir.file("scene.png");
    const auto spot_at = [&](double longitude, double latitude, const std::string& view) {
        run_sample({"dump", panorama, "--gray", "--width", "720", "--scene", scene_with_spot(longitude, latitude),
                    "--view=" + view});
        return bright_spot(luma_of(panorama));
    };
    expect_near(spot_at(40, 0, "30,0,0"), 360 + 20, 180);
    expect_near(spot_at(-20, 50, "-20,30,0"), 360, 180 - 40);
    // What was above is on the right, and what was on the right is below.
    expect_near(spot_at(0, 30, "0,0,90"), 360 + 60, 180);
    expect_near(spot_at(30, 0, "0,0,90"), 360, 180 + 60);
    // About the look that yaw and pitch have found.
    expect_near(spot_at(50, 60, "50,40,90"), 360 + 40, 180);
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

TEST_F(Sample, FactorChangesTheBrightnessOfLens2Alone) {
    const auto plain = stills({"--size", "300", "--grain", "0"});
    const auto darker = stills({"--size", "300", "--grain", "0", "--factor", "0.8"});
    const cv::Rect middle(100, 100, 100, 100);
    EXPECT_EQ(cv::norm(plain[0], darker[0], cv::NORM_INF), 0);
    EXPECT_NEAR(cv::mean(darker[1](middle))[0] / cv::mean(plain[1](middle))[0], 0.8, 0.005);
    EXPECT_LT(darker[1].at<uint8_t>(0, 0), 4) << "outside the field";
}

// Movies have limited range: what they call black is 16.
TEST_F(Sample, FactorLeavesBlackOfAMovieBlack) {
    run_sample({"movie", mov1, mov2, "--size", "256", "--frames", "1", "--no-labels", "--grain", "0", "--factor", "3"});
    EXPECT_NEAR(luma_of(mov2).at<uint8_t>(0, 0), 16, 2);
    const cv::Rect middle(64, 64, 128, 128);
    EXPECT_GT(cv::mean(luma_of(mov2)(middle))[0], 190);
}

TEST_F(Sample, ExitStatusTellsWrongArgumentsFromFailures) {
    EXPECT_EQ(run_command({sample_tool(), "--help"}).status, 0);
    EXPECT_EQ(run_command({sample_tool(), "still", one}).status, 2);
    EXPECT_EQ(run_command({sample_tool(), "still", one, two, "--size", "-5"}).status, 2);
    const CommandResult unwritable =
        run_command({sample_tool(), "still", one, dir.file("no/such.jpg"), "--size", "64"});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_THAT(unwritable.err, HasSubstr("no/such.jpg"));
    EXPECT_EQ(run_command({sample_tool(), "movie", mov1, mov2, "--chroma", "422"}).status, 1);
    const CommandResult large = run_command({sample_tool(), "movie", mov1, mov2, "--size", "3888"});
    EXPECT_EQ(large.status, 1);
    EXPECT_THAT(large.err, HasSubstr("--codec mjpeg"));
    const CommandResult shape = run_command({sample_tool(), "dump", dir.file("x.png"), "--scene", one});
    EXPECT_EQ(shape.status, 1);
}

TEST_F(Sample, CodesOfStillsComeBack) {
    for (const int number : {0, 1, 43690, 65535}) {
        const auto pictures = stills({"--size", "300", "--code", std::to_string(number)});
        EXPECT_EQ(sample::read_lens_code(view(pictures[0])), (FrameCode{number, 1}));
        EXPECT_EQ(sample::read_lens_code(view(pictures[1])), (FrameCode{number, 2}));
    }
    EXPECT_EQ(sample::read_lens_code(view(stills({"--size", "300"})[0])), std::nullopt);
}

TEST_F(Sample, DamagedCodeIsNotRead) {
    cv::Mat luma = stills({"--size", "300", "--code", "5"})[0];
    // The whole sector of the highest bit, from 36 to 54 degrees, made white.
    cv::ellipse(luma, cv::Point(150, 150), cv::Size(47, 47), 0, 36, 54, cv::Scalar(255), 20);
    EXPECT_EQ(sample::read_lens_code(view(luma)), std::nullopt);
}

TEST_F(Sample, CodesComeBackFromPanoramas) {
    auto pictures = stills({"--size", "968", "--code", "12345"});
    cv::Mat panorama = stitch(pictures[0], pictures[1], 0, 0, 0);
    EXPECT_EQ(sample::read_panorama_code(view(panorama), 1), (FrameCode{12345, 1}));
    EXPECT_EQ(sample::read_panorama_code(view(panorama), 2), (FrameCode{12345, 2}));

    panorama = stitch(pictures[1], pictures[0], 0, 0, 0);
    EXPECT_EQ(sample::read_panorama_code(view(panorama), 1), (FrameCode{12345, 2})) << "swapped lenses show";

    panorama = stitch(pictures[0], pictures[1], 50, -20, 90);
    EXPECT_EQ(sample::read_panorama_code(view(panorama), 1, 50, 90), (FrameCode{12345, 1}));
    EXPECT_EQ(sample::read_panorama_code(view(panorama), 2, -20, 90), (FrameCode{12345, 2}));
}

TEST_F(Sample, MoviesAreTheSameEachTime) {
    movies({"--frames", "5", "--sound", "both"});
    const Bytes first = read_file(mov1);
    const Bytes second = read_file(mov2);
    movies({"--frames", "5", "--sound", "both"});
    EXPECT_EQ(read_file(mov1), first);
    EXPECT_EQ(read_file(mov2), second);
}

TEST_F(Sample, PacketsHaveTheCameraTimes) {
    for (const std::string codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        movies({"--frames", "4", "--codec", codec});
        const std::string stream = probe(mov1, "stream=time_base,avg_frame_rate,nb_frames,profile,codec_name");
        EXPECT_THAT(stream, HasSubstr("time_base=1/30000"));
        EXPECT_THAT(stream, HasSubstr("avg_frame_rate=30000/1001"));
        EXPECT_THAT(stream, HasSubstr("nb_frames=4"));
        const std::string profile = codec == "h264-main" ? "Main" : codec == "mjpeg" ? "Baseline" : "Constrained Base";
        EXPECT_THAT(stream, HasSubstr("profile=" + profile));
        EXPECT_EQ(lines_of(output_of({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                                      "packet=pts,dts,duration", "-of", "csv=p=0", mov1})),
                  (std::vector<std::string>{"0,0,1001", "1001,1001,1001", "2002,2002,1001", "3003,3003,1001"}));
    }
}

TEST_F(Sample, OnlyFrameLastsAsLongAsAnyOther) {
    movies({"--frames", "1"});
    EXPECT_THAT(probe(mov1, "stream=duration_ts,nb_frames"), HasSubstr("duration_ts=1001\nnb_frames=1"));
}

TEST_F(Sample, RateAndTimeScaleCanBeOthers) {
    movies({"--frames", "3", "--rate", "25", "--time-scale", "12800"});
    EXPECT_EQ(lines_of(output_of({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                                  "packet=pts,duration", "-of", "csv=p=0", mov1})),
              (std::vector<std::string>{"0,512", "512,512", "1024,512"}));
    EXPECT_EQ(run_command({sample_tool(), "movie", mov1, mov2, "--rate", "30/x"}).status, 2);
    EXPECT_EQ(run_command({sample_tool(), "movie", mov1, mov2, "--rate", "0"}).status, 2);
}

TEST_F(Sample, EveryFrameTellsItsNumberAndLens) {
    movies({"--frames", "6", "--frames2", "4", "--codec", "h264-main", "--codec2", "mjpeg"});
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(sample::read_lens_code(view(luma_of(mov1, i))), (FrameCode{i, 1}));
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(sample::read_lens_code(view(luma_of(mov2, i))), (FrameCode{i, 2}));
    }
    EXPECT_THROW(luma_of(mov2, 4), std::runtime_error);
    movies({"--frames", "1", "--no-labels"});
    EXPECT_EQ(sample::read_lens_code(view(luma_of(mov1))), std::nullopt);
}

TEST_F(Sample, SceneTurnsAsTheDumpOfTheFrameShows) {
    movies({"--frames", "41", "--codec", "mjpeg", "--quality", "1", "--grain", "0"});
    const std::string scene = dir.file("scene.png");
    run_sample({"dump", scene, "--width", "1920", "--frame", "40"});
    const cv::Mat still = stills({"--size", "256", "--scene", scene, "--grain", "0"})[0];
    const cv::Rect outside_the_code(20, 90, 50, 76);
    const auto difference = [&](const cv::Mat& other) {
        return cv::norm(still(outside_the_code), other(outside_the_code), cv::NORM_L1) / outside_the_code.area();
    };
    EXPECT_LT(difference(luma_of(mov1, 40)), 4);
    EXPECT_GT(difference(luma_of(mov1, 0)), 10);
}

TEST_F(Sample, SoundIsKnownToTheBit) {
    movies({"--frames", "30", "--sound", "both"});
    EXPECT_EQ(sound_of(mov1), expected_sound(1, 2, 48000, 48048));
    EXPECT_EQ(sound_of(mov2), expected_sound(2, 2, 48000, 48048));
    EXPECT_NE(sound_of(mov1), sound_of(mov2));

    movies({"--frames", "3", "--sound-channels", "1", "--sound-rate", "44100", "--sound-seconds", "0.5"});
    EXPECT_EQ(sound_of(mov1), expected_sound(1, 1, 44100, 22050));
}

TEST_F(Sample, SoundTracksStandWhereAsked) {
    const auto tracks = [this](const std::string& path) {
        return lines_of(output_of(
            {"ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of", "default=nk=1:nw=1", path}));
    };
    using Names = std::vector<std::string>;
    movies({"--frames", "3"});
    EXPECT_EQ(tracks(mov1), (Names{"h264", "pcm_s16le"}));
    EXPECT_EQ(tracks(mov2), (Names{"h264"}));
    movies({"--frames", "3", "--sound", "both", "--sound-first", "2", "--sound-codec", "aac"});
    EXPECT_EQ(tracks(mov1), (Names{"h264", "aac"}));
    EXPECT_EQ(tracks(mov2), (Names{"aac", "h264"}));
    movies({"--frames", "3", "--sound", "none"});
    EXPECT_EQ(tracks(mov1), (Names{"h264"}));
}

TEST_F(Sample, MakerAtomLiesInTheUserData) {
    movies({"--frames", "3", "--capture-mode", "134"});
    const std::string file = to_string(read_file(mov1));
    const size_t udta = file.find("udta");
    ASSERT_NE(udta, std::string::npos);
    EXPECT_LT(file.find("moov"), udta);
    EXPECT_EQ(file.compare(udta + 8, 8, "MKRIMKRI"), 0);
    // The size of the atom before its name reaches just to the end of the file, where moov and udta end.
    EXPECT_EQ(read_big_endian(read_file(mov1), udta + 4, 4), file.size() - (udta + 4));
    EXPECT_EQ(read_big_endian(read_file(mov1), udta - 4, 4), file.size() - (udta - 4));
    EXPECT_THAT(file, HasSubstr(to_string(entry_short(0x3000, 134))));
    EXPECT_THAT(file, HasSubstr("RT-KA500"));
}

TEST_F(Sample, MoviesPlayTheSameHoweverTheyAreLaidOut) {
    movies({"--frames", "8", "--no-maker-atom"});
    const std::string plain = frame_sums(mov1);
    EXPECT_EQ(to_string(read_file(mov1)).find("MKRI"), std::string::npos);
    movies({"--frames", "8"});
    EXPECT_EQ(frame_sums(mov1), plain);
    movies({"--frames", "8", "--moov-first"});
    EXPECT_EQ(frame_sums(mov1), plain);
    const std::string file = to_string(read_file(mov1));
    EXPECT_LT(file.find("moov"), file.find("mdat"));
}

TEST_F(Sample, FragmentsHideTheFrameCount) {
    movies({"--frames", "8", "--fragmented"});
    EXPECT_THAT(probe(mov1, "stream=nb_frames"), HasSubstr("nb_frames=N/A"));
    EXPECT_THAT(output_of({"ffprobe", "-v", "error", "-count_packets", "-select_streams", "v", "-show_entries",
                           "stream=nb_read_packets", "-of", "csv=p=0", mov1}),
                HasSubstr("8"));
    EXPECT_THAT(to_string(read_file(mov1)), HasSubstr("MKRIMKRI"));
    movies({"--frames", "0", "--fragmented"});
    EXPECT_THAT(probe(mov1, "stream=codec_name"), HasSubstr("h264"));
}
