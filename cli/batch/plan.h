// What a batch is to make: the shots of folders, and where their panoramas go.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "jobs/export_arguments.h"
#include "jobs/replies.h"
#include "jobs/shots.h"

struct PlannedShot {
    std::string lens[2];  // absolute
    std::string output;   // below the folder of the panoramas: "SUBFOLDER/STEM-360.jpg"
    bool is_picture = true;
    int width = 0;  // of the panorama
    int height = 0;
    int lens_width = 0;
    int64_t frames = 1;
    double seconds = 0;        // of a movie
    uint64_t bytes = 0;        // that the panorama may need
    uint64_t input_bytes = 0;  // of both halves

    // The time that it takes, in pixels of a movie.
    double work() const;
};

struct LeftOut {
    std::string path;
    std::string why;          // a sentence of its own, which names the file
    bool is_damaged = false;  // it cannot be read: something may be lost
};

struct Plan {
    std::vector<PlannedShot> shots;  // in order of capture
    std::vector<LeftOut> left_out;
};

struct PlanRequest {
    std::vector<std::string> folders;
    bool recursive = false;
    std::string to;  // the panoramas' folder, which need not be there yet; what lies in it is no input
    std::optional<NamePattern> pattern;
};

// Describes the files of the folders, with a bar, and finds their shots; nothing when a signal came. Throws UsageError
// when a folder lies in that of the panoramas, CommandError when it cannot be read or holds nothing.
std::optional<Plan> make_plan(const PlanRequest& request, const ExportArguments& arguments);

// Bytes that must be free for these to be made one after the other: the library asks for room for a panorama of the
// inputs' size, and for some more, before each.
uint64_t space_needed(const std::vector<const PlannedShot*>& shots);

Json shot_json(const PlannedShot& shot);
PlannedShot shot_of(const Json& json);  // throws Json::exception where something is missing
