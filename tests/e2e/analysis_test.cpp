// Whole analyses of files as the camera makes them, against what other programs read in them.
#include <climits>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "nq360.h"
#include "support/bytes.h"
#include "support/comma_locale.h"
#include "support/log_lines.h"
#include "support/movie_index.h"
#include "support/open_files.h"
#include "support/picture.h"
#include "support/plain_media.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

class Analysis : public testing::Test {
  protected:
    // A square picture whose four quarters have a grey each, with this orientation in its metadata.
    std::string quarters(int orientation) {
        const std::string path = make_plain_picture(
            dir.file("quarters.jpg"), "256x256",
            {"-vf", "format=yuvj420p,geq=lum=30+64*gt(X\\,127)+128*gt(Y\\,127):cb=60+100*gt(X\\,127):cr=128", "-q:v",
             "1"});
        CameraValues values;
        values.orientation = static_cast<uint16_t>(orientation);
        const Bytes segment = exif_segment(camera_block(MetadataBlock::tiff(), values));
        Bytes file = read_file(path);
        file.insert(file.begin() + 2, segment.begin(), segment.end());
        write_file(path, file);
        return path;
    }

    TempDir dir;
    std::string thumbnail = dir.file("thumbnail.jpg");
};

nlohmann::json exif_of(const std::string& path) {
    return nlohmann::json::parse(output_of({"exiftool", "-j", "-n", path})).at(0);
}

cv::Mat turned(const cv::Mat& picture, int orientation) {
    cv::Mat result;
    switch (orientation) {
        case 2:
            cv::flip(picture, result, 0);  // deliberately upside down, not left to right
            return result;
        case 4:
            cv::flip(picture, result, 1);
            return result;
        case 3:
            cv::rotate(picture, result, cv::ROTATE_180);
            return result;
        case 6:
            cv::rotate(picture, result, cv::ROTATE_90_CLOCKWISE);
            return result;
        case 8:
            cv::rotate(picture, result, cv::ROTATE_90_COUNTERCLOCKWISE);
            return result;
        default:
            return picture;
    }
}

}  // namespace

// ---- Values ----

TEST_F(Analysis, PictureHasTheValuesThatExiftoolReads) {
    for (const std::string orientation : {"1", "3", "6", "8"}) {
        const Shot shot = stills_in(dir, {"--size", "320", "--orientation", orientation, "--datetime",
                                          "2031:12:13 14:15:16", "--model", "RT-KA501"});
        for (const std::string& path : {shot.one, shot.two}) {
            const auto read = exif_of(path);
            const auto json = analyze(path).json();
            EXPECT_EQ(json.at("maker"), read.at("Make"));
            EXPECT_EQ(json.at("model"), read.at("Model"));
            EXPECT_EQ(json.at("orientaion"), read.at("Orientation"));
            EXPECT_EQ(json.at("datetime"), read.at("DateTimeOriginal"));
            EXPECT_EQ(json.at("width"), read.at("ImageWidth"));
            EXPECT_EQ(json.at("height"), read.at("ImageHeight"));
            EXPECT_EQ(json.at("datetime"), "2031:12:13 14:15:16");
        }
    }
}

TEST_F(Analysis, PictureHasTheValuesOfTheMakerNote) {
    const Shot shot = stills_in(
        dir, {"--size", "64", "--capture-mode", "134", "--multi-capture", "4000000000", "--camera-orientation", "3"});
    const auto json = analyze(shot.one).json();
    EXPECT_EQ(json.at("capture_mode"), 134);
    EXPECT_EQ(json.at("multi_capture"), 4000000000);
    EXPECT_EQ(json.at("camera_orientation"), 3);
    EXPECT_EQ(json.at("isTarget"), true);
}

TEST_F(Analysis, PictureOfAnotherModeOrCameraIsNoTarget) {
    EXPECT_EQ(analyze(stills_in(dir, {"--size", "64", "--capture-mode", "1"}).one).json().at("isTarget"), false);
    EXPECT_EQ(analyze(stills_in(dir, {"--size", "64", "--no-maker-note"}).one).json().at("isTarget"), false);
    EXPECT_EQ(analyze(stills_in(dir, {"--size", "64", "--make", "Another"}).one).json().at("maker"), "Another");
}

TEST_F(Analysis, MovieHasTheValuesThatOtherProgramsRead) {
    for (const std::string codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        const Shot shot = {dir.file("1.mov"), dir.file("2.mov")};
        run_sample({"movie", shot.one, shot.two, "--size", "320", "--frames", "20", "--codec", codec, "--orientation",
                    "6", "--capture-mode", "129"});
        const auto json = analyze(shot.two, thumbnail, 100, 0).json();
        const auto stream = nlohmann::json::parse(output_of({"ffprobe", "-v", "error", "-select_streams", "v:0",
                                                             "-show_streams", "-of", "json", shot.two}))
                                .at("streams")
                                .at(0);
        EXPECT_EQ(json.at("width"), stream.at("width"));
        EXPECT_EQ(json.at("height"), stream.at("height"));
        EXPECT_EQ(json.at("frame_count"), 20);
        EXPECT_NEAR(json.at("duration").get<double>(), std::stod(stream.at("duration").get<std::string>()), 0.0006);
        EXPECT_EQ(json.at("maker"), "MERIDAN OPTICS");
        EXPECT_EQ(json.at("model"), "RT-KA500");
        EXPECT_EQ(json.at("orientaion"), 6);
        EXPECT_EQ(json.at("capture_mode"), 129);
        EXPECT_EQ(json.at("datetime"), "2026:01:02 03:04:05");
        EXPECT_EQ(json.at("isTarget"), true) << codec;
        EXPECT_EQ(json.at("createdThumbnail"), true);
        EXPECT_EQ(size_of(thumbnail), cv::Size(100, 100));
    }
}

