// The export with options: the same result as the plain one by default, and what its own fields do to the job. What
// they do to the picture is tested with the stitcher, the encoders and the metadata.
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/child.h"
#include "support/command.h"
#include "support/media.h"
#include "support/movie_export.h"
#include "support/movie_index.h"
#include "support/samples.h"
#include "support/temp_dir.h"
#include "support/with_options.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ExportWith : public testing::Test {
  protected:
    Shot stills() { return stills_in(dir, {"--size", "1440"}); }
    Shot movies(const std::string& frames = "12") {
        return movies_in(dir, {"--size", "1440", "--frames", frames, "--sound", "1"});
    }

    // Files of the folder that begin with a dot: what a job has left beside its output.
    std::vector<std::string> left_beside() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir.path())) {
            if (entry.path().filename().string().front() == '.') {
                names.push_back(entry.path().filename());
            }
        }
        return names;
    }

    void expect_same_as_plain(const Shot& shot, ExportCall call, const std::string& extension) {
        const std::string plain = dir.file("plain" + extension);
        const std::string with = dir.file("with" + extension);
        call.movie1 = shot.one.c_str();
        call.movie2 = shot.two.c_str();
        call.output = plain.c_str();
        const Outcome expected = call.run();
        ASSERT_EQ(expected.state(), NQ360_FINISHED) << expected.text();

        NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, with, call.width, call.height);
        options.band = call.band;
        options.angle = call.angle;
        options.turn1 = static_cast<double>(call.angle1);
        options.turn2 = static_cast<double>(call.angle2);
        std::copy_n(call.correction1, 3, options.correct1);
        std::copy_n(call.correction2, 3, options.correct2);
        options.audio_source = call.audio_source;
        options.datetime = call.datetime;
        options.start1 = static_cast<double>(call.start1);
        options.start2 = static_cast<double>(call.start2);
        options.end1 = static_cast<double>(call.end1);
        options.end2 = static_cast<double>(call.end2);
        const Outcome outcome = export_with(options);
        EXPECT_EQ(outcome.result, NQ360_FINISHED);
        ASSERT_EQ(outcome.replies.size(), expected.replies.size());
        for (size_t i = 0; i < outcome.replies.size(); ++i) {
            std::string text = outcome.replies[i].text;
            text.replace(text.find(with), with.size(), plain);
            EXPECT_EQ((Reply{outcome.replies[i].state, text}), expected.replies[i]);
        }
        EXPECT_TRUE(read_file(with) == read_file(plain)) << "other bytes";
        EXPECT_TRUE(left_beside().empty());
    }

    TempDir dir;
};

}  // namespace

// ---- The same as the plain export ----

TEST_F(ExportWith, OfStillsEqualsThePlainOne) {
    ExportCall call;
    call.angle = 30;
    call.angle1 = 1.5f;
    call.angle2 = -0.3f;
    call.correction1[0] = 12;
    call.correction2[1] = -7;
    expect_same_as_plain(stills(), call, ".jpg");
}

TEST_F(ExportWith, OfABandEqualsThePlainOne) {
    const Shot shot = stills();
    const std::string band = dir.file("band.png");
    run_ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=400x20", "-frames:v", "1", "file:" + band});
    ExportCall call;
    call.band = band.c_str();
    expect_same_as_plain(shot, call, ".jpg");
}

TEST_F(ExportWith, OfMoviesEqualsThePlainOne) {
    for (const int source : {-1, 0}) {
        ExportCall call;
        call.width = 256;
        call.height = 128;
        call.audio_source = source;
        expect_same_as_plain(movies(), call, ".mov");
        call.start1 = call.start2 = 0.1f;
        call.end1 = call.end2 = 0.3f;
        expect_same_as_plain(movies(), call, ".mp4");
    }
}

// ---- The record ----

TEST_F(ExportWith, NullRecordFails) {
    EXPECT_EQ(NQ360_export_with(nullptr), NQ360_FAILED);
    NQ360_export_options_init(nullptr);
}

