// How a batch is shared out to tasks, and that a plan is read as it was written.
#include "batch/cluster_plan.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "batch/journal.h"
#include "jobs/errors.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;

PlannedShot movie(double seconds) {
    PlannedShot shot;
    shot.is_picture = false;
    shot.seconds = seconds;
    shot.output = "movie-360.mov";
    return shot;
}

PlannedShot picture() {
    PlannedShot shot;
    shot.seconds = 1000;  // which its file may tell, and nobody means
    return shot;
}

// "shot 0", "part 1/2 of 3", "join 3".
std::vector<std::string> words(const std::vector<ClusterTask>& tasks) {
    std::vector<std::string> texts;
    for (const ClusterTask& task : tasks) {
        const std::string shot = std::to_string(task.shot);
        const std::string part = std::to_string(task.part) + "/" + std::to_string(task.parts);
        texts.push_back(task.kind == ClusterTask::kShot   ? "shot " + shot
                        : task.kind == ClusterTask::kPart ? "part " + part + " of " + shot
                                                          : "join " + shot);
    }
    return texts;
}

}  // namespace

TEST(ClusterPlan, SplitsMoviesThatAreLonger) {
    const std::vector<PlannedShot> shots = {movie(10), picture(), movie(10.1), movie(3)};
    EXPECT_THAT(words(tasks_for(shots, 0)), ElementsAre("shot 0", "shot 1", "shot 2", "shot 3"));
    EXPECT_THAT(words(tasks_for(shots, 10)),
                ElementsAre("shot 0", "shot 1", "shot 3", "part 1/2 of 2", "part 2/2 of 2", "join 2"));
    EXPECT_THAT(words(tasks_for({movie(9)}, 3)),
                ElementsAre("part 1/3 of 0", "part 2/3 of 0", "part 3/3 of 0", "join 0"));
    EXPECT_EQ(tasks_for({movie(1e9)}, 1e-9).size(), 100001U);
}

TEST(ClusterPlan, IsReadAsItWasWritten) {
    const test_support::TempDir dir;
    std::filesystem::create_directory(dir.file(kNotesFolder));
    EXPECT_FALSE(read_cluster_plan(dir.path()));
    ClusterPlan plan;
    plan.making.arguments.yaw = 0.1;
    plan.making.match = true;
    plan.force = true;
    plan.submitted = "2026-01-02T03:04:05.678Z";
    plan.shots = {movie(12.5), picture()};
    plan.shots[0].lens[0] = "/a \xFF/1.mov";
    plan.tasks = tasks_for(plan.shots, 5);
    plan.jobs = {{"17", 0, 1}, {"18", 1, 3}};
    write_cluster_plan(dir.path(), plan);
    const ClusterPlan read = read_cluster_plan(dir.path()).value();
    EXPECT_EQ(making_json(read.making), making_json(plan.making));
    EXPECT_TRUE(read.force);
    EXPECT_EQ(read.submitted, plan.submitted);
    EXPECT_EQ(words(read.tasks), words(plan.tasks));
    EXPECT_EQ(shot_json(read.shots.at(0)), shot_json(plan.shots[0]));
    EXPECT_EQ(read.shots.size(), 2U);
    EXPECT_EQ(read.jobs.at(1).id, "18");
    EXPECT_EQ(read.jobs.at(1).first, 1U);
    EXPECT_EQ(read.jobs.at(1).count, 3U);
}

TEST(ClusterPlan, DamagedOneIsRefused) {
    const test_support::TempDir dir;
    std::filesystem::create_directory(dir.file(kNotesFolder));
    ClusterPlan plan;
    plan.shots = {movie(1)};
    plan.tasks = tasks_for(plan.shots, 0);
    write_cluster_plan(dir.path(), plan);
    const std::string path = dir.file(std::string(kNotesFolder) + "/cluster.json");
    const test_support::Bytes whole = test_support::read_file(path);
    const std::string text(whole.begin(), whole.end());
    const auto refused = [&](const std::string& content) {
        test_support::write_file(path, test_support::Bytes(content.begin(), content.end()));
        EXPECT_THROW(read_cluster_plan(dir.path()), CommandError) << content;
    };
    refused("");
    refused(text.substr(0, text.size() / 2));
    refused("[]");
    for (const auto& [from, to] : {std::pair(R"("kind":"shot")", R"("kind":"shoot")"),
                                   std::pair(R"("kind":"shot","shot":0)", R"("kind":"shot","shot":1)")}) {
        std::string other = text;
        ASSERT_NE(other.find(from), std::string::npos) << text;
        refused(other.replace(other.find(from), std::string(from).size(), to));
    }
}

TEST(ClusterPlan, FilesOfTasks) {
    ClusterPlan plan;
    plan.shots = {movie(1), movie(1)};
    EXPECT_EQ(output_of(plan, {ClusterTask::kPart, 1, 2, 7}), ".nq360/parts-1/2of7.part");
    EXPECT_EQ(output_of(plan, {ClusterTask::kJoin, 1, 0, 7}), "movie-360.mov");
    EXPECT_EQ(output_of(plan, {ClusterTask::kShot, 0, 0, 0}), "movie-360.mov");
}
