#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media/libavif.h"
#include "media/output_option.h"
#include "projection/soavfunc.h"
#include "sample/lens.h"
#include "support/codes.h"
#include "support/media.h"
#include "support/progress_calls.h"
#include "support/samples.h"
#include "support/watchdog.h"

namespace {

using namespace test_support;
using testing::HasSubstr;
using testing::Not;

constexpr int kLens = 256;
OutputOption option_for(int width = 256, int height = 128) {
    OutputOption option;
    option.output_size = {width, height};
    option.end1 = option.end2 = 1000;
    option.audio_source = -1;
    option.correct1 = option.correct2 = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, CORRECT_NONE);
    const ImageSize map_size = {std::max(width, 2), std::max(height, 2)};
    option.transmap = create_equidistantmap(map_size, {kLens, kLens}, sample::lens_radius(kLens), 0, option.rotation);
    return option;
}

Shot small_movies(const TempDir& dir, std::vector<std::string> arguments = {}, const std::string& extension = ".mov") {
    arguments.insert(arguments.begin(), {"--size", std::to_string(kLens), "--key-frames", "4"});
    return movies_in(dir, arguments, extension);
}

std::string small_still(const TempDir& dir, const std::string& name = "still.jpg") {
    const Shot shot = stills_in(dir, {"--size", std::to_string(kLens), "--code", "77"});
    std::filesystem::rename(shot.one, dir.file(name));
    return dir.file(name);
}

// The second lens's, for a panorama's lower half.
std::string small_still2(const TempDir& dir) {
    return stills_in(dir, {"--size", std::to_string(kLens), "--code", "77"}).two;
}

struct Written {
    int result = 0;
    ProgressCalls progress;
    std::string log;
    int error_code = 0;
    std::string error_text;
    bool cancelled = false;
};

Written write(const Shot& inputs, const std::string& output, const OutputOption& option, const char* cancel = nullptr,
              const std::function<void()>& on_progress = nullptr) {
    const Watchdog watchdog("writing " + output);
    libavIF media(inputs.one.c_str(), inputs.two.c_str());
    EXPECT_EQ(media.open_input_file(0), 0) << media.error_text;
    EXPECT_EQ(media.open_input_file(1), 0) << media.error_text;
    Written written;
    written.log = logged([&] {
        const auto job = [&](const ReportProgress& report) {
            written.result = media.write_video(output.c_str(), cancel, option, report);
        };
        written.progress = progress_of(job, on_progress);
    });
    written.error_code = media.error_code;
    written.error_text = media.error_text;
    written.cancelled = media.cancelled;
    EXPECT_EQ(media.output_format, nullptr) << "the output is closed on every way out";
    return written;
}

// ---- Kinds of inputs ----

TEST(WriteVideo, OfTwoMoviesPairsTheirFrames) {
    TempDir dir;
    const std::string output = dir.file("out.mov");
    for (const char* codec : {"h264-baseline", "h264-main", "h264-high", "mjpeg"}) {
        const Shot movies = small_movies(dir, {"--frames", "7", "--codec", codec, "--sound", "none"});
        ASSERT_EQ(write(movies, output, option_for()).result, 0) << codec;
        EXPECT_EQ(codes_of(output), equal_codes(0, 6)) << codec;
        EXPECT_EQ(video_times(output), (std::vector<int64_t>{0, 1001, 2002, 3003, 4004, 5005, 6006})) << codec;
    }
}

TEST(WriteVideo, OfTwoCodecsPairsTheirFrames) {
    TempDir dir;
    const std::string output = dir.file("out.mov");
    const Shot movies =
        small_movies(dir, {"--frames", "7", "--codec", "h264-main", "--codec2", "mjpeg", "--sound", "none"});
    ASSERT_EQ(write(movies, output, option_for()).result, 0);
    EXPECT_EQ(codes_of(output), equal_codes(0, 6));
    ASSERT_EQ(write({movies.two, movies.one}, output, option_for()).result, 0);
    EXPECT_EQ(codes_of(output).size(), 7u);
}

