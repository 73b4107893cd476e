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

namespace {

int keep_last_of_record(NQ360_STATE state, const char* json, void* /*user*/) {
    keep_last(state, json);
    return 0;
}

void ignore_line(int /*level*/, const char* /*line*/, void* /*user*/) {}

template <typename Options>
Options recorded_by_last_reply(void (*init)(Options*)) {
    Options options;
    init(&options);
    options.reply = keep_last_of_record;
    options.log = ignore_line;
    return options;
}

}  // namespace

// Nor is there an exception for a caller in C, or a file less: an output that was only refused is not the call's.
TEST(RefusalWithoutMemory, EndsTheCallWithOneReplyAndTouchesNothing) {
    TempDir dir;
    const std::string missing = dir.file("an input that is not there, of a name that no short string holds.mov");
    const std::string absent = dir.file("an output that is not there, of a name that no short string holds.jpg");
    const std::string earlier = dir.file("an output that stands there, of a name that no short string holds.jpg");
    const Bytes before = text("earlier");
    write_file(earlier, before);
    using Call = void (*)(const char* input, const char* output);
    const Call calls[] = {
        [](const char* input, const char* output) { NQ360_analyze_image(input, output, 64, 1, keep_last); },
        [](const char* input, const char* output) { NQ360_get_audio(input, output, 0, nullptr, keep_last); },
        [](const char* input, const char* output) {
            ExportCall call;
            call.movie1 = call.movie2 = input;
            call.output = output;
            call.run_with(keep_last);
        },
        [](const char* input, const char* output) {
            auto options = recorded_by_last_reply(NQ360_analyze_options_init);
            options.input = input;
            options.thumbnail = output;
            NQ360_analyze_with(&options);
        },
        [](const char* input, const char* output) {
            auto options = recorded_by_last_reply(NQ360_audio_options_init);
            options.movie = input;
            options.output = output;
            NQ360_get_audio_with(&options);
        },
        [](const char* input, const char* output) {
            auto options = recorded_by_last_reply(NQ360_export_options_init);
            options.lens1 = options.lens2 = input;
            options.output = output;
            NQ360_export_with(&options);
        },
    };
    const struct {
        const std::string& input;
        const std::string& output;
    } paths[] = {{missing, absent}, {missing, earlier}, {earlier, earlier}};
    cv::setNumThreads(1);
    for (const Call call : calls) {
        for (const auto& [input, output] : paths) {
            for (const auto lasting : {Lasting::kOnce, Lasting::kFromThenOn}) {
                bool met = true;
                for (long number = 0; met; ++number) {
                    SCOPED_TRACE(testing::Message() << input << " to " << output << ", allocation " << number);
                    last_reply = {};
                    const long allocated_before = FailingMemory::allocated();
                    {
                        const FailingMemory fault(number, lasting);
                        call(input.c_str(), output.c_str());
                        met = fault.failed();
                    }
                    EXPECT_LE(FailingMemory::allocated(), allocated_before) << last_reply.text;
                    EXPECT_EQ(last_reply.ends, 1);
                    EXPECT_EQ(last_reply.state, NQ360_FAILED) << last_reply.text;
                    EXPECT_TRUE(std::filesystem::exists(earlier) && read_file(earlier) == before);
                    EXPECT_FALSE(std::filesystem::exists(absent));
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FaultyMemory, testing::ValuesIn(kJobs), name_of_job);
INSTANTIATE_TEST_SUITE_P(OfShot, FaultyMemory, testing::ValuesIn(kShotJobs), name_of_job);

#endif
