#include "projection/seam_ring.h"

#include <algorithm>
#include <cmath>

#include "projection/angles.h"
#include "projection/sample_table.h"

namespace {

constexpr int kWhole = 256;  // of a share
constexpr float kRounding = 0.5f;
constexpr size_t kGroup = 8;  // pixels that are sampled at once; rows are filled up with pixels that no span has

// 1 where lens 1 is sampled, -1 where lens 2 is, 0 in the band. The lenses keep clear of the edges of their pictures.
void find_sides(const float* own_y, int count, float lens_rows, float* sides) {
    const float lens2 = lens_rows - 0.5f;
    const float band = 2 * lens_rows - 0.5f;
    for (int i = 0; i < count; ++i) {
        const float side = own_y[i] < lens2 ? 1.0f : -1.0f;
        sides[i] = own_y[i] < band ? side : 0.0f;
    }
}

// To be vectorised.
void mix(const uint8_t* __restrict other, const uint8_t* __restrict shares, int count, uint8_t* __restrict row) {
    for (int i = 0; i < count; ++i) {
        const auto own_share = static_cast<uint16_t>(kWhole - shares[i]);
        const auto sum = static_cast<uint16_t>(row[i] * own_share + other[i] * shares[i] + kWhole / 2);
        row[i] = static_cast<uint8_t>(sum / kWhole);
    }
}

size_t length_of(const ColumnSpan& span) {
    return static_cast<size_t>(span.end - span.first);
}

}  // namespace

SeamRing::SeamRing(const TableRows& rows, int first, int end, double width) : first_(first), width_(width) {
    // Beyond that a pixel of the other lens is worth less than half a step.
    const double visible = width * 0.95;
    size_t pixels = 0;
    for (int y = first; y < end; ++y) {
        starts_.push_back({spans_.size(), pixels});
        for (const ColumnSpan& span : rows.seam_spans(y, visible)) {
            spans_.push_back(span);
            pixels += length_of(span);
        }
        pixels = (pixels + kGroup - 1) / kGroup * kGroup;
    }
    starts_.push_back({spans_.size(), pixels});
    offsets_.resize(pixels);
    fractions_.resize(pixels);
    shares_.resize(pixels);
}

void SeamRing::find_row(const TableRows& rows, int y, TableRows::Row own, const FramedPlane& source) {
    const auto [span, pixel] = starts_[static_cast<size_t>(y - first_)];
    const auto [end_span, end_pixel] = starts_[static_cast<size_t>(y - first_) + 1];
    const size_t count = end_pixel - pixel;
    std::vector<float> scratch(4 * count);  // zeros, where no span has a pixel
    float* const x = scratch.data();
    float* const other_y = x + count;
    float* const sides = other_y + count;
    float* const shares = sides + count;
    size_t at = 0;
    for (size_t i = span; i < end_span; ++i) {
        const ColumnSpan& columns = spans_[i];
        find_sides(own.y + columns.first, columns.end - columns.first, rows.lens_rows(), sides + at);
        rows.other_lens(y, columns, width_, sides + at, x + at, other_y + at, shares + at);
        at += length_of(columns);
    }
    find_samples({x, other_y}, static_cast<int>(count), source, offsets_.data() + pixel, fractions_.data() + pixel);
    for (size_t i = 0; i < count; ++i) {
        shares_[pixel + i] = static_cast<uint8_t>(shares[i] * kWhole + kRounding);
    }
}

void SeamRing::mix_row(int y, const FramedPlane& source, std::vector<uint8_t>* scratch, uint8_t* row) const {
    if (starts_.empty()) {
        return;
    }
    const auto [span, pixel] = starts_[static_cast<size_t>(y - first_)];
    const auto [end_span, end_pixel] = starts_[static_cast<size_t>(y - first_) + 1];
    const size_t count = end_pixel - pixel;
    scratch->resize(std::max(scratch->size(), count));
    uint8_t* const other = scratch->data();
    sample_row(source.framed(), source.stride(), offsets_.data() + pixel, fractions_.data() + pixel, other,
               static_cast<int>(count));
    size_t at = 0;
    for (size_t i = span; i < end_span; ++i) {
        const ColumnSpan& columns = spans_[i];
        mix(other + at, shares_.data() + pixel + at, columns.end - columns.first, row + columns.first);
        at += length_of(columns);
    }
}

std::vector<SeamRing::Pixel> SeamRing::pixels_of_row(int y) const {
    const auto [span, pixel] = starts_[static_cast<size_t>(y - first_)];
    const size_t end_span = starts_[static_cast<size_t>(y - first_) + 1].span;
    std::vector<Pixel> pixels;
    size_t at = pixel;
    for (size_t i = span; i < end_span; ++i) {
        for (int column = spans_[i].first; column < spans_[i].end; ++column, ++at) {
            pixels.push_back({column, offsets_[at], fractions_[at], shares_[at]});
        }
    }
    return pixels;
}

// ---- What the lenses show past the seam ----

namespace {

constexpr int kDirections = 180;         // along the seam
constexpr double kStep = radians(0.25);  // away from it
constexpr double kEdge = radians(0.3);   // a picture's edge is soft, and colour has half of the pixels
constexpr double kLeastLit = 0.05;       // of the directions must be lit to tell anything
constexpr double kMostDark = 0.2;        // of the lit directions; things near the camera differ between the lenses

// What lens 1 or 2 shows in a direction, to the nearest pixel of the stack.
int value_of(const TableRows& rows, const cv::Mat& stack, int lens, double phi, double psi) {
    float x = 0;
    float y = 0;
    rows.lens_position(lens, phi, psi, &x, &y);
    const int column = std::clamp(static_cast<int>(std::lround(x)), 0, stack.cols - 1);
    const int row = std::clamp(static_cast<int>(std::lround(y)), 0, stack.rows - 1);
    return stack.at<uint8_t>(row, column);
}

}  // namespace

LitOverlap lit_overlap(const TableRows& rows, const FramedPlane& stack, const std::array<int, 2>& black,
                       const std::array<int, 2>& lit, double width) {
    LitOverlap found = {width, false};
    for (int lens = 0; lens < 2; ++lens) {
        const size_t other = lens == 0 ? 1 : 0;
        for (int step = 1; step * kStep < width + kEdge; ++step) {
            const double past = step * kStep;
            const double phi = kPi / 2 + (lens == 0 ? past : -past);
            int lit_ones = 0;
            int dark_ones = 0;
            for (int i = 0; i < kDirections; ++i) {
                const double psi = i * 2 * kPi / kDirections;
                if (value_of(rows, stack.pixels(), static_cast<int>(other), phi, psi) > lit[other]) {
                    ++lit_ones;
                    dark_ones += value_of(rows, stack.pixels(), lens, phi, psi) <= black[static_cast<size_t>(lens)];
                }
            }
            if (lit_ones < kLeastLit * kDirections) {
                continue;
            }
            found.known = true;
            if (dark_ones > kMostDark * lit_ones) {
                found.width = std::min(found.width, std::max(past - kStep - kEdge, 0.0));
                break;
            }
        }
    }
    return found;
}