TEST(WriteVideo, OfAStillAndAMovieUsesTheStillForEveryFrame) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "5", "--codec", "h264-main"});
    const std::string output = dir.file("out.mov");
    ASSERT_EQ(write({small_still(dir), movies.two}, output, option_for()).result, 0);
    EXPECT_EQ(codes_of(output), (Codes{{77, 0}, {77, 1}, {77, 2}, {77, 3}, {77, 4}}));
    ASSERT_EQ(write({movies.one, small_still2(dir)}, output, option_for()).result, 0);
    EXPECT_EQ(codes_of(output), (Codes{{0, 77}, {1, 77}, {2, 77}, {3, 77}, {4, 77}}));
}

TEST(WriteVideo, OfAStillAndAMovieTakesTheMoviesRange) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "12"});
    const std::string output = dir.file("out.mov");
    OutputOption option = option_for();
    option.start2 = time_of(3);
    option.end2 = time_of(5);
    option.start1 = 7;  // of the still: of no meaning
    option.end1 = 2;
    ASSERT_EQ(write({small_still(dir), movies.two}, output, option).result, 0);
    EXPECT_EQ(codes_of(output), (Codes{{77, 4}, {77, 5}, {77, 6}}));
}

TEST(WriteVideo, OfTwoStillsIsAJpeg) {
    TempDir dir;
    const std::string output = dir.file("out.jpg");
    const Written written = write({small_still(dir), small_still2(dir)}, output, option_for());
    ASSERT_EQ(written.result, 0) << written.error_text;
    const nlohmann::json probed = probe(output);
    ASSERT_EQ(probed.at("streams").size(), 1u);
    EXPECT_EQ(probed.at("streams")[0].at("codec_name"), "mjpeg");
    EXPECT_EQ(probed.at("streams")[0].at("pix_fmt"), "yuvj420p");
    EXPECT_EQ(codes_in(plane_of(output, 'y')), (CodePair{77, 77}));
    EXPECT_EQ(written.progress.size(), 0u) << "fewer frames than a report needs";
    EXPECT_THAT(written.log, HasSubstr("codec use AV_CODEC_ID_MJPEG \n"));
    EXPECT_THAT(written.log, Not(HasSubstr("add audio stream")));
}

// Movies in fragments tell no frame count, and so pass for stills.
TEST(WriteVideo, OfTwoMoviesInFragmentsIsAJpegOfTheirFirstFrames) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "5", "--fragmented", "--sound", "none"});
    const std::string output = dir.file("out.jpg");
    ASSERT_EQ(write(movies, output, option_for()).result, 0);
    EXPECT_EQ(codes_in(plane_of(output, 'y')), (CodePair{0, 0}));
    EXPECT_LT(write(movies, dir.file("out.mov"), option_for()).result, 0);
}

// A movie has ended when its pairs have; what passes for a still has when no other picture follows its first.
TEST(WriteVideo, TellsWhichInputsHaveEnded) {
    TempDir dir;
    TempDir other;
    const std::string movie = small_movies(dir, {"--frames", "3"}).one;
    const std::string fragments = small_movies(other, {"--frames", "5", "--fragmented", "--sound", "none"}).one;
    const std::string still = small_still(dir);
    const struct {
        Shot inputs;
        const char* name;
        const char* flags;
    } cases[] = {{{movie, movie}, "out.mov", "1 1"},         {{still, still}, "out.jpg", "1 1"},
                 {{movie, still}, "out.mov", "1 1"},         {{still, movie}, "out.mov", "1 1"},
                 {{movie, fragments}, "out.mov", "1 0"},     {{fragments, movie}, "out.mov", "0 1"},
                 {{fragments, fragments}, "out.jpg", "0 0"}, {{fragments, still}, "out.jpg", "0 1"}};
    for (const auto& one : cases) {
        const Written written = write(one.inputs, dir.file(one.name), option_for());
        EXPECT_EQ(written.result, 0) << written.error_text;
        EXPECT_THAT(written.log, HasSubstr(std::string("[libavIF::write_video] loop finished ") + one.flags + "\n"))
            << one.inputs.one << " and " << one.inputs.two;
    }
}

