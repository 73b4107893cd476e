// Whole exports of two movies, and of a movie and a still, as other programs read them.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "support/movie_export.h"
#include "support/movie_index.h"
#include "support/open_files.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

namespace {

using Movies = MovieExport;

std::vector<int64_t> camera_times(int frames) {
    std::vector<int64_t> times;
    for (int i = 0; i < frames; ++i) {
        times.push_back(1001 * i);
    }
    return times;
}

int counted_frames(const std::string& path) {
    const nlohmann::json counted =
        nlohmann::json::parse(output_of({"ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0",
                                         "-show_entries", "stream=nb_read_frames", "-of", "json", "file:" + path}));
    return std::stoi(counted.at("streams")[0].at("nb_read_frames").get<std::string>());
}

}  // namespace

// ---- Frames ----

namespace {

constexpr int kFrames = 9;

// Movies as the sample tool writes them, or encoded anew by x264, which can do what no camera's encoder does.
struct Encoding {
    const char* name;
    const char* codec;
    std::vector<std::string> x264;
};

void PrintTo(const Encoding& encoding, std::ostream* out) {
    *out << encoding.name;
}

class MovieEncoding : public Movies, public testing::WithParamInterface<Encoding> {
  protected:
    std::string encoded(const std::string& input) const {
        std::string copy = input + ".x264.mov";
        std::vector<std::string> arguments = {"-i",      "file:" + input, "-c:v", "libx264",
                                              "-preset", "ultrafast",     "-qp",  "18"};
        arguments.insert(arguments.end(), GetParam().x264.begin(), GetParam().x264.end());
        const std::vector<std::string> times = camera_like({"-c:a", "copy", "file:" + copy});
        arguments.insert(arguments.end(), {"-video_track_timescale", "30000", "-fps_mode", "passthrough", "-c:a",
                                           "copy", "file:" + copy});
        run_ffmpeg(arguments);
        return copy;
    }
};

}  // namespace

TEST_P(MovieEncoding, GivesEveryFrameOfBothMovies) {
    Shot movies = lens_movies({"--frames", std::to_string(kFrames), "--codec", GetParam().codec});
    if (!GetParam().x264.empty()) {
        movies = {encoded(movies.one), encoded(movies.two)};
    }
    use(movies);
    const Outcome outcome = run();
    ASSERT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
    EXPECT_EQ(counted_frames(output), kFrames);
    EXPECT_EQ(video_times(output), camera_times(kFrames));
    EXPECT_EQ(codes_of(output), equal_codes(0, kFrames - 1));
    EXPECT_EQ(outcome.replies.front().json().at("frame_count"), kFrames);
}

INSTANTIATE_TEST_SUITE_P(
    , MovieEncoding,
    testing::Values(Encoding{"Baseline", "h264-baseline", {}}, Encoding{"Main", "h264-main", {}},
                    Encoding{"High", "h264-high", {}}, Encoding{"MotionJpeg", "mjpeg", {}},
                    Encoding{"MainInOrder", "h264-baseline", {"-profile:v", "main", "-bf", "0"}},
                    Encoding{"MainReordered", "h264-baseline", {"-profile:v", "main", "-bf", "2", "-b_strategy", "0"}},
                    Encoding{"MainPyramid",
                             "h264-baseline",
                             {"-profile:v", "main", "-bf", "3", "-b_strategy", "0", "-b-pyramid", "normal"}}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Movies, OfDifferentEncodingsPairTheSameInstants) {
    const Shot movies = lens_movies({"--frames", "9", "--codec", "h264-main", "--codec2", "mjpeg"});
    use(movies);
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(0, 8));
}

