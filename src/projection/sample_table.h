// Bilinear sampling of 8-bit planes through a table that is used many times.
//
// The results are those of cv::remap with INTER_LINEAR and BORDER_CONSTANT 0 in every byte: positions in 32nds
// of a pixel, weights that are products of 32nds, and a sum rounded to nearest. What is saved is the conversion
// of the tables on each use, the tests for the border, and, where the processor has AVX2, most of the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "projection/image_frame.h"

// A plane with a frame of zeros one pixel wide, so that sampling next to its border needs no test.
class FramedPlane {
  public:
    FramedPlane(int rows, int cols);

    // The plane itself, without the frame.
    cv::Mat pixels() const { return pixels_; }
    const uint8_t* framed() const { return framed_.data; }
    ptrdiff_t stride() const { return static_cast<ptrdiff_t>(framed_.step); }

  private:
    cv::Mat framed_;
    cv::Mat pixels_;
};

class SampleTable {
  public:
    SampleTable() = default;

    // Tables of source columns and rows (CV_32FC1), for sampling planes like `source`.
    SampleTable(const cv::Mat& mapx, const cv::Mat& mapy, const FramedPlane& source);

    // Fills `target` (CV_8UC1, of the tables' size), its rows in parallel.
    void sample(const FramedPlane& source, cv::Mat* target) const;

  private:
    void convert_row(const float* x, const float* y, const FramedPlane& source, int row);

    int cols_ = 0;
    cv::Mat offsets_;    // CV_32SC1: from the framed plane's first byte to a pixel's upper left neighbour
    cv::Mat fractions_;  // CV_16UC1: 32nds of a pixel to the right of it, and times 256 below it
};

// Samples `count` pixels of the plane that begins at `framed`. The plain loop, and the one to use: the same
// bytes, in less time on processors that allow it.
void sample_row_plain(const uint8_t* framed, ptrdiff_t stride, const int32_t* offsets, const uint16_t* fractions,
                      uint8_t* target, int count);
void sample_row(const uint8_t* framed, ptrdiff_t stride, const int32_t* offsets, const uint16_t* fractions,
                uint8_t* target, int count);