TEST(WriteVideo, OfAMovieOfOneFrameKeepsIt) {
    TempDir dir;
    const std::string output = dir.file("out.mov");
    for (const char* codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        const Shot movies = small_movies(dir, {"--frames", "1", "--codec", codec});
        ASSERT_EQ(write(movies, output, option_for()).result, 0) << codec;
        EXPECT_EQ(codes_of(output), equal_codes(0, 0));
        EXPECT_EQ(stream_of(probe(output), "video").at("duration_ts"), 1001);
    }
}

// ---- Every pairing ----

struct Range {
    float start;
    float end;
};

struct Pairing {
    int frames[2];
    std::string sound;  // the movies that have sound
    int source;
    Range range[2];
};

bool has_sound(const Pairing& pairing, int input) {
    return pairing.sound == "both" || pairing.sound == std::to_string(input + 1);
}

// The input whose sound is copied; -1: none.
int sound_input(const Pairing& pairing) {
    const int source = pairing.source;
    return (source == 0 || source == 1) && has_sound(pairing, source) ? source : -1;
}

// The range that is left of the input whose sound is copied: no longer than the other movie.
Range cut_range(const Pairing& pairing, int input) {
    Range range = pairing.range[input];
    if (input != sound_input(pairing)) {
        return range;
    }
    double lengths[2];
    for (int i = 0; i < 2; ++i) {
        const double whole = pairing.frames[i] * kFrameSeconds;
        lengths[i] = std::min(whole, static_cast<double>(pairing.range[i].end)) - pairing.range[i].start;
    }
    if (lengths[input] > lengths[1 - input]) {
        range.end = static_cast<float>(range.start + lengths[1 - input]);
    }
    return range;
}

// Frames k + 1 to m + 1 from a start that is not 0, and 0 to m + 1 from 0; k is the first frame at or after the
// start, m the last one at or before the end.
std::vector<int> chosen_frames(int count, Range range) {
    int k = 0;
    while (k < count && time_of(k) < range.start) {
        ++k;
    }
    int m = -1;
    while (m + 1 < count && time_of(m + 1) <= range.end) {
        ++m;
    }
    std::vector<int> frames;
    const int last = m < 0 ? -1 : std::min(m + 1, count - 1);
    for (int frame = range.start > 0 ? k + 1 : 0; frame <= last; ++frame) {
        frames.push_back(frame);
    }
    return frames;
}

Codes expected_codes(const Pairing& pairing) {
    const std::vector<int> one = chosen_frames(pairing.frames[0], cut_range(pairing, 0));
    const std::vector<int> two = chosen_frames(pairing.frames[1], cut_range(pairing, 1));
    Codes codes;
    for (size_t i = 0; i < std::min(one.size(), two.size()); ++i) {
        codes.emplace_back(one[i], two[i]);
    }
    return codes;
}

// The samples of what begins in the range.
Samples samples_in(const std::string& path, Range range) {
    std::string bytes;
    for (const StoredPacket& packet : packets_of(path)) {
        const bool behind = packet.seconds > static_cast<double>(range.end) + 1e-7;
        if (!packet.video && !behind && packet.seconds >= static_cast<double>(range.start) - 1e-7) {
            bytes += packet.bytes;
        }
    }
    Samples samples(bytes.size() / 2);
    std::copy_n(bytes.data(), samples.size() * 2, reinterpret_cast<char*>(samples.data()));
    return samples;
}

