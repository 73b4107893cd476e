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
    std::string unread;  // what should be there and could not be read: "picture,exif"; empty of a whole file

    // A picture has a length of its own in the reply, which tells nobody anything.
    bool has_length() const { return !is_picture && duration > 0; }

    // Of a movie; the camera's where the file does not tell.
    double frame_seconds() const {
        return has_length() && frames > 0 ? duration / static_cast<double>(frames) : 1001.0 / 30000;
    }
};

Description read_description(const Json& reply);

// Analyses the file. Throws CommandError that names it when that fails or finds no picture.
Description describe(const std::string& path);
