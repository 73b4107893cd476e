// The kinds of job that a fault may meet, each small and with its own files, and what holds however one ends.
#pragma once

#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"

namespace test_support {

struct Job {
    std::function<int(NQ360_CALLBACK)> run;
    std::vector<std::string> inputs;
    std::string output;
};

using MakeJob = Job (*)(const TempDir&);

// A small panorama with the sound of lens 1; the paths are borrowed.
inline ExportCall small_export(const Shot& shot, const std::string& output) {
    ExportCall call;
    call.movie1 = shot.one.c_str();
    call.movie2 = shot.two.c_str();
    call.output = output.c_str();
    call.width = 128;
    call.height = 64;
    call.audio_source = 0;
    return call;
}

namespace jobs_detail {

inline Job export_of(const Shot& shot, const std::string& output) {
    const auto run = [shot, output](NQ360_CALLBACK callback) { return small_export(shot, output).run_with(callback); };
    return {run, {shot.one, shot.two}, output};
}

inline Shot short_movies(const TempDir& dir) {
    return movies_in(dir, {"--size", "1440", "--frames", "2", "--sound", "1"});
}

}  // namespace jobs_detail

inline Job movie_export(const TempDir& dir) {
    return jobs_detail::export_of(jobs_detail::short_movies(dir), dir.file("out.mov"));
}

inline Job stills_export(const TempDir& dir) {
    return jobs_detail::export_of(stills_in(dir, {"--size", "1440"}), dir.file("out.jpg"));
}

inline Job sound_extraction(const TempDir& dir) {
    // Two seconds, more than the 256 KiB that FFmpeg holds back: only then it has to seek in the file.
    const std::string movie = movies_in(dir, {"--size", "64", "--frames", "60", "--sound", "1"}).one;
    const std::string output = dir.file("out.wav");
    const auto run = [movie, output](NQ360_CALLBACK callback) {
        return NQ360_get_audio(movie.c_str(), output.c_str(), 0, nullptr, callback);
    };
    return {run, {movie}, output};
}

inline Job analysis_of(const std::string& input, const std::string& thumbnail) {
    const auto run = [input, thumbnail](NQ360_CALLBACK callback) {
        return NQ360_analyze_image(input.c_str(), thumbnail.c_str(), 64, 1, callback);
    };
    return {run, {input}, thumbnail};
}

inline Job picture_analysis(const TempDir& dir) {
    return analysis_of(stills_in(dir, {"--size", "320"}).one, dir.file("thumbnail.jpg"));
}

inline Job movie_analysis(const TempDir& dir) {
    return analysis_of(movies_in(dir, {"--size", "320", "--frames", "3", "--sound", "1"}).one,
                       dir.file("thumbnail.jpg"));
}

namespace jobs_detail {

inline int hand_on(NQ360_STATE state, const char* json, void* user) {
    (*static_cast<const NQ360_CALLBACK*>(user))(state, json);
    return 0;
}

// A record whose replies go to the job's callback, and whose log goes nowhere.
template <typename Options>
int run_record(Options options, int (*job)(const Options*), NQ360_CALLBACK callback) {
    options.reply = hand_on;
    options.log = [](int, const char*, void*) {};
    options.user = &callback;
    return job(&options);
}

// Everything that a record can ask for.
inline Job export_with_options(const Shot& shot, const std::string& output) {
    const auto run = [shot, output](NQ360_CALLBACK callback) {
        NQ360_EXPORT_OPTIONS options;
        NQ360_export_options_init(&options);
        options.lens1 = shot.one.c_str();
        options.lens2 = shot.two.c_str();
        options.output = output.c_str();
        options.width = 128;
        options.height = 64;
        options.yaw = 20;
        options.feather = 1.5;
        options.gain1[0] = 1.1;
        options.filter = 1;
        options.quality = 95;
        options.sound_codec = NQ360_SOUND_AAC;
        options.keep_metadata = 1;
        options.web = 1;
        options.workers = 2;
        options.whole_inputs_only = 1;
        return run_record(options, NQ360_export_with, callback);
    };
    return {run, {shot.one, shot.two}, output};
}

}  // namespace jobs_detail

inline Job movie_export_with_options(const TempDir& dir) {
    return jobs_detail::export_with_options(jobs_detail::short_movies(dir), dir.file("out.mp4"));
}

inline Job stills_export_with_options(const TempDir& dir) {
    return jobs_detail::export_with_options(stills_in(dir, {"--size", "1440"}), dir.file("out.jpg"));
}

inline Job sound_extraction_with_options(const TempDir& dir) {
    const std::string movie = movies_in(dir, {"--size", "64", "--frames", "20", "--sound", "1"}).one;
    const std::string output = dir.file("out.m4a");
    const auto run = [movie, output](NQ360_CALLBACK callback) {
        NQ360_AUDIO_OPTIONS options;
        NQ360_audio_options_init(&options);
        options.movie = movie.c_str();
        options.output = output.c_str();
        options.sound_codec = NQ360_SOUND_AAC;
        return jobs_detail::run_record(options, NQ360_get_audio_with, callback);
    };
    return {run, {movie}, output};
}

inline Job analysis_with_options(const TempDir& dir) {
    const std::string input = stills_in(dir, {"--size", "320"}).one;
    const std::string thumbnail = dir.file("thumbnail.jpg");
    const auto run = [input, thumbnail](NQ360_CALLBACK callback) {
        NQ360_ANALYZE_OPTIONS options;
        NQ360_analyze_options_init(&options);
        options.input = input.c_str();
        options.thumbnail = thumbnail.c_str();
        options.thumbnail_width = 64;
        options.thumbnail_always = 1;
        options.quick = 1;
        return jobs_detail::run_record(options, NQ360_analyze_with, callback);
    };
    return {run, {input}, thumbnail};
}

namespace jobs_detail {

// Without allocations, which a fault is to meet in the job alone.
inline void keep_bytes(const char* path, const void* bytes, size_t size) {
    const int file = open(path, O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0666);
    const ssize_t written = write(file, bytes, size);
    close(file);
    ASSERT_EQ(written, static_cast<ssize_t>(size));
}

// A job on a shot makes no file: what it gives is kept in another folder, so that a fault does not meet the test.
using ShotCall = void (*)(const NQ360_EXPORT_OPTIONS& options, const char* result_path);

inline Job shot_job(const Shot& shot, ShotCall call) {
    const auto elsewhere = std::make_shared<TempDir>();
    const std::string result = elsewhere->file("result");
    const auto run = [shot, elsewhere, result, call](NQ360_CALLBACK callback) {
        NQ360_EXPORT_OPTIONS options;
        NQ360_export_options_init(&options);
        options.lens1 = shot.one.c_str();
        options.lens2 = shot.two.c_str();
        options.width = 128;
        options.height = 64;
        options.reply = hand_on;
        options.log = [](int, const char*, void*) {};
        options.user = &callback;
        call(options, result.c_str());
        return 0;
    };
    return {run, {shot.one, shot.two}, result};
}

}  // namespace jobs_detail

inline Job movie_preview(const TempDir& dir) {
    return jobs_detail::shot_job(jobs_detail::short_movies(dir),
                                 [](const NQ360_EXPORT_OPTIONS& options, const char* result_path) {
                                     unsigned char* jpeg = nullptr;
                                     size_t size = 0;
                                     if (NQ360_preview(&options, nullptr, &jpeg, &size) == NQ360_FINISHED) {
                                         jobs_detail::keep_bytes(result_path, jpeg, size);
                                     }
                                     NQ360_free(jpeg);
                                 });
}

inline Job stills_match(const TempDir& dir) {
    return jobs_detail::shot_job(
        stills_in(dir, {"--size", "1440"}), [](const NQ360_EXPORT_OPTIONS& options, const char* result_path) {
            if (NQ360_match(&options, nullptr) == NQ360_FINISHED) {
                jobs_detail::keep_bytes(result_path, last_reply.text, std::strlen(last_reply.text));
            }
        });
}

struct NamedJob {
    const char* name;
    MakeJob make;
};
inline std::ostream& operator<<(std::ostream& out, const NamedJob& job) {
    return out << job.name;
}

inline const NamedJob kJobs[] = {{"MovieExport", movie_export},
                                 {"StillsExport", stills_export},
                                 {"SoundExtraction", sound_extraction},
                                 {"PictureAnalysis", picture_analysis},
                                 {"MovieAnalysis", movie_analysis},
                                 {"MovieExportWithOptions", movie_export_with_options},
                                 {"StillsExportWithOptions", stills_export_with_options},
                                 {"SoundExtractionWithOptions", sound_extraction_with_options},
                                 {"AnalysisWithOptions", analysis_with_options}};

// These write nothing.
inline const NamedJob kShotJobs[] = {{"MoviePreview", movie_preview}, {"StillsMatch", stills_match}};

inline std::string name_of_job(const testing::TestParamInfo<NamedJob>& job) {
    return job.param.name;
}

// Runs one job again and again and compares with how it ended undisturbed.
class JobRuns {
  public:
    explicit JobRuns(MakeJob make) : job_(make(dir_)) {
        for (const std::string& input : job_.inputs) {
            inputs_before_.push_back(read_file(input));
        }
        prepare();
        run();
        EXPECT_EQ(last_reply.state, NQ360_FINISHED) << last_reply.text;
        whole_ = read_file(job_.output);
    }