// All blocks of 1000 are there; what is less than that stays out.
void expect_sound(const Pairing& pairing, const Shot& movies, const std::string& output) {
    const int input = sound_input(pairing);
    const Samples found = stored_samples(output);
    if (input < 0) {
        EXPECT_TRUE(found.empty());
        return;
    }
    Samples expected = samples_in(input == 0 ? movies.one : movies.two, cut_range(pairing, input));
    expected.resize(expected.size() / 2000 * 2000);
    EXPECT_EQ(found.size(), expected.size());
    EXPECT_TRUE(found == expected) << "other samples";
}

std::string description(const Pairing& pairing) {
    std::ostringstream text;
    text << pairing.frames[0] << " and " << pairing.frames[1] << " frames, sound in " << pairing.sound << ", source "
         << pairing.source << ", ranges " << pairing.range[0].start << " to " << pairing.range[0].end << " and "
         << pairing.range[1].start << " to " << pairing.range[1].end;
    return text.str();
}

void expect_pairing(const Pairing& pairing, const Shot& movies, const std::string& output) {
    SCOPED_TRACE(description(pairing));
    const Watchdog watchdog(description(pairing));
    OutputOption option = option_for();
    option.audio_source = pairing.source;
    option.start1 = pairing.range[0].start;
    option.start2 = pairing.range[1].start;
    option.end1 = pairing.range[0].end;
    option.end2 = pairing.range[1].end;
    const Written written = write(movies, output, option);
    const Codes expected = expected_codes(pairing);
    if (expected.empty()) {
        EXPECT_EQ(written.result, AVERROR_EXIT);
        EXPECT_EQ(written.error_text, "no pair of pictures lies in the range");
        return;
    }
    ASSERT_EQ(written.result, 0) << written.error_text;
    EXPECT_EQ(codes_of(output), expected);
    expect_sound(pairing, movies, output);
}

class EveryPairing : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