TEST_F(ExportWith, RecordOfAnotherSizeIsRefused) {
    const Shot shot = stills();
    const std::string output = dir.file("out.jpg");
    for (const size_t size : {size_t{0}, sizeof(NQ360_EXPORT_OPTIONS) - 8, sizeof(NQ360_EXPORT_OPTIONS) + 8}) {
        NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
        options.size = size;
        const Outcome outcome = export_with(options);
        EXPECT_EQ(outcome.result, NQ360_FAILED);
        EXPECT_EQ(outcome.json().at("errnum"), "30005");
        EXPECT_THAT(outcome.json().at("api_errstr").get<std::string>(), StartsWith("size: "));
        EXPECT_FALSE(fs::exists(output));
    }
}

TEST_F(ExportWith, BadValueIsRefusedByItsName) {
    const Shot shot = stills();
    const std::string output = dir.file("out.jpg", text("earlier"));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    struct Bad {
        const char* field;
        std::function<void(NQ360_EXPORT_OPTIONS&)> set;
    };
    const std::vector<Bad> bad = {
        {"width", [](auto& o) { o.width = -1; }},
        {"width", [](auto& o) { o.width = 0; }},
        {"height", [](auto& o) { o.height = 32767; }},
        {"width", [](auto& o) { o.width = 32766, o.height = 16382; }},
        {"angle", [&](auto& o) { o.angle = nan; }},
        {"yaw", [&](auto& o) { o.yaw = infinity; }},
        {"pitch", [](auto& o) { o.pitch = 360.5; }},
        {"roll", [](auto& o) { o.roll = -1e300; }},
        {"turn1", [&](auto& o) { o.turn1 = -infinity; }},
        {"turn2", [&](auto& o) { o.turn2 = nan; }},
        {"gain1", [&](auto& o) { o.gain1[2] = nan; }},
        {"gain2", [](auto& o) { o.gain2[0] = -0.1; }},
        {"feather", [](auto& o) { o.feather = 5.6; }},
        {"audio_source", [](auto& o) { o.audio_source = 2; }},
        {"sound_codec", [](auto& o) { o.sound_codec = 2; }},
        {"start1", [&](auto& o) { o.start1 = nan; }},
        {"end2", [&](auto& o) { o.end2 = infinity; }},
        {"quality", [](auto& o) { o.quality = 101; }},
        {"bit_rate", [](auto& o) { o.bit_rate = -1; }},
        {"keep_metadata", [](auto& o) { o.keep_metadata = 2; }},
        {"web", [](auto& o) { o.web = -1; }},
        {"filter", [](auto& o) { o.filter = 7; }},
        {"workers", [](auto& o) { o.workers = -2; }},
        {"workers", [](auto& o) { o.workers = 257; }},
        {"parts", [](auto& o) { o.parts = -1; }},
        {"parts", [](auto& o) { o.parts = 100001; }},
        {"part", [](auto& o) { o.part = 1; }},
        {"part", [](auto& o) { o.parts = 3; }},
        {"part", [](auto& o) { o.part = 4, o.parts = 3; }},
        {"whole_inputs_only", [](auto& o) { o.whole_inputs_only = 2; }},
    };
    for (const Bad& one : bad) {
        NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
        one.set(options);
        const Outcome outcome = export_with(options);
        EXPECT_EQ(outcome.result, NQ360_FAILED) << one.field;
        EXPECT_EQ(outcome.json().at("errnum"), "30005") << one.field;
        EXPECT_THAT(outcome.json().at("api_errstr").get<std::string>(), StartsWith(std::string(one.field) + ": "));
        EXPECT_EQ(read_file(output), text("earlier"));
    }
}

TEST_F(ExportWith, HugeNumbersHaveTheirReply) {
    const Shot shot = stills();
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, dir.file("out.jpg"), 128, 64);
    const std::string output = dir.file("out.jpg");
    options.output = output.c_str();
    options.angle = options.turn1 = options.turn2 = 1e300;
    options.start1 = options.end1 = options.start2 = options.end2 = -1e300;
    options.correct1[0] = INT32_MAX;
    options.correct2[2] = INT32_MIN;
    EXPECT_EQ(export_with(options).result, NQ360_FINISHED);
}

