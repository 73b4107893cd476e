#include "batch/plan.h"

#include <string>

#include <gtest/gtest.h>

#include "batch/making.h"
#include "jobs/failure.h"

namespace {

PlannedShot shot(uint64_t bytes, uint64_t input_bytes) {
    PlannedShot shot;
    shot.bytes = bytes;
    shot.input_bytes = input_bytes;
    return shot;
}

// Before each panorama the library wants room for its inputs' size and some more.
TEST(Plan, NeedsRoomForAllAndForWhatTheLastOneAsksFor) {
    const PlannedShot small = shot(10, 1000);
    const PlannedShot large = shot(5000, 3000);
    EXPECT_EQ(space_needed({}), 0U);
    EXPECT_EQ(space_needed({&large}), 5000 + kHeadroom);
    EXPECT_EQ(space_needed({&small, &large, &small}), 5020 + 990 + kHeadroom);
}

TEST(Plan, TakesAStillForSeveralFrames) {
    PlannedShot still = shot(0, 0);
    still.width = 200;
    still.height = 100;
    PlannedShot movie = still;
    movie.is_picture = false;
    movie.frames = 7;
    EXPECT_DOUBLE_EQ(still.work(), 70000);
    EXPECT_DOUBLE_EQ(movie.work(), 140000);
    movie.frames = 0;  // not told; it takes some time all the same
    EXPECT_GT(movie.work(), 0);
}

TEST(Plan, OfAShotComesBackFromItsJson) {
    PlannedShot planned = shot(1ULL << 40, 77);
    planned.lens[0] = "/card/a\xFF_1.mov";
    planned.lens[1] = "/card/a\xFF_2.mov";
    planned.output = "sub folder/a\xFF_1-360.mov";
    planned.is_picture = false;
    planned.width = 3840;
    planned.height = 1920;
    planned.lens_width = 1936;
    planned.frames = 600;
    planned.seconds = 20.02;
    const PlannedShot read = shot_of(Json::parse(json_line(shot_json(planned))));
    EXPECT_EQ(shot_json(read), shot_json(planned));
    EXPECT_EQ(read.lens[0], planned.lens[0]);
    EXPECT_EQ(read.lens[1], planned.lens[1]);
    EXPECT_EQ(read.output, planned.output);
    EXPECT_EQ(read.bytes, planned.bytes);
    EXPECT_FALSE(read.is_picture);
    EXPECT_THROW(shot_of(Json::object()), Json::exception);
}

// Whether the JSON of how panoramas are made tells this change.
template <typename Change>
bool tells(Change change) {
    Making making;
    const Json before = making_json(making);
    change(making);
    const Json after = making_json(making);
    EXPECT_EQ(making_json(making_of(Json::parse(json_line(after)))), after);
    return after != before;
}

TEST(Making, ComesBackFromItsJsonWithAllThatShapesAPanorama) {
    EXPECT_TRUE(tells([](Making& m) { m.match = true; }));
    EXPECT_TRUE(tells([](Making& m) { m.sound_asked_for = true; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.size = Size{2, 1}; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.tilt = 0.1; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.yaw = 1; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.pitch = 1; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.roll = 1; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.feather = 0; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.band = "/proc/self/exe"; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.quality = 95; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.bit_rate = 1; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.sound = -1; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.aac = true; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.web = true; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.date = "\xFF"; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.partial = true; }));
    EXPECT_TRUE(tells([](Making& m) { m.arguments.exact = true; }));
    for (int lens = 0; lens < 2; ++lens) {
        EXPECT_TRUE(tells([lens](Making& m) { m.arguments.pair.turns[lens] = 0.1; }));
        EXPECT_TRUE(tells([lens](Making& m) { m.arguments.pair.starts[lens] = 0; }));
        EXPECT_TRUE(tells([lens](Making& m) { m.arguments.pair.ends[lens] = 1e6; }));
        EXPECT_TRUE(tells([lens](Making& m) { m.arguments.corrections[lens][2] = 3; }));
        EXPECT_TRUE(tells([lens](Making& m) { m.arguments.gains[lens][1] = 1.1; }));
    }
    // How many are made at a time shapes nothing.
    EXPECT_FALSE(tells([](Making& m) { m.arguments.jobs = 3; }));
}

TEST(Making, NeedsTheBandThatItNames) {
    Making making;
    making.arguments.band = "/nowhere/band.png";
    EXPECT_THROW(making_json(making), std::runtime_error);
}

}  // namespace