TEST_P(EveryPairing, EndsWithTheFramesAndTheSoundOfItsRange) {
    const auto& [codec, sound] = GetParam();
    const std::pair<int, int> lengths[] = {{6, 6}, {9, 4}, {4, 9}, {1, 1}, {1, 6}};
    const std::pair<Range, Range> ranges[] = {
        {{0, 1000}, {0, 1000}},                                // whole
        {{time_of(2), time_of(4)}, {time_of(2), time_of(4)}},  // inside
        {{0, time_of(3)}, {0, time_of(3)}},                    // from the beginning
        {{time_of(3), 1000}, {time_of(3), 1000}},              // across the end
        {{5, 9}, {5, 9}},                                      // past the end
        {{time_of(4), time_of(2)}, {time_of(4), time_of(2)}},  // empty
        {{0, 0}, {0, 0}},                                      // of one instant
        {{time_of(1), 1000}, {0, time_of(3)}},                 // another for each
    };
    for (const auto& [frames1, frames2] : lengths) {
        TempDir dir;
        const Shot movies = small_movies(dir, {"--frames", std::to_string(frames1), "--frames2",
                                               std::to_string(frames2), "--codec", codec, "--sound", sound});
        for (const auto& [range1, range2] : ranges) {
            for (int source : {0, 1, 2}) {
                expect_pairing({{frames1, frames2}, sound, source, {range1, range2}}, movies, dir.file("out.mov"));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, EveryPairing,
                         testing::Combine(testing::Values("h264-baseline", "h264-main", "mjpeg"),
                                          testing::Values("none", "1", "2", "both")));

// ---- Seeking ----

enum Kind { kPictures, kSound };

// A copy of a movie whose packets of a kind are unreadable from the one with the number `first` to before `last`.
std::string damaged(const std::string& path, const std::string& copy, Kind kind, size_t first,
                    size_t last = std::numeric_limits<size_t>::max()) {
    Bytes bytes = read_file(path);
    size_t number = 0;
    for (const StoredPacket& packet : packets_of(path)) {
        if (packet.video != (kind == kPictures)) {
            continue;
        }
        if (number >= first && number < last) {
            overwrite(bytes, static_cast<size_t>(packet.position), Bytes(packet.bytes.size(), 0xA5));
        }
        ++number;
    }
    write_file(copy, bytes);
    return copy;
}

// What lies before the range is not even read: here it cannot be decoded.
TEST(WriteVideo, SeeksToTheStartOfEachMovie) {
    TempDir dir;
    const std::string output = dir.file("out.mov");
    const Codes expected = equal_codes(14, 19);
    for (const char* codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        const Shot movies = small_movies(dir, {"--frames", "20", "--codec", codec});
        for (int input : {0, 1}) {
            Shot inputs = movies;
            std::string& spoilt = input == 0 ? inputs.one : inputs.two;
            spoilt = damaged(spoilt, dir.file("damaged.mov"), kPictures, 0, 8);
            OutputOption option = option_for();
            option.start1 = option.start2 = time_of(13);
            const Written written = write(inputs, output, option);
            ASSERT_EQ(written.result, 0) << codec << ", input " << input << ": " << written.error_text;
            EXPECT_EQ(codes_of(output), expected) << codec << ", input " << input;
            EXPECT_LT(write(inputs, output, option_for()).result, 0) << "the damage is real";
        }
    }
}

// ---- Sound ----

// Input 2's sound keeps its rate, whatever input 1's is.
TEST(WriteVideo, CarriesTheChosenSoundAtItsOwnRate) {
    TempDir dir;
    const Shot first = small_movies(dir, {"--frames", "6", "--sound", "both", "--sound-rate", "48000"});
    std::filesystem::rename(first.one, dir.file("one.mov"));
    const Shot second = small_movies(dir, {"--frames", "6", "--sound", "both", "--sound-rate", "44100"});
    const std::string output = dir.file("out.mov");
    OutputOption option = option_for();
    option.audio_source = 1;
    ASSERT_EQ(write({dir.file("one.mov"), second.two}, output, option).result, 0);
    EXPECT_EQ(stream_of(probe(output), "audio").at("sample_rate"), "44100");
    const Samples found = stored_samples(output);
    EXPECT_EQ(found, first_samples(stored_samples(second.two), found.size() / 2));
    EXPECT_EQ(found.size() / 2, 8000u) << "0.2 s are 8828 moments: eight blocks";
}

TEST(WriteVideo, CutsTheInputWithTheSoundToTheOtherOnesLength) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "4", "--frames2", "60", "--sound", "2"});
    const std::string output = dir.file("out.mov");
    OutputOption option = option_for();
    option.audio_source = 1;
    ASSERT_EQ(write(movies, output, option).result, 0);
    EXPECT_EQ(codes_of(output), equal_codes(0, 3));
    const double seconds = static_cast<double>(stored_samples(output).size()) / 2 / 48000;
    EXPECT_GE(seconds, 4 * kFrameSeconds - 1000 / 48000.0);
    EXPECT_LE(seconds, 4 * kFrameSeconds + 1024 / 48000.0);
}

TEST(WriteVideo, NeverLengthensTheInputWithTheSound) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "60", "--frames2", "60", "--sound", "1"});
    const std::string output = dir.file("out.mov");
    OutputOption option = option_for();
    option.audio_source = 0;
    option.end1 = time_of(10);
    ASSERT_EQ(write(movies, output, option).result, 0);
    EXPECT_EQ(codes_of(output), equal_codes(0, 11));
    EXPECT_LT(stored_samples(output).size() / 2, 48000 * (10 * kFrameSeconds) + 1025);
}

// ---- Progress and cancel ----

TEST(WriteVideo, ReportsEveryFrameAtAnIntervalOf1) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "4"});
    OutputOption option = option_for();
    option.update_frame = 1;
    const Written written = write(movies, dir.file("out.mov"), option);
    EXPECT_EQ(written.progress,
              (ProgressCalls{{NQ360_PROGRESS, 1}, {NQ360_PROGRESS, 2}, {NQ360_PROGRESS, 3}, {NQ360_PROGRESS, 4}}));
}

