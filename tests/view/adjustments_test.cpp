#include "adjustments.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "jobs/errors.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

using test_support::TempDir;

TEST(Adjustments, AreReadAsTheCommandsOptions) {
    ExportJob job;
    apply_look({{"yaw", "10.5"}, {"tilt", "-90"}, {"gain2", "0.5,1,-"}, {"correct1", "6,-,-2"}, {"feather", "2"}},
               &job);
    EXPECT_EQ(job.options.yaw, 10.5);
    EXPECT_EQ(job.options.angle, -90);
    EXPECT_EQ(job.options.gain2[0], 0.5);
    EXPECT_EQ(job.options.correct1[0], 6);
    EXPECT_EQ(job.options.correct1[1], CORRECT_NONE);
    EXPECT_EQ(job.options.feather, 2);
    EXPECT_EQ(job.options.pitch, 0);
}

TEST(Adjustments, NameWhatMakesNoSense) {
    ExportJob job;
    for (const char* name : {"yaw", "gain1", "correct2", "feather"}) {
        try {
            apply_look({{name, "1e9x"}}, &job);
            ADD_FAILURE() << name;
        } catch (const std::invalid_argument& wrong) {
            EXPECT_EQ(std::string(wrong.what()).rfind(std::string(name) + ": ", 0), 0) << wrong.what();
        }
    }
    EXPECT_THROW(apply_coding({{"web", "1"}}, &job), std::invalid_argument);
    EXPECT_THROW(apply_range({{"start", "3"}, {"end", "3"}}, &job), std::invalid_argument);
    EXPECT_THROW(settings_in({{"yaw", Json::array()}}), std::invalid_argument);
    EXPECT_THROW(settings_in(5), std::invalid_argument);
}

TEST(Adjustments, OfAMatchLeaveOutWhatIsAsUsual) {
    ExportJob job;
    job.options.turn2 = 2;
    job.options.gain2[0] = 0.75;
    EXPECT_EQ(matched_look({{"yaw", "5"}, {"turn1", "1"}}, job),
              (Settings{{"yaw", "5"}, {"turn2", "2"}, {"gain2", "0.75,1,1"}}));
}

TEST(AdjustmentsStore, KeepsThemBesideTheShots) {
    TempDir dir;
    const AdjustmentsStore store(dir.path(), false);
    EXPECT_TRUE(store.load("lens1.jpg").empty());
    store.save("lens1.jpg", {{"yaw", "10"}});
    EXPECT_EQ(store.load("lens1.jpg"), (Settings{{"yaw", "10"}}));
    EXPECT_TRUE(store.load("lens1.mov").empty());
    EXPECT_TRUE(fs::exists(dir.path() + "/.nq360/lens1.jpg.json"));
    store.save("lens1.jpg", {});
    EXPECT_TRUE(fs::is_empty(dir.path() + "/.nq360"));
    fs::create_directories(dir.path() + "/.nq360/lens1.jpg.json/in-the-way");
    EXPECT_THROW(store.save("lens1.jpg", {}), CommandError);
}

TEST(AdjustmentsStore, TakesNothingThatIsNone) {
    TempDir dir;
    const AdjustmentsStore store(dir.path(), false);
    fs::create_directory(dir.path() + "/.nq360");
    for (const char* text : {"", "[]", "{\"yaw\":", "{\"yaw\":\"x\"}", "{\"yaw\":5}", "{\"size\":\"2x1\"}"}) {
        std::ofstream(dir.path() + "/.nq360/a.jpg.json") << text;
        EXPECT_TRUE(store.load("a.jpg").empty()) << text;
    }
}

TEST(AdjustmentsStore, FollowsNoLinkOutOfTheFolder) {
    TempDir dir;
    const std::string outside = dir.path() + "/outside";
    fs::create_directories(dir.path() + "/shots/.nq360");
    std::ofstream(outside) << "{\"yaw\":\"10\"}";
    fs::create_symlink(outside, dir.path() + "/shots/.nq360/a.jpg.json");
    const AdjustmentsStore store(dir.path() + "/shots", false);
    EXPECT_TRUE(store.load("a.jpg").empty());
    store.save("a.jpg", {{"yaw", "20"}});
    EXPECT_EQ(store.load("a.jpg"), (Settings{{"yaw", "20"}}));
    EXPECT_EQ(fs::file_size(outside), 12);

    fs::remove_all(dir.path() + "/shots/.nq360");
    fs::create_directory(dir.path() + "/elsewhere");
    fs::create_directory_symlink(dir.path() + "/elsewhere", dir.path() + "/shots/.nq360");
    EXPECT_THROW(store.save("a.jpg", {{"yaw", "20"}}), CommandError);
    EXPECT_TRUE(fs::is_empty(dir.path() + "/elsewhere"));
}

TEST(AdjustmentsStore, WritesNothingWhereItIsToReadOnly) {
    TempDir dir;
    EXPECT_THROW(AdjustmentsStore(dir.path(), true).save("a.jpg", {{"yaw", "20"}}), CommandError);
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

}  // namespace
