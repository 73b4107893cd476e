// Movies whose parts are made apart and joined: the same bytes as of one export.
#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/codes.h"
#include "support/media.h"
#include "support/parts_export.h"
#include "support/samples.h"
#include "support/temp_dir.h"
#include "support/with_options.h"

using namespace test_support;
using testing::HasSubstr;

namespace {

class Join : public testing::Test {
  protected:
    Shot movies(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--size", "1440", "--key-frames", "4"});
        return movies_in(dir, arguments);
    }

    std::string exported(PartsExport job, const std::string& name) const {
        job.output = dir.file(name);
        job.workers = 2;
        std::string reply;
        EXPECT_EQ(job.run(&reply), 0) << reply;
        return job.output;
    }

    std::vector<std::string> shares_of(PartsExport job, int count) const {
        std::vector<std::string> files;
        for (int number = 1; number <= count; ++number) {
            job.share = number;
            job.shares = count;
            files.push_back(exported(job, std::to_string(number) + "of" + std::to_string(count) + ".part"));
        }
        return files;
    }

    Outcome join(const std::vector<std::string>& files, const std::string& output, Recorded* recorded) const {
        std::vector<const char*> names;
        std::transform(files.begin(), files.end(), std::back_inserter(names),
                       [](const std::string& file) { return file.c_str(); });
        NQ360_JOIN_OPTIONS options;
        NQ360_join_options_init(&options);
        options.files = names.data();
        options.file_count = names.size();
        options.output = output.c_str();
        return with_options(options, NQ360_join, recorded);
    }
    Outcome join(const std::vector<std::string>& files, const std::string& output) const {
        Recorded recorded;
        return join(files, output, &recorded);
    }

    void expect_same(const PartsExport& job, std::initializer_list<int> counts,
                     std::initializer_list<const char*> containers = {".mov"}) {
        for (const char* container : containers) {
            const Bytes whole = read_file(exported(job, std::string("whole") + container));
            for (const int count : counts) {
                SCOPED_TRACE(testing::Message() << count << " shares in a " << container);
                const std::string joined = dir.file(std::string("joined") + container);
                std::vector<std::string> files = shares_of(job, count);
                std::reverse(files.begin(), files.end());  // in any order
                const Outcome outcome = join(files, joined);
                ASSERT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
                EXPECT_TRUE(read_file(joined) == whole);
            }
        }
    }

    // The text of a refusal, whose file is named and which leaves no output.
    std::string refused(const std::vector<std::string>& files, const std::string& named) {
        const std::string output = dir.file("refused.mov");
        const Outcome outcome = join(files, output);
        EXPECT_EQ(outcome.state(), NQ360_FAILED);
        EXPECT_EQ(outcome.json().at("errnum"), "30001");
        EXPECT_EQ(outcome.json().at("movie_path1"), named);
        EXPECT_FALSE(std::filesystem::exists(output));
        return outcome.json().at("api_errstr");
    }

    TempDir dir;
};

}  // namespace

TEST_F(Join, OfSharesIsTheExport) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--sound", "both"});
    for (job.source = -1; job.source <= 1; ++job.source) {
        SCOPED_TRACE(testing::Message() << "sound of " << job.source);
        expect_same(job, {2, 7});
    }
}

TEST_F(Join, OfARangeIsTheExport) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--sound", "1"});
    job.start = time_of(5);
    job.end = time_of(20);
    expect_same(job, {1, 3}, {".mov", ".mp4"});
}

TEST_F(Join, WithCodedSoundIsTheExport) {
    PartsExport job;
    job.shot = movies({"--frames", "40", "--sound", "1"});
    job.aac = true;
    expect_same(job, {3});
}

// Where only one decoder can tell which frames there are, all of the movie is in the first share.
TEST_F(Join, OfAMovieThatCannotBeSharedIsTheExport) {
    PartsExport job;
    job.shot = movies_in(dir, {"--size", "1440", "--key-frames", "300", "--frames", "130", "--sound", "1"});
    job.part_pairs = 125;
    expect_same(job, {2});
}

TEST_F(Join, NamesWhatIsMissingDoubledOrForeign) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--sound", "1"});
    const std::vector<std::string> files = shares_of(job, 4);
    EXPECT_EQ(refused({files[3], files[1]}, files[3]), "of its 4 parts these are missing: 1, 3");
    EXPECT_EQ(refused({files[0], files[1], files[2], files[1], files[3]}, files[1]), "part 2 is given twice");

    const std::vector<std::string> halves = shares_of(job, 2);
    EXPECT_EQ(refused({files[0], halves[1]}, halves[1]), "it is one of 2 parts, the first one given of 4");

    job.start = time_of(3);
    job.share = 2;
    job.shares = 4;
    const std::string other_range = exported(job, "range.part");
    EXPECT_THAT(refused({files[0], other_range, files[2], files[3]}, other_range),
                HasSubstr("it is of another movie than the first one given: pairs is "));

    job = PartsExport();
    job.shot = movies_in(dir, {"--size", "1440", "--key-frames", "4", "--frames", "23", "--sound", "1", "--seed", "9"});
    job.share = 2;
    job.shares = 4;
    const std::string other_shot = exported(job, "shot.part");
    EXPECT_THAT(refused({files[0], other_shot, files[2], files[3]}, other_shot), HasSubstr("lens1 is "));
}

TEST_F(Join, NamesWhatIsDamaged) {
    PartsExport job;
    job.shot = movies({"--frames", "12", "--sound", "1"});
    const std::vector<std::string> files = shares_of(job, 2);
    const Bytes whole = read_file(files[1]);
    const std::string damaged = dir.file("damaged.part");
    const auto tried = [&](const Bytes& bytes) {
        dir.file("damaged.part", bytes);
        return refused({files[0], damaged}, damaged);
    };
    for (const size_t at : {size_t{20}, whole.size() / 3, whole.size() / 2, whole.size() - 1}) {
        Bytes bytes = whole;
        bytes[at] ^= 1;
        EXPECT_FALSE(tried(bytes).empty()) << "a bit at " << at;
    }
    for (const size_t size : {size_t{15}, size_t{300}, whole.size() / 2, whole.size() - 5, whole.size() - 1}) {
        EXPECT_EQ(tried(Bytes(whole.begin(), whole.begin() + static_cast<long>(size))), "it is damaged, or not whole");
    }
    EXPECT_EQ(tried({}), "it is no part of a movie");
    EXPECT_EQ(refused({job.shot.one}, job.shot.one), "it is no part of a movie");
}

TEST_F(Join, MayBeCancelled) {
    PartsExport job;
    job.shot = movies({"--frames", "23"});
    const std::vector<std::string> files = shares_of(job, 2);
    const std::string output = dir.file("out.mov");
    for (const int reply : {0, 1, 2}) {
        Recorded recorded;
        recorded.stop_at = reply;
        const Outcome outcome = join(files, output, &recorded);
        EXPECT_EQ(outcome.state(), NQ360_CANCELLED) << outcome.text();
        EXPECT_EQ(outcome.replies.size(), static_cast<size_t>(reply) + 2);
        EXPECT_FALSE(std::filesystem::exists(output));
    }
}
