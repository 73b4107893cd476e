// The zone around the seam as one lens shows it, unrolled.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

// One plane of one lens: a column for each direction along the seam, rows from two degrees on lens 1's side of it to
// the same on lens 2's. Lenses see a little past the hemisphere, so that both may show all of it.
class Ring {
  public:
    static constexpr int kDirections = 7200;
    static constexpr double kDegreesPerDirection = 360.0 / kDirections;
    static constexpr int kRowsPerSide = 20;
    static constexpr double kDegreesPerRow = 0.1;

    // `lens` is 0 or 1, `turn` the picture's in radians, `radius` the pixels of this plane from the centre to 90
    // degrees.
    Ring(const cv::Mat& plane, int lens, double turn, double radius);

    // Row 0 is the seam, lens 1's side above it; directions come round again.
    uint8_t at(int row, int direction) const {
        return samples_.at<uint8_t>(kRowsPerSide + row, (direction + kDirections) % kDirections);
    }

    // CV_8UC1, all directions.
    cv::Mat row(int row) const { return samples_.row(kRowsPerSide + row); }

  private:
    cv::Mat samples_;
};