TEST_F(ExportWith, NullFieldsHaveTheirReply) {
    const Shot shot = stills();
    const std::string output = dir.file("out.jpg");
    const auto errnum_without = [&](const char* NQ360_EXPORT_OPTIONS::*field) {
        NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
        options.*field = nullptr;
        return export_with(options).json().value("errnum", "");
    };
    EXPECT_EQ(errnum_without(&NQ360_EXPORT_OPTIONS::lens1), "30000");
    EXPECT_EQ(errnum_without(&NQ360_EXPORT_OPTIONS::lens2), "30000");
    EXPECT_EQ(errnum_without(&NQ360_EXPORT_OPTIONS::output), "30003");
    EXPECT_EQ(errnum_without(&NQ360_EXPORT_OPTIONS::datetime), "");
}

TEST_F(ExportWith, NeedsNoCallbacks) {
    const Shot shot = stills();
    const std::string output = dir.file("out.jpg");
    const NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
    EXPECT_EQ(NQ360_export_with(&options), NQ360_FINISHED);
    EXPECT_TRUE(fs::exists(output));
}

TEST_F(ExportWith, WithoutASizeTakesTheUsualOne) {
    const std::string output = dir.file("out.jpg");
    const Shot shot = stills();
    EXPECT_EQ(export_with(export_options(shot.one, shot.two, output, 0, 0)).result, NQ360_FINISHED);
    const nlohmann::json stream = stream_of(probe(output), "video");
    EXPECT_EQ(stream.at("width"), 2880);
    EXPECT_EQ(stream.at("height"), 1440);
}

// ---- Replies and lines ----

TEST_F(ExportWith, LinesGoToItsLogAlone) {
    const Shot shot = movies();
    const std::string output = dir.file("out.mov");
    Recorded recorded;
    const std::string printed =
        logged([&] { export_with(export_options(shot.one, shot.two, output, 128, 64), &recorded); });
    EXPECT_EQ(printed, "");
    EXPECT_THAT(recorded.log, testing::Contains("[_NQ360_export]"));
    EXPECT_THAT(recorded.log, testing::Contains("[libavIF::write_video] loop finished 1 1"));
}

TEST_F(ExportWith, IsCancelledByTheAnswerToAnyReply) {
    const Shot shot = movies("35");
    const std::string output = dir.file("out.mov", text("earlier"));
    for (const int reply : {0, 1, 3}) {
        Recorded recorded;
        recorded.stop_at = reply;
        const Outcome outcome = export_with(export_options(shot.one, shot.two, output, 128, 64), &recorded);
        EXPECT_EQ(outcome.result, NQ360_CANCELLED);
        EXPECT_EQ(outcome.json().at("errstr"), "Canceled");
        EXPECT_EQ(outcome.replies.size(), static_cast<size_t>(reply) + 2);
        EXPECT_EQ(read_file(output), text("earlier"));
        EXPECT_TRUE(left_beside().empty());
    }
}

TEST_F(ExportWith, LooksForTheMarkerAtEveryFrame) {
    const Shot shot = movies("9");  // fewer than a reply needs
    const std::string output = dir.file("out.mov");
    const std::string marker = dir.file("stop", Bytes());
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output, 128, 64);
    options.cancel_path = marker.c_str();
    EXPECT_EQ(export_with(options).result, NQ360_CANCELLED);
    EXPECT_FALSE(fs::exists(output));
}

// ---- Where it writes ----

TEST_F(ExportWith, FailureLeavesWhatStoodThere) {
    const Shot shot = stills();
    const std::string output = dir.file("out.jpg", text("earlier"));
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
    const std::string band = dir.file("band.png", text("no picture"));
    options.band = band.c_str();
    EXPECT_EQ(export_with(options).result, NQ360_FAILED);
    EXPECT_EQ(read_file(output), text("earlier"));
    EXPECT_TRUE(left_beside().empty());
}

