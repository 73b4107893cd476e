// Lens pictures reduced before a panorama is sampled from them: where it is much smaller than the lenses' own scale,
// sampling alone would leave out most of their pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "projection/image_frame.h"

// What a reduced picture can be made by: more would not fit the sums.
constexpr int kMostReduction = 8;

// Fills `target` (CV_8UC1) with the means of blocks of `columns` x `rows` pixels, powers of two of at most
// kMostReduction and twice that. The source has that many pixels for each of the target's.
void reduce_plane(const uint8_t* source, ptrdiff_t stride, int columns, int rows, cv::Mat* target);

// A plane's stack of lens 1, lens 2 and the band, each reduced on its own: no pixel mixes two of them, nor the
// halves of the band.
class StackReduction {
  public:
    // `lens`: of the plane of each lens picture, whose sides `factor` divides. `band`: the plane of the rearranged
    // band, or empty.
    StackReduction(int factor, ImageSize lens, const cv::Mat& band);

    int factor() const { return factor_; }

    // The band's plane of the reduced stack, or empty.
    const cv::Mat& band() const { return band_; }

    // From positions in the stack to positions in the reduced one.
    void move_positions(float* x, float* y, int count) const;

  private:
    int factor_;
    ImageSize lens_;
    int strip_rows_ = 0;    // of the band itself, before its rearrangement
    int reduced_rows_ = 0;  // the same, reduced
    cv::Mat band_;
};
