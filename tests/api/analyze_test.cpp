#include "api/analyze.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

extern "C" {
#include <libavutil/error.h>
}

#include "metadata/mov.h"
#include "metadata/spherical.h"
#include "nq360.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/failing_new.h"
#include "support/fake_volume.h"
#include "support/plain_media.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;

namespace {

class Analyze : public testing::Test {
  protected:
    // A picture of no camera, without metadata.
    std::string plain_picture() { return make_plain_picture(dir.file("plain.jpg"), "320x240"); }
    std::string camera_picture() { return stills_in(dir, {"--size", "64"}).one; }
    std::string camera_movie(const std::string& sound = "pcm_s16le") {
        const std::string path = make_plain_movie(dir.file("camera.mov"), sound);
        add_maker_block(path);
        return path;
    }
    // A picture with a text of stitching software.
    std::string stitched_picture(const std::string& packet) {
        Bytes picture = read_file(plain_picture());
        const Bytes segment = xmp_segment(packet);
        picture.insert(picture.begin() + 2, segment.begin(), segment.end());
        return dir.file("stitched.jpg", picture);
    }

    TempDir dir;
    std::string missing = dir.file("missing.jpg");
    std::string thumbnail = dir.file("thumbnail.jpg");
};

std::string own_metadata(bool picture) {
    const std::unique_ptr<char, decltype(&std::free)> text(
        TALUMO360ViewerMetadata(picture, 720, 360, "2026:01:02 03:04:05"), std::free);
    return text.get();
}

std::vector<std::string> lines_with(const std::string& log, const std::string& tag) {
    std::vector<std::string> lines;
    std::istringstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind("[" + tag + "]", 0) == 0) {
            lines.push_back(line.substr(tag.size() + 3));
        }
    }
    return lines;
}

}  // namespace

// ---- The entry's checks ----

TEST_F(Analyze, MissingInputLeavesTheThumbnailAlone) {
    write_file(thumbnail, text("earlier"));
    const Outcome outcome = analyze(missing, thumbnail);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.end(), (Reply{NQ360_FAILED, error1(10000, "Input file not exiists", missing)}));
    EXPECT_EQ(read_file(thumbnail), text("earlier"));
}

TEST_F(Analyze, NullInputIsMissing) {
    const Outcome outcome = analyze(nullptr, thumbnail.c_str());
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.end(), (Reply{NQ360_FAILED, error1(10000, "Input file not exiists", "")}));
}

TEST_F(Analyze, UnwritableThumbnailFolderIsToldBeforeAnyReading) {
    const std::string input = plain_picture();
    const std::string inside = dir.file("no folder") + "/thumbnail.jpg";
    Outcome outcome;
    EXPECT_EQ(logged([&] { outcome = analyze(input, inside); }), "");
    EXPECT_EQ(outcome.end(), (Reply{NQ360_FAILED, error1(10003, "tumbnail not writable", input)}));
    EXPECT_EQ(outcome.result, 0);
}

TEST_F(Analyze, ReadOnlyThumbnailFolderIsNotWritable) {
    const std::string input = plain_picture();
    fs::permissions(dir.path(), fs::perms(0555));
    EXPECT_TRUE(true_unprivileged([&] {
        return analyze(input, thumbnail).end() == Reply{NQ360_FAILED, error1(10003, "tumbnail not writable", input)};
    }));
}

TEST_F(Analyze, ThumbnailOnTheInputIsRefusedAndTheInputKept) {
    const std::string input = camera_picture();
    const Bytes before = read_file(input);
    const std::string hard = dir.file("hard.jpg");
    const std::string symbolic = dir.file("symbolic.jpg");
    fs::create_hard_link(input, hard);
    fs::create_symlink(input, symbolic);
    for (const std::string& path : {input, dir.path() + "/./lens1.jpg", hard, symbolic}) {
        EXPECT_EQ(analyze(input, path).end(), (Reply{NQ360_FAILED, error1(10003, "tumbnail not writable", input)}));
        EXPECT_EQ(read_file(input), before);
        EXPECT_TRUE(fs::exists(path));
    }
}

