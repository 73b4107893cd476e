// An export whose process is killed at any moment: the inputs stay as they were, and the next export to the same path
// is as if nothing had been.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/child.h"
#include "support/jobs.h"
#include "support/sanitized.h"

using namespace test_support;
namespace fs = std::filesystem;
using Microseconds = std::chrono::microseconds;

namespace {

constexpr int kKills = kSanitized ? 5 : 50;

class Killed : public testing::TestWithParam<NamedJob> {
  protected:
    // Always in a process of its own: OpenCV's threads do not go with a fork.
    bool finishes() const {
        return true_in_child([this] {
            job_.run(keep_last);
            return last_reply.state == NQ360_FINISHED;
        });
    }

    // Whether the job was killed before it ended.
    bool killed_after(Microseconds time) const {
        const pid_t child = fork();
        if (child == 0) {
            job_.run(keep_last);
            _exit(0);
        }
        std::this_thread::sleep_for(time);
        kill(child, SIGKILL);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFSIGNALED(status);
    }

    std::ptrdiff_t files() const { return std::distance(fs::directory_iterator(dir_.path()), {}); }

    TempDir dir_;
    Job job_ = GetParam().make(dir_);
};

}  // namespace

TEST_P(Killed, AtAnyMomentSparesTheInputsAndTheNextExport) {
    const Bytes inputs[] = {read_file(job_.inputs[0]), read_file(job_.inputs[1])};
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(finishes());
    const auto duration = std::chrono::duration_cast<Microseconds>(std::chrono::steady_clock::now() - start).count();
    const Bytes whole = read_file(job_.output);
    const std::ptrdiff_t files_before = files();
    std::mt19937 random(360);
    std::uniform_int_distribution<Microseconds::rep> moment(0, duration);
    int killed = 0;
    int partial = 0;
    for (int i = 0; i < kKills; ++i) {
        fs::remove(job_.output);
        killed += killed_after(Microseconds(moment(random))) ? 1 : 0;
        partial += fs::exists(job_.output) && read_file(job_.output) != whole ? 1 : 0;
        EXPECT_EQ(read_file(job_.inputs[0]), inputs[0]);
        EXPECT_EQ(read_file(job_.inputs[1]), inputs[1]);
        EXPECT_TRUE(finishes());
        EXPECT_TRUE(read_file(job_.output) == whole) << "the next file differs";
        EXPECT_EQ(files(), files_before);
    }
    RecordProperty("killed", killed);
    RecordProperty("partial", partial);
    EXPECT_GT(killed, 0);
}

INSTANTIATE_TEST_SUITE_P(Of, Killed, testing::Values(kJobs[0], kJobs[1]), name_of_job);
