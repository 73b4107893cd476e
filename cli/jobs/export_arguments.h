// What can be said of an export, as it was typed.
#pragma once

#include <optional>
#include <string>

#include "jobs/arguments.h"
#include "jobs/library.h"
#include "jobs/pair_arguments.h"

namespace CLI {
class App;
}

struct ExportArguments {
    PairArguments pair;
    std::string output;
    std::optional<Size> size;
    double tilt = 0;  // degrees
    double yaw = 0;
    double pitch = 0;
    double roll = 0;
    Correction corrections[2] = {kNoCorrection, kNoCorrection};
    Gains gains[2] = {kNoGains, kNoGains};
    std::optional<double> feather;
    std::optional<std::string> band;
    std::optional<int> quality;
    long long bit_rate = 0;
    int sound = 0;  // 0 and 1: of that input; -1: none
    bool aac = false;
    bool web = false;
    std::optional<int> jobs;
    std::optional<std::string> date;
    bool partial = false;
    bool exact = false;
};

void add_export_arguments(CLI::App& app, ExportArguments& arguments);

// Those that are not files: what is made of any shot. `jobs` says what --jobs counts.
void add_panorama_options(CLI::App& app, ExportArguments& arguments, const char* jobs);

// The job with the command's own defaults or, where it is to be exact, the library's. The times are still those of the
// first and the last frame that are meant.
ExportJob job_of(const ExportArguments& arguments);

// Names of the options that were given and have no effect on what is made.
std::string idle_options(const CLI::App& app, bool makes_picture, bool from_pictures);
