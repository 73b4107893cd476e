// Every step that a job takes on its files fails once, or from then on: the job ends with one reply that tells the
// truth, leaves no file when it failed, and its inputs as they were.
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "support/failing_files.h"
#include "support/jobs.h"
#include "support/open_files.h"
#include "support/watchdog.h"

using namespace test_support;

namespace {

using Case = std::tuple<NamedJob, FileStep, Lasting>;

class FaultyFiles : public testing::TestWithParam<Case> {};

std::string name_of_case(const testing::TestParamInfo<Case>& info) {
    return std::string(std::get<NamedJob>(info.param).name) + "_" +
           testing::PrintToString(std::get<FileStep>(info.param));
}

}  // namespace

TEST_P(FaultyFiles, EndTheJobWithOneTrueReply) {
    const auto& [named, step, lasting] = GetParam();
    JobRuns runs(named.make);
    const auto open_before = open_files();
    int failures = 0;
    bool met = true;
    long number = 0;
    for (; met; ++number) {
        SCOPED_TRACE(testing::Message() << step << " " << number);
        const Watchdog watchdog("a job whose files fail");
        runs.prepare();
        {
            const FailingFiles fault(runs.folder(), step, number, lasting);
            runs.run();
            met = fault.failed();
        }
        failures += runs.ended_well() ? 0 : 1;
        EXPECT_EQ(open_files(), open_before);
    }
    RecordProperty("steps", static_cast<int>(number - 1));
    RecordProperty("failures", failures);
    EXPECT_GT(number, 1) << "the job takes no such step";
}

// What has failed once is often tried again.
INSTANTIATE_TEST_SUITE_P(Once, FaultyFiles,
                         testing::Combine(testing::ValuesIn(kJobs),
                                          testing::Values(FileStep::kOpen, FileStep::kRead, FileStep::kWrite,
                                                          FileStep::kSeek, FileStep::kClose),
                                          testing::Values(Lasting::kOnce)),
                         name_of_case);

INSTANTIATE_TEST_SUITE_P(FromThenOn, FaultyFiles,
                         testing::Combine(testing::ValuesIn(kJobs),
                                          testing::Values(FileStep::kOpen, FileStep::kWrite, FileStep::kClose),
                                          testing::Values(Lasting::kFromThenOn)),
                         name_of_case);

// A job on a shot writes nothing.
INSTANTIATE_TEST_SUITE_P(OfShotOnce, FaultyFiles,
                         testing::Combine(testing::ValuesIn(kShotJobs),
                                          testing::Values(FileStep::kOpen, FileStep::kRead),
                                          testing::Values(Lasting::kOnce)),
                         name_of_case);

INSTANTIATE_TEST_SUITE_P(OfShotFromThenOn, FaultyFiles,
                         testing::Combine(testing::ValuesIn(kShotJobs), testing::Values(FileStep::kOpen),
                                          testing::Values(Lasting::kFromThenOn)),
                         name_of_case);