// The scene, which the sample tool turns on from frame to frame, between the rings of the codes.
TEST_F(Movies, FramesShowTheSceneOfTheirInstant) {
    constexpr int kCount = 9;
    use(lens_movies({"--frames", std::to_string(kCount), "--grain", "0", "--codec", "mjpeg", "--quality", "2"}));
    call.width = 1024;
    call.height = 512;
    expect_finished();
    const std::vector<Planes> frames = frames_of(output);
    ASSERT_EQ(frames.size(), static_cast<size_t>(kCount));
    const auto at_height = [](const cv::Mat& panorama) { return panorama.rowRange(140, 372); };
    for (int frame : {0, kCount / 2, kCount - 1}) {
        const std::string scene = dir.file("scene.png");
        run_sample({"dump", scene, "--width", "1024", "--gray", "--frame", std::to_string(frame)});
        const cv::Mat expected = at_height(plane_of(scene, 'y'));
        EXPECT_GT(psnr(at_height(frames[static_cast<size_t>(frame)][0]), expected), 26) << frame;
    }
}

// As of the stills: what the camera's orientation turned is turned back, the lenses in opposite directions.
TEST_F(Movies, StandUprightInAnyOrientation) {
    const std::string scene = dir.file("scene.png");
    run_sample({"dump", scene, "--width", "1024", "--gray"});
    const auto at_height = [](const cv::Mat& panorama) { return panorama.rowRange(140, 372); };
    const cv::Mat expected = at_height(plane_of(scene, 'y'));
    for (const char* orientation : {"1", "3", "6", "8"}) {
        use(lens_movies({"--frames", "1", "--grain", "0", "--codec", "mjpeg", "--quality", "2", "--orientation",
                         orientation, "--sound", "none"}));
        call.width = 1024;
        call.height = 512;
        expect_finished();
        EXPECT_GT(psnr(at_height(frames_of(output).at(0)[0]), expected), 26) << orientation;
    }
}

TEST_F(Movies, OfMp4AreReadAndWritten) {
    use(lens_movies({"--frames", "6", "--sound", "none"}, ".mp4"));
    use_output("out.mp4");
    expect_finished();
    EXPECT_THAT(probe(output).at("format").at("tags").at("major_brand"), "isom");
    EXPECT_EQ(codes_of(output), equal_codes(0, 5));
}

TEST_F(Movies, WithTheirIndexInFrontAreRead) {
    use(lens_movies({"--frames", "6", "--moov-first"}));
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(0, 5));
}

TEST_F(Movies, WhoseStreamsStandInDifferentOrderPair) {
    for (const char* sound_first : {"1", "2", "both"}) {
        use(lens_movies({"--frames", "6", "--sound", "both", "--sound-first", sound_first}));
        for (int source : {0, 1}) {
            call.audio_source = source;
            expect_finished();
            EXPECT_EQ(codes_of(output), equal_codes(0, 5)) << sound_first;
            EXPECT_FALSE(stored_samples(output).empty());
        }
    }
}

TEST_F(Movies, AndAStillMakeAMovie) {
    const Shot movies = lens_movies({"--frames", "5"});
    use({lens_still(1), movies.two});
    expect_finished();
    EXPECT_EQ(codes_of(output), (Codes{{77, 0}, {77, 1}, {77, 2}, {77, 3}, {77, 4}}));
    use({movies.one, lens_still(2)});
    expect_finished();
    EXPECT_EQ(codes_of(output), (Codes{{0, 77}, {1, 77}, {2, 77}, {3, 77}, {4, 77}}));
    EXPECT_THAT(output_of({"exiftool", "-G1", "-s", output}), HasSubstr("[XMP-GSpherical] ProjectionType"));
}

// It is no end of the pictures, only one less: the last before a key frame, which no other needs.
TEST_F(Movies, GoOnBehindAnEmptyPacket) {
    for (const std::string codec : {"mjpeg", "h264-baseline"}) {
        use(lens_movies({"--frames", "12", "--codec", codec, "--sound", "1"}));
        const size_t number = empty_packet(shot.one, true, 7);
        expect_finished();
        ASSERT_EQ(number, 7u);
        EXPECT_EQ(codes_of(output).size(), 11u) << codec;
    }
}