TEST_F(ExportWith, KeepsTheModeOfTheFileThatItReplaces) {
    const Shot shot = stills();
    const std::string output = dir.file("out.jpg", text("earlier"));
    fs::permissions(output, fs::perms(0640));
    EXPECT_EQ(export_with(export_options(shot.one, shot.two, output)).result, NQ360_FINISHED);
    EXPECT_EQ(fs::status(output).permissions(), fs::perms(0640));
    EXPECT_NE(read_file(output), text("earlier"));
}

TEST_F(ExportWith, ReplacesTheFileThatALinkLeadsTo) {
    const Shot shot = stills();
    const std::string target = dir.file("target.jpg", text("earlier"));
    const std::string link = dir.file("link.jpg");
    fs::create_symlink(target, link);
    EXPECT_EQ(export_with(export_options(shot.one, shot.two, link)).result, NQ360_FINISHED);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_NE(read_file(target), text("earlier"));
}

TEST_F(ExportWith, SaysThatAFolderTakesNothingBesideAFile) {
    const Shot shot = stills();
    const std::string folder = dir.file("closed");
    fs::create_directory(folder);
    const std::string output = folder + "/out.jpg";
    write_file(output, text("earlier"));
    fs::permissions(output, fs::perms(0666));
    fs::permissions(folder, fs::perms(0555));
    for (const std::string& path : {dir.path(), shot.one, shot.two}) {
        fs::permissions(path, fs::perms(0755));
    }
    EXPECT_TRUE(true_unprivileged([&] {
        const nlohmann::json reply = export_with(export_options(shot.one, shot.two, output)).json();
        return reply.at("errnum") == "30003" &&
               reply.at("api_errstr") == "nothing can be written beside it: Permission denied";
    }));
    EXPECT_EQ(read_file(output), text("earlier"));
}

TEST_F(ExportWith, RefusesAnOutputThatIsNoRegularFile) {
    const Shot shot = stills();
    const std::string pipe = dir.file("pipe.jpg");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& output : {pipe, dir.path()}) {
        const nlohmann::json reply = export_with(export_options(shot.one, shot.two, output)).json();
        EXPECT_EQ(reply.at("errnum"), "30003");
        EXPECT_THAT(reply.at("api_errstr").get<std::string>(), HasSubstr("not a regular file"));
    }
}

// ---- Inputs that are not whole ----

TEST_F(ExportWith, PictureThatIsCutOffIsToldOrRefused) {
    const Shot shot = stills_in(dir, {"--size", "1936"});
    const Bytes whole = read_file(shot.two);
    write_file(shot.two, slice(whole, 0, whole.size() * 6 / 10));
    const std::string output = dir.file("out.jpg");
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
    const Outcome told = export_with(options);
    EXPECT_EQ(told.result, NQ360_FINISHED);
    EXPECT_THAT(told.json().at("missing").get<std::string>(),
                testing::MatchesRegex("input 2: [4-7][0-9] % of the picture is there"));
    fs::remove(output);
    options.whole_inputs_only = 1;
    const Outcome refused = export_with(options);
    EXPECT_EQ(refused.result, NQ360_FAILED);
    EXPECT_THAT(refused.json().at("api_errstr").get<std::string>(),
                testing::MatchesRegex("input 2 is not whole: [4-7][0-9] % of the picture is there"));
    EXPECT_FALSE(fs::exists(output));
}

// Between two packets, and within one: the pictures before are exported, and the sound as far as it goes.
TEST_F(ExportWith, MovieThatIsCutOffIsToldOrRefused) {
    const Shot shot =
        movies_in(dir, {"--size", "1440", "--frames", "12", "--key-frames", "4", "--sound", "1", "--moov-first"});
    const Bytes whole = read_file(shot.one);
    const StoredPacket seventh = packets_of(shot.one, true).at(6);
    const std::string output = dir.file("out.mov");
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output, 512, 256);
    for (const size_t bytes_there : {size_t{0}, seventh.bytes.size() / 2}) {
        write_file(shot.one, slice(whole, 0, static_cast<size_t>(seventh.position) + bytes_there));
        options.whole_inputs_only = 0;
        const Outcome told = export_with(options);
        EXPECT_EQ(told.result, NQ360_FINISHED) << told.text();
        EXPECT_THAT(told.json().value("missing", ""),
                    testing::MatchesRegex("input 1: [45][0-9] % of the movie is there"));
        EXPECT_EQ(codes_of(output), equal_codes(0, 5));
        options.whole_inputs_only = 1;
        const Outcome refused = export_with(options);
        EXPECT_EQ(refused.result, NQ360_FAILED);
        EXPECT_THAT(refused.json().value("api_errstr", ""),
                    testing::MatchesRegex("input 1 is not whole: [45][0-9] % of the movie is there"));
    }
}

