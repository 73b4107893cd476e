#include "jobs/seam.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "jobs/errors.h"
#include "projection/lens_circle.h"

namespace {

constexpr double kHalfPi = 1.57079632679489661923;
constexpr double kDegree = kHalfPi / 90;

// A ring around the seam as one lens shows it: a column for each direction along the seam, rows from this angle on
// lens 1's side of it to the same on lens 2's. The middle row is the seam.
constexpr int kDirections = 2048;
constexpr int kRowsPerSide = 20;
constexpr double kRowAngle = 0.1 * kDegree;

// Rows from the seam on. In the overlap all up to one degree; otherwise two zones on each side, none next to the
// seam, where the picture's edge may show.
constexpr int kOverlapRows = 10;
struct Zone {
    int first;
    int last;
    double middle() const { return (first + last) / 2.0; }
};
constexpr Zone kNear = {5, 9};
constexpr Zone kFar = {15, 19};

constexpr uint8_t kDarkest = 1;  // beyond these a correction is cut off
constexpr uint8_t kBrightest = 254;
constexpr uint8_t kDark = 24;         // what lies outside a lens circle is darker
constexpr double kLeastShare = 0.05;  // of the directions that must be left to compare

// The ring of lens 1 (0) or lens 2 (1) out of one plane; `scale` is the plane's share of the picture's size.
cv::Mat ring_of(const cv::Mat& plane, int lens, double turn, double radius, double scale) {
    const cv::Size size(kDirections, 2 * kRowsPerSide + 1);
    cv::Mat columns(size, CV_32FC1);
    cv::Mat rows(size, CV_32FC1);
    const cv::Point centre(plane.cols / 2, plane.rows / 2);  // whole pixels, as the stitcher has it
    const double pixels_per_radian = radius * scale / kHalfPi;
    const double side = lens == 0 ? 1 : -1;  // lens 2 looks the other way: its angles are the rest to 180 degrees
    for (int y = 0; y < size.height; ++y) {
        const double distance = (kHalfPi + side * (y - kRowsPerSide) * kRowAngle) * pixels_per_radian;
        for (int x = 0; x < size.width; ++x) {
            const double azimuth = 4 * kHalfPi * x / kDirections + turn;
            columns.at<float>(y, x) = static_cast<float>(centre.x + side * std::cos(azimuth) * distance);
            rows.at<float>(y, x) = static_cast<float>(centre.y + std::sin(azimuth) * distance);
        }
    }
    cv::Mat ring;
    cv::remap(plane, ring, columns, rows, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(0));
    return ring;
}

// One plane of both lenses around the seam.
class Rings {
  public:
    Rings(const LensPair& pair, size_t plane) {
        const cv::Mat& luma = pair.pictures[0].YUVMats[0];
        for (int lens = 0; lens < 2; ++lens) {
            const cv::Mat& samples = pair.pictures[lens].YUVMats[plane];
            rings_[lens] = ring_of(samples, lens, pair.turns[lens], projection_radius(luma.cols),
                                   static_cast<double>(samples.cols) / luma.cols);
        }
    }

    // Whether both lenses go on past the seam wherever there is light next to it.
    bool overlap() const {
        int lit = 0;
        int beyond = 0;
        for (int lens = 0; lens < 2; ++lens) {
            for (int x = 0; x < kDirections; ++x) {
                const bool is_lit = zone_mean(lens, own_side(lens), x, kNear) > kDark;
                lit += is_lit;
                beyond += is_lit && zone_mean(lens, -own_side(lens), x, kNear) > kDark;
            }
        }
        return beyond > 0.9 * lit;
    }