TEST(WriteVideo, ReportsTheMultiplesOfItsIntervalAlone) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "7"});
    OutputOption option = option_for();
    option.update_frame = 3;
    const Written written = write(movies, dir.file("out.mov"), option);
    EXPECT_EQ(written.progress, (ProgressCalls{{NQ360_PROGRESS, 3}, {NQ360_PROGRESS, 6}}));
}

TEST(WriteVideo, StopsAtTheFirstReportWhenTheMarkerStandsFromTheStart) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "12"});
    const std::string marker = dir.file("stop", Bytes());
    OutputOption option = option_for();
    option.update_frame = 5;
    const std::string output = dir.file("out.mov");
    const Written written = write(movies, output, option, marker.c_str());
    EXPECT_EQ(written.result, AVERROR_EXIT);
    EXPECT_TRUE(written.cancelled);
    EXPECT_EQ(written.error_code, AVERROR_EXIT);
    EXPECT_EQ(written.error_text, "") << "the text stays what was left before";
    EXPECT_EQ(written.progress.size(), 1u) << "the report comes before the test";
    EXPECT_THAT(written.log, HasSubstr("[libavIF::write_video] cancelled\n"));
    EXPECT_TRUE(std::filesystem::exists(output)) << "removing it is the caller's";
    EXPECT_THROW(frames_of(output), std::runtime_error) << "without an end it is no movie";
}

TEST(WriteVideo, LooksForTheMarkerAtEveryFrameAtAnIntervalOf1) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "7"});
    const std::string marker = dir.file("stop");
    OutputOption option = option_for();
    option.update_frame = 1;
    for (const size_t reports : {1, 2, 5}) {
        std::filesystem::remove(marker);
        size_t count = 0;
        const Written written = write(movies, dir.file("out.mov"), option, marker.c_str(), [&] {
            if (++count == reports) {
                write_file(marker, {});
            }
        });
        EXPECT_EQ(written.result, AVERROR_EXIT);
        EXPECT_EQ(written.progress.size(), reports);
    }
}

TEST(WriteVideo, IsNotStoppedBetweenReports) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "7"});
    const std::string marker = dir.file("stop", Bytes());
    EXPECT_EQ(write(movies, dir.file("out.mov"), option_for(), marker.c_str()).result, 0);
}

TEST(WriteVideo, WorksWithoutACallback) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "7"});
    libavIF media(movies.one.c_str(), movies.two.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    ASSERT_EQ(media.open_input_file(1), 0);
    OutputOption option = option_for();
    option.update_frame = 1;
    EXPECT_EQ(media.write_video(dir.file("out.mov").c_str(), nullptr, option, nullptr), 0);
}

TEST(WriteVideo, ASecondOneOnTheSameObjectCountsTheTimesOn) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "4"});
    const std::string output = dir.file("out.mov");
    libavIF media(movies.one.c_str(), movies.two.c_str());
    for (int64_t round = 0; round < 2; ++round) {
        ASSERT_EQ(media.open_input_file(0), 0);
        ASSERT_EQ(media.open_input_file(1), 0);
        ASSERT_EQ(media.write_video(output.c_str(), nullptr, option_for(), nullptr), 0);
        EXPECT_EQ(media.next_video_pts, 4004 * (round + 1));
    }
    EXPECT_EQ(codes_of(output), equal_codes(0, 3));
}

// ---- The log ----