TEST_F(Movies, OfAnyFrameRateStepBy1001) {
    use(lens_movies({"--frames", "5", "--rate", "25", "--time-scale", "12800", "--sound", "none"}));
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(0, 4));
    EXPECT_EQ(video_times(output), camera_times(5));
    EXPECT_EQ(stream_of(probe(output), "video").at("time_base"), "1/12800");
}

// ---- What the export does besides ----

TEST_F(Movies, LieUnderTheBandPicture) {
    const std::string band = dir.file("band.png");
    run_ffmpeg({"-f", "lavfi", "-i", "color=white:s=1440x60", "-frames:v", "1", "-update", "1", "file:" + band});
    use(lens_movies({"--frames", "3", "--sound", "none"}));
    expect_finished();
    const std::vector<Planes> plain = frames_of(output);
    call.band = band.c_str();
    expect_finished();
    const std::vector<Planes> banded = frames_of(output);
    ASSERT_EQ(banded.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_GT(mean_of(banded[i][0].rowRange(126, 130)), 230) << i;
        EXPECT_LT(mean_of(plain[i][0].rowRange(126, 130)), 200) << i;
        EXPECT_GT(psnr(banded[i][0].rowRange(0, 60), plain[i][0].rowRange(0, 60)), 30) << i;
    }
}

TEST_F(Movies, AreCorrectedLensByLens) {
    use(lens_movies({"--frames", "3", "--sound", "none"}));
    expect_finished();
    const cv::Mat plain = frames_of(output).at(2)[0];
    call.correction1[0] = 20;
    call.correction2[0] = -10;
    expect_finished();
    const cv::Mat corrected = frames_of(output).at(2)[0];
    const auto upper = [](const cv::Mat& panorama) { return mean_of(panorama.rowRange(60, 120)); };
    const auto lower = [](const cv::Mat& panorama) { return mean_of(panorama.rowRange(136, 196)); };
    EXPECT_NEAR(upper(corrected) - upper(plain), 20, 2);
    EXPECT_NEAR(lower(corrected) - lower(plain), -10, 2);
}

TEST_F(Movies, OfTheSameInputsAreTheSameAtAnyNumberOfThreads) {
    use(lens_movies({"--frames", "6", "--sound", "1"}));
    call.audio_source = 0;
    const int threads = cv::getNumThreads();
    std::set<Bytes> files;
    for (int count : {1, 2, 4}) {
        cv::setNumThreads(count);
        expect_finished();
        files.insert(read_file(output));
    }
    cv::setNumThreads(threads);
    EXPECT_EQ(files.size(), 1u);
}

TEST_F(Movies, ExportedAtOnceDoNotDisturbEachOther) {
    use(lens_movies({"--frames", "6", "--sound", "1"}));
    call.audio_source = 0;
    expect_finished();
    const Bytes alone = read_file(output);
    const std::string outputs[] = {dir.file("one.mov"), dir.file("two.mov")};
    NQ360_STATE states[2] = {};
    const auto export_to = [&](size_t i) {
        ExportCall mine = call;
        mine.output = outputs[i].c_str();
        states[i] = mine.run().state();
    };
    std::thread other(export_to, 1);
    export_to(0);
    other.join();
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(states[i], NQ360_FINISHED);
        EXPECT_EQ(read_file(outputs[i]), alone);
    }
}

TEST_F(Movies, LeaveNothingOpenAndNothingBesides) {
    use(lens_movies({"--frames", "3"}));
    expect_finished();
    const auto before = open_files();
    expect_finished();
    EXPECT_EQ(open_files(), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 3);
}

TEST_F(Movies, OfValidFilesLeaveFFmpegSilent) {
    use(lens_movies({"--frames", "3", "--sound", "both"}));
    call.audio_source = 1;
    for (const char* name : {"out.mov", "out.mp4"}) {
        use_output(name);
        EXPECT_THAT(logged([&] { call.run(); }), Not(HasSubstr(" @ 0x")));
    }
}