    // The directions in which nothing that is compared is black or white.
    std::vector<int> usable_directions(bool overlap) const {
        std::vector<int> directions;
        for (int x = 0; x < kDirections; ++x) {
            const bool usable =
                overlap ? is_usable(0, x, -kOverlapRows, kOverlapRows) && is_usable(1, x, -kOverlapRows, kOverlapRows)
                        : is_usable(0, x, -kFar.last, -kNear.first) && is_usable(1, x, kNear.first, kFar.last);
            if (usable) {
                directions.push_back(x);
            }
        }
        return directions;
    }

    // What lens 2 has more in the same places.
    double overlap_step(int x) const {
        double sum = 0;
        for (int row = -kOverlapRows; row <= kOverlapRows; ++row) {
            sum += value(1, x, row) - value(0, x, row);
        }
        return sum / (2 * kOverlapRows + 1);
    }

    // What lens 2 has more at the seam, as each lens's own side goes on to it.
    double continued_step(int x) const { return at_seam(1, x) - at_seam(0, x); }

  private:
    static int own_side(int lens) { return lens == 0 ? -1 : 1; }

    uint8_t value(int lens, int x, int row) const { return rings_[lens].at<uint8_t>(kRowsPerSide + row, x); }

    double zone_mean(int lens, int side, int x, Zone zone) const {
        double sum = 0;
        for (int row = zone.first; row <= zone.last; ++row) {
            sum += value(lens, x, side * row);
        }
        return sum / (zone.last - zone.first + 1);
    }

    double at_seam(int lens, int x) const {
        const double near = zone_mean(lens, own_side(lens), x, kNear);
        const double far = zone_mean(lens, own_side(lens), x, kFar);
        return near + (near - far) * kNear.middle() / (kFar.middle() - kNear.middle());
    }

    bool is_usable(int lens, int x, int first_row, int last_row) const {
        for (int row = first_row; row <= last_row; ++row) {
            if (value(lens, x, row) <= kDarkest || value(lens, x, row) >= kBrightest) {
                return false;
            }
        }
        return true;
    }

    cv::Mat rings_[2];
};

// The mean of the middle half: as deaf to objects that only one lens sees as the median, and finer.
double middle_mean(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto quarter = static_cast<std::ptrdiff_t>(values.size() / 4);
    double sum = 0;
    std::for_each(values.begin() + quarter, values.end() - quarter, [&](double value) { sum += value; });
    return sum / static_cast<double>(values.end() - values.begin() - 2 * quarter);
}

int closing_part(int offset) {
    return offset == 0 ? CORRECT_NONE : offset;
}

}  // namespace

Seam::Seam(const LensPair& pair) : lenses_overlap_(Rings(pair, 0).overlap()) {
    for (size_t plane = 0; plane < directions_.size(); ++plane) {
        directions_[plane] = Rings(pair, plane).usable_directions(lenses_overlap_);
        if (static_cast<double>(directions_[plane].size()) < kLeastShare * kDirections) {
            throw CommandError(
                "too little of the seam is neither black nor white to compare the lenses; take another shot or "
                "another --start");
        }
    }
}

SeamStep Seam::step(const LensPair& pair) const {
    SeamStep step{};
    for (size_t plane = 0; plane < step.size(); ++plane) {
        const Rings rings(pair, plane);
        std::vector<double> steps;
        for (const int x : directions_[plane]) {
            steps.push_back(lenses_overlap_ ? rings.overlap_step(x) : rings.continued_step(x));
        }
        step[plane] = middle_mean(std::move(steps));
    }
    return step;
}

double magnitude(const SeamStep& step) {
    return std::hypot(step[0], step[1], step[2]);
}

std::array<Correction, 2> closing_corrections(const SeamStep& step) {
    int first[3];
    int second[3];
    for (size_t i = 0; i < step.size(); ++i) {
        const int whole = static_cast<int>(std::lround(step[i]));
        first[i] = whole / 2;
        second[i] = first[i] - whole;
    }
    return {Correction{closing_part(first[0]), closing_part(first[1]), closing_part(first[2])},
            Correction{closing_part(second[0]), closing_part(second[1]), closing_part(second[2])}};
}
