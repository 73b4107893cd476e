// Every pairing of two inputs ends, with the frames that are stated here, and with the sound that was asked for.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/movie_export.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

struct Range {
    float start = 0;
    float end = 1000;
};

class Pairings : public MovieExport {
  protected:
    // Movies with sound in both; `sound` names those that keep it.
    Shot movies_with_sound(int frames1, int frames2, const std::string& sound) {
        Shot movies =
            lens_movies({"--frames", std::to_string(frames1), "--frames2", std::to_string(frames2), "--sound", "both"});
        if (sound == "none" || sound == "2") {
            movies.one = muted(movies.one);
        }
        if (sound == "none" || sound == "1") {
            movies.two = muted(movies.two);
        }
        return movies;
    }

    static std::string muted(const std::string& movie) {
        const std::string copy = movie + ".muted.mov";
        run_ffmpeg({"-i", "file:" + movie, "-an", "-c:v", "copy", "-video_track_timescale", "30000", "file:" + copy});
        return copy;
    }

    void use_ranges(const Range& one, const Range& two) {
        call.start1 = one.start;
        call.end1 = one.end;
        call.start2 = two.start;
        call.end2 = two.end;
    }

    // Whether sound of the input chosen by call.audio_source is in the export, and only then.
    void expect_sound_of(const std::string& sound) {
        const bool asked = (call.audio_source == 0 && sound != "none" && sound != "2") ||
                           (call.audio_source == 1 && sound != "none" && sound != "1");
        EXPECT_EQ(!stored_samples(output).empty(), asked);
    }

    void expect_failed() {
        const Outcome outcome = run();
        EXPECT_EQ(outcome.state(), NQ360_FAILED) << outcome.text();
        EXPECT_FALSE(fs::exists(output));
    }
};

const char* const kSounds[] = {"none", "1", "2", "both"};
constexpr int kSources[] = {0, 1, 7};

}  // namespace

// ---- Whole movies: the frames of the shorter one ----

