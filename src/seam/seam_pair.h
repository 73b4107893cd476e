// One pair of lens pictures along the seam.
#pragma once

#include <array>
#include <vector>

#include "media/ffmpeg_ptr.h"
#include "seam/ring.h"

// What the lenses show in one direction of the seam, in steps of the plane.
struct SeamValues {
    double lens1;
    double lens2;
};

class SeamPair {
  public:
    // 4:2:0 frames of one size that the camera has; turns in radians.
    SeamPair(const AVFrame* frame1, const AVFrame* frame2, double turn1, double turn2);

    // Whether both lenses go on past the seam wherever there is light next to it. Where they end at the hemisphere,
    // what lies next to the seam on either side is continued to it.
    bool overlaps() const { return overlaps_; }

    // A plane's values in the directions in which nothing that is compared is black or white, lens 2's picture turned
    // on by `shift` directions.
    std::vector<SeamValues> values(int plane, int shift) const;

    // The rows of Y that show the same in both lenses, or nearly so where these do not overlap. CV_8UC1, all
    // directions.
    struct Rows {
        cv::Mat lens1;
        cv::Mat lens2;
    };
    std::vector<Rows> rows_alike() const;

  private:
    const Ring& ring(int plane, int lens) const { return rings_[2 * plane + lens]; }

    std::vector<Ring> rings_;  // of each plane, lens 1's and lens 2's
    bool overlaps_;
};

// Whether the values are neither black nor white: a correction is cut off there.
cv::Mat usable(const cv::Mat& samples);
