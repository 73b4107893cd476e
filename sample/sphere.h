// A drawn scene made ready for looking up any direction in it.
#pragma once

#include <array>

#include <opencv2/core.hpp>

#include "sample/lens.h"
#include "sample/scene.h"

namespace sample {

// Pixels around the picture that interpolation may reach.
constexpr int kSphereMargin = 8;

// Continues a scene's picture (columns from -180 degrees, rows from pole to pole) beyond its sides: the columns come
// round again, and beyond a pole lies the other side of the sphere. `right` columns are added on the right, the
// margin on the other sides.
cv::Mat wrap_sphere(const cv::Mat& scene, int right);

// Where, in rows and columns, a plane of a sphere is black: for positions that see nothing. Nearer than the border that
// interpolation of the scene itself reaches.
constexpr int kSphereBlack = 2;

// The planes of a scene, with a margin on all sides.
class Sphere {
  public:
    // Draws the scene `width` columns wide. Only a sphere that `turns` can be looked at with a shift.
    Sphere(const Scene& scene, int width, bool turns);

    int width() const { return width_; }

    // The same with its planes squeezed from full range into the limited range of movies.
    Sphere limited() const;

    // The same with everything brighter by a factor, as a longer exposure records it; black stays black.
    Sphere brighter(double factor) const;

    // A plane whose pixel (kSphereMargin, kSphereMargin) is the direction of longitude -180 degrees at the north
    // pole, once the scene is turned left by `shift` columns, 0 <= shift < width.
    cv::Mat plane(size_t index, int shift) const;

  private:
    int width_;
    int black_ = kBlackY;  // of Y
    std::array<cv::Mat, 3> planes_;
};

// The panorama that somebody who looks there has, CV_8UC3 in the order Y, U, V.
cv::Mat looked_at(const Sphere& sphere, const Look& look, cv::Size size);

}  // namespace sample
