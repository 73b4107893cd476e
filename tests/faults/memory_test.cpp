// Every allocation of a job fails once, or from then on: the job ends with one reply that tells the truth, leaves no
// file when it failed, keeps no memory and no file open, and spares its inputs.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>

#include "support/jobs.h"
#include "support/open_files.h"
#include "support/watchdog.h"

// Sanitizers bring an allocation of their own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#include "support/failing_memory.h"

using namespace test_support;

namespace {

// Each of the first allocations, then some of the thousands, so that it takes seconds; NQ360_FAULTS=all: each one.
long next_number(long number, long most) {
    const char* wish = std::getenv("NQ360_FAULTS");
    const bool all = wish && std::string_view(wish) == "all";
    return number + (all || number < most ? 1 : 1 + number / 20);
}

class FaultyMemory : public testing::TestWithParam<NamedJob> {
  protected:
    // On one thread: OpenCV's own pool waits for ever when memory runs out while it hands out work.
    FaultyMemory() { cv::setNumThreads(1); }
    ~FaultyMemory() override { cv::setNumThreads(threads_); }

    // Runs the job with such faults until one has it succeed.
    void fail_each(Lasting lasting, long each_of_first) {
        JobRuns runs(GetParam().make);
        {
            const FailingMemory first(0);  // what the first exception of a program needs stays
            runs.run();
        }
        const auto open_before = open_files();
        int failures = 0;
        int faults = 0;
        long number = 0;
        for (bool met = true; met; number = next_number(number, each_of_first)) {
            SCOPED_TRACE(testing::Message() << "allocation " << number);
            std::fprintf(stderr, "allocation %ld fails\n", number);
            const Watchdog watchdog("a job whose allocation fails");
            runs.prepare();
            const long allocated_before = FailingMemory::allocated();
            {
                const FailingMemory fault(number, lasting);
                runs.run();
                met = fault.failed();
            }
            const long allocated_after = FailingMemory::allocated();
            failures += runs.ended_well() ? 0 : 1;
            faults += met ? 1 : 0;
            EXPECT_LE(allocated_after, allocated_before) << "kept by a job that ended with " << last_reply.text;
            EXPECT_EQ(open_files(), open_before);
        }
        RecordProperty("faults", faults);
        RecordProperty("failures", failures);
        EXPECT_GT(failures, 0);
    }

  private:
    const int threads_ = cv::getNumThreads();
};

}  // namespace

TEST_P(FaultyMemory, OnceEndsTheJobWithOneTrueReply) {
    fail_each(Lasting::kOnce, 100);
}

TEST_P(FaultyMemory, FromThenOnEndsTheJobWithOneTrueReply) {
    fail_each(Lasting::kFromThenOn, 50);
}

INSTANTIATE_TEST_SUITE_P(Of, FaultyMemory, testing::ValuesIn(kJobs), name_of_job);

#endif