// ---- Thumbnails ----

TEST_F(Analysis, ThumbnailSizes) {
    const std::string input = make_plain_picture(dir.file("a.jpg"), "1920x1080");
    for (const auto& [requested, size] : {std::pair(0, cv::Size(1920, 1080)),
                                          {1920, {1920, 1080}},
                                          {1921, {1920, 1080}},
                                          {INT_MAX, {1920, 1080}},
                                          {320, {320, 180}},
                                          {101, {101, 56}},
                                          {33, {33, 18}},
                                          {2, {2, 1}}}) {
        const auto json = analyze(input, thumbnail, requested).json();
        EXPECT_EQ(json.at("createdThumbnail"), true) << requested;
        EXPECT_EQ(size_of(thumbnail), size) << requested;
    }
    // A width whose height comes to nothing.
    EXPECT_EQ(analyze(input, thumbnail, 1).state(), NQ360_FAILED);
    EXPECT_FALSE(fs::exists(thumbnail));
}

TEST_F(Analysis, ThumbnailShowsThePicture) {
    const std::string input = make_plain_picture(dir.file("a.jpg"), "1280x720", {"-q:v", "1"});
    analyze(input, thumbnail, 320);
    const Planes whole = planes_of(input);
    const Planes small = planes_of(thumbnail);
    for (size_t i = 0; i < 3; ++i) {
        cv::Mat expected;
        cv::resize(whole[i], expected, small[i].size(), 0, 0, cv::INTER_AREA);
        const double value = psnr(small[i], expected);
        EXPECT_GT(value, 25) << "plane " << i;
        EXPECT_NEAR(mean_of(small[i]), mean_of(expected), 1.5) << "plane " << i;
    }
}

TEST_F(Analysis, ThumbnailIsTurnedAsTheOrientationSays) {
    analyze(quarters(1), thumbnail, 128);
    const Planes upright = planes_of(thumbnail);
    for (int orientation = 0; orientation <= 9; ++orientation) {
        const auto json = analyze(quarters(orientation), thumbnail, 128).json();
        EXPECT_EQ(json.at("orientaion"), orientation);
        const Planes found = planes_of(thumbnail);
        for (const size_t i : {0, 1}) {
            EXPECT_GT(psnr(found[i], turned(upright[i], orientation)), 30)
                << "orientation " << orientation << " plane " << i;
        }
    }
}

TEST_F(Analysis, ThumbnailOfTheCamerasPictureStandsUpright) {
    const std::string upright = dir.file("upright.jpg");
    const std::vector<std::string> plain = {"--size", "320", "--grain", "0"};
    // Lens 1 of a camera that lay on its side.
    std::vector<std::string> lying = plain;
    lying.insert(lying.end(), {"--orientation", "6"});
    const auto expect_upright = [&](const std::function<Shot(const std::vector<std::string>&)>& make) {
        analyze(make(plain).one, upright, 160);
        analyze(make(lying).one, thumbnail, 160);
        // Above the frame's number, which is drawn upright in any case.
        EXPECT_GT(psnr(plane_of(thumbnail, 'u').rowRange(8, 22), plane_of(upright, 'u').rowRange(8, 22)), 30);
    };
    expect_upright([this](const std::vector<std::string>& arguments) { return stills_in(dir, arguments); });
    expect_upright([this](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--frames", "1", "--codec", "mjpeg", "--sound", "none"});
        return movies_in(dir, arguments);
    });
}

TEST_F(Analysis, MovieOfOneFrameHasAThumbnail) {
    for (const std::string codec : {"h264-baseline", "h264-main", "h264-high", "mjpeg"}) {
        const Shot shot = {dir.file(codec + ".mov"), dir.file("2.mov")};
        run_sample({"movie", shot.one, shot.two, "--size", "320", "--frames", "1", "--codec", codec});
        EXPECT_EQ(analyze(shot.one, thumbnail, 64).json().at("createdThumbnail"), true) << codec;
        EXPECT_EQ(size_of(thumbnail), cv::Size(64, 64));
        EXPECT_GT(mean_of(plane_of(thumbnail, 'y')), 20);
        fs::remove(thumbnail);
    }
}