class PairingLengths : public Pairings, public testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(PairingLengths, GiveTheFramesOfTheShorterMovie) {
    const auto [frames1, frames2] = GetParam();
    const int last = std::min(frames1, frames2) - 1;
    for (const char* sound : kSounds) {
        use(movies_with_sound(frames1, frames2, sound));
        for (int source : kSources) {
            SCOPED_TRACE(testing::Message() << "sound in " << sound << ", source " << source);
            call.audio_source = source;
            expect_finished();
            EXPECT_EQ(codes_of(output), equal_codes(0, last));
            expect_sound_of(sound);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, PairingLengths,
                         testing::Values(std::pair(6, 6), std::pair(9, 4), std::pair(4, 9), std::pair(1, 1),
                                         std::pair(1, 6), std::pair(6, 1)),
                         [](const auto& tested) {
                             return std::to_string(tested.param.first) + "And" + std::to_string(tested.param.second);
                         });

// ---- A still with a movie: the movie's frames ----

TEST_F(Pairings, OfAStillAndAMovieGiveTheMoviesFrames) {
    for (const char* sound : {"2", "none"}) {
        const Shot movies = movies_with_sound(6, 6, sound);
        for (int source : kSources) {
            SCOPED_TRACE(testing::Message() << "sound in " << sound << ", source " << source);
            use({lens_still(1), movies.two});
            call.audio_source = source;
            expect_finished();
            EXPECT_EQ(codes_of(output), (Codes{{77, 0}, {77, 1}, {77, 2}, {77, 3}, {77, 4}, {77, 5}}));
            expect_sound_of(sound);
        }
    }
}

TEST_F(Pairings, OfAMovieAndAStillGiveTheMoviesFrames) {
    for (const char* sound : {"1", "none"}) {
        const Shot movies = movies_with_sound(6, 6, sound);
        for (int source : kSources) {
            SCOPED_TRACE(testing::Message() << "sound in " << sound << ", source " << source);
            use({movies.one, lens_still(2)});
            call.audio_source = source;
            expect_finished();
            EXPECT_EQ(codes_of(output), (Codes{{0, 77}, {1, 77}, {2, 77}, {3, 77}, {4, 77}, {5, 77}}));
            expect_sound_of(sound);
        }
    }
}

TEST_F(Pairings, OfAStillTakeNothingFromItsRange) {
    const Shot movies = movies_with_sound(12, 12, "2");
    use({lens_still(1), movies.two});
    use_ranges({50, 60}, {time_of(3), time_of(5)});
    for (int source : kSources) {
        call.audio_source = source;
        expect_finished();
        EXPECT_EQ(codes_of(output), (Codes{{77, 4}, {77, 5}, {77, 6}})) << source;
    }
}

// ---- Ranges ----

namespace {

struct RangeCase {
    const char* name;
    Range one;
    Range two;
    int first1;  // the first frame chosen of each movie of twelve frames
    int first2;
    int count;
    bool sound = true;  // whether any begins in the range
};

void PrintTo(const RangeCase& tested, std::ostream* out) {
    *out << tested.name;
}

class PairingRanges : public Pairings, public testing::WithParamInterface<RangeCase> {};

}  // namespace

TEST_P(PairingRanges, GiveTheFramesStated) {
    const RangeCase& tested = GetParam();
    Codes expected;
    for (int i = 0; i < tested.count; ++i) {
        expected.emplace_back(tested.first1 + i, tested.first2 + i);
    }
    for (const char* sound : {"1", "both"}) {
        use(movies_with_sound(12, 12, sound));
        use_ranges(tested.one, tested.two);
        for (int source : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "sound in " << sound << ", source " << source);
            call.audio_source = source;
            if (expected.empty()) {
                expect_failed();
                continue;
            }
            expect_finished();
            EXPECT_EQ(codes_of(output), expected);
            expect_sound_of(tested.sound ? sound : "none");
        }
    }
}

// A start that is not 0 drops the frame it names, and the one behind the last frame in the range belongs to it.
INSTANTIATE_TEST_SUITE_P(
    , PairingRanges,
    testing::Values(RangeCase{"Inside", {time_of(3), time_of(7)}, {time_of(3), time_of(7)}, 4, 4, 5},
                    RangeCase{"FromTheBeginning", {0, time_of(7)}, {0, time_of(7)}, 0, 0, 9},
                    RangeCase{"BetweenFrames", {0.11f, 0.21f}, {0.11f, 0.21f}, 5, 5, 3},
                    RangeCase{"AcrossTheEnd", {time_of(8), 5}, {time_of(8), 5}, 9, 9, 3},
                    RangeCase{"OfOneInstant", {time_of(5), time_of(5)}, {time_of(5), time_of(5)}, 6, 6, 1, false},
                    RangeCase{"OfTheFirstInstant", {0, 0}, {0, 0}, 0, 0, 2},
                    RangeCase{"OfTheLastInstant", {time_of(11), time_of(11)}, {time_of(11), time_of(11)}, 0, 0, 0},
                    RangeCase{"PastTheEnd", {5, 9}, {5, 9}, 0, 0, 0},
                    RangeCase{"Empty", {time_of(7), time_of(3)}, {time_of(7), time_of(3)}, 0, 0, 0},
                    RangeCase{"OneOfThemEmpty", {0, 1000}, {time_of(7), time_of(3)}, 0, 0, 0},
                    RangeCase{"OneOfThemPastTheEnd", {5, 9}, {0, 1000}, 0, 0, 0},
                    RangeCase{"LaterInTheFirst", {time_of(5), 1000}, {0, 1000}, 6, 0, 6},
                    RangeCase{"ShorterInTheSecond", {0, 1000}, {time_of(2), time_of(5)}, 0, 3, 4}),
    [](const auto& tested) { return std::string(tested.param.name); });

// ---- No frame ----

TEST_F(Pairings, WithAnInputWithoutPicturesFail) {
    const Shot movies = movies_with_sound(6, 6, "both");
    const std::string with_pictures[] = {movies.one, movies.two};
    for (const char* kind : {"--sound", "--fragmented"}) {  // no video track; one without a frame
        std::vector<std::string> arguments = {"--frames", "0", kind};
        if (std::string(kind) == "--sound") {
            arguments.insert(arguments.end(), {"both", "--sound-seconds", "0.2"});
        }
        TempDir other;
        const Shot without = movies_in(other, arguments);
        for (int source : kSources) {
            SCOPED_TRACE(testing::Message() << kind << ", source " << source);
            call.audio_source = source;
            use({without.one, with_pictures[1]});
            expect_failed();
            use({with_pictures[0], without.two});
            expect_failed();
            use({without.one, without.two});
            expect_failed();
        }
    }
}
