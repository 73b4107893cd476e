// What the camera stands in: a full sphere of colours that can be had as an equirectangular picture of any size.
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>

namespace sample {

// Full-range Y, U, V of BT.601, one byte each and not subsampled: what a JPEG holds.
constexpr int kBlackY = 0;
constexpr int kNeutralChroma = 128;

class Scene {
  public:
    virtual ~Scene() = default;

    // The scene as CV_8UC3 in the order Y, U, V, of width columns and height + 1 rows. Pixel (x, y) shows the
    // longitude x * 360 / width - 180 and the colatitude y * 180 / height, in degrees; the last row is the south
    // pole, which a panorama of `height` rows does not hold. `turn` (radians) is added to the longitude.
    virtual cv::Mat draw(int width, int height, double turn) const = 0;
};

// Colours, gradients, texture, a graticule every 15 degrees and labels every 30; no two octants look alike.
std::unique_ptr<Scene> drawn_scene();

// An equirectangular picture file, twice as wide as high. Throws when it cannot be read or has another shape.
std::unique_ptr<Scene> picture_scene(const std::string& path);

// The scene named on the command line: "drawn", or a picture file.
std::unique_ptr<Scene> scene_named(const std::string& name);

}  // namespace sample
