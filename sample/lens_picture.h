// What a lens of the camera records of the scene around it.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "sample/lens.h"
#include "sample/picture.h"
#include "sample/sphere.h"

namespace sample {

// How the scene is looked up: cubic for stills; for movies linear in Y and nearest in U and V, which is much
// faster.
enum class Lookup { fine, fast };

// The picture of one lens, drawn through tables that are computed once.
class LensPainter {
  public:
    // `angle` (radians) is the third angle that the pictures will be exported with.
    LensPainter(const Lens& lens, double angle, Chroma chroma, int sphere_width, Lookup lookup);

    // Outside the lens's field the picture is black. For `shift` see Sphere::plane. `offset` is added to the planes
    // inside the field.
    Picture paint(const Sphere& sphere, int shift, const std::array<int, 3>& offset) const;

  private:
    struct Table {
        cv::Mat positions, fractions;  // OpenCV's fixed-point form
        cv::Mat field;                 // CV_8UC1, not 0 where the lens sees
        int interpolation;             // an OpenCV code
    };
    static Table make_table(const Lens& lens, double angle, Chroma step, int sphere_width, int interpolation);

    Chroma chroma_;
    std::array<Table, 2> tables_;  // of Y, and of U and V
};

// Sensor noise: normally distributed, another pattern for every frame.
class Grain {
  public:
    Grain(double sigma, uint64_t seed, cv::Size size);

    // Each call takes another part of the noise.
    void add_to(cv::Mat& plane);

  private:
    cv::Mat noise_;  // CV_8SC1, larger than a picture
    cv::RNG random_;
};

}  // namespace sample