TEST_F(Analysis, MovieWithoutFramesHasNoThumbnail) {
    const Shot shot = {dir.file("1.mov"), dir.file("2.mov")};
    run_sample({"movie", shot.one, shot.two, "--size", "320", "--frames", "0", "--fragmented"});
    const Outcome outcome = analyze(shot.one, thumbnail, 64);
    EXPECT_EQ(outcome.state(), NQ360_FAILED) << outcome.text();
    EXPECT_FALSE(fs::exists(thumbnail));
}

// Established: of a first picture that is there in part, what is there is shown.
TEST_F(Analysis, MovieThatBreaksOffInItsFirstPictureHasAThumbnail) {
    const Shot shot = {dir.file("1.mov"), dir.file("2.mov")};
    run_sample({"movie", shot.one, shot.two, "--size", "320", "--frames", "3", "--codec", "mjpeg", "--moov-first"});
    const StoredPacket first = packets_of(shot.one, true).at(0);
    const auto there = static_cast<size_t>(first.position) + first.bytes.size() * 3 / 4;
    write_file(shot.one, slice(read_file(shot.one), 0, there));
    EXPECT_EQ(analyze(shot.one, thumbnail, 64).json().value("createdThumbnail", false), true);
    EXPECT_GT(mean_of(plane_of(thumbnail, 'y').rowRange(0, 32)), 20);
}

TEST_F(Analysis, EarlierThumbnailIsReplaced) {
    const std::string input = make_plain_picture(dir.file("a.jpg"), "320x180");
    analyze(input, thumbnail, 64);
    const Bytes fresh = read_file(thumbnail);
    write_file(thumbnail, zeros(1000000));
    analyze(input, thumbnail, 64);
    EXPECT_EQ(read_file(thumbnail), fresh);
}

// ---- Manners ----

TEST_F(Analysis, InputsStayAsTheyAre) {
    const std::string picture = stills_in(dir, {"--size", "320"}).one;
    const std::string movie = make_plain_movie(dir.file("a.mov"), "aac");
    for (const std::string& input : {picture, movie}) {
        const Bytes before = read_file(input);
        const auto written = fs::last_write_time(input);
        analyze(input, thumbnail, 64);
        EXPECT_EQ(read_file(input), before);
        EXPECT_EQ(fs::last_write_time(input), written);
    }
}

TEST_F(Analysis, NothingButItsOwnLinesOnStandardError) {
    const Shot movies = {dir.file("1.mov"), dir.file("2.mp4")};
    run_sample({"movie", movies.one, movies.two, "--size", "320", "--frames", "5"});
    const Shot stills = stills_in(dir, {"--size", "320"});
    const std::string wide = make_plain_picture(dir.file("422.jpg"), "320x180", {"-pix_fmt", "yuvj422p"});
    const std::string full = make_plain_picture(dir.file("444.jpg"), "320x180", {"-pix_fmt", "yuvj444p"});
    const std::string aac = make_plain_movie(dir.file("aac.mp4"), "aac", "320x180", "libx264");
    for (const std::string& input : {stills.one, wide, full, movies.one, movies.two, aac}) {
        expect_own_lines_only(logged([&] { EXPECT_EQ(analyze(input, thumbnail, 64).state(), NQ360_FINISHED); }));
    }
}

TEST_F(Analysis, EndsWithAsManyOpenFiles) {
    const std::string picture = stills_in(dir, {"--size", "320"}).one;
    const std::string movie = make_plain_movie(dir.file("a.mov"), "aac");
    const std::string bad = dir.file("bad.jpg", text("no picture"));
    analyze(picture, thumbnail);
    const auto before = open_files();
    for (int i = 0; i < 3; ++i) {
        analyze(picture, thumbnail, 64);
        analyze(movie, thumbnail, 64);
        analyze(bad, thumbnail, 64);
        analyze(picture, thumbnail, -1);
    }
    EXPECT_EQ(open_files(), before);
}

TEST_F(Analysis, LocaleDoesNotChangeItsReply) {
    const std::string picture = stills_in(dir, {"--size", "320"}).one;
    const std::string movie = make_plain_movie(dir.file("a.mov"), "aac");
    const std::string picture_before = analyze(picture).text();
    const std::string movie_before = analyze(movie).text();
    const CommaLocale locale;
    EXPECT_EQ(analyze(picture).text(), picture_before);
    EXPECT_EQ(analyze(movie).text(), movie_before);
    EXPECT_EQ(analyze(movie).json().at("type"), "MOVIE");
}

TEST_F(Analysis, ManyThreadsAtOnceGetTheirOwnReplies) {
    std::vector<std::string> inputs;
    for (const char* size : {"320x180", "640x360", "160x90", "800x450"}) {
        inputs.push_back(make_plain_picture(dir.file(std::string(size) + ".jpg"), size));
    }
    std::vector<std::string> expected;
    for (const std::string& input : inputs) {
        expected.push_back(analyze(input, input + ".t.jpg", 64).text());
    }
    std::vector<int> right(inputs.size(), 0);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < inputs.size(); ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 20; ++round) {
                const Outcome outcome = analyze(inputs[i], inputs[i] + ".t.jpg", 64);
                right[i] += outcome.replies.size() == 1 && outcome.replies[0].text == expected[i] ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const int count : right) {
        EXPECT_EQ(count, 20);
    }
}
