#include "sample/lens_picture.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

namespace sample {
namespace {

constexpr int kGrainSpare = 256;  // columns and rows by which the grain of a frame can be moved

}  // namespace

LensPainter::LensPainter(const Lens& lens, double angle, Chroma chroma, int sphere_width, Lookup lookup)
    : chroma_(chroma) {
    const bool fine = lookup == Lookup::fine;
    tables_[0] = make_table(lens, angle, k444, sphere_width, fine ? cv::INTER_CUBIC : cv::INTER_LINEAR);
    tables_[1] = make_table(lens, angle, chroma, sphere_width, fine ? cv::INTER_CUBIC : cv::INTER_NEAREST);
}

LensPainter::Table LensPainter::make_table(const Lens& lens, double angle, Chroma step, int sphere_width,
                                           int interpolation) {
    const cv::Size size((lens.size() + step.columns - 1) / step.columns, (lens.size() + step.rows - 1) / step.rows);
    cv::Mat columns(size, CV_32FC1, cv::Scalar(kSphereBlack));
    cv::Mat rows(size, CV_32FC1, cv::Scalar(kSphereBlack));
    Table table;
    table.interpolation = interpolation;
    table.field = cv::Mat::zeros(size, CV_8UC1);
    cv::parallel_for_(cv::Range(0, size.height), [&](const cv::Range& range) {
        for (int y = range.start; y < range.end; ++y) {
            for (int x = 0; x < size.width; ++x) {
                // A chroma sample lies in the middle of the pixels that share it.
                const Position at{x * step.columns + (step.columns - 1) / 2.0, y * step.rows + (step.rows - 1) / 2.0};
                if (!lens.sees(at)) {
                    continue;
                }
                const Vector p = panorama_from_camera(lens.direction_at(at), angle);
                const Position found = panorama_position(p, sphere_width, sphere_width / 2);
                columns.at<float>(y, x) = static_cast<float>(found.x + kSphereMargin);
                rows.at<float>(y, x) = static_cast<float>(found.y + kSphereMargin);
                table.field.at<uint8_t>(y, x) = 255;
            }
        }
    });
    cv::convertMaps(columns, rows, table.positions, table.fractions, CV_16SC2, interpolation == cv::INTER_NEAREST);
    return table;
}

Picture LensPainter::paint(const Sphere& sphere, int shift, const std::array<int, 3>& offset) const {
    Picture picture;
    picture.chroma = chroma_;
    for (size_t i = 0; i < picture.planes.size(); ++i) {
        const Table& table = tables_[i == 0 ? 0 : 1];
        cv::remap(sphere.plane(i, shift), picture.planes[i], table.positions, table.fractions, table.interpolation,
                  cv::BORDER_REPLICATE);
        if (offset[i] != 0) {
            cv::add(picture.planes[i], cv::Scalar(offset[i]), picture.planes[i], table.field);
        }
    }
    return picture;
}

Grain::Grain(double sigma, uint64_t seed, cv::Size size) : random_(seed) {
    if (sigma > 0) {
        noise_.create(size.height + kGrainSpare, size.width + kGrainSpare, CV_8SC1);
        random_.fill(noise_, cv::RNG::NORMAL, 0, sigma);
    }
}

void Grain::add_to(cv::Mat& plane) {
    if (noise_.empty()) {
        return;
    }
    const int left = random_.uniform(0, kGrainSpare);
    const int top = random_.uniform(0, kGrainSpare);
    for (int y = 0; y < plane.rows; ++y) {
        auto* pixel = plane.ptr<uint8_t>(y);
        const auto* noise = noise_.ptr<int8_t>(top + y) + left;
        for (int x = 0; x < plane.cols; ++x) {
            pixel[x] = static_cast<uint8_t>(std::clamp(pixel[x] + noise[x], 0, 255));
        }
    }
}

}  // namespace sample
