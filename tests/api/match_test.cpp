// What the caller of a match is told. How it finds it is tested with the seam.
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/comma_locale.h"
#include "support/samples.h"
#include "support/shot_jobs.h"

using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

namespace {

class MatchTest : public testing::Test {
  protected:
    void use_stills(const std::vector<std::string>& more = {}) { use(stills_in(dir, with_size(more))); }
    void use_movies(const std::vector<std::string>& more = {}) {
        use(movies_in(dir, with_size({"--frames", "12", "--no-labels"}, more)));
    }
    void use(const Shot& files) {
        shot = files;
        options = shot_options(shot.one, shot.two);
    }

    // Runs it and tells the states of its replies.
    std::vector<NQ360_STATE> states(NQ360_SHOT* opened = nullptr) {
        std::vector<NQ360_STATE> all;
        for (const Reply& reply : match(options, opened).replies) {
            all.push_back(reply.state);
        }
        return all;
    }

    TempDir dir;
    Shot shot;
    NQ360_EXPORT_OPTIONS options = shot_options("", "");

  private:
    static std::vector<std::string> with_size(std::vector<std::string> options,
                                              const std::vector<std::string>& more = {}) {
        options.insert(options.begin(), {"--size", "1440"});
        options.insert(options.end(), more.begin(), more.end());
        return options;
    }
};

}  // namespace

TEST_F(MatchTest, TellsAllThatItFound) {
    use_stills({"--factor", "0.8", "--turn2", "2"});
    const Outcome outcome = match(options);
    EXPECT_EQ(outcome.result, NQ360_FINISHED);
    const nlohmann::json reply = outcome.json();
    EXPECT_NEAR(reply.at("turn").get<double>(), 2, 0.05);
    EXPECT_EQ(reply.at("gain1"), nlohmann::json({1, 1, 1}));
    for (const nlohmann::json& gain : reply.at("gain2")) {
        EXPECT_NEAR(gain.get<double>(), 1.25, 0.02);
    }
    for (const char* key : {"correct1", "correct2", "step", "step_turned", "step_corrected", "step_gained"}) {
        EXPECT_EQ(reply.at(key).size(), 3u) << key;
    }
    EXPECT_TRUE(reply.at("correct1")[0].is_number_integer());
    EXPECT_GT(reply.at("step")[0], 10);
    EXPECT_LT(reply.at("step_gained")[0], 1.2);
    EXPECT_GT(reply.at("compared"), 0.8);
    EXPECT_GT(reply.at("confidence"), 0.9);
    EXPECT_EQ(reply.at("warning"), "");
    EXPECT_EQ(reply.size(), 12u);
}

TEST_F(MatchTest, NumbersHaveAPointInAnyLocale) {
    use_stills({"--factor", "0.8"});
    const std::string text = match(options).text();
    const CommaLocale locale;
    EXPECT_EQ(match(options).text(), text);
}

TEST_F(MatchTest, StillsAreOnePlace) {
    use_stills();
    EXPECT_THAT(states(), ElementsAre(NQ360_STARTED, NQ360_FINISHED));
    EXPECT_EQ(match(options).replies[0].json().at("frame_count"), 1);
}

TEST_F(MatchTest, MoviesAreLookedAtInFivePlaces) {
    use_movies({"--factor", "0.8", "--turn2", "-1.5"});
    const Outcome outcome = match(options);
    ASSERT_EQ(outcome.replies.size(), 6u);
    EXPECT_EQ(outcome.replies[0].json().at("frame_count"), 5);
    for (size_t place = 1; place < 5; ++place) {
        EXPECT_EQ(outcome.replies[place].state, NQ360_PROGRESS);
        EXPECT_EQ(outcome.replies[place].json().at("frame_count"), place);
        EXPECT_EQ(outcome.replies[place].json().at("movie_path1"), shot.one);
    }
    EXPECT_NEAR(outcome.json().at("turn").get<double>(), -1.5, 0.05);
    EXPECT_NEAR(outcome.json().at("gain2")[0].get<double>(), 1.25, 0.02);
}

