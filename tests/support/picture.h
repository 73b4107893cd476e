// Pictures as another program reads them, and how much two differ.
#pragma once

#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

#include "support/command.h"

namespace test_support {

// Columns and rows, as ffprobe tells.
inline cv::Size size_of(const std::string& path) {
    const std::string text = output_of({"ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                                        "stream=width,height", "-of", "csv=p=0", "file:" + path});
    cv::Size size;
    if (std::sscanf(text.c_str(), "%d,%d", &size.width, &size.height) != 2) {
        throw std::runtime_error(path + " has no picture");
    }
    return size;
}

using Planes = std::array<cv::Mat, 3>;

// Y, U and V of the first picture as they are stored: neither turned nor brought to another range. Each is
// CV_8UC1; a grey picture has Y alone.
inline Planes planes_of(const std::string& path) {
    const cv::Size size = size_of(path);
    const cv::Size half((size.width + 1) / 2, (size.height + 1) / 2);
    const std::string pixels = output_of(
        {"ffmpeg", "-v", "error", "-noautorotate", "-i", "file:" + path, "-frames:v", "1", "-f", "rawvideo", "-"});
    const bool gray = pixels.size() == static_cast<size_t>(size.area());
    if (!gray && pixels.size() != static_cast<size_t>(size.area() + 2 * half.area())) {
        throw std::runtime_error(path + " is neither a 4:2:0 nor a grey picture");
    }
    Planes planes;
    auto* at = const_cast<char*>(pixels.data());
    for (size_t i = 0; i < (gray ? 1 : 3); ++i) {
        planes[i] = cv::Mat(i == 0 ? size : half, CV_8UC1, at).clone();
        at += planes[i].total();
    }
    return planes;
}

// One of them: 'y', 'u' or 'v'.
inline cv::Mat plane_of(const std::string& path, char plane) {
    return planes_of(path)[plane == 'y' ? 0 : plane == 'u' ? 1 : 2];
}

// Of two pictures of one size and 8 bits, in dB; infinite when they are the same.
inline double psnr(const cv::Mat& a, const cv::Mat& b) {
    if (a.size() != b.size() || a.type() != b.type()) {
        throw std::runtime_error("pictures of two sizes cannot be compared");
    }
    const double error = cv::norm(a, b, cv::NORM_L2SQR) / static_cast<double>(a.total());
    return error == 0 ? std::numeric_limits<double>::infinity() : 10 * std::log10(255 * 255 / error);
}

inline double mean_of(const cv::Mat& picture) {
    return cv::mean(picture)[0];
}

}  // namespace test_support
