#include "seam/seam_pair.h"

#include "projection/lens_circle.h"

namespace {

// Rows from the seam on. In the overlap all up to one degree; otherwise two zones on each lens's own side, none next to
// the seam, where the picture's edge may show.
constexpr int kOverlapRows = 10;
struct Zone {
    int first;
    int last;
    double middle() const { return (first + last) / 2.0; }
};
constexpr Zone kNear = {5, 9};
constexpr Zone kFar = {15, 19};

constexpr uint8_t kDarkest = 1;
constexpr uint8_t kBrightest = 254;
constexpr uint8_t kDark = 24;  // what lies outside a lens circle is darker

// The side of the seam that a lens looks to, as a factor of rows.
int own_side(int lens) {
    return lens == 0 ? -1 : 1;
}

double mean(const Ring& ring, int first_row, int last_row, int direction) {
    double sum = 0;
    for (int row = first_row; row <= last_row; ++row) {
        sum += ring.at(row, direction);
    }
    return sum / (last_row - first_row + 1);
}

double zone_mean(const Ring& ring, int side, Zone zone, int direction) {
    return side < 0 ? mean(ring, -zone.last, -zone.first, direction) : mean(ring, zone.first, zone.last, direction);
}

// As the lens's own side goes on to the seam.
double continued(const Ring& ring, int lens, int direction) {
    const double near = zone_mean(ring, own_side(lens), kNear, direction);
    const double far = zone_mean(ring, own_side(lens), kFar, direction);
    return near + (near - far) * kNear.middle() / (kFar.middle() - kNear.middle());
}

bool is_usable(const Ring& ring, int first_row, int last_row, int direction) {
    for (int row = first_row; row <= last_row; ++row) {
        const uint8_t value = ring.at(row, direction);
        if (value <= kDarkest || value >= kBrightest) {
            return false;
        }
    }
    return true;
}

bool are_overlapping(const Ring& ring1, const Ring& ring2) {
    int lit = 0;
    int beyond = 0;
    for (int lens = 0; lens < 2; ++lens) {
        const Ring& ring = lens == 0 ? ring1 : ring2;
        for (int x = 0; x < Ring::kDirections; ++x) {
            const bool is_lit = zone_mean(ring, own_side(lens), kNear, x) > kDark;
            lit += is_lit;
            beyond += is_lit && zone_mean(ring, -own_side(lens), kNear, x) > kDark;
        }
    }
    return beyond > 0.9 * lit;
}

cv::Mat plane_of(const AVFrame* frame, int plane) {
    const int halving = plane == 0 ? 1 : 2;
    return cv::Mat(frame->height / halving, frame->width / halving, CV_8UC1, frame->data[plane],
                   static_cast<size_t>(frame->linesize[plane]));
}

}  // namespace

SeamPair::SeamPair(const AVFrame* frame1, const AVFrame* frame2, double turn1, double turn2) {
    const double radius = projection_radius(frame1->width);
    for (int plane = 0; plane < 3; ++plane) {
        const double plane_radius = plane == 0 ? radius : radius / 2;
        rings_.emplace_back(plane_of(frame1, plane), 0, turn1, plane_radius);
        rings_.emplace_back(plane_of(frame2, plane), 1, turn2, plane_radius);
    }
    overlaps_ = are_overlapping(ring(0, 0), ring(0, 1));
}

std::vector<SeamValues> SeamPair::values(int plane, int shift) const {
    const Ring& ring1 = ring(plane, 0);
    const Ring& ring2 = ring(plane, 1);
    std::vector<SeamValues> values;
    for (int x = 0; x < Ring::kDirections; ++x) {
        if (overlaps_) {
            if (is_usable(ring1, -kOverlapRows, kOverlapRows, x) &&
                is_usable(ring2, -kOverlapRows, kOverlapRows, x + shift)) {
                values.push_back(
                    {mean(ring1, -kOverlapRows, kOverlapRows, x), mean(ring2, -kOverlapRows, kOverlapRows, x + shift)});
            }
        } else if (is_usable(ring1, -kFar.last, -kNear.first, x) &&
                   is_usable(ring2, kNear.first, kFar.last, x + shift)) {
            values.push_back({continued(ring1, 0, x), continued(ring2, 1, x + shift)});
        }
    }
    return values;
}

std::vector<SeamPair::Rows> SeamPair::rows_alike() const {
    std::vector<Rows> rows;
    const int first = overlaps_ ? -kOverlapRows : kNear.first;
    const int last = overlaps_ ? kOverlapRows : kNear.last;
    for (int row = first; row <= last; ++row) {
        rows.push_back({ring(0, 0).row(overlaps_ ? row : -row), ring(0, 1).row(row)});
    }
    return rows;
}

cv::Mat usable(const cv::Mat& samples) {
    return (samples > kDarkest) & (samples < kBrightest);
}