TEST_F(Movies, OfAnyNameAreReadAndWritten) {
    const Shot movies = lens_movies({"--frames", "2"});
    for (const char* name : {"100%d %s.mov", "a:b.mov", "\"q\" \\.MOV", "\xE3\x81\x82 \xFF.mp4"}) {
        const Shot renamed = {dir.file(std::string("1") + name), dir.file(std::string("2") + name)};
        fs::copy_file(movies.one, renamed.one);
        fs::copy_file(movies.two, renamed.two);
        use(renamed);
        use_output(std::string("out") + name);
        expect_finished();
        const std::string plain = dir.file("plain.mov");
        fs::rename(output, plain);
        EXPECT_EQ(codes_of(plain), equal_codes(0, 1)) << name;
    }
}

// ---- Range ----

TEST_F(Movies, AreCutToTheFramesOfTheRange) {
    use(lens_movies({"--frames", "12", "--sound", "none"}));
    call.start1 = call.start2 = time_of(3);
    call.end1 = call.end2 = time_of(7);
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(4, 8));
    EXPECT_EQ(video_times(output), camera_times(5));
    call.start1 = call.start2 = 0;
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(0, 8));
}

TEST_F(Movies, TakeAnyNumberForATime) {
    use(lens_movies({"--frames", "6", "--sound", "both"}));
    call.audio_source = 0;
    const float infinite = std::numeric_limits<float>::infinity();
    const float none = std::numeric_limits<float>::quiet_NaN();
    const float largest = std::numeric_limits<float>::max();
    const struct {
        float start, end;
        bool any;
    } cases[] = {{0, infinite, true},
                 {-infinite, infinite, true},
                 {-1, 1000, true},
                 {-largest, largest, true},
                 {infinite, infinite, false},
                 {0, -infinite, false},
                 {0, -1, false},
                 {largest, largest, false},
                 {none, 1000, true},
                 {0, none, true},
                 {none, none, true},
                 {-5, -1, false}};
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::Message() << one.start << " to " << one.end);
        call.start1 = call.start2 = one.start;
        call.end1 = call.end2 = one.end;
        const Outcome outcome = run();
        EXPECT_EQ(outcome.state(), one.any ? NQ360_FINISHED : NQ360_FAILED) << outcome.text();
        if (one.any) {
            EXPECT_EQ(codes_of(output), equal_codes(0, 5));
        } else {
            EXPECT_FALSE(fs::exists(output));
        }
    }
}

// ---- Progress and cancel ----

namespace {

// The texts of an export's replies with this state and count.
std::string counted(const Shot& shot, const std::string& output, long long count) {
    return R"({"movie_path1":")" + shot.one + R"(","movie_path2":")" + shot.two + R"(","export_path":")" + output +
           R"(","frame_count":)" + std::to_string(count) + "}";
}

}  // namespace

TEST_F(Movies, ReportTheirTotalEveryTenthFrameAndOneEnd) {
    use(lens_movies({"--frames", "30", "--sound", "none"}));
    const Outcome outcome = run();
    const std::vector<Reply> expected = {
        {NQ360_STARTED, counted(shot, output, 30)},
        {NQ360_PROGRESS, counted(shot, output, 10)},
        {NQ360_PROGRESS, counted(shot, output, 20)},
        {NQ360_PROGRESS, counted(shot, output, 30)},
        {NQ360_FINISHED, R"({"movie_path1":")" + shot.one + R"(","movie_path2":")" + shot.two + R"(","export_path":")" +
                             output + R"("})"},
    };
    EXPECT_EQ(outcome.replies, expected);
}