TEST(WriteVideo, LogsItsSteps) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "2", "--sound", "1"});
    const std::string output = dir.file("100%d.mov");
    EXPECT_EQ(write(movies, output, option_for()).log,
              "[libavIF::write_video] open outputfile " + output +
                  "\n"
                  "[libavIF::write_video] format name : mov (QuickTime / MOV)\n"
                  "[libavIF::write_video] format ext : mov\n"
                  "[libavIF::write_video] codec use AV_CODEC_ID_H264 \n"
                  "[libavIF::write_video] add audio stream \n"
                  "[libavIF::write_video] init swr_context \n"
                  "[libavIF::write_video] init audio buffer \n"
                  "[libavIF::write_video] add video stream \n"
                  "[libavIF::write_video] AV I/O open\n"
                  "[libavIF::write_video] write header\n"
                  "[libavIF::write_video] start loop\n"
                  // The pictures' packets, two rounds of sound and the end of the file.
                  "[libavIF::write_video] output_frame_size:1000\n"
                  "[libavIF::write_video] output_frame_size:1000\n"
                  "[libavIF::write_video] output_frame_size:1000\n"
                  "[libavIF::write_video] output_frame_size:1000\n"
                  "[libavIF::write_video] output_frame_size:1000\n"
                  "[libavIF::write_video] output_frame_size:1000\n"
                  "[libavIF::write_video] output_frame_size:1000\n"
                  "[libavIF::write_video] loop finished 1 1\n");
}

// Sound that goes on behind the last pair is read in passes of its own.
TEST(WriteVideo, LogsThePassesBehindTheLastPair) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "2", "--frames2", "30", "--sound", "2"});
    const auto passes = [&](int audio_source) {
        OutputOption option = option_for();
        option.audio_source = audio_source;
        const std::string log = write(movies, dir.file("out.mov"), option).log;
        const std::regex line("output_frame_size");
        return std::distance(std::sregex_iterator(log.begin(), log.end(), line), std::sregex_iterator());
    };
    EXPECT_GT(passes(1), passes(-1));
}

// ---- Failures ----

struct Refused {
    int result;
    std::string text;
};

Refused refused(const Shot& inputs, const std::string& output, const OutputOption& option) {
    const Written written = write(inputs, output, option);
    EXPECT_LT(written.result, 0);
    EXPECT_EQ(written.error_code, written.result);
    EXPECT_FALSE(std::filesystem::is_regular_file(output)) << "nothing is written before the check";
    return {written.result, written.error_text};
}

TEST(WriteVideoFailure, OfASizeThatTheEncoderCannotTake) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "2"});
    for (const auto& [width, height] :
         {std::pair(129, 64), std::pair(128, 65), std::pair(14, 64), std::pair(64, 14), std::pair(4098, 2304)}) {
        OutputOption option = option_for();
        option.output_size = {width, height};
        EXPECT_THAT(refused(movies, dir.file("out.mov"), option).text,
                    HasSubstr("not " + std::to_string(width) + " x " + std::to_string(height)));
    }
}

TEST(WriteVideoFailure, OfAMovieIntoAFileOfAnotherKind) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "2"});
    for (const char* name : {"x.jpg", "x.wav", "x", "x.xyz", "x.png", ".mov/"}) {
        refused(movies, dir.file(name), option_for());
    }
    refused({small_still(dir), movies.two}, dir.file("x.jpg"), option_for());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 4) << "the inputs alone";
}

TEST(WriteVideoFailure, OfTwoStillsIntoAMovie) {
    TempDir dir;
    for (const char* name : {"x.mov", "x.mp4", "x.wav", "x"}) {
        refused({small_still(dir), small_still2(dir)}, dir.file(name), option_for());
    }
}

TEST(WriteVideoFailure, OfAnOutputThatCannotBeOpened) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "2"});
    const std::string folder = dir.file("folder.mov");
    std::filesystem::create_directory(folder);
    const std::pair<std::string, int> cases[] = {{dir.file("missing/out.mov"), AVERROR(ENOENT)},
                                                 {folder, AVERROR(EISDIR)}};
    for (const auto& [output, code] : cases) {
        const Written written = write(movies, output, option_for());
        EXPECT_EQ(written.result, code);
        // In the words that are established for the audio buffer.
        EXPECT_THAT(written.log, HasSubstr("[libavIF::write_video] init audio buffer error " + std::to_string(code) +
                                           ":" + written.error_text + "\n"));
    }
}

