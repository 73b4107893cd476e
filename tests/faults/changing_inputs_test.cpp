// Inputs that change or vanish while they are read: the job ends with one reply, and leaves no file when it failed.
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "support/jobs.h"
#include "support/open_files.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"
#include "support/watchdog.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

// What whoever has the file open still reads of it.
enum class Left { kAll, kBeginning, kOtherBytes };

struct Change {
    const char* name;
    void (*make)(const std::string& path);
    Left left;
};

void overwrite_from(const std::string& path, size_t start) {
    const size_t size = fs::file_size(path);
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(start));
    file << std::string(size - start, '\xA5');
}

const Change kChanges[] = {
    {"Emptied", [](const std::string& path) { fs::resize_file(path, 0); }, Left::kBeginning},
    {"Truncated", [](const std::string& path) { fs::resize_file(path, fs::file_size(path) / 2); }, Left::kBeginning},
    {"Overwritten", [](const std::string& path) { overwrite_from(path, 0); }, Left::kOtherBytes},
    {"HalfOverwritten", [](const std::string& path) { overwrite_from(path, fs::file_size(path) / 2); },
     Left::kOtherBytes},
    {"Grown", [](const std::string& path) { fs::resize_file(path, fs::file_size(path) * 3); }, Left::kAll},
    {"Deleted", [](const std::string& path) { fs::remove(path); }, Left::kAll},
    {"ReplacedByAFolder",
     [](const std::string& path) {
         fs::remove(path);
         fs::create_directory(path);
     },
     Left::kAll}};

std::ostream& operator<<(std::ostream& out, const Change& change) {
    return out << change.name;
}

using Case = std::tuple<Change, NQ360_STATE>;

class ChangingInput : public testing::TestWithParam<Case> {
  protected:
    // Runs the job with the change to this file at the first reply of the state. `notices` tells whether the job must
    // not take the beginning of the file for all of it.
    void change_meanwhile(const std::string& input, const std::string& output, bool notices,
                          const std::function<Outcome(std::function<void(const Reply&)>)>& run) {
        const auto& [change, when] = GetParam();
        const Watchdog watchdog("the job with a changing input");
        const Bytes before = read_file(input);
        ASSERT_EQ(run(nullptr).state(), NQ360_FINISHED);
        const Bytes whole = read_file(output);
        const auto open_before = open_files();
        bool changed = false;
        const Outcome outcome = run([&, make = change.make, state = when](const Reply& reply) {
            if (reply.state == state && !changed) {
                changed = true;
                make(input);
            }
        });
        ASSERT_TRUE(changed) << "no reply of state " << when;
        outcome.json();
        EXPECT_EQ(open_files(), open_before);
        EXPECT_TRUE(outcome.state() == NQ360_FINISHED || outcome.state() == NQ360_FAILED) << outcome.text();
        EXPECT_EQ(fs::exists(output), outcome.state() == NQ360_FINISHED) << outcome.text();
        const bool whole_expected = change.left == Left::kAll || (change.left == Left::kBeginning && notices);
        if (whole_expected && outcome.state() == NQ360_FINISHED) {
            EXPECT_TRUE(read_file(output) == whole);
        }
        fs::remove_all(input);
        fs::remove(output);
        write_file(input, before);
    }

    void change_inputs_of_export(const Shot& shot, const std::string& output) {
        ExportCall call = small_export(shot, output);
        for (const std::string& input : {shot.one, shot.two}) {
            SCOPED_TRACE(input);
            change_meanwhile(input, output, true, [&](auto on_reply) { return call.run(on_reply); });
        }
    }

    TempDir dir;
};

using ChangingMovie = ChangingInput;
using ChangingStill = ChangingInput;

std::string name_of_case(const testing::TestParamInfo<Case>& info) {
    return std::string(std::get<Change>(info.param).name) +
           (std::get<NQ360_STATE>(info.param) == NQ360_STARTED ? "AtTheStart" : "InTheMiddle");
}

}  // namespace

TEST_P(ChangingMovie, EndsItsExportWithOneReply) {
    for (const char* codec : {"h264-baseline", "mjpeg"}) {
        SCOPED_TRACE(codec);
        change_inputs_of_export(movies_in(dir, {"--size", "1440", "--frames", "12", "--codec", codec, "--sound", "1"}),
                                dir.file("out.mov"));
    }
}

TEST_P(ChangingMovie, EndsItsExtractionWithOneReply) {
    const std::string movie = movies_in(dir, {"--size", "64", "--frames", "60", "--sound", "1"}).one;
    const std::string audio = dir.file("out.wav");
    change_meanwhile(movie, audio, false,
                     [&](auto on_reply) { return get_audio(movie.c_str(), audio.c_str(), nullptr, on_reply); });
}

TEST_P(ChangingStill, EndsItsExportWithOneReply) {
    change_inputs_of_export(stills_in(dir, {"--size", "1440"}), dir.file("out.jpg"));
}

INSTANTIATE_TEST_SUITE_P(Is, ChangingMovie,
                         testing::Combine(testing::ValuesIn(kChanges), testing::Values(NQ360_STARTED, NQ360_PROGRESS)),
                         name_of_case);
INSTANTIATE_TEST_SUITE_P(Is, ChangingStill,
                         testing::Combine(testing::ValuesIn(kChanges), testing::Values(NQ360_STARTED)), name_of_case);