// Three texts of JSON must remain three texts.
TEST_F(Movies, ReportTheirNamesEscaped) {
    const Shot movies = lens_movies({"--frames", "12", "--sound", "none"});
    const Shot renamed = {dir.file("one \"1\" \\ 100%d.mov"), dir.file("two \"2\" \\ %s.mov")};
    fs::rename(movies.one, renamed.one);
    fs::rename(movies.two, renamed.two);
    use(renamed);
    use_output("out \"3\" \\.mov");
    const Outcome outcome = run();
    ASSERT_EQ(outcome.replies.size(), 3u);
    const Shot escaped = {dir.file(R"(one \"1\" \\ 100%d.mov)"), dir.file(R"(two \"2\" \\ %s.mov)")};
    const std::string escaped_output = dir.file(R"(out \"3\" \\.mov)");
    EXPECT_EQ(outcome.replies[0], (Reply{NQ360_STARTED, counted(escaped, escaped_output, 12)}));
    EXPECT_EQ(outcome.replies[1], (Reply{NQ360_PROGRESS, counted(escaped, escaped_output, 10)}));
}

TEST_F(Movies, ReportTheSmallerTotal) {
    use(lens_movies({"--frames", "9", "--frames2", "5", "--sound", "none"}));
    EXPECT_EQ(run().replies.front(), (Reply{NQ360_STARTED, counted(shot, output, 5)}));
    use({lens_still(1), shot.two});
    EXPECT_EQ(run().replies.front(), (Reply{NQ360_STARTED, counted(shot, output, 5)})) << "a still has none";
}

// From a total of 1010 on. A start before the beginning adds to it: 40 seconds are 1198 frames.
TEST_F(Movies, OfAGreatTotalReportEveryHundredthFrame) {
    use(lens_movies({"--frames", "30", "--sound", "none"}));
    call.start1 = call.start2 = -40;
    const Outcome outcome = run();
    EXPECT_EQ(outcome.replies.front(), (Reply{NQ360_STARTED, counted(shot, output, 1228)}));
    EXPECT_EQ(outcome.replies.size(), 2u) << "no report within 30 frames";
    EXPECT_EQ(codes_of(output).size(), 30u);
}

TEST_F(Movies, AreCancelledAtAnyReport) {
    use(lens_movies({"--frames", "30", "--sound", "1"}));
    call.audio_source = 0;
    const std::string marker = dir.file("stop");
    call.cancel = marker.c_str();
    const Bytes before = read_file(shot.one);
    for (const size_t reports : {1, 2, 3}) {
        fs::remove(marker);
        const Outcome outcome = run([&](const Reply& reply) {
            if (reply.state == NQ360_PROGRESS && reply.json().at("frame_count") == 10 * reports) {
                write_file(marker, {});
            }
        });
        EXPECT_EQ(outcome.state(), NQ360_CANCELLED);
        EXPECT_EQ(outcome.replies.size(), 1 + reports + 1) << "no report behind the marker";
        EXPECT_FALSE(fs::exists(output)) << reports;
        EXPECT_TRUE(fs::exists(marker)) << "the marker is the caller's";
    }
    EXPECT_EQ(read_file(shot.one), before);
}

TEST_F(Movies, ThatAreCancelledSaySo) {
    use(lens_movies({"--frames", "30", "--sound", "none"}));
    const std::string marker = dir.file("stop", Bytes());
    call.cancel = marker.c_str();
    const Outcome outcome = run();
    EXPECT_EQ(outcome.end(), (Reply{NQ360_CANCELLED, error3(39999, "Canceled", shot.one, shot.two, output, -1, "")}));
    EXPECT_EQ(outcome.result, 0);
}

// Established: the text is what the steps before have left, of a packet of sound how many moments it has.
TEST_F(Movies, WithSoundThatAreCancelledSaySo) {
    use(lens_movies({"--frames", "30", "--sound", "1"}));
    call.audio_source = 0;
    const std::string marker = dir.file("stop", Bytes());
    call.cancel = marker.c_str();
    EXPECT_EQ(run().end(), (Reply{NQ360_CANCELLED, error3(39999, "Canceled", shot.one, shot.two, output, -1,
                                                          "Error number 1024 occurred")}));
}

// ---- Metadata ----

