#include "sample/sphere.h"

#include <algorithm>

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
    planes_[0].convertTo(sphere.planes_[0], CV_8U, 219.0 / 255, 16);
    for (size_t i = 1; i < planes_.size(); ++i) {
        planes_[i].convertTo(sphere.planes_[i], CV_8U, 224.0 / 255, 128 - 128 * 224.0 / 255);
    }
    return sphere;
}

cv::Mat Sphere::plane(size_t index, int shift) const {
    return planes_[index].colRange(shift, shift + width_ + 2 * kSphereMargin);
}

}  // namespace sample
