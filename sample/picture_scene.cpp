// A scene out of an equirectangular picture file.
#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <opencv2/imgproc.hpp>

#include "sample/lens.h"
#include "sample/picture.h"
#include "sample/scene.h"
#include "sample/sphere.h"

namespace sample {
namespace {

cv::Mat yuv_from_rgb(const cv::Mat& rgb) {
    cv::Mat ycrcb;
    cv::cvtColor(rgb, ycrcb, cv::COLOR_RGB2YCrCb);
    cv::Mat yuv(ycrcb.size(), CV_8UC3);
    const int order[] = {0, 0, 2, 1, 1, 2};
    cv::mixChannels(&ycrcb, 1, &yuv, 1, order, 3);
    return yuv;
}

// The south pole is a point: one colour, the mean of the last row.
cv::Mat with_south_pole(const cv::Mat& picture) {
    const cv::Mat pole(1, picture.cols, picture.type(), cv::mean(picture.row(picture.rows - 1)));
    cv::Mat whole;
    cv::vconcat(picture, pole, whole);
    return whole;
}

// Takes out what a picture `ratio` times smaller cannot show.
cv::Mat softened(const cv::Mat& sphere, double ratio) {
    if (ratio <= 1) {
        return sphere;
    }
    cv::Mat soft;
    cv::GaussianBlur(sphere, soft, cv::Size(), 0.4 * ratio, 0.4 * ratio);
    return soft;
}

class PictureScene : public Scene {
  public:
    explicit PictureScene(const cv::Mat& rgb)
        : width_(rgb.cols), height_(rgb.rows), yuv_(with_south_pole(yuv_from_rgb(rgb))) {}

    cv::Mat draw(int width, int height, double turn) const override {
        const double ratio = static_cast<double>(width_) / width;
        const cv::Mat source = softened(wrap_sphere(yuv_, kSphereMargin), ratio);
        cv::Mat columns(height + 1, width, CV_32FC1);
        cv::Mat rows(height + 1, width, CV_32FC1);
        for (int x = 0; x < width; ++x) {
            const double column = x * ratio + turn / (2 * kPi) * width_;
            columns.col(x).setTo(column - width_ * std::floor(column / width_) + kSphereMargin);
        }
        for (int y = 0; y <= height; ++y) {
            rows.row(y).setTo(static_cast<double>(y) * height_ / height + kSphereMargin);
        }
        cv::Mat drawn;
        cv::remap(source, drawn, columns, rows, cv::INTER_CUBIC);
        return drawn;
    }

  private:
    int width_;
    int height_;
    cv::Mat yuv_;
};

}  // namespace

std::unique_ptr<Scene> picture_scene(const std::string& path) {
    const cv::Mat rgb = read_rgb(path);
    if (rgb.cols != 2 * rgb.rows) {
        throw std::runtime_error(path + ": an equirectangular picture is twice as wide as high, this one is " +
                                 std::to_string(rgb.cols) + " x " + std::to_string(rgb.rows));
    }
    return std::make_unique<PictureScene>(rgb);
}

std::unique_ptr<Scene> scene_named(const std::string& name) {
    return name == "drawn" ? drawn_scene() : picture_scene(name);
}

}  // namespace sample