TEST_F(Analyze, FiftyMebibytesOnTheThumbnailsVolumeAreFull) {
    const std::string input = plain_picture();
    {
        FakeVolume volume(52428800);
        EXPECT_EQ(analyze(input, thumbnail).end(), (Reply{NQ360_FAILED, error1(10004, "disk is full", input)}));
        EXPECT_EQ(volume.asked(), dir.path());
        // Without a thumbnail nothing is written and no room is needed.
        EXPECT_EQ(analyze(input).state(), NQ360_FINISHED);
    }
    FakeVolume volume(52428801);
    EXPECT_EQ(analyze(input, thumbnail).state(), NQ360_FINISHED);
}

TEST_F(Analyze, OtherExtensionIsToldAndTheThumbnailRemoved) {
    for (const char* name : {"x.txt", "x.png", "x", "x.jpg.bak", "x.jpe"}) {
        const std::string input = dir.file(name, read_file(plain_picture()));
        write_file(thumbnail, text("earlier"));
        const Outcome outcome = analyze(input, thumbnail);
        EXPECT_EQ(outcome.end(), (Reply{NQ360_FAILED, error1(10001, "Not Movie & JPEG", input)}));
        EXPECT_EQ(outcome.result, 0);
        EXPECT_FALSE(fs::exists(thumbnail));
    }
}

TEST_F(Analyze, FailureRemovesNoDirectory) {
    const std::string input = dir.file("x.txt", text("x"));
    fs::create_directory(thumbnail);
    EXPECT_EQ(analyze(input, thumbnail).state(), NQ360_FAILED);
    EXPECT_TRUE(fs::is_directory(thumbnail));
}

TEST_F(Analyze, ChecksComeInTheirOrder) {
    FakeVolume volume(0);
    const std::string other = dir.file("x.txt", text("x"));
    const std::string unwritable = dir.file("no folder") + "/t.jpg";
    EXPECT_EQ(analyze(missing, unwritable).json().at("errnum"), "10000");
    EXPECT_EQ(analyze(other, unwritable).json().at("errnum"), "10003");
    EXPECT_EQ(analyze(other, thumbnail).json().at("errnum"), "10004");
    EXPECT_EQ(analyze(other).json().at("errnum"), "10001");
}

