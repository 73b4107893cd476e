// The jobs of the library as the command calls them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nq360.h"

// How a job ended.
struct Outcome {
    NQ360_STATE state = NQ360_FAILED;
    std::string reply;
};

// Gets each reply but the last, and tells whether the job is to stop. What it throws stops the job, and is thrown
// again by the function that was called.
using ReplyHandler = std::function<bool(NQ360_STATE state, const std::string& reply)>;

// What is to become of two halves: the library's record, whose texts lie beside it.
struct ExportJob {
    std::string lens[2];
    std::string output;
    std::optional<std::string> band;
    std::optional<std::string> date;
    std::string cancel_path;
    NQ360_EXPORT_OPTIONS options;  // as init leaves it; its texts are filled in by the call

    ExportJob() { NQ360_export_options_init(&options); }
};

struct SoundJob {
    std::string movie;
    std::optional<std::string> output;
    std::string cancel_path;
    bool aac = false;
};

struct JoinJob {
    std::vector<std::string> files;
    std::string output;
    std::string cancel_path;
};

// `thumbnail_width` 0 is the picture's own.
Outcome analyze_file(const std::string& path, const std::optional<std::string>& thumbnail = {},
                     int thumbnail_width = 0);
Outcome export_panorama(const ExportJob& job, const ReplyHandler& handler);
// Of `shot`, when there is one, and else of the lenses that the job names.
Outcome preview_panorama(const ExportJob& job, std::string* jpeg, NQ360_SHOT* shot = nullptr);

struct ShotCloser {
    void operator()(NQ360_SHOT* shot) const { NQ360_shot_close(shot); }
};
using ShotHandle = std::unique_ptr<NQ360_SHOT, ShotCloser>;

// Opens the lenses of the job; null when the outcome is a failure.
ShotHandle open_shot(const ExportJob& job, Outcome* outcome);
Outcome match_lenses(const ExportJob& job, const ReplyHandler& handler);
Outcome extract_sound(const SoundJob& job, const ReplyHandler& handler);
Outcome join_shares(const JoinJob& job, const ReplyHandler& handler);