namespace {

// The movie as it was before the spherical text was put into its video track: without that atom, and with the
// sizes around it reduced.
Bytes without_spherical_atom(const Bytes& movie) {
    const std::string whole = to_string(movie);
    const size_t moov = whole.rfind("moov") - 4;
    const size_t atom = whole.find("uuid", moov) - 4;
    const uint64_t size = read_big_endian(movie, atom, 4);
    size_t track = moov;  // the last one that begins before the atom
    for (size_t at = whole.find("trak", moov); at < atom; at = whole.find("trak", at + 1)) {
        track = at - 4;
    }
    Bytes bare = slice(movie, 0, atom) + slice(movie, atom + size, movie.size());
    overwrite(bare, moov, be32(read_big_endian(movie, moov, 4) - size));
    overwrite(bare, track, be32(read_big_endian(movie, track, 4) - size));
    return bare;
}

}  // namespace

TEST_F(Movies, AreSphericalForOtherPrograms) {
    use(lens_movies({"--frames", "3", "--sound", "both"}));
    call.datetime = "1767323045";  // what exiftool takes for a time of this form: seconds since 1970
    for (const char* name : {"out.mov", "out.mp4"}) {
        for (int source : {-1, 0}) {  // with sound the video track is the second one
            use_output(name);
            call.audio_source = source;
            expect_finished();
            const nlohmann::json video = stream_of(probe(output), "video");
            ASSERT_TRUE(video.contains("side_data_list")) << name;
            EXPECT_EQ(video.at("side_data_list")[0].at("side_data_type"), "Spherical Mapping");
            EXPECT_EQ(video.at("side_data_list")[0].at("projection"), "equirectangular");

            const nlohmann::json tags =
                nlohmann::json::parse(output_of({"exiftool", "-j", "-XMP-GSpherical:all", output}))[0];
            EXPECT_EQ(tags.at("Spherical"), true);
            EXPECT_EQ(tags.at("Stitched"), true);
            EXPECT_EQ(tags.at("StitchingSoftware"), "TALUMO360Viewer osx.1.0.0");
            EXPECT_EQ(tags.at("ProjectionType"), "equirectangular");
            EXPECT_EQ(tags.at("TimeStamp"), "2026:01:02 03:04:05");
            EXPECT_EQ(tags.size(), 6u) << "these five and the file's name";
        }
    }
}

TEST_F(Movies, DecodeAsBeforeTheirMetadataWasPutIn) {
    use(lens_movies({"--frames", "6", "--sound", "both"}));
    call.audio_source = 1;
    expect_finished();
    const std::string bare = dir.file("bare.mov", without_spherical_atom(read_file(output)));
    EXPECT_FALSE(stream_of(probe(bare), "video").contains("side_data_list"));
    const std::vector<Planes> before = frames_of(bare);
    const std::vector<Planes> after = frames_of(output);
    ASSERT_EQ(after.size(), 6u);
    ASSERT_EQ(before.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        for (size_t plane = 0; plane < 3; ++plane) {
            EXPECT_EQ(cv::norm(before[i][plane], after[i][plane], cv::NORM_INF), 0) << i;
        }
    }
    EXPECT_EQ(stored_samples(bare), stored_samples(output));
}

TEST_F(Movies, AreRecognisedByTheAnalysis) {
    use(lens_movies({"--frames", "3", "--sound", "1"}));
    call.audio_source = 0;
    expect_finished();
    const nlohmann::json analysed = analyze(output).json();
    EXPECT_EQ(analysed.at("isTarget"), true);
    EXPECT_EQ(analysed.at("youtube360_maker"), "TALUMO360Viewer osx.1.0.0");
    EXPECT_EQ(analysed.at("frame_count"), 3);
    EXPECT_EQ(analysed.at("width"), 512);
    EXPECT_EQ(analysed.at("height"), 256);
    EXPECT_EQ(analysed.at("datetime"), "2026:01:02 03:04:05");
}
