// What the analysis tells of one file.
#pragma once

#include <string>

#include "jobs/replies.h"

struct Description {
    int width = 0;
    int height = 0;
    double duration = -1;  // seconds; -1: not known
    int64_t frames = 0;
    int orientation = -1;
    bool is_picture = false;
    bool is_360 = false;  // by the camera or the stitching software
    std::string datetime;
    std::string source;  // stitching software, or the camera's maker and model
};

Description read_description(const Json& reply);

// Analyses the file. Throws CommandError that names it when that fails.
Description describe(const std::string& path);
