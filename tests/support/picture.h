// Pictures as another program reads them, and how much two differ.
#pragma once

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

// One plane ('y', 'u' or 'v') of the first picture as it is stored: neither turned nor brought to another range.
// CV_8UC1.
inline cv::Mat plane_of(const std::string& path, char plane) {
    cv::Size size = size_of(path);
    const std::string pixels =
        output_of({"ffmpeg", "-v", "error", "-noautorotate", "-i", "file:" + path, "-vf",
                   std::string("extractplanes=") + plane, "-frames:v", "1", "-f", "rawvideo", "-"});
    if (plane != 'y') {
        size = cv::Size((size.width + 1) / 2, (size.height + 1) / 2);
    }
    if (pixels.size() != static_cast<size_t>(size.area())) {
        throw std::runtime_error(path + " is no 4:2:0 picture");
    }
    return cv::Mat(size, CV_8UC1, const_cast<char*>(pixels.data())).clone();
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