TEST_F(Analyze, NeedsNoCallback) {
    EXPECT_EQ(NQ360_analyze_image(missing.c_str(), nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(NQ360_analyze_image(plain_picture().c_str(), thumbnail.c_str(), 0, 1, nullptr), 0);
    EXPECT_TRUE(fs::exists(thumbnail));
    EXPECT_EQ(NQ360_analyze_image(nullptr, nullptr, 0, 0, nullptr), 0);
}

// ---- Failures of the workflows ----

TEST_F(Analyze, WhatIsNoFileCannotBeOpened) {
    for (const std::string extension : {".jpg", ".mov"}) {
        const std::string folder = dir.file("folder" + extension);
        const std::string pipe = dir.file("pipe" + extension);
        const std::string device = dir.file("device" + extension);
        fs::create_directory(folder);
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        fs::create_symlink("/dev/zero", device);
        EXPECT_EQ(analyze(folder).text(),
                  error1(10001, "Could Not open file", folder, AVERROR(EISDIR), "Is a directory"));
        EXPECT_EQ(analyze(pipe).text(),
                  error1(10001, "Could Not open file", pipe, AVERROR(EINVAL), "Invalid argument"));
        EXPECT_EQ(analyze(device).text(),
                  error1(10001, "Could Not open file", device, AVERROR(EINVAL), "Invalid argument"));
    }
}

TEST_F(Analyze, FileThatCannotBeOpenedHasTheFrameworksWords) {
    const std::string input = dir.file("broken.mov", atom("ftyp", text("qt  ")) + atom("moov", {}));
    write_file(thumbnail, text("earlier"));
    const Outcome outcome = analyze(input, thumbnail);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.state(), NQ360_FAILED);
    const auto json = outcome.json();
    EXPECT_EQ(json.at("errnum"), "10001");
    EXPECT_EQ(json.at("errstr"), "Could Not open file");
    EXPECT_LT(json.at("api_errnum"), 0);
    EXPECT_NE(json.at("api_errstr"), "");
    EXPECT_FALSE(fs::exists(thumbnail));
}

TEST_F(Analyze, MovieWithoutAVideoStream) {
    const std::string input = dir.file("sound.mov");
    output_of({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=1", "-c:a", "pcm_s16le", input});
    EXPECT_EQ(analyze(input).text(),
              error1(10001, "Could Not open file", input, AVERROR_EXIT, "Not Found Video Stream"));
}

TEST_F(Analyze, ThumbnailThatCannotBeOpened) {
    const std::string input = plain_picture();
    const std::string other = dir.file("thumbnail.xyz");
    EXPECT_EQ(analyze(input, other).end(),
              (Reply{NQ360_FAILED, error1(19999, "Could Not Write Thumbnail", input, AVERROR_EXIT,
                                          "Colud Not Open OutputFile:" + other)}));
    EXPECT_FALSE(fs::exists(other));
}

TEST_F(Analyze, ThumbnailOnADirectoryFailsAndTheDirectoryStays) {
    const std::string input = plain_picture();
    fs::create_directory(thumbnail);
    const Outcome outcome = analyze(input, thumbnail);
    EXPECT_EQ(outcome.text(), error1(19999, "Could Not Write Thumbnail", input, AVERROR(EIO), "Input/output error"));
    EXPECT_TRUE(fs::is_directory(thumbnail));
}

TEST_F(Analyze, NegativeThumbnailWidthFails) {
    const std::string input = plain_picture();
    EXPECT_EQ(analyze(input, thumbnail, -1).text(),
              error1(19999, "Could Not Write Thumbnail", input, AVERROR(EINVAL), "Invalid argument"));
    EXPECT_EQ(analyze(input, thumbnail, -2147483647 - 1).state(), NQ360_FAILED);
    EXPECT_FALSE(fs::exists(thumbnail));
}

TEST_F(Analyze, ThumbnailOfAMovieThatCannotBeWritten) {
    const std::string input = make_plain_movie(dir.file("plain.mov"), "");
    write_file(thumbnail, text("earlier"));
    Outcome outcome;
    const std::string log = logged([&] { outcome = analyze(input, thumbnail, -1); });
    EXPECT_EQ(
        outcome.end(),
        (Reply{NQ360_FAILED, error1(19999, "Could Not Write Thumbnail", input, AVERROR(EINVAL), "Invalid argument")}));
    EXPECT_THAT(
        lines_with(log, "NQ360_analyze_movie"),
        Contains("write_tuhmbnail error errnum:" + std::to_string(AVERROR(EINVAL)) + " error:Invalid argument:"));
    EXPECT_FALSE(fs::exists(thumbnail));
}

// A movie atom of fewer bytes than its own header.
TEST_F(Analyze, MovieOfBrokenAtomsIsUnexpected) {
    const std::string input = dir.file("broken.mov", atom("ftyp", text("qt  ")) + be32(4) + text("moov"));
    Outcome outcome;
    const std::string log = logged([&] { outcome = analyze(input, thumbnail); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.end(),
              (Reply{NQ360_FAILED, error1(19999, "an unknown error occurred", input, -1, "Unknown error -1")}));
    EXPECT_THAT(lines_with(log, "NQ360_analyze_movie"),
                ElementsAre("start:" + input + ":", "an unknown error occurred errnum:-1 error:Unknown error -1:"));
}

TEST_F(Analyze, ThrownTextOfAWorkflowIsReplied) {
    const std::string picture = plain_picture();
    const std::string movie = make_plain_movie(dir.file("plain.mov"), "");
    fs::permissions(dir.path(), fs::perms(0777));
    for (const std::string& input : {picture, movie}) {
        fs::permissions(input, fs::perms(0));
        const std::string words = "Can't open file " + input;
        const std::string tag = input == picture ? "NQ360_analyze_jpeg" : "NQ360_analyze_movie";
        EXPECT_TRUE(true_unprivileged([&] {
            Outcome outcome;
            const std::string log = logged([&] { outcome = analyze(input, thumbnail); });
            return outcome.result == 0 &&
                   outcome.end() == Reply{NQ360_FAILED, error1(19999, "an unknown error occurred", input, -1, words)} &&
                   lines_with(log, tag) ==
                       std::vector<std::string>{"start:" + input + ":",
                                                "an unknown error occurred errnum:-1 error:" + words + ":"};
        }));
    }
}

// Each run ends with one reply that says what happened, and without a thumbnail when it failed.
TEST_F(Analyze, AllocationThatFailsIsReplied) {
    const std::string input = camera_picture();
    const std::string by_workflow = error1(19999, "an unknown error occurred", input, -1, "std::bad_alloc");
    int failures_of_entry = 0;
    int failures_of_workflow = 0;
    bool failed = true;
    for (long number = 0; failed; ++number) {
        last_reply = {};
        int result = 0;
        {
            const FailingNew fault(number);
            result = NQ360_analyze_image(input.c_str(), thumbnail.c_str(), 32, 1, keep_last);
            failed = fault.failed();
        }
        ASSERT_EQ(last_reply.ends, 1) << number;
        if (last_reply.state == NQ360_FINISHED) {
            EXPECT_EQ(result, 0);
            EXPECT_TRUE(fs::exists(thumbnail)) << number;
            fs::remove(thumbnail);
            continue;
        }
        EXPECT_EQ(last_reply.state, NQ360_FAILED);
        EXPECT_EQ(last_reply.text, by_workflow) << number;
        EXPECT_FALSE(fs::exists(thumbnail)) << number;
        (result == -1 ? failures_of_entry : failures_of_workflow) += 1;
    }
    // What reaches the entry itself is the one case of a result of -1.
    EXPECT_GT(failures_of_entry, 0);
    EXPECT_GT(failures_of_workflow, 0);
}

TEST_F(Analyze, UnexpectedFailureWithoutACallbackReturnsZero) {
    const std::string input = camera_picture();
    bool failed = true;
    for (long number = 0; failed; ++number) {
        const FailingNew fault(number);
        EXPECT_EQ(NQ360_analyze_image(input.c_str(), thumbnail.c_str(), 32, 1, nullptr), 0) << number;
        failed = fault.failed();
    }
}

// ---- Pictures ----

TEST_F(Analyze, PictureWithoutMetadataIsNoTarget) {
    const std::string input = plain_picture();
    const Outcome outcome = analyze(input, thumbnail, 0, 0);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.end(),
              (Reply{NQ360_FINISHED,
                     R"({"width":320,"height":240,"duration":0.040,"frame_count":0,"maker":"","model":"",)"
                     R"("orientaion":-1,"capture_mode":-1,"multi_capture":-1,"camera_orientation":-1,)"
                     R"("youtube360_maker":"","isTarget":false,"createdThumbnail":false,"movie_path":")" +
                         input + R"(","thumbnail_path":")" + thumbnail + R"(","datetime":"","type":"JPEG"})"}));
    EXPECT_FALSE(fs::exists(thumbnail));
}

// Bytes of another kind come through a reader that does not count frames.
TEST_F(Analyze, OtherPictureNamedJpgHasNoDuration) {
    const std::string png = make_plain_picture(dir.file("a.png"), "320x240");
    const std::string input = dir.file("png.jpg");
    fs::rename(png, input);
    const auto json = analyze(input, thumbnail).json();
    EXPECT_EQ(json.at("width"), 320);
    EXPECT_EQ(json.at("duration"), -1.0);
    EXPECT_EQ(json.at("createdThumbnail"), true);
}

TEST_F(Analyze, WriteFlagAsksForTheThumbnailOfAnyPicture) {
    for (const int flag : {1, -1, 256}) {
        EXPECT_EQ(analyze(plain_picture(), thumbnail, 0, flag).json().at("createdThumbnail"), true);
        EXPECT_TRUE(fs::remove(thumbnail)) << flag;
    }
}

TEST_F(Analyze, PictureOfTheCameraIsATargetAndGetsAThumbnail) {
    const Outcome outcome = analyze(camera_picture(), thumbnail, 0, 0);
    EXPECT_EQ(outcome.state(), NQ360_FINISHED);
    const auto json = outcome.json();
    EXPECT_EQ(json.at("isTarget"), true);
    EXPECT_EQ(json.at("createdThumbnail"), true);
    EXPECT_EQ(json.at("maker"), "MERIDAN OPTICS");
    EXPECT_EQ(json.at("model"), "RT-KA500");
    EXPECT_EQ(json.at("orientaion"), 1);
    EXPECT_EQ(json.at("capture_mode"), 129);
    EXPECT_EQ(json.at("datetime"), "2026:01:02 03:04:05");
    EXPECT_EQ(json.at("type"), "JPEG");
    EXPECT_TRUE(fs::exists(thumbnail));
}

TEST_F(Analyze, NullThumbnailPathWritesNone) {
    const Outcome outcome = analyze(camera_picture().c_str(), nullptr, 320, 1);
    EXPECT_EQ(outcome.state(), NQ360_FINISHED);
    EXPECT_EQ(outcome.json().at("createdThumbnail"), false);
    EXPECT_EQ(outcome.json().at("thumbnail_path"), "");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 2);  // the two lenses
}

TEST_F(Analyze, OwnPanoramaIsATargetAndNamesTheSoftware) {
    const Outcome outcome = analyze(stitched_picture(own_metadata(true)), thumbnail, 0, 0);
    const auto json = outcome.json();
    EXPECT_EQ(json.at("isTarget"), true);
    EXPECT_EQ(json.at("createdThumbnail"), true);
    EXPECT_EQ(json.at("youtube360_maker"), "TALUMO360Viewer osx.1.0.");  // the reader drops the last character
    EXPECT_EQ(json.at("datetime"), "2026:01:02 03:04:05");
    EXPECT_TRUE(fs::exists(thumbnail));
}

TEST_F(Analyze, PanoramaOfOtherSoftwareIsNoTarget) {
    const std::string input = stitched_picture(
        "<GPano:StitchingSoftware>Other 2</GPano:StitchingSoftware>"
        "<GPano:FirstPhotoDate>2020</GPano:FirstPhotoDate>");
    const auto json = analyze(input, thumbnail, 0, 0).json();
    EXPECT_EQ(json.at("isTarget"), false);
    EXPECT_EQ(json.at("createdThumbnail"), false);
    EXPECT_EQ(json.at("youtube360_maker"), "Other ");
    EXPECT_EQ(json.at("datetime"), "2020");
}

TEST_F(Analyze, LogOfAPicture) {
    const std::string input = plain_picture();
    EXPECT_THAT(lines_with(logged([&] { analyze(input); }), "NQ360_analyze_jpeg"),
                ElementsAre("start:" + input + ":", "exif not found", "xmp not found", "end:" + input + ":"));
    const std::string camera = camera_picture();
    EXPECT_THAT(lines_with(logged([&] { analyze(camera); }), "NQ360_analyze_jpeg"),
                ElementsAre("start:" + camera + ":", "xmp not found", "end:" + camera + ":"));
}

// FFmpeg has a warning for such a picture, whole as it is; only the library's own lines are wanted.
TEST_F(Analyze, FlatPictureRaisesNoWarning) {
    const std::string input =
        make_plain_picture(dir.file("flat.jpg"), "640x480", {"-vf", "format=yuvj420p,geq=lum=0:cb=128:cr=128"});
    const std::string log = logged([&] { analyze(input, thumbnail); });
    EXPECT_EQ(log.find("EOI"), std::string::npos) << log;
}

TEST_F(Analyze, LogOfAPictureThatFails) {
    const std::string folder = dir.file("folder.jpg");
    fs::create_directory(folder);
    EXPECT_THAT(lines_with(logged([&] { analyze(folder); }), "NQ360_analyze_jpeg"),
                ElementsAre("start:" + folder + ":", "open_inputfile error errnum:" + std::to_string(AVERROR(EISDIR)) +
                                                         " error:Is a directory:"));
    const std::string input = plain_picture();
    EXPECT_THAT(
        lines_with(logged([&] { analyze(input, thumbnail, -1); }), "NQ360_analyze_jpeg"),
        ElementsAre("start:" + input + ":", "exif not found", "xmp not found",
                    "write_tuhmbnail error errnum:" + std::to_string(AVERROR(EINVAL)) + " error:Invalid argument:"));
}

// ---- Movies ----

TEST_F(Analyze, PlainMovieIsNoTarget) {
    const std::string input = make_plain_movie(dir.file("plain.mov"), "");
    const auto json = analyze(input, thumbnail, 0, 0).json();
    EXPECT_EQ(json.at("width"), 320);
    EXPECT_EQ(json.at("height"), 180);
    EXPECT_EQ(json.at("frame_count"), 15);
    EXPECT_NEAR(json.at("duration").get<double>(), 15 * 1001 / 30000.0, 0.0006);
    EXPECT_EQ(json.at("isTarget"), false);
    EXPECT_EQ(json.at("createdThumbnail"), false);
    EXPECT_EQ(json.at("type"), "MOVIE");
    EXPECT_FALSE(fs::exists(thumbnail));
    EXPECT_EQ(analyze(input, thumbnail, 0, 1).json().at("createdThumbnail"), true);
    EXPECT_TRUE(fs::exists(thumbnail));
}

TEST_F(Analyze, MovieOfTheCameraIsATargetAndGetsAThumbnail) {
    for (const std::string sound : {"pcm_s16le", ""}) {
        const auto json = analyze(camera_movie(sound), thumbnail, 0, 0).json();
        EXPECT_EQ(json.at("isTarget"), true);
        EXPECT_EQ(json.at("createdThumbnail"), true);
        EXPECT_EQ(json.at("maker"), "MERIDAN OPTICS");
        EXPECT_EQ(json.at("multi_capture"), 7);
        EXPECT_EQ(json.at("datetime"), "2019:03:04 05:06:07");
        EXPECT_TRUE(fs::remove(thumbnail));
    }
}

TEST_F(Analyze, MovieWithAacIsNeverATarget) {
    const std::string input = camera_movie("aac");
    const auto json = analyze(input, thumbnail, 0, 0).json();
    EXPECT_EQ(json.at("isTarget"), false);
    EXPECT_EQ(json.at("createdThumbnail"), false);
    EXPECT_EQ(json.at("maker"), "MERIDAN OPTICS");
    EXPECT_FALSE(fs::exists(thumbnail));
    EXPECT_EQ(analyze(input, thumbnail, 0, 1).json().at("createdThumbnail"), true);
    EXPECT_TRUE(fs::exists(thumbnail));
}

TEST_F(Analyze, OwnMovieIsATargetAndNamesTheSoftware) {
    const std::string input = make_plain_movie(dir.file("stitched.mp4"), "");
    _mov writer(input.c_str(), true);
    writer.wtire_xml_data(own_metadata(false).c_str());
    writer.close_stream();
    const auto json = analyze(input, thumbnail, 0, 0).json();
    EXPECT_EQ(json.at("isTarget"), true);
    EXPECT_EQ(json.at("createdThumbnail"), true);
    EXPECT_EQ(json.at("youtube360_maker"), "TALUMO360Viewer osx.1.0.0");
    EXPECT_EQ(json.at("datetime"), "2026:01:02 03:04:05");
}

TEST_F(Analyze, LogOfAMovie) {
    const std::string input = camera_movie("aac");
    EXPECT_THAT(lines_with(logged([&] { analyze(input, thumbnail, 0, 3); }), "NQ360_analyze_movie"),
                ElementsAre("start:" + input + ":", "isTALUMO360 -1", "isTarget 1", "codec_id:86018:", "isTarget__:0:",
                            "thumbnail_path:" + thumbnail + ":", "writeFlag:3:", "end:" + input + ":"));
}

TEST_F(Analyze, LogOfAMovieThatFails) {
    const std::string folder = dir.file("folder.mov");
    fs::create_directory(folder);
    EXPECT_THAT(
        lines_with(logged([&] { analyze(folder); }), "NQ360_analyze_movie"),
        ElementsAre("start:" + folder + ":", "open_inputfile error",
                    "open_inputfile error errnum:" + std::to_string(AVERROR(EISDIR)) + " error:Is a directory:"));
}

// ---- What an export learns ----

TEST(AnalyzeResult, Defaults) {
    AnalyzeResult result;
    result.width = 7;
    result.maker = "x";
    result.isTarget = true;
    init_analyze_result(&result);
    EXPECT_EQ(result.width, -1);
    EXPECT_EQ(result.height, -1);
    EXPECT_EQ(result.duration, -1.0);
    EXPECT_EQ(result.frame_count, -1);
    EXPECT_EQ(result.maker, nullptr);
    EXPECT_EQ(result.model, nullptr);
    EXPECT_EQ(result.orientation, -1);
    EXPECT_EQ(result.capture_mode, -1);
    EXPECT_EQ(result.multi_capture, -1);
    EXPECT_EQ(result.camera_orientation, -1);
    EXPECT_FALSE(result.isTarget);
    EXPECT_FALSE(result.is_picture);
}

TEST_F(Analyze, ExportLearnsOfAPicture) {
    const std::string input = stills_in(dir, {"--size", "64", "--orientation", "8"}).one;
    AnalyzeResult result;
    EXPECT_EQ(_NQ360_export_analyze(input.c_str(), &result), 0);
    EXPECT_EQ(result.width, 64);
    EXPECT_EQ(result.height, 64);
    EXPECT_EQ(result.frame_count, 0);
    EXPECT_DOUBLE_EQ(result.duration, 0.04);
    EXPECT_EQ(result.orientation, 8);
    EXPECT_EQ(result.capture_mode, 129);
    EXPECT_TRUE(result.isTarget);
    EXPECT_TRUE(result.is_picture);
}

TEST_F(Analyze, ExportLearnsOfAMovie) {
    AnalyzeResult result;
    EXPECT_EQ(_NQ360_export_analyze(camera_movie().c_str(), &result), 0);
    EXPECT_EQ(result.width, 320);
    EXPECT_EQ(result.height, 180);
    EXPECT_EQ(result.frame_count, 15);
    EXPECT_EQ(result.multi_capture, 7);
    EXPECT_EQ(result.camera_orientation, 2);
    EXPECT_TRUE(result.isTarget);
    EXPECT_FALSE(result.is_picture);
}

TEST_F(Analyze, ExportTakesNoOtherFile) {
    AnalyzeResult result;
    EXPECT_EQ(_NQ360_export_analyze(dir.file("x.txt", text("x")).c_str(), &result), -1);
    EXPECT_EQ(_NQ360_export_analyze(dir.file("x", text("x")).c_str(), &result), -1);
    EXPECT_EQ(_NQ360_export_analyze(missing.c_str(), &result), -1);
    EXPECT_EQ(result.width, -1);
}