TEST_F(MatchTest, LooksAtAPictureAndAMovieToo) {
    use_movies();
    const TempDir other;
    const Shot stills = stills_in(other, {"--size", "1440"});
    options.lens1 = stills.one.c_str();
    EXPECT_EQ(match(options).replies.size(), 6u);
}

// The end lies within both movies, which are of unlike lengths.
TEST_F(MatchTest, LooksAtTheRangeThatBothHave) {
    use_movies({"--frames2", "6"});
    EXPECT_EQ(match(options).state(), NQ360_FINISHED);
    options.start1 = 0.2;
    EXPECT_EQ(match(options).state(), NQ360_FINISHED);
    options.start1 = 0;
    options.end1 = 0;
    EXPECT_THAT(states(), ElementsAre(NQ360_STARTED, NQ360_FINISHED)) << "the first pair alone";
    options.start2 = 1;
    EXPECT_EQ(match(options).json().at("api_errstr"), "input 2 has no picture at that time");
}

TEST_F(MatchTest, CallerCancelsAtAnyPlace) {
    use_movies();
    for (const int place : {0, 1, 4}) {
        Recorded recorded;
        recorded.stop_at = place;
        const Outcome outcome = match(options, nullptr, &recorded);
        EXPECT_EQ(outcome.result, NQ360_CANCELLED);
        EXPECT_EQ(outcome.replies.size(), static_cast<size_t>(place) + 2);
        EXPECT_EQ(outcome.state(), NQ360_CANCELLED);
        EXPECT_EQ(outcome.json().at("errstr"), "Canceled");
    }
}

TEST_F(MatchTest, OpenShotGivesTheSame) {
    for (const bool movies : {false, true}) {
        movies ? use_movies({"--difference", "9,0,-4"}) : use_stills({"--difference", "9,0,-4"});
        const std::string text = match(options).text();
        const ShotGuard opened(options);
        EXPECT_EQ(match(options, opened.get()).text(), text);
        EXPECT_EQ(match(options, opened.get()).text(), text);
    }
}

TEST_F(MatchTest, StartsFromTheRecord) {
    use_stills({"--factor", "0.8", "--turn2", "2", "--orientation", "8"});
    EXPECT_NEAR(match(options).json().at("turn").get<double>(), 2, 0.05);
    options.turn2 = 3;
    options.gain2[0] = options.gain2[1] = options.gain2[2] = 1.25;
    const nlohmann::json reply = match(options).json();
    EXPECT_NEAR(reply.at("turn").get<double>(), -1, 0.05);
    EXPECT_LT(reply.at("step_turned")[0], 1.2);
    EXPECT_NEAR(reply.at("gain2")[0].get<double>(), 1.25, 0.02);
    EXPECT_EQ(reply.at("correct2"), nlohmann::json({0, 0, 0}));
    options.correct2[0] = 10;
    EXPECT_NEAR(match(options).json().at("step_turned")[0].get<double>(), 10, 1);
}

TEST_F(MatchTest, WarnsOfHalvesThatDoNotBelongTogether) {
    use_stills();
    options.lens2 = shot.one.c_str();
    EXPECT_EQ(match(options).json().at("warning"), "both halves show the same picture; both halves are the same file");
    options.lens1 = shot.two.c_str();
    EXPECT_THAT(match(options).json().at("warning").get<std::string>(), HasSubstr("swapped"));
    const TempDir other;
    const Shot later = stills_in(other, {"--size", "1440", "--angle", "50", "--datetime", "2026:01:02 03:05:05"});
    options.lens1 = shot.one.c_str();
    options.lens2 = later.two.c_str();
    const std::string warning = match(options).json().at("warning");
    EXPECT_THAT(warning, HasSubstr("may be of two shots; "));
    EXPECT_THAT(warning, HasSubstr("two times, 2026:01:02 03:04:05 and 2026:01:02 03:05:05"));
}