TEST_F(ExportWith, WholeInputsAreNotFoundMissing) {
    NQ360_EXPORT_OPTIONS options;
    const std::string output = dir.file("out.jpg");
    const std::string movie = dir.file("out.mov");
    const Shot pictures = stills();
    const Shot recorded = movies();
    for (const auto& [shot, path] : {std::pair(pictures, output), std::pair(recorded, movie)}) {
        options = export_options(shot.one, shot.two, path, 128, 64);
        options.whole_inputs_only = 1;
        const Outcome outcome = export_with(options);
        EXPECT_EQ(outcome.result, NQ360_FINISHED) << outcome.text();
        EXPECT_FALSE(outcome.json().contains("missing"));
    }
}

// ---- Metadata and the place of a movie's index ----

TEST_F(ExportWith, KeepsWhatLens1TellsOfTheShot) {
    const Shot shot = stills();
    output_of({"exiftool", "-q", "-overwrite_original", "-GPSLatitude=47.5", "-GPSLatitudeRef=N", "-GPSLongitude=8.25",
               "-GPSLongitudeRef=E", "-ExposureTime=1/250", "-Orientation#=3", shot.one});
    const std::string output = dir.file("out.jpg");
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
    options.keep_metadata = 1;
    options.datetime = nullptr;
    ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
    const auto tags = [](const std::string& path) {
        return nlohmann::json::parse(output_of({"exiftool", "-j", "-n", path}))[0];
    };
    const nlohmann::json before = tags(shot.one);
    const nlohmann::json kept = tags(output);
    for (const char* tag : {"Make", "Model", "DateTimeOriginal", "GPSLatitude", "GPSLongitude", "ExposureTime"}) {
        EXPECT_EQ(kept.at(tag), before.at(tag)) << tag;
    }
    EXPECT_EQ(kept.at("Orientation"), 1);
    EXPECT_EQ(kept.at("ProjectionType"), "equirectangular");
    EXPECT_EQ(output_of({"exiftool", "-validate", "-warning", "-a", "-s3", output}), "OK\n");
}

TEST_F(ExportWith, OfAMovieForTheWebHasItsIndexInFront) {
    const Shot shot = movies();
    const std::string output = dir.file("out.mp4");
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output, 256, 128);
    options.keep_metadata = 1;
    options.web = 1;
    options.sound_codec = NQ360_SOUND_AAC;
    ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
    const Bytes bytes = read_file(output);
    const auto position = [&](const std::string& type) {
        const Bytes mark = text(type);
        return std::search(bytes.begin(), bytes.end(), mark.begin(), mark.end()) - bytes.begin();
    };
    EXPECT_LT(position("moov"), position("mdat"));
    EXPECT_EQ(stream_of(probe(output), "audio").at("codec_name"), "aac");
    EXPECT_EQ(stream_of(probe(output), "video").at("side_data_list").back().at("projection"), "equirectangular");
    EXPECT_EQ(frames_of(output).size(), 12u);
}

// That each is finer than the one before is tested with the encoder.
TEST_F(ExportWith, QualityIsThePictures) {
    const Shot shot = stills();
    const std::string output = dir.file("out.jpg");
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output);
    uintmax_t before = 0;
    for (const int quality : {1, 50, 85, 95, 100}) {
        options.quality = quality;
        EXPECT_EQ(export_with(options).state(), NQ360_FINISHED);
        EXPECT_GT(fs::file_size(output), before) << quality;
        before = fs::file_size(output);
    }
}
