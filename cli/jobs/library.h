// The four exported functions as the command calls them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "nq360.h"

// How an operation ended.
struct Outcome {
    NQ360_STATE state = NQ360_FAILED;
    std::string reply;
};

// Gets NQ360_STARTED with the total and NQ360_PROGRESS with the count so far; must not throw.
using FrameHandler = std::function<void(NQ360_STATE state, int64_t frames)>;

// Offsets of one lens's planes.
struct Correction {
    int y = CORRECT_NONE;
    int u = CORRECT_NONE;
    int v = CORRECT_NONE;
};

// The arguments of an export; index 0 is lens 1.
struct ExportJob {
    std::string inputs[2];
    std::string output;
    std::optional<std::string> band;
    int width = 0;
    int height = 0;
    int tilt = 0;             // degrees
    float turns[2] = {0, 0};  // degrees
    Correction corrections[2];
    int sound = 0;             // 0 and 1: of that input; -1: none
    float starts[2] = {0, 0};  // seconds
    float ends[2] = {0, 0};
    std::string date;
};

// `thumbnail_width` 0 is the picture's own.
Outcome analyze_file(const std::string& path, const std::optional<std::string>& thumbnail = {},
                     int thumbnail_width = 0);
Outcome export_panorama(const ExportJob& job, const std::string& cancel_path, const FrameHandler& handler);
Outcome extract_sound(const std::string& movie, const std::string& output, const std::string& cancel_path,
                      const FrameHandler& handler);
