// Pictures as three separate 8-bit planes, and the small records that go with them.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

// Pixels.
struct ImageSize {
    int32_t width;
    int32_t height;
};

// What addresses pixels with 16-bit numbers, as cv::remap does, takes at most this many a side, of its source and of
// its output. Pixels.
constexpr int64_t kMostRemapSide = 32766;

// Column and row of a pixel.
struct ImagePoint {
    int32_t x;
    int32_t y;
};

enum ImageFrameType : int {
    FRAME_TYPE_NOTLOAD = 0,  // no picture; the planes must not be used
    FRAME_TYPE_YUV420 = 1,   // Y of h x w, U and V of h/2 x w/2 (integer halving)
};

// A picture. A value type whose copies share pixels through OpenCV's reference counting.
struct ImageFrame {
    std::vector<cv::Mat> YUVMats;  // CV_8UC1, in the order Y, U, V, each continuous in memory
    ImageFrameType frameType = FRAME_TYPE_NOTLOAD;
};
