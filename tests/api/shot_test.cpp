#include "api/shot.h"

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/media.h"
#include "support/open_files.h"
#include "support/plain_media.h"
#include "support/samples.h"
#include "support/shot_jobs.h"

using namespace test_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ShotTest : public testing::Test {
  protected:
    void use(const Shot& files) {
        shot = files;
        options = shot_options(shot.one, shot.two);
    }

    // The only reply, of a shot that cannot be opened.
    nlohmann::json refusal() {
        const ShotGuard guard(options);
        EXPECT_EQ(guard.get(), nullptr);
        EXPECT_EQ(guard.outcome().replies.size(), 1u);
        EXPECT_EQ(guard.outcome().state(), NQ360_FAILED);
        return guard.outcome().json();
    }

    TempDir dir;
    Shot shot;
    NQ360_EXPORT_OPTIONS options = shot_options("", "");
};

}  // namespace

TEST_F(ShotTest, OpensStillsAndTellsTheirSize) {
    use(stills_in(dir, {"--size", "1440"}));
    const ShotGuard guard(options);
    EXPECT_NE(guard.get(), nullptr);
    EXPECT_THAT(guard.outcome().replies,
                ElementsAre(Reply{NQ360_FINISHED, R"({"movie_path1":")" + shot.one + R"(","movie_path2":")" + shot.two +
                                                      R"(","export_path":"","width":1440,"height":1440})"}));
}

TEST_F(ShotTest, KeepsNoFileOpen) {
    const auto before = open_files();
    for (const bool movies : {false, true}) {
        use(movies ? movies_in(dir, {"--size", "1440", "--frames", "2"}) : stills_in(dir, {"--size", "1440"}));
        const ShotGuard guard(options);
        EXPECT_NE(guard.get(), nullptr);
        EXPECT_EQ(open_files(), before);
    }
}

TEST_F(ShotTest, ShowsAStillWhoseFileHasGone) {
    use(stills_in(dir, {"--size", "1440"}));
    const ShotGuard guard(options);
    std::filesystem::remove(shot.one);
    std::filesystem::remove(shot.two);
    EXPECT_EQ(preview(options, guard.get()).outcome.state(), NQ360_FINISHED);
    EXPECT_EQ(match(options, guard.get()).state(), NQ360_FINISHED);
}

