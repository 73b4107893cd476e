// A picture as an encoder takes it, and picture files.
#pragma once

#include <array>
#include <string>

#include <opencv2/core.hpp>

#include "sample/ffmpeg.h"
#include "support/bytes.h"

namespace sample {

// How many columns and rows of Y share one sample of U and V.
struct Chroma {
    int columns, rows;
    bool none = false;  // Y alone
};
constexpr Chroma k420{2, 2};
constexpr Chroma k422{2, 1};
constexpr Chroma k444{1, 1};
constexpr Chroma kGray{2, 2, true};

// Three CV_8UC1 planes; those of chroma round their size up.
struct Picture {
    std::array<cv::Mat, 3> planes;
    Chroma chroma;
};

// A frame that borrows the picture's pixels: valid as long as the picture lives and is not written to by an encoder.
Frame borrow(const Picture& picture, AVPixelFormat format);

AVPixelFormat full_range_format(Chroma chroma);

// A baseline JPEG in full range. `quality` is the quantiser: 2 is fine, 31 coarse.
test_support::Bytes encode_jpeg(const Picture& picture, int quality);

// CV_8UC3 in the order R, G, B, of a PNG, JPEG or PNM file.
cv::Mat read_rgb(const std::string& path);

// CV_8UC3 (R, G, B) or CV_8UC1.
void write_png(const std::string& path, const cv::Mat& picture);

}  // namespace sample
