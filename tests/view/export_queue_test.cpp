#include "export_queue.h"

#include <filesystem>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "jobs/errors.h"
#include "orders.h"
#include "support/run_sample.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

using test_support::TempDir;

constexpr std::chrono::seconds kPatience(60);

// A job that ends when it finds something at the path for it, and asks nobody.
struct EndlessJob {
    std::promise<void> begins;
    std::promise<bool> stops;  // whether it has found something

    QueuedJob queued() {
        QueuedJob job;
        job.operation = Operation::kExport;
        job.name = "endless.mov";
        job.prepare = [] {};
        job.run = [this](const std::string&, const std::string& cancel_path, const ReplyHandler&) {
            begins.set_value();
            const auto begun = std::chrono::steady_clock::now();
            while (!fs::exists(cancel_path) && std::chrono::steady_clock::now() - begun < kPatience) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            stops.set_value(fs::exists(cancel_path));
            return Outcome{NQ360_CANCELLED, "{}"};
        };
        return job;
    }
};

std::string last_state(ExportQueue* queue, int64_t number) {
    for (int64_t seen = 0;;) {
        const auto state = queue->wait_for(number, seen, kPatience);
        if (!state || state->ended || state->version == seen) {
            return state ? text_of(state->event, "state") : "";
        }
        seen = state->version;
    }
}

std::string as_it_is(const std::string& message) {
    return message;
}

TEST(ExportQueue, CancelsWithoutBeingAsked) {
    ExportQueue queue(as_it_is);
    for (int i = 0; i < 2; ++i) {
        EndlessJob job;
        const auto number = queue.add(job.queued());
        job.begins.get_future().wait();
        EXPECT_TRUE(queue.cancel(*number));
        EXPECT_TRUE(job.stops.get_future().get());
        EXPECT_EQ(last_state(&queue, *number), "cancelled");
    }
}

TEST(ExportQueue, EndsWhatRunsWhenItIsClosed) {
    EndlessJob job;
    EndlessJob next;
    ExportQueue queue(as_it_is);
    queue.add(job.queued());
    queue.add(next.queued());
    job.begins.get_future().wait();
    queue.close();
    EXPECT_TRUE(job.stops.get_future().get());
    EXPECT_EQ(next.begins.get_future().wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
}

TEST(ExportQueue, LeavesNothingThatCouldNotTakeItsPlace) {
    const TempDir dir;
    QueuedJob job = EndlessJob().queued();
    job.work_file = dir.file("work.mov");
    job.run = [](const std::string& output, const std::string&, const ReplyHandler&) {
        test_support::write_file(output, {1});
        return Outcome{NQ360_FINISHED, "{}"};
    };
    job.remark = [](const Json&) { return ""; };
    job.place = []() -> std::string { throw CommandError("no room"); };
    ExportQueue queue(as_it_is);
    const auto number = queue.add(job);
    EXPECT_EQ(last_state(&queue, *number), "failed");
    EXPECT_EQ(text_of(queue.wait_for(*number, 0, kPatience)->event, "message"), "no room");
    EXPECT_FALSE(fs::exists(job.work_file));
}

// Even where the handler wants to go on.
TEST(Orders, LookForTheirMarker) {
    const TempDir dir;
    const std::string marker = dir.file("marker", {});
    const std::string lens[] = {dir.file("movie1.mov"), dir.file("movie2.mov")};
    test_support::run_sample({"movie", lens[0], lens[1], "--size", "1440", "--frames", "2", "--sound", "both"});
    const auto goes_on = [](NQ360_STATE, const std::string&) { return false; };
    ListedShot shot;
    shot.names = {"movie1.mov", "movie2.mov"};
    ExportJob job;
    job.lens[0] = lens[0];
    job.lens[1] = lens[1];
    job.output = dir.file("movie1-360.mov");
    job.options.width = 320;
    job.options.height = 160;
    const QueuedJob panorama = order_panorama(shot, job, {});
    EXPECT_EQ(panorama.name, "movie1-360.mov");
    panorama.prepare();
    EXPECT_EQ(panorama.run(dir.file("work.mov"), marker, goes_on).state, NQ360_CANCELLED);
    EXPECT_EQ(panorama.run(dir.file("work.mov"), "", goes_on).state, NQ360_FINISHED);
    EXPECT_TRUE(fs::exists(dir.file("work.mov")));
    EXPECT_FALSE(fs::exists(job.output));
}

}  // namespace