TEST_F(ShotTest, LogGoesToTheCallAlone) {
    use(stills_in(dir, {"--size", "1440"}));
    Recorded recorded;
    NQ360_SHOT* opened = nullptr;
    testing::internal::CaptureStderr();
    open_shot(options, &opened, &recorded);
    const size_t lines = recorded.log.size();
    EXPECT_GT(lines, 0u);
    preview(options, opened);
    NQ360_shot_close(opened);
    EXPECT_EQ(recorded.log.size(), lines);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(ShotTest, MissingInputsAreTold) {
    use(stills_in(dir, {"--size", "1440"}));
    options.lens1 = nullptr;
    EXPECT_EQ(refusal().at("errstr"), "Input file1 not exiists");
    EXPECT_EQ(refusal().at("errnum"), "30000");
    options.lens1 = shot.one.c_str();
    std::filesystem::remove(shot.two);
    EXPECT_EQ(refusal().at("errstr"), "Input file2 not exiists");
    EXPECT_EQ(refusal().at("movie_path2"), shot.two);
}

TEST_F(ShotTest, WhatIsNoHalfIsRefusedAsByAnExport) {
    use(stills_in(dir, {"--size", "1440"}));
    const std::string text_file = dir.file("text.mov", text("no movie"));
    options.lens2 = text_file.c_str();
    EXPECT_EQ(refusal().at("errstr"), "Analyze Error InputFile2");
    EXPECT_EQ(refusal().at("errnum"), "30001");

    const TempDir other;
    const Shot larger = stills_in(other, {"--size", "1936"});
    options.lens2 = larger.two.c_str();
    EXPECT_EQ(refusal().at("errstr"), "Movie/Image different width or height");

    const Shot small = stills_in(other, {"--size", "320"});
    options.lens1 = small.one.c_str();
    options.lens2 = small.two.c_str();
    EXPECT_EQ(refusal().at("errstr"), "Movie/Image width not in 3888 , 1936 , 1440");
}

TEST_F(ShotTest, FlatPicturesAreRefused) {
    const std::string flat = make_plain_picture(dir.file("flat.jpg"), "1440x720");
    options.lens1 = options.lens2 = flat.c_str();
    EXPECT_THAT(refusal().at("api_errstr").get<std::string>(), HasSubstr("too small for the lens circle: 1440 x 720"));
}

TEST_F(ShotTest, ATimeBehindTheMovieIsTold) {
    use(movies_in(dir, {"--size", "1440", "--frames", "3"}));
    options.start2 = 5;
    EXPECT_EQ(refusal().at("api_errstr"), "input 2 has no picture at that time");
    EXPECT_EQ(refusal().at("errnum"), "39999");
}

TEST_F(ShotTest, BadValuesAreToldByTheirFieldsName) {
    use(stills_in(dir, {"--size", "1440"}));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinite = std::numeric_limits<double>::infinity();
    struct Bad {
        const char* field;
        void (*set)(NQ360_EXPORT_OPTIONS*, double);
        std::vector<double> values;
    };
    const Bad all[] = {{"size", [](auto* o, double) { o->size = 3; }, {0}},
                       {"size", [](auto* o, double) { o->size = ~size_t{0}; }, {0}},
                       {"start1", [](auto* o, double value) { o->start1 = value; }, {nan, infinite, -infinite}},
                       {"start2", [](auto* o, double value) { o->start2 = value; }, {nan, infinite, -infinite}},
                       {"turn2", [](auto* o, double value) { o->turn2 = value; }, {nan, infinite}},
                       {"yaw", [](auto* o, double value) { o->yaw = value; }, {nan, 1e300, -361}},
                       {"gain1", [](auto* o, double value) { o->gain1[2] = value; }, {nan, -0.1, 17, infinite}},
                       {"feather", [](auto* o, double value) { o->feather = value; }, {nan, -1, 5.6}},
                       {"quality", [](auto* o, double value) { o->quality = static_cast<int>(value); }, {-1, 101}},
                       {"width", [](auto* o, double value) { o->width = static_cast<int>(value); }, {-5, 40000, 1}}};
    for (const Bad& bad : all) {
        for (const double value : bad.values) {
            NQ360_EXPORT_OPTIONS wrong = options;
            bad.set(&wrong, value);
            const ShotGuard guard(wrong);
            EXPECT_EQ(guard.get(), nullptr);
            for (const Outcome& outcome : {guard.outcome(), preview(wrong).outcome, match(wrong)}) {
                ASSERT_EQ(outcome.state(), NQ360_FAILED) << bad.field << " " << value;
                EXPECT_EQ(outcome.json().at("errnum"), "30005");
                EXPECT_THAT(outcome.json().at("api_errstr").get<std::string>(),
                            StartsWith(std::string(bad.field) + ":"));
            }
        }
    }
}

TEST(NullShot, IsAnsweredOrIgnored) {
    EXPECT_EQ(NQ360_shot_open(nullptr), nullptr);
    NQ360_shot_close(nullptr);
    unsigned char* jpeg = nullptr;
    size_t size = 0;
    EXPECT_EQ(NQ360_preview(nullptr, nullptr, &jpeg, &size), NQ360_FAILED);
    EXPECT_EQ(NQ360_match(nullptr, nullptr), NQ360_FAILED);
}

TEST_F(ShotTest, NobodyNeedsToListen) {
    use(stills_in(dir, {"--size", "1440"}));
    options.log = [](int, const char*, void*) {};
    NQ360_SHOT* opened = NQ360_shot_open(&options);
    ASSERT_NE(opened, nullptr);
    unsigned char* jpeg = nullptr;
    size_t size = 0;
    EXPECT_EQ(NQ360_preview(&options, opened, &jpeg, &size), NQ360_FINISHED);
    EXPECT_EQ(NQ360_match(&options, opened), NQ360_FINISHED);
    NQ360_free(jpeg);
    NQ360_shot_close(opened);
}
