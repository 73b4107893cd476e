#include "sample/sphere.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace sample {
namespace {

// Row `from` turned left by `shift` columns, written into `to`, which may be longer than one turn.
void copy_turned(const cv::Mat& from, cv::Mat to, int shift) {
    for (int x = 0; x < to.cols;) {
        const int source = (x + shift) % from.cols;
        const int count = std::min(from.cols - source, to.cols - x);
        from.colRange(source, source + count).copyTo(to.colRange(x, x + count));
        x += count;
    }
}

}  // namespace

cv::Mat wrap_sphere(const cv::Mat& scene, int right) {
    const int last = scene.rows - 1;
    cv::Mat wrapped(scene.rows + 2 * kSphereMargin, scene.cols + kSphereMargin + right, scene.type());
    for (int y = 0; y < wrapped.rows; ++y) {
        const int row = y - kSphereMargin;
        const bool beyond_pole = row < 0 || row > last;
        const int source = row < 0 ? -row : row > last ? 2 * last - row : row;
        const int shift = scene.cols - kSphereMargin + (beyond_pole ? scene.cols / 2 : 0);
        copy_turned(scene.row(source), wrapped.row(y), shift);
    }
    return wrapped;
}

Sphere::Sphere(const Scene& scene, int width, bool turns) : width_(width) {
    cv::Mat wrapped = wrap_sphere(scene.draw(width, width / 2, 0), kSphereMargin + (turns ? width : 0));
    wrapped.rowRange(0, 2 * kSphereBlack + 1).setTo(cv::Scalar(kBlackY, kNeutralChroma, kNeutralChroma));
    cv::split(wrapped, planes_.data());
}

Sphere Sphere::limited() const {
    Sphere sphere = *this;
    sphere.planes_ = {};  // or the copies would share, and overwrite, this one's pixels
    sphere.black_ = 16;
    planes_[0].convertTo(sphere.planes_[0], CV_8U, 219.0 / 255, sphere.black_);
    for (size_t i = 1; i < planes_.size(); ++i) {
        planes_[i].convertTo(sphere.planes_[i], CV_8U, 224.0 / 255, 128 - 128 * 224.0 / 255);
    }
    return sphere;
}

Sphere Sphere::brighter(double factor) const {
    Sphere sphere = *this;
    sphere.planes_ = {};
    for (size_t i = 0; i < planes_.size(); ++i) {
        const int unchanged = i == 0 ? black_ : kNeutralChroma;
        planes_[i].convertTo(sphere.planes_[i], CV_8U, factor, unchanged * (1 - factor));
    }
    return sphere;
}

cv::Mat Sphere::plane(size_t index, int shift) const {
    return planes_[index].colRange(shift, shift + width_ + 2 * kSphereMargin);
}

cv::Mat looked_at(const Sphere& sphere, const Look& look, cv::Size size) {
    cv::Mat columns(size, CV_32FC1);
    cv::Mat rows(size, CV_32FC1);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const double longitude = x * 2 * kPi / size.width - kPi;
            const double colatitude = y * kPi / size.height;
            const Vector seen = seen_direction(std::sin(colatitude) * std::cos(longitude),
                                               std::sin(colatitude) * std::sin(longitude), std::cos(colatitude), look);
            const Position found = panorama_position(seen, sphere.width(), sphere.width() / 2);
            columns.at<float>(y, x) = static_cast<float>(found.x + kSphereMargin);
            rows.at<float>(y, x) = static_cast<float>(found.y + kSphereMargin);
        }
    }
    std::array<cv::Mat, 3> planes;
    for (size_t i = 0; i < planes.size(); ++i) {
        cv::remap(sphere.plane(i, 0), planes[i], columns, rows, cv::INTER_CUBIC);
    }
    cv::Mat seen;
    cv::merge(planes, seen);
    return seen;
}

}  // namespace sample
