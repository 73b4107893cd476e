// A program that does one job after another for days needs no more memory and open files than at the beginning.
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include "support/jobs.h"
#include "support/open_files.h"
#include "support/sanitized.h"

using namespace test_support;

namespace {

constexpr int kRounds = kSanitized ? 20 : 200;
constexpr int kWarmUpRounds = 10;
constexpr size_t kMostGrowth = size_t{1} << 20;

size_t allocated() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

size_t resident_kib() {
    std::ifstream file("/proc/self/statm");
    size_t total = 0;
    size_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

// A file that begins like this one and breaks off.
std::string broken(const TempDir& dir, const std::string& path) {
    const Bytes bytes = read_file(path);
    return dir.file("broken-" + std::filesystem::path(path).filename().string(), slice(bytes, 0, bytes.size() / 2));
}

class Growth : public testing::Test {
  protected:
    Job cancelled_export() {
        // The marker is looked for at the tenth frame.
        const Shot shot = movies_in(folders_[4], {"--size", "1440", "--frames", "10"});
        const auto run = [shot, output = movies_.output, marker = marker_](NQ360_CALLBACK callback) {
            ExportCall call = small_export(shot, output);
            call.cancel = marker.c_str();
            return call.run_with(callback);
        };
        return {run, {shot.one, shot.two}, movies_.output};
    }

    void expect_end(const Job& job, NQ360_STATE state) {
        last_reply = {};
        job.run(keep_last);
        EXPECT_EQ(last_reply.ends, 1);
        EXPECT_EQ(last_reply.state, state) << last_reply.text;
    }

    TempDir dir_;
    std::string marker_ = dir_.file("marker", {});
    TempDir folders_[5];  // the jobs' files have the same names
    Job movies_ = movie_export(folders_[0]);
    Job stills_ = stills_export(folders_[1]);
    Job sound_ = sound_extraction(folders_[2]);
    Job picture_ = picture_analysis(folders_[3]);
    std::string thumbnail_ = dir_.file("thumbnail.jpg");
};

}  // namespace

TEST_F(Growth, IsNoneInManyJobsOfEveryKind) {
    const std::string broken_movie = broken(dir_, movies_.inputs[1]);
    const std::string broken_picture = broken(dir_, stills_.inputs[0]);
    const std::vector<std::pair<Job, NQ360_STATE>> analyses = {
        {picture_, NQ360_FINISHED},
        {analysis_of(sound_.inputs[0], thumbnail_), NQ360_FINISHED},
        {analysis_of(broken_movie, thumbnail_), NQ360_FAILED},
        {analysis_of(marker_, thumbnail_), NQ360_FAILED},
        {analysis_of(dir_.file("empty.jpg", zeros(1000)), thumbnail_), NQ360_FAILED}};
    const std::vector<std::pair<Job, NQ360_STATE>> exports = {
        {movies_, NQ360_FINISHED},
        {stills_, NQ360_FINISHED},
        {cancelled_export(), NQ360_CANCELLED},
        {jobs_detail::export_of({movies_.inputs[0], broken_movie}, movies_.output), NQ360_FAILED},
        {jobs_detail::export_of({stills_.inputs[0], movies_.inputs[1]}, dir_.file("out.xyz")), NQ360_FAILED}};
    size_t allocated_before = 0;
    std::ptrdiff_t open_before = 0;
    for (int round = 0; round < kRounds; ++round) {
        if (round == kWarmUpRounds) {
            allocated_before = allocated();
            open_before = open_files();
            RecordProperty("resident_kib_before", std::to_string(resident_kib()));
        }
        for (const auto& [job, state] : analyses) {
            expect_end(job, state);
        }
        const auto& [job, state] = exports[static_cast<size_t>(round) % exports.size()];
        expect_end(job, state);
        expect_end(sound_, NQ360_FINISHED);
    }
    RecordProperty("resident_kib_after", std::to_string(resident_kib()));
    RecordProperty("allocated_before", std::to_string(allocated_before));
    RecordProperty("allocated_after", std::to_string(allocated()));
    EXPECT_EQ(open_files(), open_before);
    if (!kSanitized) {
        EXPECT_LE(allocated(), allocated_before + kMostGrowth);
    }
}