    const std::string& folder() const { return dir_.path(); }
    const Job& job() const { return job_; }

    // To be called before each run.
    void prepare() {
        std::filesystem::remove(job_.output);
        last_reply = {};
    }

    // The reply is then `last_reply`. Nothing is allocated but by the job.
    void run() const { job_.run(keep_last); }

    // One reply ended the job. It tells the truth about the output, which is whole or gone, and the inputs are as they
    // were. Returns whether the job succeeded.
    bool ended_well() const {
        namespace fs = std::filesystem;
        EXPECT_EQ(last_reply.ends, 1) << "replies that end the job";
        EXPECT_GE(last_reply.state, NQ360_FINISHED) << last_reply.text;
        const auto reply = nlohmann::json::parse(last_reply.text, nullptr, false);
        EXPECT_TRUE(reply.is_object()) << last_reply.text;
        for (const auto& entry : fs::directory_iterator(dir_.path())) {
            EXPECT_NE(entry.path().filename().string().rfind(".nq360-", 0), 0u) << "left beside the output";
        }
        const bool failed = last_reply.state != NQ360_FINISHED;
        // Established: an unexpected failure of an extraction is told with NQ360_FINISHED, and its file stays.
        const bool unexpected = !failed && reply.contains("errnum");
        if (failed) {
            EXPECT_FALSE(fs::exists(job_.output)) << "a failed job leaves a file: " << last_reply.text;
        } else if (!unexpected) {
            EXPECT_TRUE(fs::exists(job_.output) && read_file(job_.output) == whole_)
                << "success is told, but the file is not whole";
        }
        for (size_t i = 0; i < job_.inputs.size(); ++i) {
            EXPECT_TRUE(read_file(job_.inputs[i]) == inputs_before_[i]) << job_.inputs[i] << " has changed";
        }
        return !failed && !unexpected;
    }

  private:
    TempDir dir_;
    Job job_;
    std::vector<Bytes> inputs_before_;
    Bytes whole_;
};

}  // namespace test_support