TEST(WriteVideoFailure, OfADecoderIsLoggedWithItsInput) {
    TempDir dir;
    for (const char* codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        const Shot movies = small_movies(dir, {"--frames", "12", "--codec", codec});
        const std::string output = dir.file("out.mov");
        for (int input : {0, 1}) {
            Shot inputs = movies;
            std::string& spoilt = input == 0 ? inputs.one : inputs.two;
            spoilt = damaged(spoilt, dir.file("damaged.mov"), kPictures, 6);
            const Written written = write(inputs, output, option_for());
            EXPECT_LT(written.result, 0) << codec;
            EXPECT_EQ(written.error_code, written.result);
            EXPECT_THAT(written.log,
                        HasSubstr("[libavIF::write_video] decode_packet" + std::to_string(input + 1) + " error " +
                                  std::to_string(written.result) + ":" + written.error_text + "\n"))
                << codec;
        }
    }
}

TEST(WriteVideoFailure, OfAStillWithoutAPictureIsLoggedWithItsInput) {
    TempDir dir;
    TempDir other;
    const std::string movie = small_movies(dir, {"--frames", "3"}).one;
    const std::string nothing = small_movies(other, {"--frames", "0", "--fragmented", "--sound", "none"}).one;
    for (int input : {0, 1}) {
        const Shot inputs = input == 0 ? Shot{nothing, movie} : Shot{movie, nothing};
        const Written written = write(inputs, dir.file("out.mov"), option_for());
        EXPECT_EQ(written.result, AVERROR_EOF);
        EXPECT_THAT(written.log, HasSubstr("[libavIF::write_video] decode_packet" + std::to_string(input + 1) +
                                           " error " + std::to_string(AVERROR_EOF) + ":End of file\n"));
    }
}

// What was cut off the end of a file is missed where it should be read.
TEST(WriteVideoFailure, OfReadingIsLoggedWithItsInput) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "12", "--codec", "mjpeg", "--moov-first", "--sound", "none"});
    for (int input : {0, 1}) {
        Shot inputs = movies;
        std::string& cut = input == 0 ? inputs.one : inputs.two;
        const Bytes whole = read_file(cut);
        cut = dir.file("cut.mov", slice(whole, 0, whole.size() / 2));
        const Written written = write(inputs, dir.file("out.mov"), option_for());
        EXPECT_EQ(written.result, AVERROR_INVALIDDATA);
        EXPECT_THAT(written.log, HasSubstr("[libavIF::write_video] read_frame" + std::to_string(input + 1) + " error " +
                                           std::to_string(written.result) + ":" + written.error_text + "\n"));
    }
}

TEST(WriteVideoFailure, OfTheSoundIsLogged) {
    TempDir dir;
    const Shot movies = small_movies(dir, {"--frames", "12", "--sound", "both", "--sound-codec", "aac"});
    for (int input : {0, 1}) {
        for (size_t first = 0; first < 19; first += 3) {  // before the first pair, and among the pairs
            Shot inputs = movies;
            std::string& spoilt = input == 0 ? inputs.one : inputs.two;
            spoilt = damaged(spoilt, dir.file("damaged.mov"), kSound, first);
            OutputOption option = option_for();
            option.audio_source = input;
            const Written written = write(inputs, dir.file("out.mov"), option);
            EXPECT_EQ(written.result, AVERROR_INVALIDDATA);
            EXPECT_EQ(written.error_code, written.result);
            const std::string line = "[libavIF::write_video] wtire_audio error " + std::to_string(written.result) +
                                     ":" + written.error_text + "\n";
            EXPECT_EQ(written.log.find(line) != std::string::npos, input == 1)
                << "input 2's alone is logged; input " << input + 1 << " from " << first;
        }
    }
}

}  // namespace
