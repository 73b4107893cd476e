// The frame numbers that the sample movies carry, as they are found in an export.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "sample/frame_code.h"
#include "support/media.h"

namespace test_support {

using CodePair = std::pair<int, int>;  // the frame of lens 1 and that of lens 2; -1: no code can be read
using Codes = std::vector<CodePair>;

// Frames `first` to `last` of both movies.
inline Codes equal_codes(int first, int last) {
    Codes codes;
    for (int frame = first; frame <= last; ++frame) {
        codes.emplace_back(frame, frame);
    }
    return codes;
}

constexpr double kFrameSeconds = 1001.0 / 30000;

// Seconds from the beginning to this frame of a sample movie.
inline float time_of(int frame) {
    return static_cast<float>(frame * kFrameSeconds);
}

inline CodePair codes_in(const cv::Mat& panorama_luma) {
    const sample::LumaView view{panorama_luma.data, panorama_luma.cols, panorama_luma.rows,
                                static_cast<std::ptrdiff_t>(panorama_luma.step)};
    const auto number = [&](int lens) {
        const auto code = sample::read_panorama_code(view, lens);
        return code && code->lens == lens ? code->number : -1;
    };
    return {number(1), number(2)};
}

// Of each frame of a movie that was exported with all angles 0.
inline Codes codes_of(const std::string& path) {
    Codes codes;
    for (const Planes& frame : frames_of(path)) {
        codes.push_back(codes_in(frame[0]));
    }
    return codes;
}

}  // namespace test_support
